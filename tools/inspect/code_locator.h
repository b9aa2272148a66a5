// Where in a grey picture a code seems to be, though nobody can read it: by the corner squares of a
// QR code, or by bars side by side.
#ifndef TOOLS_CODE_LOCATOR_H
#define TOOLS_CODE_LOCATOR_H

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

enum CodeShape { CODE_NONE, CODE_SQUARE, CODE_BARS };

// Flat, so that it can cross a pipe. Lengths in pixels of the picture.
struct LocatedCode {
    CodeShape shape = CODE_NONE;
    bool lightOnDark = false;    // of a square: light modules on a dark ground
    int cornerSquares = 0;       // of a square: located ones, 1 to 3
    int modulesASide = 0;        // of a square: the likeliest number, 21..177; 7 with
                                 // one corner square, which `outline` then goes around
    double modulePixels = 0.0;   // side of a module, or width of the narrow bars
    double timing = 0.0;         // of a square: share of its timing patterns' modules that are
                                 // where it would have them flat and straight on, 0.5 by chance
    cv::Point2d outline[4] = {}; // in order around it, of a square from the corner between two
                                 // corner squares; of bars the first side runs over them all.
                                 // May lie outside the picture
};

// The best candidate of an 8-bit one-channel picture, or CODE_NONE. Takes some tens of ms.
LocatedCode Locate_Code(const cv::Mat& grey);

#endif
