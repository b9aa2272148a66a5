// The demo on a terminal or in a file: one line a picture, and the summary.
#ifndef TOOLS_DEMO_SCREEN_H
#define TOOLS_DEMO_SCREEN_H

#include <string>
#include <vector>

#include "demo_tally.h"

struct DemoScreen {
    bool coloured = false;
    size_t nameWidth = 0; // characters of the column with the pictures' names
    double begin = 0.0;   // seconds since the epoch: times are shown from here
};

// Prepares for these pictures. Colours only a terminal on standard output, and not when the
// environment has NO_COLOR.
DemoScreen Screen_Open(const std::vector<std::string>& pictures, double begin);

void Screen_News(const DemoScreen& screen, const DemoNews& news);
void Screen_Summary(const DemoScreen& screen, const DemoSummary& summary);

#endif
