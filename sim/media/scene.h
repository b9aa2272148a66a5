// The scene before the simulated camera: a picture file, or a folder whose pictures are shown one
// after the other in the order of their names, over and over.
//
// Each picture is on view for a while, then there is one frame without a code, then the next. Time
// passes for the scene only when frames are taken, so every picture is seen at least once. The
// folder is looked at anew for each next picture: files added or removed show up while it runs. A
// regular file counts as a picture unless its name starts with "." or ends in ".txt" or ".md"; one
// that cannot be read costs one line on standard error, once, and is skipped.
#ifndef SIM_SCENE_H
#define SIM_SCENE_H

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <string>

enum { SIM_VIEW_MS = 1500 }; // how long a picture is on view unless told otherwise

// Puts a picture or folder before the camera. `eventsPath`, unless empty, names a file or FIFO that
// gets one line of JSON for each event: "time" (seconds since the epoch), "event" ("view", "blank",
// "unreadable", "empty"), "round" (counts from 1, grows when the scene begins anew), and for a
// picture "picture", for an unreadable one "reason" too. Returns false, with the reason in `error`,
// when the scene or the events file cannot be opened.
bool Sim_OpenScene(const std::string& path, int viewMs, const std::string& eventsPath,
                   std::string& error);

// Takes the scene away: every frame is without a code, as before the first Sim_OpenScene.
void Sim_CloseScene();

struct SimFrame {
    cv::Mat pixels; // blue-green-red; shared with the scene, not to be written to
    uint64_t id;    // the same for frames with the same pixels
};

// The next frame, of the given size in pixels.
SimFrame Sim_NextFrame(int width, int height);

#endif
