#include "desk_session.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sys/epoll.h>
#include <unistd.h>
#include <vector>

#include "camera_picture.h"
#include "cascade.h"
#include "command_line.h"
#include "desk_faults.h"
#include "desk_http.h"
#include "desk_inspector.h"
#include "fault_script.h"
#include "inspect_worker.h"
#include "link_advice.h"
#include "log_write.h"
#include "panel_socket.h"
#include "scene_files.h"
#include "snap_channel.h"
#include "stop_signal.h"
#include "terminal.h"
#include "text.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace
{

enum {
    TICK_MS = 50,
    STATE_MS = 1000,       // between two states
    LINES_MS = 100,        // between two looks at the logs, and between lines of one stream
    LINES_AT_ONCE = 100,   // of one stream; the rest is counted
    LINES_KEPT = 5,        // events of them, of a stream, for a page that comes later
    LINK_KEPT = 200,       // datagrams and notes
    PIECES_AT_ONCE = 2000, // of the terminal's news before the page has its turn
    MODES = 256,
    CHECK_SECONDS = 3 // for a picture to be looked at: the page takes 5 s of silence for the end
};

// In the desk's folder.
const char WALL_FILE[] = "wall.png";
const char NEXT_FILE[] = "next";     // to come before the camera
const char VIEW_FILE[] = "view";     // before the camera
const char ASKED_FILE[] = "asked";   // at the inspector: another name of what was the view then
const char SEEN_FILE[] = "seen.jpg"; // the view as it is seen there; the page's camera sends it so

const char LOG_END[] = "</br>"; // of an entry, see log_write.h

// By path: the file, and its type.
const std::map<std::string, std::pair<std::string, std::string>> PAGE_FILES = {
    {"/", {"/index.html", "text/html; charset=utf-8"}},
    {"/desk.css", {"/desk.css", "text/css; charset=utf-8"}},
    {"/desk.js", {"/desk.js", "text/javascript; charset=utf-8"}}};

// By path: what is sent, and whether scanning is switched on by it.
const std::map<std::string, std::pair<int32_t, bool>> COMMANDS = {
    {"/enable", {MSG_CMD_QRCODE_ENABLE, true}},
    {"/disable", {MSG_CMD_QRCODE_DISABLE, false}},
    {"/stop", {MSG_CMD_QRCODE_STOP, false}}};

// How a hello is answered: so many ms after it came; below 0 never. The late one is far behind the
// service's one look at the mode.
const std::map<std::string, int> ANSWERS = {{"now", 0}, {"late", 1000}, {"never", -1}};

// Why a file cannot be shown. Flat: crosses a pipe.
struct CheckRecord {
    char error[160] = {};
};

// What is before the camera.
struct DeskView {
    int k = 0; // counts what was handed over
    std::string name;
    std::string from = "wall";
    double time = 0.0; // when it came there, in seconds
};

// A log, or an output of the service.
struct DeskStream {
    std::vector<std::string> lines; // to be told
    uintmax_t offset = 0;           // of a log, behind its last whole entry
    bool emptied = false;
};

struct Desk {
    explicit Desk(const DeskOptions& given);
    ~Desk();

    DeskOptions options;
    std::string folder; // temporary
    std::vector<std::string> pictures;
    std::vector<DeskFault> faults;
    Http http;
    int wait = -1; // epoll: the HTTP side, and the inspector
    Terminal terminal;
    LinkAdvice advice;
    Program inspector;
    DeskView inspected; // the last
    bool inspecting = false;
    DeskView view;
    int mode = 1; // what the next hello is answered with
    bool enable = true;
    std::string answer = "now";
    int64_t answerMs = 0; // when one is due, 0 for none
    size_t fault = 0;
    std::deque<double> frames; // seconds, of the last second and two more
    ProcessFigures figures;
    double cpuPercent = 0.0;
    int64_t stateMs = 0;
    int64_t linesMs = 0;
    std::map<std::string, DeskStream> streams;           // by name
    std::map<std::string, std::deque<std::string>> told; // by kind
};

int64_t NowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// As a client of events gets it.
std::string Dump(const json& event)
{
    return "data: " + event.dump(-1, ' ', false, json::error_handler_t::replace) + "\n\n";
}

std::string Word(const HttpRequest& request, const char* name)
{
    const auto found = request.query.find(name);
    return found != request.query.end() ? found->second.substr(0, NAME_MAX) : "";
}

// The number if it is one below `end`, or -1.
int Number(const std::string& digits, size_t end)
{
    const bool number = !digits.empty() && digits.size() < 7 &&
                        digits.find_first_not_of("0123456789") == std::string::npos;
    return number && std::stoul(digits) < end ? std::stoi(digits) : -1;
}

TerminalOptions Setting(const DeskOptions& options, int wait)
{
    TerminalOptions setting;
    setting.service = {options.service};
    setting.newest = true;
    setting.script = "# none\n";
    setting.cameraEvents = true;
    setting.watched = true;
    setting.mode = TERMINAL_NO_ANSWER; // the desk's own
    setting.alsoFd = wait;
    return setting;
}

Desk::Desk(const DeskOptions& given)
    : options(given), wait(epoll_create1(EPOLL_CLOEXEC)), terminal(Setting(given, wait))
{
}

Desk::~Desk()
{
    inspector.Stop();
    terminal.Stop();
    close(wait);
    std::error_code ignored;
    if (!folder.empty()) {
        fs::remove_all(folder, ignored);
    }
}

std::string PathOf(const Desk& desk, const std::string& name)
{
    return desk.folder + "/" + name;
}

// --- What the page is told.

// Tells all pages, and keeps what a page that comes later wants of that kind.
void Tell(Desk& desk, const std::string& kind, const json& event)
{
    const size_t kept = kind == "link"                         ? LINK_KEPT
                        : kind == "state" || kind == "reading" ? 1
                                                               : LINES_KEPT;
    std::deque<std::string>& told = desk.told[kind];
    told.push_back(Dump(event));
    if (told.size() > kept) {
        told.pop_front();
    }
    desk.http.Publish(told.back());
}

void TellNotes(Desk& desk, int64_t timeUs, const LinkNotes& notes)
{
    for (const std::string& note : notes) {
        Tell(desk, "link",
             {{"type", "note"}, {"time", static_cast<double>(timeUs) / 1e6}, {"text", note}});
    }
}

void TellDatagram(Desk& desk, const PanelEvent& event)
{
    TellNotes(desk, event.timeUs, Advice_Time(desk.advice, event.timeUs));
    json told = json::parse(Panel_EventJson(event));
    told["type"] = "datagram";
    told["datagram"] = Text_Hex({event.datagram.begin(), event.datagram.end()});
    Tell(desk, "link", told);
    TellNotes(desk, event.timeUs, Advice_Datagram(desk.advice, event));
}

void TellState(Desk& desk)
{
    const bool running = desk.terminal.Service().Running();
    const LinkAdvice& advice = desk.advice;
    const std::deque<double>& frames = desk.frames;
    const size_t count = frames.size();
    Tell(
        desk, "state",
        {{"type", "state"},
         {"service", !running                     ? "ended"
                     : advice.fate == FATE_OPEN   ? "starting"
                     : advice.fate == FATE_PARKED ? "parked"
                                                  : "running"},
         {"end", running ? "" : desk.terminal.Service().EndText()},
         {"threads", desk.figures.threads},
         {"descriptors", desk.figures.descriptors},
         {"cpuPercent", desk.cpuPercent},
         {"residentKib", desk.figures.residentKib},
         {"mode", advice.modeCame ? json(advice.mode) : json()},
         {"enabled", advice.enabled},
         {"answer", desk.answer},
         {"answerMode", desk.mode},
         {"answerEnable", desk.enable},
         {"fault", desk.fault},
         {"betweenMs", count > 1 ? json((frames[count - 1] - frames[count - 2]) * 1000.0) : json()},
         {"readingsPerS", std::max<size_t>(count, 2) - 2},
         {"view", {{"k", desk.view.k}, {"name", desk.view.name}, {"from", desk.view.from}}}});
}

// Once a second.
void Measure(Desk& desk, int64_t nowMs)
{
    const ProcessFigures figures = desk.terminal.Figures();
    const double usedMs = std::max(0.0, figures.cpuMs - desk.figures.cpuMs);
    desk.cpuPercent = usedMs / static_cast<double>(nowMs - desk.stateMs) * 100.0;
    desk.figures = figures;
    desk.stateMs = nowMs;
    // The two before the last second tell how far apart they are where they are rare.
    const double since = static_cast<double>(Panel_NowUs()) / 1e6 - STATE_MS / 1000.0;
    while (desk.frames.size() > 2 && desk.frames[2] < since) {
        desk.frames.pop_front();
    }
    TellState(desk);
}

// Takes what is new in a log.
void FollowLog(DeskStream& log, const char* path)
{
    std::error_code code;
    const uintmax_t size = fs::file_size(path, code);
    if (code || size == log.offset) {
        return;
    }
    if (size < log.offset) { // the service empties a full one
        log.offset = 0;
        log.emptied = true;
    }
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(log.offset));
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    size_t begin = 0; // of an entry; one that is not whole is read again
    for (size_t end = 0; (end = bytes.find(LOG_END, begin)) != std::string::npos; begin = end) {
        end += std::size(LOG_END) - 1;
        log.lines.push_back(bytes.substr(begin, end - begin));
    }
    log.offset += begin;
}

void TellLines(Desk& desk)
{
    for (const char* const path : {QRCODE_LOG_PATH, UI_LOG_PATH}) {
        FollowLog(desk.streams[fs::path(path).filename()], path);
    }
    for (auto& [name, stream] : desk.streams) {
        if (stream.lines.empty() && !stream.emptied) {
            continue;
        }
        if (stream.lines.size() > LINES_AT_ONCE) {
            const size_t leftOut = stream.lines.size() - LINES_AT_ONCE;
            stream.lines.resize(LINES_AT_ONCE);
            stream.lines.push_back("... and " + std::to_string(leftOut) +
                                   " more lines within 0.1 s");
        }
        Tell(desk, name,
             {{"type", "lines"},
              {"stream", name},
              {"lines", stream.lines},
              {"emptied", stream.emptied}});
        stream.lines.clear();
        stream.emptied = false;
    }
}

// --- The terminal.

void Send(Desk& desk, const PanelBytes& datagram)
{
    const bool heard = Panel_IsBound(QRCODE_SERVER_PORT);
    const PanelEvent event = {desk.terminal.Send(datagram), true, datagram};
    TellDatagram(desk, event);
    if (!heard) {
        TellNotes(desk, event.timeUs, Advice_Lost(desk.advice, event));
    }
}

void AnswerHello(Desk& desk)
{
    desk.answerMs = 0;
    Send(desk, Panel_ModeFrame(static_cast<uint8_t>(desk.mode)));
    if (desk.enable) {
        Send(desk, Panel_CommandFrame(MSG_CMD_QRCODE_ENABLE));
    }
}

void TakeNews(Desk& desk, TerminalNews news, const CameraEvent& camera, const PanelEvent& datagram,
              const std::string& line)
{
    if (news == NEWS_CAMERA) {
        desk.frames.push_back(camera.time);
        TellNotes(desk, static_cast<int64_t>(camera.time * 1e6), Advice_Picture(desk.advice));
    } else if (news == NEWS_LINE || news == NEWS_ERROR_LINE) {
        desk.streams[news == NEWS_LINE ? "stdout" : "stderr"].lines.push_back(line);
    } else {
        TellDatagram(desk, datagram);
        const int delayMs = ANSWERS.at(desk.answer);
        if (Terminal_IsCommand(datagram, MSG_CMD_QRCODE_START) && delayMs >= 0) {
            desk.answerMs = NowMs() + delayMs;
        }
    }
}

bool Launch(Desk& desk, std::string& error)
{
    desk.advice = LinkAdvice();
    desk.answerMs = 0;
    desk.frames.clear();
    desk.figures = ProcessFigures();
    return desk.terminal.Launch(error);
}

// --- The inspector.

bool StartInspector(Desk& desk, std::string& error)
{
    ProgramOptions program;
    program.command = {"/proc/self/exe", "--inspect", desk.folder};
    program.input = true;
    const bool started = desk.inspector.Start(program, error);
    epoll_event event = {EPOLLIN, {}};
    epoll_ctl(desk.wait, EPOLL_CTL_ADD, desk.inspector.OutputFd(), &event);
    desk.inspecting = false; // what the one before had is asked for anew
    desk.inspected = {};
    return started;
}

void AskInspector(Desk& desk)
{
    if (!desk.inspecting && desk.view.k != desk.inspected.k) {
        desk.inspecting = true;
        desk.inspected = desk.view;
        std::error_code ignored; // then it says that there is no picture
        fs::remove(PathOf(desk, ASKED_FILE), ignored);
        fs::create_hard_link(PathOf(desk, VIEW_FILE), PathOf(desk, ASKED_FILE), ignored);
        desk.inspector.Say(ASKED_FILE);
    }
}

void TakeInspector(Desk& desk)
{
    desk.inspector.TakeOutput();
    for (; !desk.inspector.Lines().empty(); desk.inspector.Lines().pop_front()) {
        json reading = json::parse(desk.inspector.Lines().front(), nullptr, false);
        if (!reading.is_object()) {
            continue; // a library's words
        }
        reading["type"] = "reading";
        reading["view"] = desk.inspected.k;
        reading["shown"] = desk.inspected.time;
        Tell(desk, "reading", reading);
        desk.inspecting = false;
    }
    AskInspector(desk);
}

// --- What the page asks.

HttpAnswer FileAnswer(const std::string& path, const std::string& type)
{
    std::vector<uint8_t> bytes;
    return Sim_ReadFile(path, bytes) ? HttpAnswer{200, type, {bytes.begin(), bytes.end()}}
                                     : Http_Error(404, "it is not there");
}

std::string Begin(const Desk& desk)
{
    json begin = {{"type", "begin"}, {"version", QRCODE_VERSION}, {"pictures", json::array()}};
    for (const std::string& path : desk.pictures) {
        begin["pictures"].push_back(fs::path(path).filename().string());
    }
    for (const DeskFault& fault : desk.faults) {
        begin["faults"].push_back(
            {{"name", fault.name}, {"door", fault.door}, {"blocks", fault.blocks}});
    }
    for (int n = 1; n <= Qrcode_AttemptCount(); ++n) {
        begin["attempts"].push_back(Qrcode_AttemptName(n));
    }
    std::string events = Dump(begin);
    for (const auto& [kind, told] : desk.told) {
        for (const std::string& event : told) {
            events += event;
        }
    }
    return events;
}

// Puts the next file before the camera, if it is a picture; else it is removed.
HttpAnswer Show(Desk& desk, const std::string& name, const std::string& from)
{
    const std::string next = PathOf(desk, NEXT_FILE);
    std::string error;
    const bool checked = Worker_ForEach<CheckRecord>(
        1,
        [&](size_t) {
            close(desk.options.socket); // what reads a stranger's bytes takes no requests
            CheckRecord record;
            cv::Mat picture;
            if (!Sim_LoadPicture(next, picture, error)) {
                std::snprintf(record.error, sizeof(record.error), "%s", error.c_str());
            } else if (from != "camera") { // the page shows its own
                cv::Mat seen = Sim_CameraFrame(picture, SNAP_WIDTH, SNAP_HEIGHT);
                cv::flip(seen, seen, 1); // as the service mirrors it
                cv::imwrite(PathOf(desk, SEEN_FILE), seen);
            }
            return record;
        },
        [&](size_t, const CheckRecord& record, const std::string& death) {
            error = death.empty() ? record.error : death;
        },
        CHECK_SECONDS, error);
    std::error_code ignored;
    if (!checked || !error.empty() || !desk.terminal.Hand(next, error)) {
        fs::remove(next, ignored);
        return Http_Error(422, Text_Escape(name) + ": " + error);
    }
    fs::rename(next, PathOf(desk, VIEW_FILE), ignored);
    desk.view = {desk.view.k + 1, name, from, static_cast<double>(Panel_NowUs()) / 1e6};
    AskInspector(desk);
    if (from != "camera") {
        TellState(desk);
    }
    return {};
}

HttpAnswer ShowFile(Desk& desk, const fs::path& picture, const std::string& from)
{
    const std::string name = picture.filename();
    std::error_code code;
    fs::copy_file(picture, PathOf(desk, NEXT_FILE), fs::copy_options::overwrite_existing, code);
    return code ? Http_Error(404, name + ": " + code.message()) : Show(desk, name, from);
}

HttpAnswer ShowUpload(Desk& desk, const HttpRequest& request)
{
    const std::string name = Word(request, "name");
    if (request.body.size() > HTTP_UPLOAD_MAX) {
        return Http_Error(413, Text_Escape(name) + " is larger than " +
                                   std::to_string(HTTP_UPLOAD_MAX >> 20) + " MB");
    }
    std::ofstream file(PathOf(desk, NEXT_FILE), std::ios::binary);
    if (!(file << request.body << std::flush)) {
        std::error_code ignored;
        fs::remove(PathOf(desk, NEXT_FILE), ignored);
        return Http_Error(507, "there is no room for it");
    }
    return Show(desk, name, Word(request, "from") == "camera" ? "camera" : "file");
}

HttpAnswer Do(Desk& desk, const HttpRequest& request)
{
    const std::string& path = request.path;
    std::string error;
    bool done = true;
    const int picture = Number(Word(request, "n"), desk.pictures.size());
    const int fault = Number(Word(request, "n"), desk.faults.size());
    const int mode = Number(Word(request, "value"), MODES);
    const auto command = COMMANDS.find(path);
    if (path == "/picture") {
        return ShowUpload(desk, request);
    }
    if (path == "/sample" && picture >= 0) {
        return ShowFile(desk, desk.pictures[static_cast<size_t>(picture)], "sample");
    }
    if (path == "/clear") {
        return ShowFile(desk, PathOf(desk, WALL_FILE), "wall");
    }
    if (path == "/mode" && mode >= 0) {
        desk.mode = mode;
        Send(desk, Panel_ModeFrame(static_cast<uint8_t>(desk.mode)));
    } else if (command != COMMANDS.end()) {
        desk.enable = command->second.second;
        Send(desk, Panel_CommandFrame(command->second.first));
    } else if (path == "/answer" && ANSWERS.count(Word(request, "when")) > 0) {
        desk.answer = Word(request, "when");
    } else if (path == "/restart") {
        done = Launch(desk, error);
    } else if (path == "/kill") {
        desk.terminal.Kill();
    } else if (path == "/fault" && fault >= 0) {
        desk.fault = static_cast<size_t>(fault);
        done = desk.terminal.SetScript(desk.faults[desk.fault].script, error);
    } else {
        return Http_Error(404, "there is nothing to be done as " + path + " with these values");
    }
    TellState(desk);
    return done ? HttpAnswer() : Http_Error(500, error);
}

HttpAnswer Answer(Desk& desk, const HttpRequest& request)
{
    const std::string& path = request.path;
    if (request.method == "POST") {
        return Do(desk, request);
    }
    if (request.method != "GET") {
        return Http_Error(405, "only GET and POST are served");
    }
    const auto file = PAGE_FILES.find(path);
    if (file != PAGE_FILES.end()) {
        return FileAnswer(desk.options.page + file->second.first, file->second.second);
    }
    if (path == "/favicon.ico") { // every browser asks for one
        return {204, "image/png", ""};
    }
    if (path == "/events") {
        return {200, HTTP_EVENTS, Begin(desk)};
    }
    if (path == "/tiles" || path == "/view") {
        const char* const seen = desk.view.from == "camera" ? VIEW_FILE : SEEN_FILE;
        return FileAnswer(PathOf(desk, path == "/view" ? seen : TILES_FILE), "image/jpeg");
    }
    const std::string strip = "/pictures/";
    const bool named = path.rfind(strip, 0) == 0;
    const int n = Number(named ? path.substr(strip.size()) : "", desk.pictures.size());
    if (n < 0) {
        return Http_Error(404, "there is no " + path);
    }
    const fs::path picture = desk.pictures[static_cast<size_t>(n)];
    const std::string ending = picture.extension().string();
    return FileAnswer(picture, "image/" + (ending.empty() ? "*" : ending.substr(1)));
}

bool Open(Desk& desk, std::string& error)
{
    if (!Sim_ListPictures(desk.options.scene, desk.pictures, error)) {
        return false;
    }
    // What else lies in a folder is not for the page.
    std::error_code code;
    desk.pictures.erase(std::remove_if(desk.pictures.begin(), desk.pictures.end(),
                                       [&code](const std::string& path) {
                                           return fs::file_size(path, code) > HTTP_UPLOAD_MAX ||
                                                  !cv::haveImageReader(path);
                                       }),
                        desk.pictures.end());
    if (desk.pictures.empty()) {
        error = desk.options.scene + ": no picture that can be shown";
        return false;
    }
    std::string name = (fs::temp_directory_path(code) / "qrcode-desk-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        error = "no temporary folder " + name;
        return false;
    }
    desk.folder = name;
    desk.faults = Faults_List(desk.folder);
    cv::imwrite(PathOf(desk, WALL_FILE), Sim_EmptyFrame(SNAP_WIDTH, SNAP_HEIGHT));
    if (!desk.http.Open(
            desk.options.socket, desk.options.port,
            [&desk](const HttpRequest& request) { return Answer(desk, request); }, error)) {
        return false;
    }
    epoll_event event = {EPOLLIN, {}};
    epoll_ctl(desk.wait, EPOLL_CTL_ADD, desk.http.WaitFd(), &event);
    if (!StartInspector(desk, error) || !Launch(desk, error)) {
        return false;
    }
    ShowFile(desk, PathOf(desk, WALL_FILE), "wall"); // which the camera sees already
    return true;
}

void Run(Desk& desk)
{
    CameraEvent camera;
    PanelEvent datagram;
    std::string line;
    bool more = false;
    while (!Stop_Asked()) {
        TerminalNews news = desk.terminal.Next(more ? 0 : TICK_MS, camera, datagram, line);
        for (int n = 1; news != NEWS_NONE; ++n) {
            TakeNews(desk, news, camera, datagram, line);
            news = n < PIECES_AT_ONCE ? desk.terminal.Next(0, camera, datagram, line) : NEWS_NONE;
        }
        if (desk.answerMs != 0 && NowMs() >= desk.answerMs) {
            AnswerHello(desk);
        }
        more = desk.http.Run();
        TakeInspector(desk);
        // With a fault a picture that does not come says nothing about the mode.
        desk.advice.saidIdle = desk.advice.saidIdle || desk.fault != 0;
        const int64_t nowUs = Panel_NowUs();
        TellNotes(desk, nowUs, Advice_Time(desk.advice, nowUs));
        const int64_t nowMs = NowMs();
        if (nowMs - desk.linesMs >= LINES_MS) {
            desk.linesMs = nowMs;
            TellLines(desk);
        }
        if (nowMs - desk.stateMs >= STATE_MS) {
            Measure(desk, nowMs);
            std::string ignored;
            if (!desk.inspector.Running()) {
                StartInspector(desk, ignored);
            }
        }
    }
}

} // namespace

int Desk_Run(const DeskOptions& options)
{
    std::string error;
    Desk desk(options);
    if (!Open(desk, error)) {
        std::fprintf(stderr, "desk: %s\n", error.c_str());
        return EXIT_FAILED;
    }
    std::printf("The terminal is at http://127.0.0.1:%d. Ctrl-C ends it.\n", options.port);
    std::fflush(stdout);
    Run(desk);
    return 0;
}
