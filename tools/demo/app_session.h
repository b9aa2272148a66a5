// The demo with a main application of one's own: the service, the camera, and a command in the
// panel's place, all told line by line.
#ifndef TOOLS_APP_SESSION_H
#define TOOLS_APP_SESSION_H

#include <string>

struct AppOptions {
    std::string command; // for sh -c
    std::string service; // path of the program
    std::string scene;   // picture or folder, absolute
    int viewMs = 0;      // a picture on view
    std::string record;  // file that gets the screen's lines too, or empty
};

// Starts the command, then the service, as soon as the command has bound its port (or after a while
// without), and prints one line for each line of the command's, each picture, and each datagram
// either way, with what it does if that may surprise its sender. Datagrams show only where they may
// be watched, see link_tap.h; otherwise that is said.
//
// Ends with the command or on a signal (stop_signal.h), and ends what it has started.
// Returns the status to exit with: the command's own (128 and the signal's number after a signal),
// 0 after a signal, EXIT_FAILED when the service ends or something else goes wrong.
int App_Run(const AppOptions& options);

#endif
