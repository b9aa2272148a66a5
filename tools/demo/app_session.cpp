#include "app_session.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "command_line.h"
#include "demo_screen.h"
#include "link_advice.h"
#include "link_tap.h"
#include "panel_socket.h"
#include "stop_signal.h"
#include "terminal.h"
#include "text.h"

namespace
{

enum {
    TICK_MS = 20,        // between looks at the command and the tap
    BIND_WAIT_MS = 5000, // for the command to bind its port; an interpreter takes a while to start
    STATUS_OF_SIGNAL = 128
};

const int64_t US_PER_MS = 1000;
const char NOTE[] = "                note: "; // below the datagrams' text

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

struct AppSession {
    bool coloured = false;
    File record{nullptr, std::fclose};
    LinkTap tap;
    LinkAdvice advice;
    PanelEvent lastEither[2] = {};             // the latest datagram in, and out
    std::multimap<int64_t, std::string> lines; // by time, to be printed
    int64_t startUs = 0;
    bool launched = false;
};

// In the column of the datagrams' "in" and "out".
void Add(AppSession& session, int64_t timeUs, const char* side, const std::string& text)
{
    session.lines.emplace(timeUs, Panel_ClockText(timeUs) + " " + side + " " + text);
}

void AddNotes(AppSession& session, int64_t timeUs, const LinkNotes& notes)
{
    for (const std::string& note : notes) {
        session.lines.emplace(timeUs, NOTE + note);
    }
}

bool IsNote(const std::string& line)
{
    return line.rfind(NOTE, 0) == 0;
}

void PrintLines(AppSession& session)
{
    for (const auto& [timeUs, line] : session.lines) {
        const bool marked = session.coloured && IsNote(line);
        std::printf("%s%s%s\n", marked ? SCREEN_YELLOW : "", line.c_str(),
                    marked ? SCREEN_PLAIN : "");
        if (session.record != nullptr) {
            std::fprintf(session.record.get(), "%s\n", line.c_str());
        }
    }
    session.lines.clear();
}

void TakeTap(AppSession& session)
{
    PanelEvent event;
    for (TapNews news = Tap_Take(session.tap, event); news != TAP_NONE;
         news = Tap_Take(session.tap, event)) {
        AddNotes(session, event.timeUs, Advice_Time(session.advice, event.timeUs));
        PanelEvent& last = session.lastEither[event.out ? 1 : 0];
        if (news == TAP_LOST) {
            AddNotes(session, event.timeUs, Advice_Lost(session.advice, last));
            continue;
        }
        session.lines.emplace(event.timeUs, Panel_EventLine(event));
        if (news == TAP_ASTRAY) {
            AddNotes(session, event.timeUs, Advice_Astray());
            continue;
        }
        last = event;
        AddNotes(session, event.timeUs, Advice_Datagram(session.advice, event));
    }
}

void TakeCamera(AppSession& session, const CameraEvent& event)
{
    const auto timeUs = static_cast<int64_t>(event.time * 1e6);
    const std::string name = Text_Escape(std::filesystem::path(event.picture).filename().string());
    if (event.event == "view") {
        Add(session, timeUs, "cam", name);
    } else if (event.event == "unreadable") {
        Add(session, timeUs, "cam", name + " skipped: " + Text_Escape(event.reason));
    } else if (event.event == "empty") {
        Add(session, timeUs, "cam", "there is no picture in the folder; put one in");
    }
    AddNotes(session, timeUs, Advice_Picture(session.advice));
}

void TakeCommand(AppSession& session, Program& command)
{
    command.TakeOutput();
    for (; !command.Lines().empty(); command.Lines().pop_front()) {
        std::string line = command.Lines().front();
        line.erase(line.find_last_not_of('\r') + 1);
        Add(session, Panel_NowUs(), "app", line); // as it is: the person's own program
    }
}

// Takes in all that has come, waiting a short while when nothing has, and prints it in the order of
// the times.
void TakeNews(AppSession& session, Terminal& terminal, Program& command)
{
    CameraEvent camera;
    PanelEvent none;
    std::string line;
    for (TerminalNews news = terminal.Next(TICK_MS, camera, none, line); news != NEWS_NONE;
         news = terminal.Next(0, camera, none, line)) {
        TakeTap(session); // what led to it
        if (news == NEWS_CAMERA) {
            TakeCamera(session, camera);
        } else if (!Screen_IsNoise(line)) {
            Add(session, Panel_NowUs(), "srv", line);
        }
    }
    const int64_t nowUs = Panel_NowUs();
    TakeTap(session);
    AddNotes(session, nowUs, Advice_Time(session.advice, nowUs)); // all before it was taken
    TakeCommand(session, command);
    PrintLines(session);
}

// Starts the service once its main application is there, or should have been.
bool LaunchWhenDue(AppSession& session, Terminal& terminal, std::string& error)
{
    const bool late = Panel_NowUs() - session.startUs >= BIND_WAIT_MS * US_PER_MS;
    const bool bound = !session.launched && Panel_IsBound(QRCODE_PEER_PORT);
    if (session.launched || (!bound && !late)) {
        return true;
    }
    if (!bound) {
        AddNotes(session, Panel_NowUs(),
                 {"nothing is bound to 127.0.0.1:" + std::to_string(QRCODE_PEER_PORT) + " after " +
                  std::to_string(BIND_WAIT_MS / 1000) +
                  " s; the service starts all the same, and its 0x602 and results are lost"});
    }
    session.launched = true;
    return terminal.Launch(error);
}

// Ends what the command left behind outside its process group; it has become ours.
void EndOrphans()
{
    for (pid_t orphan = 1; orphan > 0;) {
        std::ifstream children("/proc/thread-self/children");
        while (children >> orphan) {
            kill(orphan, SIGKILL);
        }
        orphan = waitpid(-1, nullptr, 0);
    }
}

int StatusOf(const Program& command)
{
    const int status = command.EndStatus();
    return WIFSIGNALED(status) ? STATUS_OF_SIGNAL + WTERMSIG(status) : WEXITSTATUS(status);
}

// Returns the status to exit with, and why in `end`.
int Watch(AppSession& session, Terminal& terminal, Program& command, std::string& end)
{
    for (;;) {
        const bool running = command.Running();
        const bool serving = !session.launched || terminal.Service().Running();
        TakeNews(session, terminal, command); // with the last words of what has ended
        if (Stop_Asked()) {
            end = "interrupted";
            return 0;
        }
        if (std::ferror(stdout) != 0) {
            end = "the output cannot be written";
            return EXIT_FAILED;
        }
        if (!running) {
            end = "the command " + command.EndText();
            if (!session.launched) {
                end += "; it had not bound 127.0.0.1:" + std::to_string(QRCODE_PEER_PORT) +
                       ", so the service was not started";
            }
            return StatusOf(command);
        }
        if (!serving) {
            end = "the service " + terminal.Service().EndText();
            return EXIT_FAILED;
        }
        if (!LaunchWhenDue(session, terminal, end)) {
            return EXIT_FAILED;
        }
    }
}

bool OpenRecord(AppSession& session, const std::string& path, std::string& error)
{
    if (!path.empty()) {
        session.record.reset(std::fopen(path.c_str(), "we"));
        error = path + ": " + std::strerror(errno);
    }
    if (session.record != nullptr) {
        std::setvbuf(session.record.get(), nullptr, _IOLBF, BUFSIZ); // to be followed meanwhile
    }
    return path.empty() || session.record != nullptr;
}

} // namespace

int App_Run(const AppOptions& options)
{
    AppSession session;
    std::string end;
    if (!OpenRecord(session, options.record, end)) {
        Screen_Error(end);
        return EXIT_FAILED;
    }
    session.coloured = Text_MayEscape(STDOUT_FILENO);
    const bool tapped = Tap_Open(session.tap, end);
    session.startUs = Panel_NowUs();
    if (!tapped) {
        AddNotes(session, session.startUs, {"no datagram is shown: " + end + ", which takes root"});
    }
    TerminalOptions setting;
    setting.service = {options.service};
    setting.scene = options.scene;
    setting.viewMs = options.viewMs;
    setting.cameraEvents = true;
    setting.port = false;
    Terminal terminal(setting);
    ProgramOptions program;
    program.command = {"/bin/sh", "-c", options.command};
    program.terminal = true;
    Program command;
    int exitStatus = EXIT_FAILED;
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    if (command.Start(program, end)) {
        exitStatus = Watch(session, terminal, command, end);
    }
    terminal.Stop();
    command.Stop();
    TakeNews(session, terminal, command);
    EndOrphans();
    const unsigned int missed = tapped ? Tap_Missed(session.tap) : 0;
    if (missed > 0) {
        end += "; " + std::to_string(missed) + " packets came too fast to be shown";
    }
    Tap_Close(session.tap);
    Screen_Error(end);
    return exitStatus;
}
