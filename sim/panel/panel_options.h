// The panel's command line.
#ifndef SIM_PANEL_OPTIONS_H
#define SIM_PANEL_OPTIONS_H

#include <cstdint>

struct PanelOptions {
    uint8_t nMode = 1;    // scanning mode that answers MSG_CMD_QRCODE_START
    bool bEnable = true;  // MSG_CMD_QRCODE_ENABLE follows that answer
    bool bJson = false;   // JSON lines instead of lines for a person
    uint32_t nCount = 0;  // results to end after, 0 for no such end
    double seconds = 0.0; // to end after, 0 for no such end
};

enum {
    PANEL_EXIT_OK = 0,
    PANEL_EXIT_TIME = 1, // the time ran out before the count was reached
    PANEL_EXIT_USAGE = 2 // wrong usage, or the port cannot be had
};

// Reads the command line. Returns true to go on; false to end with `nExit`, after the help or what
// is wrong was printed.
bool Panel_ParseOptions(int argc, char** argv, PanelOptions& options, int& nExit);

#endif
