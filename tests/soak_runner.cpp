// Drives the service for a long time, or harder than it can take, and says what came of it. In a
// private world, over a simulated terminal:
//   soak_runner soak READINGS COMMANDS   readings and command datagrams at the same time
//   soak_runner overload                 the highest rate of commands without a loss, and beyond
//   soak_runner restarts COUNT           panel and service killed and started again so often
// Ends with 1 when a promise was not kept.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <regex>
#include <thread>
#include <unistd.h>

#include "command_line.h"
#include "media_platform.h"
#include "service.h"

namespace
{

const size_t LOG_CAP = 3145728;
const size_t ENTRY_MAX = 200;   // bytes: more than any entry of the service's
const size_t LOG_LEFT = 100000; // bytes to the cap at the start
enum {
    BATCH = 50,
    WARM_UP_PERCENT = 5,
    STATE_CHECKS = 20,
    STALL_S = 60,
    REST_MS = 500, // many readings
    UNKNOWN = -1,
    MARKER = 0x1000000,
    HUGE_BUFFER = 8 << 20 // bytes
};

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point since)
{
    return std::chrono::duration<double>(Clock::now() - since).count();
}

void Require(bool kept, const std::string& what)
{
    if (!kept) {
        std::printf("FAILED: %s\n", what.c_str());
        std::exit(1);
    }
}

void StartOrFail(Terminal& service)
{
    std::string error;
    Require(service.Start(error), error);
}

TerminalOptions UnthrottledService()
{
    TerminalOptions options = PlainService();
    options.script = "frame-ms 0\n";
    options.cameraEvents = true;
    options.quiet = true;
    options.receiveBytes = HUGE_BUFFER;
    return options;
}

struct Run {
    Terminal service{UnthrottledService()};
    long frames = 0; // taken by the camera, one a reading
    long views = 0;  // of them with a code
    long results = 0;
    int32_t marker = MARKER;
    size_t logged = 0;                      // bytes of the log that have been looked at
    Clock::time_point moved = Clock::now(); // latest reading
};

// Takes in what the camera and the service have done; waits so long for the first of it.
void Look(Run& run, int waitMs = 0)
{
    CameraEvent camera;
    PanelEvent datagram;
    std::string line;
    for (TerminalNews news = run.service.Next(waitMs, camera, datagram, line); news != NEWS_NONE;
         news = run.service.Next(0, camera, datagram, line)) {
        if (news == NEWS_CAMERA) {
            ++run.frames;
            run.moved = Clock::now();
            run.views += camera.event == "view";
        } else if (!Terminal_IsCommand(datagram, MSG_CMD_QRCODE_START)) {
            Require(datagram.datagram.size() == MSG_HEAD_SIZE + QRCODE_TEXT_SIZE,
                    "a datagram of another size");
            ++run.results;
        }
    }
}

// Waits until `happened` says so, taking in what comes.
template <typename Happened> void Await(Run& run, const std::string& otherwise, Happened happened)
{
    Require(Wait_Until([&] {
                Look(run);
                return happened();
            }),
            otherwise);
}

// Datagrams that the service's socket had no room for, and whether none waits there.
long Drops(bool* isEmpty = nullptr)
{
    std::smatch match;
    const std::string sockets = ReadAll("/proc/net/udp");
    const std::regex ours("0100007F:271A \\S+ \\S+ \\S+:(\\S+) [^\\n]* (\\d+) *\\n");
    Require(std::regex_search(sockets, match, ours), "the service's socket is gone");
    if (isEmpty != nullptr) {
        *isEmpty = match[1] == "00000000";
    }
    return std::stol(match[2]);
}

// Sends a command that is logged only, and waits until it is: all before it has been handled. Of
// the `sent` commands before it each must have its entry; where the log was emptied meanwhile, only
// those after that can be seen.
void WaitUntilHandled(Run& run, long sent)
{
    const std::string entry = Entry(++run.marker);
    run.service.SendCommand(run.marker);
    std::string news;
    bool emptied = false;
    const auto handled = [&] {
        std::ifstream file(SERVICE_LOG, std::ios::binary);
        file.seekg(0, std::ios::end);
        const auto size = static_cast<size_t>(file.tellg());
        Require(size <= LOG_CAP + ENTRY_MAX, "the log is larger than its cap and an entry");
        emptied = emptied || size < run.logged;
        run.logged = size < run.logged ? 0 : run.logged;
        file.seekg(static_cast<std::streamoff>(run.logged));
        news.assign(size - run.logged, '\0');
        file.read(news.data(), static_cast<std::streamsize>(news.size()));
        return news.find(entry) != std::string::npos;
    };
    Await(run, "a command is not in the log", handled);
    const long entries = Count(news, "</br>");
    Require(sent == UNKNOWN || (emptied ? entries <= sent + 1 : entries == sent + 1),
            "a command without its entry");
    run.logged += news.size();
}

// The file as a whole: nothing but entries, and no larger than it may be.
void CheckLog()
{
    static const std::regex form(ENTRY_FORM +
                                 "pMsgHead->MsgHead\\.nMsgCommand=0x[0-9a-f]{4,8}\n</br>");
    const std::string log = ReadAll(SERVICE_LOG);
    Require(log.size() <= LOG_CAP + ENTRY_MAX, "the log is larger than its cap and an entry");
    auto at = log.begin();
    for (std::smatch entry; at != log.end(); at += entry.length()) {
        Require(
            std::regex_search(at, log.end(), entry, form, std::regex_constants::match_continuous),
            "a broken entry in the log at byte " + std::to_string(at - log.begin()));
    }
}

void Start(Run& run)
{
    ResetLogs();
    // The log is nearly at its cap, so that short runs get there too.
    std::string entries;
    while (entries.size() < LOG_CAP - LOG_LEFT) {
        entries += "[2000-01-01 00:00:00" + Entry(0);
    }
    WriteAll(SERVICE_LOG, entries);
    run.logged = entries.size();
    StartOrFail(run.service);
}

// Off, and nothing is read any more; on, and it goes on. Returns the descriptors that the service
// has open while it does nothing.
long CheckState(Run& run)
{
    run.service.SendCommand(MSG_CMD_QRCODE_DISABLE);
    WaitUntilHandled(run, 1);
    const long before = run.frames;
    for (const Deadline rest(REST_MS); !rest.Over();) {
        Look(run, rest.LeftMs());
    }
    Require(run.frames <= before + 1, "it reads although it was switched off"); // one had begun
    const long descriptors = run.service.Figures().descriptors;
    const long idle = run.frames;
    run.service.SendCommand(MSG_CMD_QRCODE_ENABLE);
    Await(run, "it does not read although it was switched on", [&] { return run.frames > idle; });
    WaitUntilHandled(run, 1);
    return descriptors;
}

// One of the commands that, all of them sent, leave the state as it is: enabled, in mode 1.
void SendSome(Terminal& service, long n)
{
    static std::vector<PanelBytes> commands = {Panel_ModeFrame(2),
                                               Panel_CommandFrame(MSG_CMD_QRCODE_ENABLE),
                                               PanelBytes{'x'},
                                               PanelBytes(1200, 0x99),
                                               Panel_ModeFrame(QRCODE_MODE_FROZEN), // from here on
                                               Panel_CommandFrame(MSG_CMD_QRCODE_STOP),
                                               PanelBytes(3000, 0x77),
                                               Panel_CommandFrame(MSG_CMD_QRCODE_DISABLE),
                                               Panel_ModeFrame(1), // ... to here passed over
                                               Panel_CommandFrame(0x7FFFFFFF)};
    static_assert(BATCH % 10 == 0, "a batch ends with the last of them");
    service.Send(commands[static_cast<size_t>(n) % commands.size()]);
}

// Bytes that the heap takes for a pack array.
size_t PackArrayBytes()
{
    void* const pack = calloc(1, sizeof(MediaPack));
    const size_t bytes = malloc_usable_size(pack) + sizeof(size_t);
    free(pack);
    return bytes;
}

int Soak(long readings, long commands)
{
    Run run;
    Start(run);
    WaitUntilHandled(run, 2);
    Await(run, "nothing is read", [&] { return run.results > 0; });
    const bool isWatched = isatty(STDERR_FILENO) == 1;
    const long warm = readings * WARM_UP_PERCENT / 100 + 1;
    long warmKib = 0;
    long warmFrames = 0;
    const long descriptors = CheckState(run);
    const long threads = run.service.Figures().threads;
    const auto start = Clock::now();
    long sent = 0;
    long checks = 0;
    while (sent < commands || run.frames < readings) {
        const ProcessFigures figures = run.service.Figures();
        if (warmKib == 0 && run.frames >= warm) {
            warmKib = figures.residentKib;
            warmFrames = run.frames;
        }
        // Both reach their ends at about the same time.
        if (sent < commands && sent * readings <= run.frames * commands) {
            const long before = sent;
            while (sent < commands && sent < before + BATCH) {
                SendSome(run.service, sent++);
            }
            run.service.SendMode(1);
            WaitUntilHandled(run, sent - before + 1);
        } else {
            Look(run, 1);
        }
        if (sent * STATE_CHECKS >= checks * commands &&
            run.frames * STATE_CHECKS >= checks * readings) {
            ++checks;
            Require(CheckState(run) == descriptors, "a descriptor more or less");
            CheckLog();
            std::fprintf(stderr, "%s%ld readings, %ld commands, %.0f s%s", isWatched ? "\r" : "",
                         run.frames, sent, Seconds(start), isWatched ? " " : "\n");
        }
        Require(run.service.Service().Running(), "the service ended");
        Require(figures.threads == threads, "a thread more or less");
        Require(Seconds(run.moved) < STALL_S, "no reading for a minute");
        Require(Drops() == 0, "a command was dropped");
    }
    Require(CheckState(run) == descriptors, "a descriptor more or less");
    CheckLog();
    const long grown = run.service.Figures().residentKib - warmKib;
    const double predicted =
        static_cast<double>(run.frames - warmFrames) * static_cast<double>(PackArrayBytes()) / 1024;
    std::printf("\n%ld readings and %ld commands in %.0f s, %ld codes in view, %ld reported\n",
                run.frames, sent, Seconds(start), run.views, run.results);
    std::printf("memory grew by %ld KiB in %ld readings, pack arrays of %zu bytes make %.0f KiB\n",
                grown, run.frames - warmFrames, PackArrayBytes(), predicted);
    std::printf("%ld descriptors, %ld threads, as at the start; dropped commands: %ld; log: %zu "
                "bytes, whole\n",
                descriptors, threads, Drops(), ReadAll(SERVICE_LOG).size());
    // Each time it comes into view, but for those that met a pause.
    Require(run.views - run.results <= 2 * checks + 2, "a code was not reported");
    Require(run.results <= run.views, "a code was reported twice");
    Require(std::abs(static_cast<double>(grown) - predicted) <= 1024, "memory is not as predicted");
    return 0;
}

// Sends commands for a while at a rate. Returns how many were dropped.
long DropsAt(Run& run, long perSecond, double seconds, long& sent)
{
    const long before = Drops();
    const auto start = Clock::now();
    auto looked = start;
    sent = 0;
    while (Seconds(start) < seconds) {
        if (static_cast<double>(sent) < Seconds(start) * static_cast<double>(perSecond)) {
            SendSome(run.service, sent++);
        } else {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
        if (Seconds(looked) > 0.01) { // or the camera's events hold the readings
            Look(run);
            looked = Clock::now();
        }
    }
    run.service.SendMode(1);
    bool isEmpty = false;
    long drops = 0;
    Await(run, "the socket's queue is not emptied", [&] {
        drops = Drops(&isEmpty);
        return isEmpty;
    });
    return drops - before;
}

int Overload()
{
    Run run;
    Start(run);
    long highest = 0;
    for (long rate = 1000; rate <= 256000; rate += rate / 4) {
        long sent = 0;
        const long dropped = DropsAt(run, rate, 2.0, sent);
        std::printf("%7ld commands a second wanted, %7ld sent in 2 s, %6ld dropped\n", rate, sent,
                    dropped);
        if (dropped > 0 || sent < rate * 19 / 10) {
            break; // too many for the service, or for this sender
        }
        highest = sent / 2;
    }
    std::printf("highest rate without a loss: %ld commands a second\n", highest);

    long sent = 0;
    const long lost = DropsAt(run, 1000000, 5.0, sent);
    std::printf("as fast as it goes for 5 s: %ld sent, %ld dropped\n", sent, lost);
    run.service.SendMode(1);
    run.service.SendCommand(MSG_CMD_QRCODE_ENABLE);
    WaitUntilHandled(run, UNKNOWN);
    CheckState(run); // the newest state holds
    CheckLog();
    const long before = run.results;
    Await(run, "nothing is reported", [&] { return run.results > before; });
    std::printf("afterwards: the newest state holds, the log is whole, codes are read\n");
    return 0;
}

int Restarts(long count)
{
    ResetLogs();
    TerminalOptions options = PlainService();
    options.quiet = true;
    Terminal service(options);
    StartOrFail(service);
    Require(Reports(service), "nothing is read");
    service.ClosePort();
    for (long i = 0; i < count; ++i) {
        Program panel;
        std::string line;
        StartProgram(panel, Emulated({PANEL, "--json"}));
        Require(panel.AwaitLine("0x904", line),
                "panel " + std::to_string(i) + " hears no result: " + line);
        panel.Kill();
    }
    std::string error;
    Require(service.Service().Running() && service.OpenPort(error) && Obeys(service),
            "the service does not hold against panels that come and go");
    for (long i = 0; i < count; ++i) {
        service.Kill();
        StartOrFail(service);
        Require(Reports(service), "service " + std::to_string(i) + " reads nothing");
    }
    Require(Obeys(service), "the last service does not obey");
    std::printf("panel and service killed and started %ld times\n", count);
    return 0;
}

// A number of the command line; 0 for what is none.
long Number(const char* word)
{
    return std::strtol(word, nullptr, 10);
}

int Main(int argc, char** argv)
{
    const std::string what = argc > 1 ? argv[1] : "";
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    if (what == "soak" && argc == 4 && Number(argv[2]) > 0 && Number(argv[3]) > 0) {
        return Soak(Number(argv[2]), Number(argv[3]));
    }
    if (what == "overload" && argc == 2) {
        return Overload();
    }
    if (what == "restarts" && argc == 3 && Number(argv[2]) > 0) {
        return Restarts(Number(argv[2]));
    }
    std::fprintf(stderr, "usage: soak_runner soak READINGS COMMANDS | soak_runner overload | "
                         "soak_runner restarts COUNT\n");
    return EXIT_USAGE;
}

} // namespace

int main(int argc, char** argv)
{
    return CommandLine_Guard("soak_runner", [&] { return Main(argc, argv); });
}
