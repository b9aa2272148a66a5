// The desk: a terminal, the main application's side and the camera in the hands of whoever looks at
// its page.
#ifndef TOOLS_DESK_SESSION_H
#define TOOLS_DESK_SESSION_H

#include <cstdint>
#include <string>

struct DeskOptions {
    std::string service; // the program
    std::string scene;   // picture or folder on the page's strip
    std::string page;    // folder of the page's files
    int socket = -1;     // listens on 127.0.0.1:port
    uint16_t port = 8080;
};

// Serves until a signal (stop_signal.h), and ends all that it has started. Returns the status to
// exit with.
int Desk_Run(const DeskOptions& options);

#endif
