#include "inspect_sheet.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "cascade.h"
#include "scan_watch.h"
#include "symbol_scan.h"
#include "text_escape.h"

// Pixels.
enum {
    TILE = 260, // longer side of a picture
    LABEL = 40, // above it: two lines
    GAP = 14,
    HEADER = 58,
    LINE_HEIGHT = 18,
    TILES_ABREAST = 4,
    FRAME = 4
};

static const double LETTER_SMALL = 0.42;
static const double LETTER_LARGE = 0.55;
static const double LETTER_LEAST = 0.36;
static const double DIM = 0.3; // what is left of a dimmed picture, the rest is paper

// Blue, green, red.
static const cv::Scalar PAPER(255, 255, 255);
static const cv::Scalar INK(40, 40, 40);
static const cv::Scalar FAINT(150, 150, 150);
static const cv::Scalar GREEN(40, 150, 20);
static const cv::Scalar ORANGE(0, 120, 240);

// One picture that the scanner was handed.
struct Tile {
    std::string title;
    std::string finding;
    bool bMade = false; // by the reading
    bool bWon = false;
    cv::Mat picture;
    WatchedScan scan;
};

// The built-in letters are ASCII.
static std::string Ascii(const std::string& text)
{
    std::string ascii = Panel_EscapeText(text);
    for (char& letter : ascii) {
        letter = letter >= ' ' && letter <= '~' ? letter : '?';
    }
    return ascii;
}

static void Write(cv::Mat& sheet, const std::string& text, cv::Point at, int nWidth, double letter,
                  const cv::Scalar& colour, int nThick = 1)
{
    int nIgnored = 0;
    std::string shown = text;
    const auto tooWide = [&] {
        return cv::getTextSize(shown, cv::FONT_HERSHEY_SIMPLEX, letter, nThick, &nIgnored).width >
               nWidth;
    };
    while (letter > LETTER_LEAST && tooWide()) {
        letter -= 0.01;
    }
    for (size_t nKept = text.size(); nKept > 0 && tooWide(); --nKept) {
        shown = text.substr(0, nKept) + "...";
    }
    cv::putText(sheet, shown, at, cv::FONT_HERSHEY_SIMPLEX, letter, colour, nThick, cv::LINE_AA);
}

static std::string SymbologiesOf(const WatchedScan& scan)
{
    std::string all;
    for (const WatchedSymbol& symbol : scan.symbols) {
        all += (all.empty() ? "" : ", ") + symbol.symbology;
    }
    return all;
}

static std::string FindingOf(const WatchedScan& scan, bool bMade)
{
    const std::string symbologies = SymbologiesOf(scan);
    if (!bMade) {
        return "not made, would find " + (symbologies.empty() ? "nothing" : symbologies);
    }
    if (scan.symbols.size() == 1) {
        return symbologies + " \"" + Ascii(scan.symbols[0].text) + "\"";
    }
    return symbologies.empty() ? "nothing" : symbologies;
}

static Tile MakeTile(const WatchedReading& reading, const cv::Mat& picture, int nAttempt,
                     bool bOpened)
{
    Tile tile;
    char szIgnored[QRCODE_TEXT_SIZE] = {};
    Watch_Begin();
    Qrcode_ScanImage(picture, szIgnored);
    tile.scan = Watch_Scans().back();
    tile.picture = picture;
    const int nScan = 2 * (nAttempt - ATTEMPT_PLAIN) + (bOpened ? 2 : 1);
    tile.bMade = nScan <= reading.nScans;
    tile.bWon = nAttempt == reading.nAttempt && bOpened == reading.bOpened;
    tile.title = std::to_string(nAttempt) + " " + Reading_AttemptName(nAttempt) +
                 (bOpened ? ", opened" : "");
    tile.finding = FindingOf(tile.scan, tile.bMade);
    return tile;
}

// Scales so that the longer side fits a tile; very long pictures keep a pixel of the other side.
static double ScaleOf(const cv::Mat& picture)
{
    return static_cast<double>(TILE) / std::max(picture.cols, picture.rows);
}

// zbar gives a QR code's four corners in order, and of a bar code points on the lines that read it,
// to and fro: their hull is what can be seen.
static std::vector<cv::Point> Outline(const WatchedSymbol& symbol, double scale)
{
    std::vector<cv::Point> points;
    for (const cv::Point& corner : symbol.corners) {
        points.emplace_back(cvRound(corner.x * scale), cvRound(corner.y * scale));
    }
    if (points.size() > 4) {
        std::vector<cv::Point> hull;
        cv::convexHull(points, hull);
        points = hull;
    }
    return points;
}

static cv::Mat Drawn(const Tile& tile)
{
    const double scale = ScaleOf(tile.picture);
    const cv::Size size(std::max(1, cvRound(tile.picture.cols * scale)),
                        std::max(1, cvRound(tile.picture.rows * scale)));
    cv::Mat scaled;
    cv::resize(tile.picture, scaled, size, 0, 0, scale < 1.0 ? cv::INTER_AREA : cv::INTER_NEAREST);
    cv::Mat coloured;
    cv::cvtColor(scaled, coloured, cv::COLOR_GRAY2BGR);
    for (const WatchedSymbol& symbol : tile.scan.symbols) {
        const std::vector<cv::Point> outline = Outline(symbol, scale);
        if (!outline.empty()) {
            cv::polylines(coloured, outline, true, tile.bWon ? GREEN : ORANGE, 2, cv::LINE_AA);
        }
        for (const cv::Point& corner : outline) {
            cv::circle(coloured, corner, 4, tile.bWon ? GREEN : ORANGE, cv::FILLED, cv::LINE_AA);
        }
    }
    if (!tile.bMade) {
        coloured = coloured * DIM + PAPER * (1.0 - DIM);
    }
    return coloured;
}

static void PutTile(cv::Mat& sheet, const Tile& tile, cv::Point at)
{
    const cv::Scalar& colour = tile.bWon ? GREEN : tile.bMade ? INK : FAINT;
    Write(sheet, tile.title, at + cv::Point(0, LINE_HEIGHT - 4), TILE, LETTER_SMALL, colour);
    Write(sheet, tile.finding, at + cv::Point(0, 2 * LINE_HEIGHT - 4), TILE, LETTER_SMALL, colour);
    const cv::Mat drawn = Drawn(tile);
    const cv::Rect place(at.x, at.y + LABEL, drawn.cols, drawn.rows);
    drawn.copyTo(sheet(place));
    if (tile.bWon) {
        cv::rectangle(sheet, place + cv::Point(-FRAME / 2, -FRAME / 2) + cv::Size(FRAME, FRAME),
                      GREEN, FRAME);
    } else {
        cv::rectangle(sheet, place + cv::Point(-1, -1) + cv::Size(2, 2), FAINT, 1);
    }
}

static std::string Verdict(const WatchedReading& reading)
{
    if (reading.nAttempt == 0) {
        return "no code found in " + std::to_string(reading.nScans) + " scans";
    }
    return std::string(reading.outcome == READING_SHORT ? "too short to be reported: \""
                                                        : "read: \"") +
           Ascii(reading.szText) + "\", " + reading.szSymbologies + ", by " +
           Reading_AttemptName(reading.nAttempt) + (reading.bOpened ? ", opened" : "") + ", scan " +
           std::to_string(reading.nScans);
}

cv::Mat Sheet_Draw(const WatchedReading& reading, const cv::Mat& grey, const std::string& name,
                   const std::vector<int>& attempts)
{
    std::vector<int> shown = attempts;
    for (int n = ATTEMPT_PLAIN; attempts.empty() && n <= ATTEMPT_COUNT; ++n) {
        shown.push_back(n);
    }
    const int nCount = static_cast<int>(shown.size());
    const int nAbreast = std::min<int>(nCount, TILES_ABREAST);
    const int nRows = 2 * ((nCount + TILES_ABREAST - 1) / TILES_ABREAST);
    const int nTileHeight = LABEL + cvRound(grey.rows * ScaleOf(grey)) + GAP;
    cv::Mat sheet(HEADER + nRows * nTileHeight, GAP + nAbreast * (TILE + GAP), CV_8UC3, PAPER);

    const int nTextWidth = sheet.cols - 2 * GAP;
    Write(sheet, Ascii(name), cv::Point(GAP, 24), nTextWidth, LETTER_LARGE, INK);
    Write(sheet, Verdict(reading), cv::Point(GAP, 24 + LINE_HEIGHT + 2), nTextWidth, LETTER_LARGE,
          reading.nAttempt != 0 ? GREEN : ORANGE);
    cv::Mat work;
    for (int i = 0; i < nCount; ++i) {
        const int nAttempt = shown[static_cast<size_t>(i)];
        const cv::Mat prepared = Qrcode_PrepareAttempt(nAttempt, grey, work);
        const cv::Point at(GAP + i % TILES_ABREAST * (TILE + GAP),
                           HEADER + i / TILES_ABREAST * 2 * nTileHeight);
        PutTile(sheet, MakeTile(reading, prepared, nAttempt, false), at);
        PutTile(sheet, MakeTile(reading, Qrcode_OpenPicture(prepared), nAttempt, true),
                at + cv::Point(0, nTileHeight));
    }
    return sheet;
}

bool Sheet_Write(const cv::Mat& sheet, const std::string& path, std::string& error)
{
    std::vector<uint8_t> png;
    cv::imencode(".png", sheet, png, {cv::IMWRITE_PNG_COMPRESSION, 9});
    const std::string part = path + ".part";
    std::FILE* const file = std::fopen(part.c_str(), "wb");
    bool bWritten = file != nullptr && std::fwrite(png.data(), 1, png.size(), file) == png.size();
    error = std::strerror(errno);
    if (file != nullptr && std::fclose(file) != 0) {
        error = std::strerror(errno);
        bWritten = false;
    }
    if (bWritten && std::rename(part.c_str(), path.c_str()) == 0) {
        return true;
    }
    if (bWritten) {
        error = std::strerror(errno);
    }
    if (file != nullptr) {
        std::remove(part.c_str());
    }
    return false;
}
