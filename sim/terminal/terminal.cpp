#include "terminal.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "panel_socket.h"
#include "stop_signal.h"

namespace fs = std::filesystem;

namespace
{

enum { TICK_MS = 50 }; // between looks at what is not on a descriptor

// Takes the first piece out of what has come. Returns false when there is none.
template <typename Piece> bool Take(std::deque<Piece>& pieces, Piece& piece)
{
    if (pieces.empty()) {
        return false;
    }
    piece = std::move(pieces.front());
    pieces.pop_front();
    return true;
}

CameraEvent ParseCameraEvent(const std::string& line)
{
    const nlohmann::json json = nlohmann::json::parse(line, nullptr, false);
    CameraEvent event;
    if (json.is_object()) {
        event.time = json.value("time", 0.0);
        event.event = json.value("event", "");
        event.picture = json.value("picture", "");
        event.reason = json.value("reason", "");
        event.round = json.value("round", 0);
    }
    return event;
}

} // namespace

bool Terminal_IsCommand(const PanelEvent& event, int32_t command)
{
    MsgHead head;
    return !event.out && Panel_ReadHead(event.datagram, head) && head.nMsgCommand == command;
}

Terminal::Terminal(TerminalOptions options) : options_(std::move(options)) {}

Terminal::~Terminal()
{
    Stop();
    ClosePort();
    if (eventsFd_ >= 0) {
        close(eventsFd_);
    }
    if (!folder_.empty()) {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }
}

bool Terminal::MakeFolder(std::string& error)
{
    if (!folder_.empty()) {
        return true;
    }
    std::error_code ignored;
    std::string name = (fs::temp_directory_path(ignored) / "qrcode-terminal-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        error = "no temporary folder " + name + ": " + std::strerror(errno);
        return false;
    }
    folder_ = name;
    fs::create_directory(folder_ + "/scene");
    fs::create_directory(folder_ + "/wings"); // where a picture waits for its rename
    if (!SetScript(options_.script, error)) {
        return false;
    }
    if (options_.cameraEvents && mkfifo((folder_ + "/events").c_str(), 0600) == 0) {
        // For writing too, so that there is no end of file while nobody else has it open.
        eventsFd_ = open((folder_ + "/events").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    }
    error = "no FIFO in " + folder_;
    return !options_.cameraEvents || eventsFd_ >= 0;
}

bool Terminal::OpenPort(std::string& error)
{
    if (fd_ < 0) {
        fd_ = Panel_OpenSocket(error);
    }
    if (fd_ >= 0 && options_.receiveBytes > 0) {
        setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &options_.receiveBytes, sizeof(int));
    }
    return fd_ >= 0;
}

void Terminal::ClosePort()
{
    if (fd_ >= 0) {
        close(fd_);
        fd_ = -1;
    }
}

bool Terminal::Launch(std::string& error)
{
    if (!MakeFolder(error) || (options_.port && !OpenPort(error))) {
        return false;
    }
    service_.Stop();
    Pump(0);
    Forget();
    helloUs_ = 0;
    ProgramOptions program;
    program.command = options_.service;
    program.quiet = options_.quiet;
    program.terminal = options_.watched;
    program.errorsApart = options_.watched;
    program.stackBytes = options_.stackBytes;
    program.environment = {
        "OPENBLAS_NUM_THREADS=1", // a BLAS library behind OpenCV may start threads while it loads
        options_.newest
            ? "QRCODE_SIM_NEWEST=" + folder_ + "/newest"
            : "QRCODE_SIM_SCENE=" + (options_.scene.empty() ? folder_ + "/scene" : options_.scene),
        "QRCODE_SIM_VIEW_MS=" + std::to_string(options_.viewMs)};
    if (!options_.script.empty()) {
        program.environment.push_back("QRCODE_SIM_SCRIPT=" + folder_ + "/script");
    }
    if (options_.cameraEvents) {
        program.environment.push_back("QRCODE_SIM_EVENTS=" + folder_ + "/events");
    }
    program.environment.insert(program.environment.end(), options_.environment.begin(),
                               options_.environment.end());
    startUs_ = Panel_NowUs();
    return service_.Start(program, error);
}

bool Terminal::Start(std::string& error)
{
    if (!Launch(error)) {
        return false;
    }
    if (!AwaitHello()) {
        error = service_.Running() ? "the service says no hello"
                                   : "the service " + service_.EndText() + " before its hello";
        return false;
    }
    return true;
}

int64_t Terminal::Send(const PanelBytes& datagram)
{
    PanelEvent event;
    std::string ignored; // a datagram that does not leave has no effect, and that shows
    Panel_Send(fd_, datagram, event, ignored);
    return event.timeUs;
}

void Terminal::TakeDatagrams()
{
    PanelEvent event;
    while (fd_ >= 0 && Panel_Receive(fd_, event)) {
        if (Terminal_IsCommand(event, MSG_CMD_QRCODE_START)) {
            helloUs_ = event.timeUs;
            if (options_.mode != TERMINAL_NO_ANSWER) {
                SendMode(static_cast<uint8_t>(options_.mode));
                if (options_.enable) {
                    SendCommand(MSG_CMD_QRCODE_ENABLE);
                }
            }
        }
        datagrams_.push_back(event);
    }
}

void Terminal::TakeCameraEvents()
{
    char bytes[4096];
    ssize_t length = 0;
    while (eventsFd_ >= 0 && (length = read(eventsFd_, bytes, sizeof(bytes))) > 0) {
        events_.append(bytes, static_cast<size_t>(length));
        size_t end = 0;
        while ((end = events_.find('\n')) != std::string::npos) {
            camera_.push_back(ParseCameraEvent(events_.substr(0, end)));
            events_.erase(0, end + 1);
        }
    }
}

// Waits for anything to come, and takes all of it in. Datagrams first: the event of a picture is in
// the FIFO before a result can come of it.
void Terminal::Pump(int waitMs)
{
    pollfd fds[] = {{fd_, POLLIN, 0},
                    {service_.OutputFd(), POLLIN, 0},
                    {service_.ErrorFd(), POLLIN, 0},
                    {eventsFd_, POLLIN, 0},
                    {options_.alsoFd, POLLIN, 0}};
    const struct timespec limit = {waitMs / 1000, (waitMs % 1000) * 1000000L};
    ppoll(fds, std::size(fds), &limit, Stop_WaitMask()); // a descriptor below 0 is passed over
    TakeDatagrams();
    TakeCameraEvents();
    service_.TakeOutput();
}

TerminalNews Terminal::Next(int waitMs, CameraEvent& camera, PanelEvent& datagram,
                            std::string& line)
{
    if (camera_.empty() && datagrams_.empty() && service_.Lines().empty() &&
        service_.ErrorLines().empty()) {
        Pump(waitMs);
    }
    return Take(camera_, camera)               ? NEWS_CAMERA
           : Take(datagrams_, datagram)        ? NEWS_DATAGRAM
           : Take(service_.Lines(), line)      ? NEWS_LINE
           : Take(service_.ErrorLines(), line) ? NEWS_ERROR_LINE
                                               : NEWS_NONE;
}

bool Terminal::Await(const std::function<bool()>& happened, int waitMs)
{
    const Deadline deadline(waitMs);
    while (!happened()) {
        if (deadline.Over()) {
            return false;
        }
        Pump(std::min<int>(deadline.LeftMs(), TICK_MS));
    }
    return true;
}

bool Terminal::AwaitHello(int waitMs)
{
    Await([this] { return helloUs_ != 0 || !service_.Running(); }, waitMs);
    return helloUs_ != 0;
}

// Takes the next result that has come, and drops what comes before it.
bool Terminal::TakeResult(PanelEvent& result)
{
    while (Take(datagrams_, result)) {
        if (Terminal_IsCommand(result, MSG_CMD_QRCODE_RESULT)) {
            return true;
        }
    }
    return false;
}

std::string Terminal::AwaitResult(int waitMs)
{
    PanelEvent result;
    bool come = false;
    const auto isDue = [&] {
        come = TakeResult(result);
        return come || !service_.Running();
    };
    return Await(isDue, waitMs) && come ? Panel_ResultText(result.datagram) : "";
}

bool Terminal::AwaitText(const std::string& text, int waitMs, int64_t& timeUs)
{
    timeUs = 0;
    const auto isDue = [&] {
        for (PanelEvent result; timeUs == 0 && TakeResult(result);) {
            const bool same = Panel_ResultText(result.datagram) == text;
            timeUs = same ? result.timeUs : 0;
            stray_ += same ? 0 : 1;
        }
        return timeUs != 0 || !service_.Running();
    };
    return Await(isDue, waitMs) && timeUs != 0;
}

void Terminal::Forget()
{
    Pump(0);
    datagrams_.clear();
    camera_.clear();
}

bool Terminal::SilentFor(int ms)
{
    const Deadline deadline(TERMINAL_WAIT_MS);
    Forget();
    while (!AwaitResult(ms).empty()) {
        if (deadline.Over()) {
            return false;
        }
    }
    return service_.Running();
}

bool Terminal::Show(const std::string& picture, int64_t& timeUs, std::string& error)
{
    const std::string name = fs::path(picture).filename().string();
    const std::string wings = folder_ + "/wings/" + name;
    std::error_code code;
    fs::copy_file(picture, wings, fs::copy_options::overwrite_existing, code);
    timeUs = Panel_NowUs();
    if (!code) {
        fs::rename(wings, folder_ + "/scene/" + name, code);
    }
    shown_ = name;
    error = picture + ": " + code.message();
    return !code;
}

void Terminal::Clear()
{
    std::error_code ignored;
    fs::remove(folder_ + "/scene/" + shown_, ignored);
    shown_.clear();
}

bool Terminal::Hand(const std::string& file, std::string& error)
{
    const std::string newest = folder_ + "/newest";
    const std::string wings = folder_ + "/wings/newest";
    std::error_code code;
    if (file.empty()) {
        fs::remove(newest, code);
    } else {
        fs::remove(wings, code);
        fs::create_hard_link(file, wings, code);
        if (!code) {
            fs::rename(wings, newest, code);
        }
    }
    error = file + ": " + code.message();
    return !code;
}

bool Terminal::SetScript(const std::string& script, std::string& error)
{
    const std::string wings = folder_ + "/wings/script";
    std::error_code code = std::make_error_code(std::errc::io_error);
    if (std::ofstream(wings, std::ios::binary) << script << std::flush) {
        fs::rename(wings, folder_ + "/script", code);
    }
    error = "the fault script: " + code.message();
    return !code;
}

bool Terminal::AwaitLine(const std::string& part, std::string& line, int waitMs)
{
    const auto come = [&] {
        while (Take(service_.Lines(), line)) {
            if (line.find(part) != std::string::npos) {
                return true;
            }
        }
        return false;
    };
    return Await(come, waitMs);
}
