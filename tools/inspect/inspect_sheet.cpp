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
#include "text.h"

namespace
{

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

const double LETTER_SMALL = 0.42;
const double LETTER_LARGE = 0.55;
const double LETTER_LEAST = 0.36;
const double DIM = 0.3; // what is left of a dimmed picture, the rest is paper

// Blue, green, red.
const cv::Scalar PAPER(255, 255, 255);
const cv::Scalar INK(40, 40, 40);
const cv::Scalar FAINT(150, 150, 150);
const cv::Scalar GREEN(40, 150, 20);
const cv::Scalar ORANGE(0, 120, 240);

// One picture that the scanner was handed.
struct Tile {
    std::string title;
    std::string finding;
    bool made = false; // by the reading
    bool won = false;
    cv::Mat picture;
    WatchedScan scan;
};

// The built-in letters are ASCII.
std::string Ascii(const std::string& text)
{
    std::string ascii = Text_Escape(text);
    for (char& letter : ascii) {
        letter = letter >= ' ' && letter <= '~' ? letter : '?';
    }
    return ascii;
}

void Write(cv::Mat& sheet, const std::string& text, cv::Point at, int width, double letter,
           const cv::Scalar& colour, int thick = 1)
{
    int ignored = 0;
    std::string shown = text;
    const auto tooWide = [&] {
        return cv::getTextSize(shown, cv::FONT_HERSHEY_SIMPLEX, letter, thick, &ignored).width >
               width;
    };
    while (letter > LETTER_LEAST && tooWide()) {
        letter -= 0.01;
    }
    for (size_t kept = text.size(); kept > 0 && tooWide(); --kept) {
        shown = text.substr(0, kept) + "...";
    }
    cv::putText(sheet, shown, at, cv::FONT_HERSHEY_SIMPLEX, letter, colour, thick, cv::LINE_AA);
}

std::string FindingOf(const WatchedScan& scan, bool made)
{
    std::string symbologies;
    for (const WatchedSymbol& symbol : scan.symbols) {
        symbologies += (symbologies.empty() ? "" : ", ") + symbol.symbology;
    }
    if (!made) {
        return "not made, would find " + (symbologies.empty() ? "nothing" : symbologies);
    }
    if (scan.symbols.size() == 1) {
        return symbologies + " \"" + Ascii(scan.symbols[0].text) + "\"";
    }
    return symbologies.empty() ? "nothing" : symbologies;
}

Tile MakeTile(const WatchedReading& reading, const cv::Mat& picture, int attempt, bool opened)
{
    Tile tile;
    char ignoredText[QRCODE_TEXT_SIZE] = {};
    Watch_Begin();
    Qrcode_ScanImage(picture, ignoredText);
    tile.scan = Watch_Scans().back();
    tile.picture = picture;
    const int scanNumber = 2 * (attempt - 1) + (opened ? 2 : 1);
    tile.made = scanNumber <= reading.scans;
    tile.won = attempt == reading.attempt && opened == reading.opened;
    tile.title =
        std::to_string(attempt) + " " + Qrcode_AttemptName(attempt) + (opened ? ", opened" : "");
    tile.finding = FindingOf(tile.scan, tile.made);
    return tile;
}

// Scales so that the longer side fits a tile; very long pictures keep a pixel of the other side.
double ScaleOf(const cv::Mat& picture)
{
    return static_cast<double>(TILE) / std::max(picture.cols, picture.rows);
}

// zbar gives a QR code's four corners in order, and of a bar code points on the lines that read it,
// to and fro: their hull is what can be seen.
std::vector<cv::Point> Outline(const WatchedSymbol& symbol, double scale)
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

cv::Mat Drawn(const Tile& tile)
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
            cv::polylines(coloured, outline, true, tile.won ? GREEN : ORANGE, 2, cv::LINE_AA);
        }
        for (const cv::Point& corner : outline) {
            cv::circle(coloured, corner, 4, tile.won ? GREEN : ORANGE, cv::FILLED, cv::LINE_AA);
        }
    }
    if (!tile.made) {
        coloured = coloured * DIM + PAPER * (1.0 - DIM);
    }
    return coloured;
}

void PutTile(cv::Mat& sheet, const Tile& tile, cv::Point at)
{
    const cv::Scalar& colour = tile.won ? GREEN : tile.made ? INK : FAINT;
    Write(sheet, tile.title, at + cv::Point(0, LINE_HEIGHT - 4), TILE, LETTER_SMALL, colour);
    Write(sheet, tile.finding, at + cv::Point(0, 2 * LINE_HEIGHT - 4), TILE, LETTER_SMALL, colour);
    const cv::Mat drawn = Drawn(tile);
    const cv::Rect place(at.x, at.y + LABEL, drawn.cols, drawn.rows);
    drawn.copyTo(sheet(place));
    if (tile.won) {
        cv::rectangle(sheet, place + cv::Point(-FRAME / 2, -FRAME / 2) + cv::Size(FRAME, FRAME),
                      GREEN, FRAME);
    } else {
        cv::rectangle(sheet, place + cv::Point(-1, -1) + cv::Size(2, 2), FAINT, 1);
    }
}

std::string Verdict(const WatchedReading& reading)
{
    if (reading.attempt == 0) {
        return "no code found in " + std::to_string(reading.scans) + " scans";
    }
    return std::string(reading.outcome == READING_SHORT ? "too short to be reported: \""
                                                        : "read: \"") +
           Ascii(reading.text) + "\", " + reading.symbologies + ", by " +
           Qrcode_AttemptName(reading.attempt) + (reading.opened ? ", opened" : "") + ", scan " +
           std::to_string(reading.scans);
}

} // namespace

cv::Mat Sheet_Draw(const WatchedReading& reading, const cv::Mat& grey, const std::string& name,
                   const std::vector<int>& attempts)
{
    std::vector<int> shown = attempts;
    for (int n = 1; attempts.empty() && n <= Qrcode_AttemptCount(); ++n) {
        shown.push_back(n);
    }
    const int count = static_cast<int>(shown.size());
    const int abreast = std::min<int>(count, TILES_ABREAST);
    const int rowCount = 2 * ((count + TILES_ABREAST - 1) / TILES_ABREAST);
    const int tileHeight = LABEL + cvRound(grey.rows * ScaleOf(grey)) + GAP;
    cv::Mat sheet(HEADER + rowCount * tileHeight, GAP + abreast * (TILE + GAP), CV_8UC3, PAPER);

    const int textWidth = sheet.cols - 2 * GAP;
    Write(sheet, Ascii(name), cv::Point(GAP, 24), textWidth, LETTER_LARGE, INK);
    Write(sheet, Verdict(reading), cv::Point(GAP, 24 + LINE_HEIGHT + 2), textWidth, LETTER_LARGE,
          reading.attempt != 0 ? GREEN : ORANGE);
    CascadePictures pictures;
    pictures.grey = grey;
    for (int i = 0; i < count; ++i) {
        const int attempt = shown[static_cast<size_t>(i)];
        const cv::Mat prepared = Qrcode_PrepareAttempt(attempt, &pictures);
        const cv::Point at(GAP + i % TILES_ABREAST * (TILE + GAP),
                           HEADER + i / TILES_ABREAST * 2 * tileHeight);
        PutTile(sheet, MakeTile(reading, prepared, attempt, false), at);
        PutTile(sheet, MakeTile(reading, Qrcode_OpenPicture(prepared), attempt, true),
                at + cv::Point(0, tileHeight));
    }
    return sheet;
}

bool Sheet_Write(const cv::Mat& sheet, const std::string& path, std::string& error)
{
    std::vector<uint8_t> png;
    cv::imencode(".png", sheet, png, {cv::IMWRITE_PNG_COMPRESSION, 9});
    const std::string part = path + ".part";
    std::FILE* const file = std::fopen(part.c_str(), "wb");
    if (file == nullptr) {
        error = std::strerror(errno);
        return false;
    }
    bool done = std::fwrite(png.data(), 1, png.size(), file) == png.size();
    done = std::fclose(file) == 0 && done;
    done = done && std::rename(part.c_str(), path.c_str()) == 0;
    if (!done) {
        error = std::strerror(errno);
        std::remove(part.c_str());
    }
    return done;
}
