// The sheet: all that the scanner is handed of one picture, and what it found, on one page.
#ifndef TOOLS_INSPECT_SHEET_H
#define TOOLS_INSPECT_SHEET_H

#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "likely_causes.h"
#include "watched_reading.h"

// One picture that the scanner is handed, with what it finds.
struct SheetTile {
    std::string title;   // "1 plain", "1 plain, opened"
    std::string finding; // "nothing", "QR-Code "TEXT"", "not made, would find nothing"
    bool made = false;   // by the reading
    bool won = false;
    cv::Mat drawn; // its longer side of `side` pixels; blue-green-red
};

// Makes the pictures of these attempts (of all when empty) from the reading's grey picture, each
// followed by its opened twin: symbols outlined where zbar reports them, a code that is only
// located outlined in red, scans that the reading did not make dimmed (they are made here).
std::vector<SheetTile> Sheet_Tiles(const WatchedReading& reading, const LikelyCauses& causes,
                                   const cv::Mat& grey, const std::vector<int>& attempts, int side);

// Draws the sheet of a reading from its grey picture. On top `name`, what the main application gets
// (green: exactly the code's text; amber: something else, or nothing though a code was found; red:
// nothing), and why. Below it the tiles, each opened twin under its picture, the winner framed. A
// line at the foot explains. `attempts` picks some of them, in this order; all when empty. Returns
// false, with the reason in `error`, when there are no fonts.
bool Sheet_Draw(const WatchedReading& reading, const LikelyCauses& causes, const cv::Mat& grey,
                const std::string& name, const std::vector<int>& attempts, cv::Mat& sheet,
                std::string& error);

// Writes it as PNG, atomically. Returns false, with the reason in `error`; an existing file of that
// name is then unchanged.
bool Sheet_Write(const cv::Mat& sheet, const std::string& path, std::string& error);

#endif
