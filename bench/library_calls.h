// The calls of OpenCV and zbar that a reading makes, where the service makes them: timed, shown, or
// recorded to be made again one by one. In a program linked with --wrap for each of them (see
// CMakeLists.txt) they pass through here, and the service's code knows nothing of it.
#ifndef BENCH_LIBRARY_CALLS_H
#define BENCH_LIBRARY_CALLS_H

#include <array>
#include <functional>
#include <opencv2/core/mat.hpp>
#include <vector>

enum CallKind {
    CALL_DECODE,
    CALL_MIRROR,
    CALL_GREY,
    CALL_PREPARE,
    CALL_OPEN,
    CALL_SCAN,
    CALL_PLATFORM, // of the simulated platform: timed only
    CALL_KINDS
};

struct LibraryCall {
    CallKind kind;
    int symbols; // that a scan found
    // Makes the call again: same arguments, copies of the same pictures (tables of the mirror and
    // kernel of the opening among them). The output goes where it went the last time, but for the
    // decoder, which makes a new matrix; a scan has a new scanner, configured as the service's, and
    // an image that is ready. Returns the symbols that a scan found, otherwise 0.
    std::function<int()> replay;
};

// Records the calls that `reading` makes, in order.
std::vector<LibraryCall> Calls_Record(const std::function<void()>& reading);

// us that `reading` spends in the calls of each kind.
using CallTimes = std::array<double, CALL_KINDS>;
CallTimes Calls_Time(const std::function<void()>& reading);

// Shows `watch` the calls of OpenCV and zbar that `reading` makes, in order: the picture that a
// call has made, or that a scan is about to be handed.
using CallWatch = std::function<void(CallKind, const cv::Mat& picture)>;
void Calls_Watch(const std::function<void()>& reading, const CallWatch& watch);

// What people call a kind: "decode", "mirror" and so on.
const char* Calls_KindName(CallKind kind);

#endif
