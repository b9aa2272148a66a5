#include "demo_session.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "child_process.h"
#include "demo_screen.h"
#include "demo_tally.h"
#include "line_reader.h"
#include "panel_frame.h"
#include "scene_files.h"
#include "service_noise.h"
#include "stop_signal.h"

static const double SETTLE_S = 0.25;     // a result's way through the panel, with room to spare
static const double PANEL_START_S = 5.0; // until the panel must listen
static const double SILENCE_S = 10.0;    // beyond a picture's view, without an event: it is stuck
static const long POLL_NS = 50000000;    // between looks at the children and the clock
static const char PANEL_LISTENS[] = "panel: listening";

// Views that began before `time` are closed once `due` has come.
struct PendingClose {
    double time; // seconds since the epoch
    double due;  // seconds, steady
};

struct DemoSession {
    DemoOptions options;
    bool bEndless = false; // a folder watched by a person
    std::vector<std::string> listed;
    sigset_t waitMask = {};

    std::string folder; // temporary, holds the events' FIFO
    std::string eventsPath;
    int eventsFd = -1;
    ChildProcess panel;
    ChildProcess service;
    LineReader panelOut, panelErr, serviceOut, events;
    ServiceNoise noise;
    bool bPanelListens = false;

    DemoTally tally;
    DemoScreen screen;
    std::deque<PendingClose> closes;
    double lastEvent = 0.0; // seconds, steady
    bool bEmpty = false;    // nothing to show: silence is as it should be
    bool bRoundOver = false;
    double roundEnd = 0.0; // seconds since the epoch
};

// The scene's path as the camera shall get it: absolute, without a slash at its end.
static std::string ScenePath(const std::string& scene)
{
    std::error_code ignored;
    const std::filesystem::path path = std::filesystem::absolute(scene, ignored).lexically_normal();
    return (path.has_filename() ? path : path.parent_path()).string();
}

static double SteadySeconds()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count();
}

static double EpochSeconds()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count();
}

static void Error(const std::string& what)
{
    std::fprintf(stderr, "demo: %s\n", what.c_str());
}

static void Show(const DemoSession& session, const std::vector<DemoNews>& news)
{
    for (const DemoNews& item : news) {
        Screen_News(session.screen, item);
    }
}

static void TakeEvent(DemoSession& session, const std::string& line)
{
    const nlohmann::json json = nlohmann::json::parse(line, nullptr, false);
    if (!json.is_object()) {
        Error("not an event of the camera: " + line);
        return;
    }
    const double time = json.value("time", 0.0);
    const std::string event = json.value("event", "");
    const std::string picture = json.value("picture", "");
    const double now = SteadySeconds();
    session.lastEvent = now;
    if (session.bRoundOver) {
        return;
    }
    session.closes.push_back({time, now + SETTLE_S});
    session.bRoundOver =
        !session.bEndless && ((event == "view" && json.value("round", 0) > 1) || event == "empty");
    if (session.bRoundOver) {
        session.roundEnd = time;
        return;
    }
    if (event == "view") {
        Tally_View(session.tally, time, picture);
    } else if (event == "unreadable") {
        Tally_Unreadable(session.tally, time, picture, json.value("reason", ""));
    } else if (event == "empty") {
        std::puts("There is no picture in the folder; put one in.");
    }
    session.bEmpty = event == "empty";
}

static std::string FromHex(const std::string& hex)
{
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes += static_cast<char>(std::strtoul(hex.substr(i, 2).c_str(), nullptr, 16));
    }
    return bytes;
}

static void TakePanelLine(DemoSession& session, const std::string& line)
{
    const nlohmann::json json = nlohmann::json::parse(line, nullptr, false);
    if (!json.is_object()) {
        Error("not an event of the panel: " + line);
        return;
    }
    if (json.value("direction", "") != "in" ||
        json.value("name", "") != Panel_CommandName(MSG_CMD_QRCODE_RESULT)) {
        return;
    }
    const double time = json.value("time", 0.0);
    if (session.bRoundOver && time >= session.roundEnd) {
        return; // of the round that is not watched any more
    }
    std::vector<DemoNews> news;
    Tally_Result(session.tally, time, FromHex(json.value("hex", "")), news);
    Show(session, news);
}

static void TakeLines(DemoSession& session)
{
    // In this order: the event of a picture on view is in the FIFO before a result can come of it.
    const std::vector<std::string> results = Line_Take(session.panelOut);
    for (const std::string& line : Line_Take(session.events)) {
        TakeEvent(session, line);
    }
    for (const std::string& line : results) {
        TakePanelLine(session, line);
    }
    for (const std::string& line : Line_Take(session.panelErr)) {
        if (line.compare(0, sizeof(PANEL_LISTENS) - 1, PANEL_LISTENS) == 0) {
            session.bPanelListens = true;
        } else {
            std::fprintf(stderr, "%s\n", line.c_str()); // begins with "panel: "
        }
    }
    for (const std::string& line : Line_Take(session.serviceOut)) {
        if (!Noise_Drop(session.noise, line)) {
            std::fprintf(stderr, "service: %s\n", line.c_str());
        }
    }
}

static void CloseWhatIsDue(DemoSession& session)
{
    while (!session.closes.empty() && session.closes.front().due <= SteadySeconds()) {
        std::vector<DemoNews> news;
        Tally_Close(session.tally, session.closes.front().time, news);
        session.closes.pop_front();
        Show(session, news);
    }
}

// Waits a short while for lines, and takes them.
static void WaitAndTake(DemoSession& session)
{
    std::vector<struct pollfd> fds;
    for (const LineReader* reader :
         {&session.panelOut, &session.panelErr, &session.serviceOut, &session.events}) {
        fds.push_back({reader->fd, POLLIN, 0}); // one below 0 is passed over
    }
    const struct timespec limit = {0, POLL_NS};
    ppoll(fds.data(), fds.size(), &limit, &session.waitMask);
    TakeLines(session);
}

static bool MakeEventsFifo(DemoSession& session)
{
    std::error_code ignored;
    session.folder =
        (std::filesystem::temp_directory_path(ignored) / "qrcode-demo-XXXXXX").string();
    if (mkdtemp(session.folder.data()) == nullptr) {
        Error("no temporary folder: " + session.folder);
        session.folder.clear();
        return false;
    }
    session.eventsPath = session.folder + "/events";
    if (mkfifo(session.eventsPath.c_str(), 0600) == 0) {
        // For writing too, so that there is no end of file while nobody else has it open.
        session.eventsFd = open(session.eventsPath.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    }
    session.events.fd = session.eventsFd;
    if (session.eventsFd < 0) {
        Error("no FIFO " + session.eventsPath);
    }
    return session.eventsFd >= 0;
}

static bool StartPanel(DemoSession& session)
{
    std::string error;
    if (!Child_Start(session.panel, {session.options.panel, "--json"}, {}, CHILD_APART, error)) {
        Error("panel: " + error);
        return false;
    }
    session.panelOut.fd = session.panel.out;
    session.panelErr.fd = session.panel.err;
    const double deadline = SteadySeconds() + PANEL_START_S;
    bool bRuns = true;
    while (bRuns && !session.bPanelListens && !Stop_Asked() && SteadySeconds() < deadline) {
        bRuns = Child_Runs(session.panel);
        WaitAndTake(session);
    }
    if (!bRuns) {
        Error("the panel " + Child_EndText(session.panel));
    } else if (!session.bPanelListens && !Stop_Asked()) {
        Error("the panel does not listen");
    }
    return session.bPanelListens;
}

static bool StartService(DemoSession& session)
{
    std::string error;
    const std::vector<std::string> env = {
        "QRCODE_SIM_SCENE=" + session.options.scene,
        "QRCODE_SIM_VIEW_MS=" + std::to_string(session.options.viewMs),
        "QRCODE_SIM_EVENTS=" + session.eventsPath,
    };
    if (!Child_Start(session.service, {session.options.service}, env, CHILD_JOINED, error)) {
        Error("service: " + error);
        return false;
    }
    session.serviceOut.fd = session.service.out;
    session.lastEvent = SteadySeconds();
    return true;
}

static void Stop(DemoSession& session)
{
    Child_Stop(session.service);
    Child_Stop(session.panel);
    if (session.eventsFd >= 0) {
        close(session.eventsFd);
    }
    if (!session.folder.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(session.folder, ignored);
    }
}

// Why the run cannot go on, or nothing.
static std::string Trouble(DemoSession& session)
{
    for (ChildProcess* pChild : {&session.service, &session.panel}) {
        if (!Child_Runs(*pChild)) {
            TakeLines(session); // its last words
            return (pChild == &session.panel ? "the panel " : "the service ") +
                   Child_EndText(*pChild);
        }
    }
    const double limit = SILENCE_S + session.options.viewMs / 1000.0;
    if (!session.bEmpty && SteadySeconds() - session.lastEvent > limit) {
        return "the service has taken no new picture for " +
               std::to_string(static_cast<int>(limit)) + " s";
    }
    return "";
}

// Watches until the round is over, or a signal or trouble ends it. Returns the status to exit with
// as far as it is settled by how the run ended.
static int Watch(DemoSession& session)
{
    for (;;) {
        WaitAndTake(session);
        CloseWhatIsDue(session);
        if (session.bRoundOver && session.closes.empty()) {
            return DEMO_EXIT_OK;
        }
        if (Stop_Asked()) {
            Tally_Break(session.tally);
            return session.bEndless ? DEMO_EXIT_OK : DEMO_EXIT_STOPPED;
        }
        const std::string trouble = session.bRoundOver ? "" : Trouble(session);
        if (!trouble.empty()) {
            Tally_Break(session.tally);
            Error(trouble);
            return DEMO_EXIT_FAILED;
        }
    }
}

static int Conclude(const DemoSession& session, int nExit)
{
    const bool bComplete = nExit == DEMO_EXIT_OK && !session.bEndless;
    const DemoSummary summary =
        Tally_Summary(session.tally, bComplete ? session.listed : std::vector<std::string>());
    if (!session.tally.last.empty()) {
        Screen_Summary(session.screen, summary);
    }
    if (bComplete && summary.nShown == 0) {
        Error("no picture that can be read: " + session.options.scene);
        return DEMO_EXIT_USAGE;
    }
    const bool bFlawed = summary.nMissed > 0 || summary.nWrong > 0;
    return bComplete && session.options.bStrict && bFlawed ? DEMO_EXIT_FAILED : nExit;
}

static void Greet(const DemoSession& session)
{
    const double viewS = session.options.viewMs / 1000.0;
    if (session.bEndless) {
        std::printf("Showing the pictures of %s to the camera, %g s each, over and over. Put more "
                    "in while it\nruns; Ctrl-C ends.\n\n",
                    session.options.scene.c_str(), viewS);
    } else {
        std::printf("Showing %zu %s of %s to the camera, %g s each.\n\n", session.listed.size(),
                    session.listed.size() == 1 ? "picture" : "pictures",
                    session.options.scene.c_str(), viewS);
    }
}

int Demo_Run(const DemoOptions& options)
{
    DemoSession session;
    session.options = options;
    session.options.scene = ScenePath(options.scene);
    std::string error;
    if (!Sim_ListPictures(session.options.scene, session.listed, error)) {
        Error(error);
        return DEMO_EXIT_USAGE;
    }
    session.bEndless = !options.bOnce && std::filesystem::is_directory(session.options.scene) &&
                       isatty(STDOUT_FILENO) == 1;
    if (session.listed.empty() && !session.bEndless) {
        Error("no picture in " + session.options.scene);
        return DEMO_EXIT_USAGE;
    }
    session.waitMask = Stop_TakeSignals();
    session.screen = Screen_Open(session.listed, EpochSeconds());
    Greet(session);
    int nExit = DEMO_EXIT_FAILED;
    if (MakeEventsFifo(session) && StartPanel(session) && StartService(session)) {
        nExit = Conclude(session, Watch(session));
    } else if (Stop_Asked()) {
        nExit = DEMO_EXIT_STOPPED;
    }
    Stop(session);
    return nExit;
}
