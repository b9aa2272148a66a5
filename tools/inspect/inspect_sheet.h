// The sheet: all that the scanner is handed of one picture, and what it found, on one page.
#ifndef TOOLS_INSPECT_SHEET_H
#define TOOLS_INSPECT_SHEET_H

#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "likely_causes.h"
#include "watched_reading.h"

// Draws the sheet of a reading from its grey picture. On top `name`, what the main application gets
// (green: exactly the code's text; amber: something else, or nothing though a code was found; red:
// nothing), and why. Below it each attempt's picture as prepared, its opened twin under it: the
// winner framed, the symbols outlined where zbar reports them, a code that is only located outlined
// in red, scans that the reading did not make dimmed (they are made for the sheet). A line at the
// foot explains. `attempts` picks some of them, in this order; all when empty. Returns false, with
// the reason in `error`, when there are no fonts.
bool Sheet_Draw(const WatchedReading& reading, const LikelyCauses& causes, const cv::Mat& grey,
                const std::string& name, const std::vector<int>& attempts, cv::Mat& sheet,
                std::string& error);

// Writes it as PNG, atomically. Returns false, with the reason in `error`; an existing file of that
// name is then unchanged.
bool Sheet_Write(const cv::Mat& sheet, const std::string& path, std::string& error);

#endif
