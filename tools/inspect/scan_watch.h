// What the scanner finds, observed where the service's code calls it: in a program that links this,
// calls of zbar_scan_image are wrapped by the linker. The code that calls it is unchanged.
#ifndef TOOLS_SCAN_WATCH_H
#define TOOLS_SCAN_WATCH_H

#include <opencv2/core/types.hpp>
#include <string>
#include <vector>

struct WatchedSymbol {
    std::string symbology;          // zbar's name: "QR-Code", "EAN-13", with an add-on "EAN-13+5"
    std::string text;               // bytes, as zbar made them
    std::vector<cv::Point> corners; // pixels, in zbar's order; a few points on a barcode's bars
};

struct WatchedScan {
    std::vector<WatchedSymbol> symbols; // in the order in which their texts are written
};

// Starts a new list of scans.
void Watch_Begin();

// The scans since then, in order; valid until the next scan or Watch_Begin.
const std::vector<WatchedScan>& Watch_Scans();

#endif
