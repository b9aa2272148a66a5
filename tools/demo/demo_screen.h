// The demo on a terminal or in a file: one line a picture, and the summary.
#ifndef TOOLS_DEMO_SCREEN_H
#define TOOLS_DEMO_SCREEN_H

#include <string>
#include <vector>

#include "demo_tally.h"

const char SCREEN_YELLOW[] = "\033[33m";
const char SCREEN_PLAIN[] = "\033[0m";

struct DemoScreen {
    bool coloured = false;
    size_t nameWidth = 0; // characters of the column with the pictures' names
    double begin = 0.0;   // seconds since the epoch: times are shown from here
};

// True when all that was printed so far could be written; says so otherwise.
bool Screen_CanWrite();

// One line on standard error.
void Screen_Error(const std::string& what);

// What a person need not see of the service's own output: zbar's warnings about its own assertions,
// of two lines each, which it prints for many a picture, and the camera's line about a file that it
// skips, which is an event too.
bool Screen_IsNoise(const std::string& line);

// Prepares for these pictures.
DemoScreen Screen_Open(const std::vector<std::string>& pictures, double begin);

void Screen_News(const DemoScreen& screen, const DemoNews& news);
void Screen_Summary(const DemoScreen& screen, const DemoSummary& summary);

#endif
