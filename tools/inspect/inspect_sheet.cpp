#include "inspect_sheet.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "cascade.h"
#include "inspect_report.h"
#include "letters.h"
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
    LINE_HEIGHT = 18, // of a tile's label
    HEAD_LINE = 22,
    FOOT_LINE = 17,
    TILES_ABREAST = 4,
    FRAME = 4
};

// Pixels of height.
enum { LETTER_SMALL = 12, LETTER_HEAD = 15 };

const double DIM = 0.3; // what is left of a dimmed picture, the rest is paper

// Blue, green, red.
const cv::Scalar PAPER(255, 255, 255);
const cv::Scalar INK(40, 40, 40);
const cv::Scalar FAINT(150, 150, 150);
const cv::Scalar GREEN(40, 150, 20);
const cv::Scalar AMBER(0, 125, 215);
const cv::Scalar RED(40, 40, 200);
const cv::Scalar BLUE(200, 110, 0);

// By ReportGrade.
const cv::Scalar GRADE_COLOURS[] = {GREEN, AMBER, RED};

const char FOOT[] =
    "Opened: bright specks removed. Otsu: a level found by itself. Frame: the scan that won. "
    "Outline: a code (blue: another scan's; red: not read). Dimmed: scan not made.";

// The text, or as much of its beginning as fits, with "..." behind it.
std::string Cut(const Letters& letters, const std::string& text, int size, int width)
{
    std::string shown = text;
    for (size_t kept = text.size(); kept > 0 && letters.Width(shown, size) > width;) {
        --kept;
        while (kept > 0 && (static_cast<unsigned char>(text[kept]) & 0xC0) == 0x80) {
            --kept; // not inside a character
        }
        shown = text.substr(0, kept) + "...";
    }
    return shown;
}

// The text in lines that fit, broken at blanks where there are any.
std::vector<std::string> Lines(const Letters& letters, const std::string& text, int size, int width)
{
    std::vector<std::string> lines;
    std::string rest = text;
    while (letters.Width(rest, size) > width) {
        std::string line = Cut(letters, rest, size, width);
        line.resize(line.size() - 3); // its dots
        const size_t blank = rest[line.size()] == ' ' ? line.size() : line.rfind(' ');
        if (blank != std::string::npos && blank > 0) {
            line.resize(blank);
        }
        if (line.empty()) {
            break;
        }
        lines.push_back(line);
        rest.erase(0, line.size());
        rest.erase(0, rest.find_first_not_of(' '));
    }
    lines.push_back(rest);
    return lines;
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
        return symbologies + " " + Text_Shown(scan.symbols[0].text);
    }
    return symbologies.empty() ? "nothing" : symbologies;
}

double ScaleOf(const cv::Mat& picture, int side)
{
    return static_cast<double>(side) / std::max(picture.cols, picture.rows);
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

void DrawOutline(cv::Mat& picture, const std::vector<cv::Point>& outline, const cv::Scalar& colour)
{
    if (!outline.empty()) {
        cv::polylines(picture, outline, true, colour, 2, cv::LINE_AA);
    }
    for (const cv::Point& corner : outline) {
        cv::circle(picture, corner, 4, colour, cv::FILLED, cv::LINE_AA);
    }
}

// The outline of a located code that is not read is empty where there is none.
cv::Mat Drawn(const cv::Mat& picture, const WatchedScan& scan,
              const std::vector<cv::Point>& located, double scale, const cv::Scalar& colour,
              bool dimmed)
{
    // Very long pictures keep a pixel of the other side.
    const cv::Size size(std::max(1, cvRound(picture.cols * scale)),
                        std::max(1, cvRound(picture.rows * scale)));
    cv::Mat scaled;
    cv::resize(picture, scaled, size, 0, 0, scale < 1.0 ? cv::INTER_AREA : cv::INTER_NEAREST);
    cv::Mat coloured;
    cv::cvtColor(scaled, coloured, cv::COLOR_GRAY2BGR);
    for (const WatchedSymbol& symbol : scan.symbols) {
        DrawOutline(coloured, Outline(symbol, scale), colour);
    }
    if (!located.empty()) {
        cv::polylines(coloured, located, true, RED, 1, cv::LINE_AA);
    }
    if (dimmed) {
        coloured = coloured * DIM + PAPER * (1.0 - DIM);
    }
    return coloured;
}

SheetTile MakeTile(const WatchedReading& reading, const cv::Mat& picture, int attempt, bool opened,
                   const std::vector<cv::Point>& located, double scale)
{
    SheetTile tile;
    char ignoredText[QRCODE_TEXT_SIZE] = {};
    Watch_Begin();
    Qrcode_ScanImage(picture, ignoredText);
    const WatchedScan& scan = Watch_Scans().back();
    const int scanNumber = 2 * (attempt - 1) + (opened ? 2 : 1);
    tile.made = scanNumber <= reading.scans;
    tile.won = attempt == reading.attempt && opened == reading.opened;
    tile.title =
        std::to_string(attempt) + " " + Qrcode_AttemptName(attempt) + (opened ? ", opened" : "");
    tile.finding = FindingOf(scan, tile.made);
    tile.drawn = Drawn(picture, scan, located, scale,
                       tile.won ? GRADE_COLOURS[Report_Grade(reading)] : BLUE, !tile.made);
    return tile;
}

void PutTile(cv::Mat& sheet, const Letters& letters, const SheetTile& tile, cv::Point at,
             const cv::Scalar& won)
{
    const cv::Scalar& colour = tile.won ? won : tile.made ? INK : FAINT;
    const std::string labels[] = {tile.title, tile.finding};
    for (int i = 0; i < 2; ++i) {
        letters.Draw(sheet, Cut(letters, labels[i], LETTER_SMALL, TILE),
                     at + cv::Point(0, (i + 1) * LINE_HEIGHT - 4), LETTER_SMALL, colour);
    }
    const cv::Rect place(at.x, at.y + LABEL, tile.drawn.cols, tile.drawn.rows);
    tile.drawn.copyTo(sheet(place));
    if (tile.won) {
        cv::rectangle(sheet, place + cv::Point(-FRAME / 2, -FRAME / 2) + cv::Size(FRAME, FRAME),
                      won, FRAME);
    } else {
        cv::rectangle(sheet, place + cv::Point(-1, -1) + cv::Size(2, 2), FAINT, 1);
    }
}

// What the main application gets, and by which scan.
std::string SummaryOf(const WatchedReading& reading)
{
    const std::string remark = Report_Remark(reading);
    if (reading.attempt == 0) {
        return remark.empty() ? "no code found in " + std::to_string(reading.scans) + " scans"
                              : remark;
    }
    const std::string text = Text_Shown(reading.text) + ", " + reading.symbologies + ", by " +
                             Qrcode_AttemptName(reading.attempt) +
                             (reading.opened ? ", opened" : "") + ", scan " +
                             std::to_string(reading.scans);
    return reading.outcome == READING_TEXT      ? "read: " + text
           : reading.outcome == READING_ALTERED ? "altered: reported is " + text + ": " + remark
                                                : remark + ": " + text;
}

struct HeadLine {
    std::string text;
    cv::Scalar colour;
};

} // namespace

std::vector<SheetTile> Sheet_Tiles(const WatchedReading& reading, const LikelyCauses& causes,
                                   const cv::Mat& grey, const std::vector<int>& attempts, int side)
{
    std::vector<int> shown = attempts;
    for (int n = 1; attempts.empty() && n <= Qrcode_AttemptCount(); ++n) {
        shown.push_back(n);
    }
    const double scale = ScaleOf(grey, side);
    std::vector<cv::Point> located; // drawn into the first picture only
    for (const cv::Point2d& corner : causes.code.outline) {
        located.emplace_back(cvRound(corner.x * scale), cvRound(corner.y * scale));
    }
    if (causes.code.shape == CODE_NONE) {
        located.clear();
    }
    CascadePictures pictures;
    pictures.grey = grey;
    std::vector<SheetTile> tiles;
    for (const int attempt : shown) {
        const cv::Mat prepared = Qrcode_PrepareAttempt(attempt, &pictures);
        tiles.push_back(MakeTile(reading, prepared, attempt, false,
                                 attempt == 1 ? located : std::vector<cv::Point>(), scale));
        tiles.push_back(MakeTile(reading, Qrcode_OpenPicture(prepared), attempt, true, {}, scale));
    }
    return tiles;
}

bool Sheet_Draw(const WatchedReading& reading, const LikelyCauses& causes, const cv::Mat& grey,
                const std::string& name, const std::vector<int>& attempts, cv::Mat& sheet,
                std::string& error)
{
    Letters letters;
    if (!letters.Open(error)) {
        return false;
    }
    const std::vector<SheetTile> tiles = Sheet_Tiles(reading, causes, grey, attempts, TILE);
    const int count = static_cast<int>(tiles.size()) / 2;
    const int abreast = std::min<int>(count, TILES_ABREAST);
    const int rowCount = 2 * ((count + TILES_ABREAST - 1) / TILES_ABREAST);
    const int tileHeight = LABEL + cvRound(grey.rows * ScaleOf(grey, TILE)) + GAP;
    const int width = GAP + abreast * (TILE + GAP);
    const int textWidth = width - 2 * GAP;
    const cv::Scalar& grade = GRADE_COLOURS[Report_Grade(reading)];

    std::vector<HeadLine> head;
    const auto add = [&](const std::string& text, const cv::Scalar& colour) {
        for (const std::string& line : Lines(letters, text, LETTER_HEAD, textWidth)) {
            head.push_back({line, colour});
        }
    };
    add(Text_Escape(name), INK);
    add(SummaryOf(reading), grade);
    for (const std::string& detail : Report_Details(reading, causes)) {
        add(detail, INK);
    }
    const std::vector<std::string> foot = Lines(letters, FOOT, LETTER_SMALL, textWidth);

    const int top = GAP + static_cast<int>(head.size()) * HEAD_LINE;
    const int bottom = top + rowCount * tileHeight;
    sheet.create(bottom + static_cast<int>(foot.size()) * FOOT_LINE + GAP, width, CV_8UC3);
    sheet.setTo(PAPER);
    int y = GAP;
    for (const HeadLine& line : head) {
        letters.Draw(sheet, line.text, {GAP, y + LETTER_HEAD - 2}, LETTER_HEAD, line.colour);
        y += HEAD_LINE;
    }
    for (int i = 0; i < 2 * count; ++i) {
        const cv::Point at(GAP + i / 2 % TILES_ABREAST * (TILE + GAP),
                           top + (i / 2 / TILES_ABREAST * 2 + i % 2) * tileHeight);
        PutTile(sheet, letters, tiles[static_cast<size_t>(i)], at, grade);
    }
    y = bottom;
    for (const std::string& line : foot) {
        letters.Draw(sheet, line, {GAP, y + LETTER_SMALL}, LETTER_SMALL, INK);
        y += FOOT_LINE;
    }
    return true;
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
