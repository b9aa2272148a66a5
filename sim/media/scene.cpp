#include "scene.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <nlohmann/json.hpp>
#include <unistd.h>
#include <vector>

#include "camera_picture.h"
#include "file_stamp.h"
#include "scene_files.h"

namespace
{

using Clock = std::chrono::steady_clock;

struct Scene {
    bool open = false;
    bool newest = false; // the file at `path`, as long as no newer one is there
    std::string path;
    std::chrono::milliseconds view{SIM_VIEW_MS};
    int events = -1;

    std::string shown;              // the picture on view, or the last that was
    FileStamp shownStamp = NO_FILE; // its version when it was loaded
    bool onView = false;    // a picture is on view; otherwise the next frame takes the next one
    bool saidEmpty = false; // the event was written and nothing was on view since
    int round = 0;
    Clock::time_point viewEnd;
    cv::Mat picture;
    std::map<std::string, FileStamp> unreadable; // already reported

    cv::Mat frame; // of the picture on view, or of the wall
    bool frameIsPicture = false;
    uint64_t frameId = 0;
};

Scene& TheScene()
{
    static Scene scene;
    return scene;
}

// write(), but a FIFO whose reader has gone is an error and not the end of the program. The signal
// is held back for this one write only: how it is handled is the program's to say.
ssize_t WriteWithoutSignal(int fd, const std::string& text)
{
    sigset_t pipeSignal;
    sigset_t before;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
    const ssize_t written = write(fd, text.data(), text.size());
    const int error = errno;
    if (written < 0 && error == EPIPE) {
        const timespec now = {0, 0};
        sigtimedwait(&pipeSignal, nullptr, &now);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return written;
}

void WriteEvent(Scene& scene, const char* event, const std::string& picture,
                const std::string& reason)
{
    if (scene.events < 0) {
        return;
    }
    const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    nlohmann::json line = {
        {"time", static_cast<double>(now.count()) / 1e6}, {"event", event}, {"round", scene.round}};
    if (!picture.empty()) {
        line["picture"] = picture;
    }
    if (!reason.empty()) {
        line["reason"] = reason;
    }
    const std::string text =
        line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    if (WriteWithoutSignal(scene.events, text) < 0) {
        std::fprintf(stderr, "sim: events: %s\n", std::strerror(errno));
        close(scene.events);
        scene.events = -1;
    }
}

// Loads a picture; says once for each version of the file when it cannot be read.
bool Load(Scene& scene, const std::string& path)
{
    const FileStamp stamp = File_Stamp(path);
    const auto known = scene.unreadable.find(path);
    if (known != scene.unreadable.end() && known->second == stamp) {
        return false;
    }
    std::string error;
    if (Sim_LoadPicture(path, scene.picture, error)) {
        scene.unreadable.erase(path);
        scene.shownStamp = stamp;
        return true;
    }
    std::fprintf(stderr, "sim: skipped %s: %s\n", path.c_str(), error.c_str());
    scene.unreadable[path] = stamp;
    WriteEvent(scene, "unreadable", path, error);
    return false;
}

// Finds the next picture that can be read, behind the last one shown, and puts it on view. Returns
// false when the scene has none.
bool ShowNext(Scene& scene)
{
    std::vector<std::string> paths;
    std::string error;
    Sim_ListPictures(scene.path, paths, error); // a scene that has gone has no pictures
    const auto next = std::upper_bound(paths.begin(), paths.end(), scene.shown);
    const auto behind = static_cast<size_t>(paths.end() - next); // then the scene starts over
    std::rotate(paths.begin(), next, paths.end());
    for (size_t i = 0; i < paths.size(); ++i) {
        const std::string& path = paths[i];
        if (!Load(scene, path)) {
            continue;
        }
        if (i >= behind || scene.round == 0) {
            ++scene.round;
        }
        scene.shown = path;
        scene.onView = true;
        scene.saidEmpty = false;
        scene.viewEnd = Clock::now() + scene.view;
        scene.frame.release();
        WriteEvent(scene, "view", path, "");
        return true;
    }
    if (!scene.saidEmpty) {
        scene.saidEmpty = true;
        WriteEvent(scene, "empty", "", "");
    }
    return false;
}

// Returns false when there is nothing to see.
bool ShowNewest(Scene& scene)
{
    const FileStamp stamp = File_Stamp(scene.path);
    if (stamp == NO_FILE) {
        scene.onView = false;
        scene.shownStamp = NO_FILE;
    } else if (stamp != scene.shownStamp && Load(scene, scene.path)) {
        scene.onView = true;
        scene.frame.release();
    }
    WriteEvent(scene, scene.onView ? "view" : "blank", scene.onView ? scene.path : "", "");
    return scene.onView;
}

bool OpenEvents(Scene& scene, const std::string& path, std::string& error)
{
    if (!path.empty()) {
        scene.events = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        error = "events " + path + ": " + std::strerror(errno);
    }
    return path.empty() || scene.events >= 0;
}

bool ViewIsOver(const Scene& scene)
{
    const FileStamp stamp = File_Stamp(scene.shown);
    return Clock::now() >= scene.viewEnd || stamp == NO_FILE || stamp != scene.shownStamp;
}

} // namespace

bool Sim_OpenScene(const std::string& path, int viewMs, const std::string& eventsPath,
                   std::string& error)
{
    Sim_CloseScene();
    std::vector<std::string> paths;
    if (!Sim_ListPictures(path, paths, error)) {
        return false;
    }
    Scene& scene = TheScene();
    scene.path = path;
    scene.view = std::chrono::milliseconds(viewMs);
    scene.open = OpenEvents(scene, eventsPath, error);
    return scene.open;
}

bool Sim_OpenNewest(const std::string& path, const std::string& eventsPath, std::string& error)
{
    Sim_CloseScene();
    Scene& scene = TheScene();
    scene.path = path;
    scene.newest = true;
    scene.round = 1;
    scene.open = OpenEvents(scene, eventsPath, error);
    return scene.open;
}

void Sim_CloseScene()
{
    Scene& scene = TheScene();
    if (scene.events >= 0) {
        close(scene.events);
    }
    const uint64_t lastId = scene.frameId;
    scene = Scene();
    scene.frameId = lastId; // never given to other pixels
}

SimFrame Sim_NextFrame(int width, int height)
{
    Scene& scene = TheScene();
    bool showPicture = false;
    if (scene.open) {
        if (scene.newest) {
            showPicture = ShowNewest(scene);
        } else if (!scene.onView) {
            showPicture = ShowNext(scene);
        } else if (ViewIsOver(scene)) {
            scene.onView = false; // this frame is the one without a code
            WriteEvent(scene, "blank", "", "");
        } else {
            showPicture = true;
        }
    }
    if (scene.frame.size() != cv::Size(width, height) || scene.frameIsPicture != showPicture) {
        scene.frame = showPicture ? Sim_CameraFrame(scene.picture, width, height)
                                  : Sim_EmptyFrame(width, height);
        scene.frameIsPicture = showPicture;
        ++scene.frameId;
    }
    return {scene.frame, scene.frameId};
}
