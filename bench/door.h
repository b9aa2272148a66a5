// A door to measure at: the service as a child process, a scene folder before its simulated camera,
// and the panel's socket in our own hands, with the kernel's times of arrival.
//
// Order: Door_Open; then the rest as often as needed; Door_Close. For a private world: the ports
// and the service's log are the real ones.
#ifndef BENCH_DOOR_H
#define BENCH_DOOR_H

#include <cstdint>
#include <string>

#include "child_process.h"
#include "line_reader.h"
#include "panel_frame.h"

struct Door {
    ChildProcess service;
    LineReader serviceOut;
    int fd = -1;        // the panel's socket
    std::string folder; // temporary: "scene" before the camera, "wings" for what comes next
    std::string shown;  // file name in the scene, empty for none
    int nStray = 0;     // results that nobody waited for
};

// Starts the service before an empty scene, answers its hello with a mode and switches scanning
// on. Returns false with the reason.
bool Door_Open(Door& door, const std::string& service, std::string& error);

// Puts a picture before the camera at once, by a rename, and tells when: microseconds since the
// epoch. Nothing must be there. Returns false with the reason.
bool Door_Show(Door& door, const std::string& picture, int64_t& timeUs, std::string& error);

// Takes it away again.
void Door_Clear(Door& door);

// Sends a command to the service; returns when, in microseconds since the epoch.
int64_t Door_Command(const Door& door, int nCommand);

// Waits up to `waitMs` for a result with this text. Returns when it arrived, in microseconds since
// the epoch, or -1 when it did not come, in `waitMs` or in the service's life.
int64_t Door_AwaitText(Door& door, const std::string& text, int waitMs);

// Lets time pass; a result that comes meanwhile is a stray one.
void Door_Pause(Door& door, int ms);

// Ends the service and removes the folder.
void Door_Close(Door& door);

#endif
