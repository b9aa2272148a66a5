// Control of the simulated media platform, for programs that link it. The 13 operations themselves
// are declared in media_platform.h.
//
// The service's program (linked with the archive media_sim_program) is set up by its environment,
// before main:
//   QRCODE_SIM_SCENE    picture file or folder before the camera; without it the camera sees a wall
//   QRCODE_SIM_NEWEST   or a file: the newest picture that was renamed there, see Sim_OpenNewest
//   QRCODE_SIM_VIEW_MS  how long each picture is on view (default SIM_VIEW_MS)
//   QRCODE_SIM_EVENTS   file or FIFO for the scene's events (see scene.h)
//   QRCODE_SIM_SCRIPT   file with scripted faults (see fault_script.h), read again
//                       when another one is renamed over it
// Anything wrong with them ends the program there with status 2 and a line on standard error. Like
// the service, the platform expects all calls from one thread.
#ifndef SIM_PLATFORM_H
#define SIM_PLATFORM_H

#include <cstdint>
#include <string>
#include <vector>

#include "fault_script.h"
#include "scene.h"

enum {
    SIM_VPSS_WIDTH = 1920,  // pixels, what the video processing channel says of itself
    SIM_VPSS_HEIGHT = 1080, // pixels
    SIM_CHANNELS = 16,      // encoder channels 0..15
    SIM_SKIPPED_BYTE = 0xEE // in the leading bytes of a pack, and in a released one: no JPEG's
};

// Why an operation was refused. The code that it returns is 0xA0000000, the operation's place in
// the list below in bits 8..15, and the reason in bits 0..7.
enum SimReason {
    SIM_DONE = 0,         // not refused
    SIM_BAD_ARGUMENT = 1, // null record, number out of range, a record that makes no sense
    SIM_EXISTS = 2,       // the channel is already there, or the binding
    SIM_ABSENT = 3,       // no such channel or binding
    SIM_WRONG_ORDER = 4,  // not in this state
    SIM_NO_PICTURE = 5,   // none ready, or not in time
    SIM_NO_RESOURCE = 6   // this machine gives no more descriptors
};

enum SimOp {
    SIM_VPSS_GETCHNATTR,
    SIM_VENC_CREATECHN,
    SIM_VENC_GETJPEGPARAM,
    SIM_VENC_SETJPEGPARAM,
    SIM_SYS_BIND,
    SIM_VENC_STARTRECVFRAME,
    SIM_VENC_GETFD,
    SIM_VENC_QUERYSTATUS,
    SIM_VENC_GETSTREAM,
    SIM_VENC_RELEASESTREAM,
    SIM_SYS_UNBIND,
    SIM_VENC_STOPRECVFRAME,
    SIM_VENC_DESTROYCHN,
    SIM_OPS
};

// Sets the platform up, once before main; which way is chosen by linking: the service's program
// takes environment_start.cpp, every other one no_start.cpp. The value has no meaning.
bool Sim_SetUp();

const char* Sim_OperationName(SimOp op);
bool Sim_IsOperation(const std::string& name);
int Sim_Error(SimOp op, SimReason reason);

// Replaces the script in force.
void Sim_SetScript(const SimScript& script);

// Takes the script from a file, and again before a snapshot whenever another one was renamed over
// it. Returns false, with the reason in `error`, when the first one cannot be read or is wrong; of
// a later one that is said on standard error, and the script stays.
bool Sim_FollowScript(const std::string& path, std::string& error);

// One call as the platform saw it: the arguments that are numbers, and the bytes of the records
// handed in (source and destination of a binding one behind the other).
struct SimCall {
    SimOp op;
    std::vector<int> numbers;
    std::vector<uint8_t> record;
    int result; // 0 or the code returned
};

// Starts or stops recording calls, and discards those recorded so far.
void Sim_KeepCalls(bool keep);
const std::vector<SimCall>& Sim_Calls();

// Destroys every channel, closes the scene, and forgets script and calls.
void Sim_Reset();

#endif
