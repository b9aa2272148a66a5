// Drives the service for a long time, or harder than it can take, and says what came of it. In a
// private world, over a simulated terminal:
//   soak_runner soak READINGS COMMANDS   readings and command datagrams at the same time
//   soak_runner overload                 the highest rate of commands without a loss, and beyond
// Ends with 1 when a promise was not kept.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <regex>
#include <thread>

#include "allowances.h"
#include "files.h"
#include "media_platform.h"
#include "message.h"
#include "program.h"
#include "service_peer.h"
#include "udp_peer.h"
#include "wait.h"

namespace
{

const std::string LOG = "/Database/doorlog/qrcodelog.txt";
const size_t LOG_CAP = 3145728;
const size_t ENTRY_MAX = 200; // more than any entry of the service's
const char EVENTS[] = "/tmp/events";
const size_t LOG_LEFT = 100000; // bytes to the cap at the start
enum {
    BATCH = 50,
    WARM_UP_PERCENT = 5,
    STATE_CHECKS = 20,
    STALL_SECONDS = 60,
    UNKNOWN = -1,
    MARKER = 0x1000000
};

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point since)
{
    return std::chrono::duration<double>(Clock::now() - since).count();
}

[[noreturn]] void Fail(const std::string& what)
{
    std::printf("FAILED: %s\n", what.c_str());
    std::exit(1);
}

void Require(bool kept, const std::string& what)
{
    if (!kept) {
        Fail(what);
    }
}

struct Terminal {
    UdpPeer peer{QRCODE_PEER_PORT};
    std::unique_ptr<Program> service;
    std::ifstream events;
    long frames = 0; // taken by the camera, one a reading
    long views = 0;  // of them with a code
    long results = 0;
    unsigned marker = MARKER;
    size_t logged = 0; // bytes of the log that have been looked at
};

void Send(const Terminal& terminal, const std::string& frame)
{
    terminal.peer.SendTo(ServiceAddress(), frame);
}

void Start(Terminal& terminal)
{
    std::filesystem::create_directory("/tmp/scene");
    std::filesystem::copy(SAMPLES_DIR "/plain.png", "/tmp/scene/plain.png");
    WriteAll("/tmp/script", "frame-ms 0\n");
    WriteAll(EVENTS, "");
    // The log is nearly at its cap, so that short runs get there too.
    std::string entries;
    while (entries.size() < LOG_CAP - LOG_LEFT) {
        entries += "[2000-01-01 00:00:00] pMsgHead->MsgHead.nMsgCommand=0x0000\n</br>";
    }
    WriteAll(LOG, entries);
    terminal.logged = entries.size();
    const int hugeBuffer = 8 << 20;
    setsockopt(terminal.peer.fd, SOL_SOCKET, SO_RCVBUF, &hugeBuffer, sizeof(hugeBuffer));
    terminal.service = std::make_unique<Program>(
        EmulatedSilently({SERVICE}),
        std::vector<std::string>{"QRCODE_SIM_SCENE=/tmp/scene", "QRCODE_SIM_VIEW_MS=1",
                                 std::string("QRCODE_SIM_EVENTS=") + EVENTS,
                                 "QRCODE_SIM_SCRIPT=/tmp/script"});
    std::string hello;
    Require(terminal.peer.Receive(hello) && hello.size() == MSG_HEAD_SIZE, "no hello");
    Send(terminal, Mode(1));
    Send(terminal, Command(MSG_CMD_QRCODE_ENABLE));
    terminal.events.open(EVENTS);
}

// Takes in what the camera and the service have done since.
void Look(Terminal& terminal)
{
    terminal.events.clear();
    for (std::string line; std::getline(terminal.events, line);) {
        ++terminal.frames;
        terminal.views += line.find("\"view\"") != std::string::npos;
    }
    std::string frame;
    while (recv(terminal.peer.fd, nullptr, 0, MSG_DONTWAIT | MSG_PEEK | MSG_TRUNC) > 0) {
        terminal.peer.Receive(frame);
        Require(frame.size() == MSG_HEAD_SIZE + QRCODE_TEXT_SIZE, "a datagram of another size");
        ++terminal.results;
    }
}

long MemoryKb(const Terminal& terminal)
{
    long pages[2] = {};
    std::ifstream statm("/proc/" + std::to_string(terminal.service->Pid()) + "/statm");
    statm >> pages[0] >> pages[1];
    return pages[1] * (sysconf(_SC_PAGESIZE) / 1024);
}

long Entries(const Terminal& terminal, const char* folder)
{
    const std::filesystem::directory_iterator all(
        "/proc/" + std::to_string(terminal.service->Pid()) + "/" + folder);
    return std::distance(begin(all), end(all));
}

// Datagrams that the service's socket had no room for.
long Drops()
{
    std::smatch match;
    const std::string sockets = ReadAll("/proc/net/udp");
    const std::regex ours("0100007F:271A [^\\n]* (\\d+) *\\n");
    Require(std::regex_search(sockets, match, ours), "the service's socket is gone");
    return std::stol(match[1]);
}

// Sends a command that is logged only, and waits until it is: all before it has been handled. Of
// the `sent` commands before it each must have its entry; where the log was emptied meanwhile, only
// those after that can be seen.
void WaitUntilHandled(Terminal& terminal, long sent)
{
    char entry[60];
    std::snprintf(entry, sizeof(entry), "nMsgCommand=0x%04x\n</br>", ++terminal.marker);
    Send(terminal, Command(terminal.marker));
    std::string news;
    bool emptied = false;
    const bool handled = WaitUntil([&] {
        Look(terminal);
        std::ifstream file(LOG, std::ios::binary);
        file.seekg(0, std::ios::end);
        const auto size = static_cast<size_t>(file.tellg());
        Require(size <= LOG_CAP + ENTRY_MAX, "the log is larger than its cap and an entry");
        emptied = emptied || size < terminal.logged;
        terminal.logged = size < terminal.logged ? 0 : terminal.logged;
        file.seekg(static_cast<std::streamoff>(terminal.logged));
        news.assign(size - terminal.logged, '\0');
        file.read(news.data(), static_cast<std::streamsize>(news.size()));
        return news.find(entry) != std::string::npos;
    });
    Require(handled, "a command is not in the log");
    long entries = 0;
    for (size_t at = news.find("</br>"); at != std::string::npos; at = news.find("</br>", at + 1)) {
        ++entries;
    }
    Require(sent == UNKNOWN || (emptied ? entries <= sent + 1 : entries == sent + 1),
            "a command without its entry");
    terminal.logged += news.size();
}

// The file as a whole: nothing but entries, and no larger than it may be.
void CheckLog()
{
    static const std::string form = "[dddd-dd-dd dd:dd:dd] pMsgHead->MsgHead.nMsgCommand=0x";
    const std::string log = ReadAll(LOG);
    Require(log.size() <= LOG_CAP + ENTRY_MAX, "the log is larger than its cap and an entry");
    for (size_t at = 0; at < log.size();) {
        for (const char letter : form) {
            const bool fits = letter == 'd' && at < log.size()
                                  ? isdigit(log[at]) != 0 || log[at] == 'd'
                                  : log[at] == letter;
            Require(fits, "a broken entry in the log at byte " + std::to_string(at));
            ++at;
        }
        const size_t end = log.find("\n</br>", at);
        Require(end != std::string::npos && end - at >= 4 && end - at <= 8 &&
                    log.find_first_not_of("0123456789abcdef", at) == end,
                "an entry without its end");
        at = end + 6;
    }
}

// Off, and nothing is read any more; on, and it goes on. Returns the descriptors that the service
// has open while it does nothing.
long CheckState(Terminal& terminal)
{
    Send(terminal, Command(MSG_CMD_QRCODE_DISABLE));
    WaitUntilHandled(terminal, 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // a reading's end
    Look(terminal);
    const long before = terminal.frames;
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    Look(terminal);
    Require(terminal.frames == before, "it reads although it was switched off");
    const long descriptors = Entries(terminal, "fd");
    Send(terminal, Command(MSG_CMD_QRCODE_ENABLE));
    Require(WaitUntil([&] {
                Look(terminal);
                return terminal.frames > before;
            }),
            "it does not read although it was switched on");
    WaitUntilHandled(terminal, 1);
    return descriptors;
}

// One of the commands that leave the state as it is, enabled in mode 1 or 2, when they are through.
void SendSome(Terminal& terminal, long n)
{
    switch (n % 8) {
    case 0:
        return Send(terminal, Mode(2));
    case 1:
        return Send(terminal, Command(MSG_CMD_QRCODE_ENABLE));
    case 2:
        return Send(terminal, std::string(1, 'x'));
    case 3:
        return Send(terminal, Command(0x999, 1200));
    case 4: // passed over in mode 3
        return Send(terminal, Mode(3));
    case 5:
        return Send(terminal, Command(n % 16 == 5 ? MSG_CMD_QRCODE_STOP : MSG_CMD_QRCODE_DISABLE));
    case 6:
        return Send(terminal, Mode(1));
    default:
        return Send(terminal, Command(0x7FFFFFFF, 3000));
    }
}

int Soak(long readings, long commands)
{
    Terminal terminal;
    Start(terminal);
    WaitUntilHandled(terminal, 2);
    Require(WaitUntil([&] {
                Look(terminal);
                return terminal.results > 0;
            }),
            "nothing is read");
    const long warm = readings * WARM_UP_PERCENT / 100 + 1;
    long memory = 0;
    long framesThen = 0;
    const long descriptors = CheckState(terminal);
    const long threads = Entries(terminal, "task");
    const auto start = Clock::now();
    long sent = 0;
    long checks = 0;
    long seen = 0;
    auto moved = Clock::now();
    while (sent < commands || terminal.frames < readings) {
        Look(terminal);
        if (memory == 0 && terminal.frames >= warm) {
            memory = MemoryKb(terminal);
            framesThen = terminal.frames;
        }
        // Both reach their ends at about the same time.
        if (sent < commands && sent * readings <= terminal.frames * commands) {
            const long before = sent;
            while (sent < commands && sent < before + BATCH) {
                SendSome(terminal, sent++);
            }
            Send(terminal, Mode(1));
            WaitUntilHandled(terminal, sent - before + 1);
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (sent * STATE_CHECKS >= checks * commands &&
            terminal.frames * STATE_CHECKS >= checks * readings) {
            ++checks;
            Require(CheckState(terminal) == descriptors, "a descriptor more or less");
            CheckLog();
            std::fprintf(stderr, "%s%ld readings, %ld commands, %.0f s%s",
                         isatty(STDERR_FILENO) == 1 ? "\r" : "", terminal.frames, sent,
                         Seconds(start), isatty(STDERR_FILENO) == 1 ? " " : "\n");
        }
        Require(terminal.service->Runs(), "the service ended");
        Require(Entries(terminal, "task") == threads, "a thread more or less");
        moved = terminal.frames > seen ? Clock::now() : moved;
        seen = terminal.frames;
        Require(Seconds(moved) < STALL_SECONDS, "no reading for a minute");
        Require(Drops() == 0, "a command was dropped");
    }
    Require(CheckState(terminal) == descriptors, "a descriptor more or less");
    CheckLog();
    const long grown = MemoryKb(terminal) - memory;
    void* const pack = calloc(1, sizeof(MediaPack));
    const size_t chunk = malloc_usable_size(pack) + sizeof(size_t);
    free(pack);
    const double predicted =
        static_cast<double>(terminal.frames - framesThen) * static_cast<double>(chunk) / 1024;
    std::printf("\n%ld readings and %ld commands in %.0f s, %ld codes in view, %ld reported\n",
                terminal.frames, sent, Seconds(start), terminal.views, terminal.results);
    std::printf("memory grew by %ld KiB in %ld readings, pack arrays of %zu bytes make %.0f KiB\n",
                grown, terminal.frames - framesThen, chunk, predicted);
    std::printf(
        "%ld descriptors, %ld threads, as at the start; dropped commands: %ld; log: %zu bytes, "
        "whole\n",
        descriptors, threads, Drops(), ReadAll(LOG).size());
    // Each time it comes into view, but for those that met a pause.
    Require(terminal.views - terminal.results <= 2 * checks + 2, "a code was not reported");
    Require(terminal.results <= terminal.views, "a code was reported twice");
    Require(std::abs(static_cast<double>(grown) - predicted) <= 1024, "memory is not as predicted");
    return 0;
}

// Sends commands for a while at a rate. Returns how many were dropped.
long DropsAt(Terminal& terminal, long perSecond, double seconds, long& sent)
{
    const long before = Drops();
    const auto start = Clock::now();
    sent = 0;
    for (double now = 0.0; now < seconds; now = Seconds(start)) {
        if (static_cast<double>(sent) < now * static_cast<double>(perSecond)) {
            SendSome(terminal, sent++);
        } else {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }
    Send(terminal, Mode(1));
    Require(WaitUntil([] {
                return std::regex_search(ReadAll("/proc/net/udp"),
                                         std::regex("0100007F:271A \\S+ \\S+ \\S+:00000000 "));
            }),
            "the socket's queue is not emptied");
    return Drops() - before;
}

int Overload()
{
    Terminal terminal;
    Start(terminal);
    long highest = 0;
    for (long rate = 1000; rate <= 256000; rate += rate / 4) {
        long sent = 0;
        const long dropped = DropsAt(terminal, rate, 2.0, sent);
        std::printf("%7ld commands a second wanted, %7ld sent in 2 s, %6ld dropped\n", rate, sent,
                    dropped);
        if (dropped > 0 || sent < rate * 19 / 10) {
            break; // too many for the service, or for this sender
        }
        highest = sent / 2;
    }
    std::printf("highest rate without a loss: %ld commands a second\n", highest);

    long sent = 0;
    const long lost = DropsAt(terminal, 1000000, 5.0, sent);
    std::printf("as fast as it goes for 5 s: %ld sent, %ld dropped\n", sent, lost);
    Send(terminal, Mode(1));
    Send(terminal, Command(MSG_CMD_QRCODE_ENABLE));
    WaitUntilHandled(terminal, UNKNOWN);
    CheckState(terminal); // the newest state holds
    CheckLog();
    Look(terminal);
    const long before = terminal.results;
    Require(WaitUntil([&] {
                Look(terminal);
                return terminal.results > before;
            }),
            "nothing is reported");
    std::printf("afterwards: the newest state holds, the log is whole, codes are read\n");
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string what = argc > 1 ? argv[1] : "";
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    if (what == "soak" && argc == 4 && std::atol(argv[2]) > 0 && std::atol(argv[3]) > 0) {
        return Soak(std::atol(argv[2]), std::atol(argv[3]));
    }
    if (what == "overload" && argc == 2) {
        return Overload();
    }
    std::fprintf(stderr, "usage: soak_runner soak READINGS COMMANDS | soak_runner overload\n");
    return 2;
}
