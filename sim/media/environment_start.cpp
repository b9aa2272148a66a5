#include <cstdio>
#include <cstdlib>
#include <string>

#include "sim_platform.h"

namespace
{

enum { MAX_VIEW_MS = 3600000 };

[[noreturn]] void RefuseStart(const std::string& error)
{
    std::fprintf(stderr, "sim: %s\n", error.c_str());
    std::_Exit(2);
}

std::string Environment(const char* name)
{
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

} // namespace

bool Sim_SetUp()
{
    std::string error;
    long viewMs = SIM_VIEW_MS;
    const std::string view = Environment("QRCODE_SIM_VIEW_MS");
    if (!view.empty()) {
        char* end = nullptr;
        viewMs = std::strtol(view.c_str(), &end, 10);
        if (*end != '\0' || viewMs < 1 || viewMs > MAX_VIEW_MS) {
            RefuseStart("QRCODE_SIM_VIEW_MS=" + view + ": not a number of ms from 1 to " +
                        std::to_string(MAX_VIEW_MS));
        }
    }
    const std::string scriptPath = Environment("QRCODE_SIM_SCRIPT");
    if (!scriptPath.empty() && !Sim_FollowScript(scriptPath, error)) {
        RefuseStart(error);
    }
    const std::string scene = Environment("QRCODE_SIM_SCENE");
    const std::string events = Environment("QRCODE_SIM_EVENTS");
    const std::string newest = Environment("QRCODE_SIM_NEWEST");
    if (scene.empty() && newest.empty() && !(view.empty() && events.empty())) {
        RefuseStart("QRCODE_SIM_VIEW_MS and QRCODE_SIM_EVENTS want a QRCODE_SIM_SCENE or a "
                    "QRCODE_SIM_NEWEST");
    }
    if (!scene.empty() && !newest.empty()) {
        RefuseStart("QRCODE_SIM_SCENE and QRCODE_SIM_NEWEST exclude each other");
    }
    if ((!scene.empty() && !Sim_OpenScene(scene, static_cast<int>(viewMs), events, error)) ||
        (!newest.empty() && !Sim_OpenNewest(newest, events, error))) {
        RefuseStart(error);
    }
    return true;
}
