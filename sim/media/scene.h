// The scene before the simulated camera: a picture file, or a folder whose pictures are shown one
// after the other in the order of their names, over and over.
//
// Each picture is on view for a while, then there is one frame without a code, then the next. The
// scene advances only when a frame is taken, so every picture is seen at least once. The folder is
// read again for each next picture: files may be added or removed while it runs. scene_files.h says
// which files are pictures; one that cannot be read is reported once on standard error and skipped.
// Or, with Sim_OpenNewest, the newest picture that somebody hands over.
#ifndef SIM_SCENE_H
#define SIM_SCENE_H

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <string>

enum { SIM_VIEW_MS = 1500 }; // default time that a picture is on view

// Puts a picture or folder before the camera. `eventsPath`, unless empty, names a file or FIFO that
// gets one line of JSON for each event: "time" (seconds since the epoch), "event" ("view", "blank",
// "unreadable", "empty"), "round" (from 1, one more each time the scene starts over), and for a
// picture "picture", for an unreadable one "reason" too. Returns false, with the reason in `error`,
// when the scene or the events file cannot be opened.
bool Sim_OpenScene(const std::string& path, int viewMs, const std::string& eventsPath,
                   std::string& error);

// Puts a file before the camera that may be there or not: the picture that lies there stays on
// view, without frames in between, until another one is renamed over it. One that cannot be read
// changes nothing; without a file the camera sees the wall. Each frame is an event, "view" or
// "blank".
bool Sim_OpenNewest(const std::string& path, const std::string& eventsPath, std::string& error);

// Closes the scene: every frame is without a code, as before the first Sim_OpenScene.
void Sim_CloseScene();

struct SimFrame {
    cv::Mat pixels; // blue-green-red; shared with the scene, not to be written to
    uint64_t id;    // the same for frames with the same pixels
};

// The next frame, of the given size in pixels.
SimFrame Sim_NextFrame(int width, int height);

#endif
