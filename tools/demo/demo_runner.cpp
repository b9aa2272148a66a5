// The demo's runner: service and pictures, watched by a person. Expects QRCODE_SERVER_PORT,
// QRCODE_PEER_PORT and the service's log folder to be its own; scripts/demo.sh sees to that.
#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <unistd.h>

#include "app_session.h"
#include "command_line.h"
#include "demo_screen.h"
#include "demo_tally.h"
#include "panel_socket.h"
#include "scene_files.h"
#include "stop_signal.h"
#include "terminal.h"

namespace
{

const double SETTLE_S = 0.25;  // until what happened has reached us, with room to spare
const double SILENCE_S = 10.0; // beyond a picture's view, without an event: the service is stuck

enum {
    TICK_MS = 50,      // between looks at the clock
    EXIT_STOPPED = 130 // interrupted before every picture was shown
};

struct DemoOptions {
    std::string service; // path of the program
    std::string scene;   // picture or folder
    int viewMs = 600;    // a picture on view: several readings; 28 pictures take below 20 s
    bool once = false;   // every picture once, even a folder's on a terminal
    bool strict = false; // a missed or wrong picture is a failure
    std::string app;     // command in the panel's place, or empty
    std::string record;  // file for its screen, or empty
};

struct DemoSession {
    DemoOptions options;
    bool endless = false; // a folder watched by a person
    std::vector<std::string> listed;
    DemoTally tally;
    DemoScreen screen;
    double lastEvent = 0.0;  // seconds since the epoch
    bool sceneEmpty = false; // nothing to show: silence is as it should be
    double roundEnd = std::numeric_limits<double>::infinity(); // seconds since the epoch
};

// The scene's path as the camera gets it: absolute, without a slash at its end.
std::string ScenePath(const std::string& scene)
{
    std::error_code ignored;
    const std::filesystem::path path = std::filesystem::absolute(scene, ignored).lexically_normal();
    return (path.has_filename() ? path : path.parent_path()).string();
}

double EpochSeconds()
{
    return static_cast<double>(Panel_NowUs()) / 1e6;
}

void ShowNews(const DemoSession& session, const std::vector<DemoNews>& news)
{
    for (const DemoNews& item : news) {
        Screen_News(session.screen, item);
    }
}

void TakeCamera(DemoSession& session, const CameraEvent& event)
{
    session.lastEvent = EpochSeconds();
    session.sceneEmpty = event.event == "empty";
    if (!session.endless && ((event.event == "view" && event.round > 1) || session.sceneEmpty)) {
        session.roundEnd = std::min(session.roundEnd, event.time);
        return;
    }
    if (session.sceneEmpty) {
        std::puts("There is no picture in the folder; put one in.");
    }
    const DemoEventKind kind = event.event == "view"         ? DEMO_VIEW
                               : event.event == "unreadable" ? DEMO_UNREADABLE
                                                             : DEMO_BLANK;
    Tally_Add(session.tally, event.time, {kind, event.picture, event.reason});
}

void TakeDatagram(DemoSession& session, const PanelEvent& event)
{
    if (Terminal_IsCommand(event, MSG_CMD_QRCODE_RESULT)) {
        Tally_Add(session.tally, static_cast<double>(event.timeUs) / 1e6,
                  {DEMO_RESULT, "", Panel_ResultText(event.datagram)});
    }
}

// Takes in all that has come, waiting a short while when nothing has.
void TakeNews(DemoSession& session, Terminal& terminal)
{
    CameraEvent camera;
    PanelEvent datagram;
    std::string line;
    for (TerminalNews news = terminal.Next(TICK_MS, camera, datagram, line); news != NEWS_NONE;
         news = terminal.Next(0, camera, datagram, line)) {
        if (news == NEWS_CAMERA) {
            TakeCamera(session, camera);
        } else if (news == NEWS_DATAGRAM) {
            TakeDatagram(session, datagram);
        } else if (!Screen_IsNoise(line)) {
            std::fprintf(stderr, "service: %s\n", line.c_str());
        }
    }
}

// Why the run cannot go on, or nothing.
std::string Trouble(DemoSession& session, Terminal& terminal)
{
    if (std::ferror(stdout) != 0) {
        return "the output cannot be written";
    }
    if (!terminal.Service().Running()) {
        TakeNews(session, terminal); // its last words
        return "the service " + terminal.Service().EndText();
    }
    const double limit = SILENCE_S + session.options.viewMs / 1000.0;
    if (!session.sceneEmpty && EpochSeconds() - session.lastEvent > limit) {
        return "the service has taken no new picture for " +
               std::to_string(static_cast<int>(limit)) + " s";
    }
    return "";
}

// Watches until the round is over, or a signal or trouble ends it. Returns the status to exit with
// as far as it is settled by how the run ended.
int Watch(DemoSession& session, Terminal& terminal)
{
    session.lastEvent = EpochSeconds();
    for (;;) {
        TakeNews(session, terminal);
        const double settled = EpochSeconds() - SETTLE_S;
        ShowNews(session, Tally_Judge(session.tally, std::min(settled, session.roundEnd)));
        if (settled >= session.roundEnd) {
            return 0;
        }
        const bool roundOver = std::isfinite(session.roundEnd);
        const std::string trouble = roundOver ? "" : Trouble(session, terminal);
        if (!Stop_Asked() && trouble.empty()) {
            continue;
        }
        ShowNews(session, Tally_Break(session.tally));
        if (Stop_Asked()) {
            return session.endless ? 0 : EXIT_STOPPED;
        }
        Screen_Error(trouble);
        return EXIT_FAILED;
    }
}

int Conclude(const DemoSession& session, int exitStatus)
{
    const bool complete = exitStatus == 0 && !session.endless;
    const DemoSummary summary =
        Tally_Summary(session.tally, complete ? session.listed : std::vector<std::string>());
    if (!session.tally.last.empty()) {
        Screen_Summary(session.screen, summary);
    }
    if (complete && summary.shown == 0) {
        Screen_Error("no picture that can be read: " + session.options.scene);
        return EXIT_USAGE;
    }
    const bool flawed = summary.missed > 0 || summary.wrong > 0;
    return complete && session.options.strict && flawed ? EXIT_FAILED : exitStatus;
}

void Greet(const DemoSession& session)
{
    const double viewS = session.options.viewMs / 1000.0;
    if (!session.options.app.empty()) {
        std::printf("Showing %s to the camera, each picture %g s, over and over, to the main "
                    "application\n%s\nCtrl-C ends.\n\n",
                    session.options.scene.c_str(), viewS, session.options.app.c_str());
    } else if (session.endless) {
        std::printf("Showing the pictures of %s to the camera, %g s each, over and over. Put more "
                    "in while it\nruns; Ctrl-C ends.\n\n",
                    session.options.scene.c_str(), viewS);
    } else {
        std::printf("Showing %zu %s of %s to the camera, %g s each.\n\n", session.listed.size(),
                    session.listed.size() == 1 ? "picture" : "pictures",
                    session.options.scene.c_str(), viewS);
    }
}

// Starts the service with the simulated camera, stands in for its main application, and watches.
// Ends after every picture was shown once; a folder on a terminal, unless options.once, goes on
// until a signal (stop_signal.h). Returns the status to exit with.
int ShowAll(DemoSession& session)
{
    session.screen = Screen_Open(session.listed, EpochSeconds());
    TerminalOptions setting;
    setting.service = {session.options.service};
    setting.scene = session.options.scene;
    setting.viewMs = session.options.viewMs;
    setting.cameraEvents = true;
    Terminal terminal(setting);
    std::string error;
    int exitStatus = EXIT_FAILED;
    if (terminal.Launch(error)) {
        exitStatus = Conclude(session, Watch(session, terminal));
    } else {
        Screen_Error(error);
    }
    return exitStatus != EXIT_FAILED && !Screen_CanWrite() ? EXIT_FAILED : exitStatus;
}

// Finds the pictures, and whether they are shown over and over.
bool ListPictures(DemoSession& session, std::string& error)
{
    const DemoOptions& options = session.options;
    if (!Sim_ListPictures(options.scene, session.listed, error)) {
        return false;
    }
    const bool watched =
        !options.once && std::filesystem::is_directory(options.scene) && isatty(STDOUT_FILENO) == 1;
    session.endless = watched || !options.app.empty();
    error = "no picture in " + options.scene;
    return !session.listed.empty() || session.endless;
}

// True when service and main application can have their ports; says so otherwise. The service
// itself would bind beside another one.
bool PortsAreFree()
{
    for (const uint16_t port : {QRCODE_SERVER_PORT, QRCODE_PEER_PORT}) {
        if (Panel_IsBound(port)) {
            Screen_Error("another program has UDP port " + std::to_string(port) + "; end it first");
            return false;
        }
    }
    return true;
}

int Show(const DemoOptions& options)
{
    DemoSession session;
    std::string error;
    session.options = options;
    session.options.scene = ScenePath(options.scene);
    if (!ListPictures(session, error)) {
        Screen_Error(error);
        return EXIT_USAGE;
    }
    Stop_TakeSignals();
    std::signal(SIGPIPE, SIG_IGN); // output that nobody reads any more cannot be written
    if (!PortsAreFree()) {
        return EXIT_FAILED;
    }
    Greet(session);
    if (!Screen_CanWrite()) {
        return EXIT_FAILED;
    }
    if (!options.app.empty()) {
        return App_Run(
            {options.app, options.service, session.options.scene, options.viewMs, options.record});
    }
    return ShowAll(session);
}

int Run(int argc, char** argv)
{
    DemoOptions options;
    int exitStatus = 0;
    CLI::App app(
        "Runs the qrcode service on pictures, prints what is read as it happens, and counts.\n"
        "scripts/demo.sh runs this where the service has its ports to itself.",
        "demo_runner");
    app.add_option("--service", options.service, "The service's program")->required();
    app.add_option("--scene", options.scene, "Picture, or folder of pictures")->required();
    app.add_option("--view-ms", options.viewMs, "How long each picture is on view, in ms")
        ->check(CLI::Range(1, 3600000))
        ->capture_default_str();
    app.add_flag("--once", options.once,
                 "Show each picture once (a folder on a terminal goes on otherwise)");
    app.add_flag("--strict", options.strict, "End with status 1 when one is missed or wrong");
    app.add_option("--app", options.app,
                   "Command that runs in the panel's place; its status is the demo's");
    app.add_option("--record", options.record, "File that gets the lines of --app too");
    if (!CommandLine_Parse(app, argc, argv, exitStatus)) {
        return exitStatus;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    return Show(options);
}

} // namespace

int main(int argc, char** argv)
{
    return CommandLine_Guard("demo", [&] { return Run(argc, argv); });
}
