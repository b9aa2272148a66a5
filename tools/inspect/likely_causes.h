// Why a code in view is not read, as far as it can be measured in the grey picture. Nothing is
// drawn or printed here.
#ifndef TOOLS_LIKELY_CAUSES_H
#define TOOLS_LIKELY_CAUSES_H

#include <opencv2/core/mat.hpp>

#include "code_locator.h"

enum CauseKind {        // value, unit
    CAUSE_CUT,          // modules of the code outside the picture, 0 if it cannot be told
    CAUSE_GLARE,        // radius of the largest white blot on the code, modules
    CAUSE_SMALL,        // pixels a module
    CAUSE_BLUR,         // sigma of a Gaussian blur, modules; bars: pixels
    CAUSE_FAINT,        // grey values between print and ground
    CAUSE_INVERTED,     // grey values by which the modules are lighter than the ground
    CAUSE_BENT,         // modules by which the last corner is off the square's
    CAUSE_TURNED,       // degrees between the bars and the picture's nearest side
    CAUSE_OFF_GRID,     // percent of the timing patterns' modules that are in their places
    CAUSE_CORNER,       // corner squares located, of three
    CAUSE_DARK,         // no code located: grey value below which nearly all of the view is
    CAUSE_BRIGHT,       // the same: above which it is
    CAUSE_BLURRED_VIEW, // the same: sigma of its sharper edges, pixels
    CAUSE_FLAT,         // the same: grey values between nearly darkest and nearly brightest
    CAUSE_NOT_LOCATED,  // the same, in a view of ordinary light: grey values, likewise
    CAUSE_UNEXPLAINED,  // a code is located and none of the above holds: pixels a module
    CAUSE_KINDS
};

enum { CAUSES_MOST = 4, CAUSE_SENTENCE_SIZE = 160 };

// Flat, so that they can cross a pipe.
struct LikelyCause {
    CauseKind kind = CAUSE_UNEXPLAINED;
    double value = 0.0; // as measured
    char sentence[CAUSE_SENTENCE_SIZE] = {};
};

struct LikelyCauses {
    LocatedCode code;
    int count = 0; // at least 1 once they are found
    LikelyCause causes[CAUSES_MOST];
};

// The causes in the grey picture of a view that is not read (8-bit, one channel), the likeliest
// first: what is furthest beyond what is usually read.
LikelyCauses Causes_Find(const cv::Mat& grey);

// For programs: "too small", "blur", ...; the value's unit; the heading of
// docs/reading-a-sheet.md that tells more, as in its address.
const char* Causes_Name(CauseKind kind);
const char* Causes_Unit(CauseKind kind, CodeShape shape);
const char* Causes_Anchor(CauseKind kind);

#endif
