// qrcode-inspect's command line.
#ifndef TOOLS_INSPECT_OPTIONS_H
#define TOOLS_INSPECT_OPTIONS_H

#include <string>
#include <vector>

struct InspectOptions {
    std::vector<std::string> places; // pictures and folders
    bool bSnapshot = false; // files are the bytes of snapshots, not pictures for the camera
    bool bJson = false;
    bool bTruth = false;       // compare with the text file beside each picture
    std::string sheet;         // path of the sheet to draw, empty for none
    std::vector<int> attempts; // to draw on it, in this order; all when empty
};

enum {
    INSPECT_EXIT_OK = 0,
    INSPECT_EXIT_UNREAD = 1, // some picture gave no text or a wrong one, or something failed
    INSPECT_EXIT_USAGE = 2   // wrong usage
};

// Reads the command line. Returns true to go on; false to end with `nExit`, after the help or what
// is wrong was printed.
bool Inspect_ParseOptions(int argc, char** argv, InspectOptions& options, int& nExit);

#endif
