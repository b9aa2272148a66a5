// The demo runner's command line.
#ifndef TOOLS_DEMO_OPTIONS_H
#define TOOLS_DEMO_OPTIONS_H

#include <string>

enum { DEMO_VIEW_MS = 600 }; // a picture on view: several readings; 28 pictures take below 20 s

struct DemoOptions {
    std::string service; // path of the program
    std::string panel;   // path of the program
    std::string scene;   // picture or folder
    int viewMs = DEMO_VIEW_MS;
    bool bOnce = false;   // every picture once, even a folder's on a terminal
    bool bStrict = false; // a missed or wrong picture is a failure
};

enum {
    DEMO_EXIT_OK = 0,
    DEMO_EXIT_FAILED = 1,   // missed or wrong when that counts, or something died or fell silent
    DEMO_EXIT_USAGE = 2,    // wrong usage, or nothing to show
    DEMO_EXIT_STOPPED = 130 // interrupted before every picture was shown
};

// Reads the command line. Returns true to go on; false to end with `nExit`, after the help or what
// is wrong was printed.
bool Demo_ParseOptions(int argc, char** argv, DemoOptions& options, int& nExit);

#endif
