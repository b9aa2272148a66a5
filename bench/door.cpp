#include "door.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <poll.h>
#include <unistd.h>

#include "panel_event.h"
#include "panel_socket.h"

namespace fs = std::filesystem;

enum {
    START_MS = 10000,
    DOOR_MODE = 1,
    POLL_MS = 200 // between looks at the service
};

using Clock = std::chrono::steady_clock;

static int MsUntil(Clock::time_point end)
{
    return static_cast<int>(
        std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count());
}

static int64_t NowUs()
{
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// Waits for a datagram until `end`, and keeps the service's output from filling its pipe. Returns
// false when none came.
static bool Receive(Door& door, PanelEvent& event, Clock::time_point end)
{
    while (MsUntil(end) > 0 && Child_Runs(door.service)) {
        if (Panel_Receive(door.fd, event)) {
            return true;
        }
        pollfd aReady[2] = {{door.fd, POLLIN, 0}, {door.serviceOut.fd, POLLIN, 0}};
        poll(aReady, 2, std::clamp(MsUntil(end), 0, static_cast<int>(POLL_MS)));
        Line_Take(door.serviceOut);
    }
    return false;
}

bool Door_Open(Door& door, const std::string& service, std::string& error)
{
    std::string name = (fs::temp_directory_path() / "qrcode-door-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        error = "no temporary folder";
        return false;
    }
    door.folder = name;
    fs::create_directory(door.folder + "/scene");
    fs::create_directory(door.folder + "/wings");
    door.fd = Panel_OpenSocket(error);
    const bool bStarted =
        door.fd >= 0 && Child_Start(door.service, {service},
                                    {"QRCODE_SIM_SCENE=" + door.folder + "/scene",
                                     "QRCODE_SIM_VIEW_MS=3600000"}, // until it is taken away
                                    CHILD_JOINED, error);
    if (!bStarted) {
        return false;
    }
    door.serviceOut.fd = door.service.out;
    PanelEvent event;
    MsgHead head = {};
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(START_MS);
    while (Receive(door, event, end)) {
        if (Panel_ReadHead(event.datagram, head) && head.nMsgCommand == MSG_CMD_QRCODE_START) {
            return Panel_Send(door.fd, Panel_ModeFrame(DOOR_MODE), event, error) &&
                   Panel_Send(door.fd, Panel_CommandFrame(MSG_CMD_QRCODE_ENABLE), event, error);
        }
    }
    error = "the service says no hello";
    return false;
}

bool Door_Show(Door& door, const std::string& picture, int64_t& timeUs, std::string& error)
{
    const std::string name = fs::path(picture).filename().string();
    const std::string wings = door.folder + "/wings/" + name;
    std::error_code code;
    fs::copy_file(picture, wings, fs::copy_options::overwrite_existing, code);
    timeUs = NowUs();
    if (!code) {
        fs::rename(wings, door.folder + "/scene/" + name, code);
    }
    door.shown = name;
    error = picture + ": " + code.message();
    return !code;
}

void Door_Clear(Door& door)
{
    std::error_code ignored;
    fs::remove(door.folder + "/scene/" + door.shown, ignored);
    door.shown.clear();
}

int64_t Door_Command(const Door& door, int nCommand)
{
    PanelEvent event;
    std::string ignored; // a command that does not leave has no effect, and that shows
    Panel_Send(door.fd, Panel_CommandFrame(nCommand), event, ignored);
    return event.nTimeUs;
}

static bool IsResult(const PanelEvent& event)
{
    MsgHead head;
    return Panel_ReadHead(event.datagram, head) && head.nMsgCommand == MSG_CMD_QRCODE_RESULT;
}

int64_t Door_AwaitText(Door& door, const std::string& text, int waitMs)
{
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(waitMs);
    PanelEvent event;
    while (Receive(door, event, end)) {
        if (IsResult(event) && Panel_ResultText(event.datagram) == text) {
            return event.nTimeUs;
        }
        door.nStray += IsResult(event) ? 1 : 0;
    }
    return -1;
}

void Door_Pause(Door& door, int ms)
{
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(ms);
    PanelEvent event;
    while (Receive(door, event, end)) {
        door.nStray += IsResult(event) ? 1 : 0;
    }
}

void Door_Close(Door& door)
{
    Child_Stop(door.service);
    if (door.fd >= 0) {
        close(door.fd);
        door.fd = -1;
    }
    std::error_code ignored;
    fs::remove_all(door.folder, ignored);
}
