// The sheet: all that the scanner is handed of one picture, and what it found, on one page.
#ifndef TOOLS_INSPECT_SHEET_H
#define TOOLS_INSPECT_SHEET_H

#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "watched_reading.h"

// Draws the sheet of a reading from its grey picture: each attempt's picture as prepared, its
// opened twin below it; the winner framed in green, the symbols outlined where zbar reports them,
// scans that the reading did not make dimmed (they are made for the sheet). `attempts` picks some
// of them, in this order; all when empty. `name` is the picture's heading.
cv::Mat Sheet_Draw(const WatchedReading& reading, const cv::Mat& grey, const std::string& name,
                   const std::vector<int>& attempts);

// Writes it as PNG, atomically. Returns false, with the reason in `error`; an existing file of that
// name is then unchanged.
bool Sheet_Write(const cv::Mat& sheet, const std::string& path, std::string& error);

#endif
