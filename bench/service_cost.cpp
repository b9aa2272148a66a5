// What the service's parts cost on this machine: whole readings of three of the samples, each
// beside the calls of OpenCV and zbar that it makes, made by themselves; then its messages.
// service_cost SAMPLES, for a private world.
#include <array>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "capture_decode.h"
#include "cascade.h"
#include "command_line.h"
#include "library_calls.h"
#include "log_write.h"
#include "message.h"
#include "messaging.h"
#include "panel_socket.h"
#include "process_setup.h"
#include "quantile.h"
#include "run_flags.h"
#include "sim_platform.h"
#include "socket_server.h"
#include "stopwatch.h"
#include "wait.h"

namespace
{

enum {
    WARM_UP = 10,         // readings, until memory and caches are as they stay
    FAULT_READINGS = 100, // whose page faults are counted
    LONG_VIEW_MS = 3600000,
    MESSAGES = 2001, // of each kind
    LOST_MS = 2000   // a message without an effect
};

// Where a reading's time goes: the kinds of calls, and what is left.
enum { STEP_OWN = CALL_KINDS, STEPS };

using Series = std::vector<double>; // us

struct Shot {
    const char* title; // a word
    const char* file;
    int attempt; // that finds it, 0 for none
    int pairs;   // of a reading and its calls that are measured
    std::vector<LibraryCall> calls = {};
    std::vector<Series> alone = {};                // each call by itself
    std::array<Series, CALL_KINDS> kindAlone = {}; // ... those of a kind together
    Series sums = {};                              // ... all of them
    Series readings = {};
    std::array<Series, STEPS> within = {}; // the readings
    Series ratios = {};                    // reading to sum
    double faults = 0.0;                   // page faults of a reading
};

double Median(const Series& series)
{
    return Quantile(series, 0.5);
}

int Read()
{
    char text[QRCODE_TEXT_SIZE] = {};
    return Qrcode_CaptureAndDecode(nullptr, text);
}

// Records a reading and checks that it takes the road that the shot is there for, and that its
// calls, made again, find the same. The camera is never waited for, and encodes the picture once.
bool Load(const std::string& samples, Shot& shot, std::string& error)
{
    SimScript script;
    script.frameMs = 0;
    Sim_SetScript(script);
    if (!Sim_OpenScene(samples + "/" + shot.file, LONG_VIEW_MS, "", error)) {
        return false;
    }
    int result = 0;
    shot.calls = Calls_Record([&result] { result = Read(); });
    shot.alone.resize(shot.calls.size());
    int scans = 0;
    bool same = true;
    for (const LibraryCall& call : shot.calls) {
        scans += call.kind == CALL_SCAN ? 1 : 0;
        same = same && call.replay() == call.symbols;
    }
    const int attempt = result > 0 ? (scans + 1) / 2 : result;
    error = std::string(shot.file) + (same ? ": read at attempt " + std::to_string(attempt)
                                           : ": a scan made again finds something else");
    return same && attempt == shot.attempt;
}

// A reading behind another, as in the scan loop.
double TimeReading(Shot& shot)
{
    Read();
    double us = 0.0;
    const CallTimes times = Calls_Time([&us] { us = Stopwatch_Us(Read); });
    double own = us;
    for (size_t kind = 0; kind < CALL_KINDS; ++kind) {
        shot.within[kind].push_back(times[kind]);
        own -= times[kind];
    }
    shot.within[STEP_OWN].push_back(own);
    shot.readings.push_back(us);
    return us;
}

// Each call behind itself: what it needs is at hand.
double TimeCalls(Shot& shot)
{
    CallTimes kinds = {};
    for (size_t i = 0; i < shot.calls.size(); ++i) {
        shot.calls[i].replay();
        shot.alone[i].push_back(Stopwatch_Us(shot.calls[i].replay));
        kinds[shot.calls[i].kind] += shot.alone[i].back();
    }
    double sum = 0.0;
    for (size_t kind = 0; kind < CALL_KINDS; ++kind) {
        shot.kindAlone[kind].push_back(kinds[kind]);
        sum += kinds[kind];
    }
    shot.sums.push_back(sum);
    return sum;
}

void Measure(Shot& shot)
{
    const auto readTimes = [](int count) {
        for (int i = 0; i < count; ++i) {
            Read();
        }
        struct rusage usage = {};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_minflt;
    };
    const long before = readTimes(WARM_UP);
    shot.faults = static_cast<double>(readTimes(FAULT_READINGS) - before) / FAULT_READINGS;

    // In turn, so that both see the same machine; every other pair begins with the calls.
    for (int i = 0; i < shot.pairs; ++i) {
        const double early = i % 2 == 1 ? TimeCalls(shot) : 0.0;
        const double reading = TimeReading(shot);
        shot.ratios.push_back(reading / (i % 2 == 1 ? early : TimeCalls(shot)));
    }
}

void PrintReadings(const std::vector<Shot>& shots)
{
    std::printf("%-36s %9s %9s %9s %7s %16s %7s\n", "one reading", "median ms", "95 % ms",
                "calls ms", "ratio", "quartiles", "faults");
    for (const Shot& shot : shots) {
        const std::string title = std::string(shot.title) + " (" + shot.file + ")";
        std::printf("%-36s %9.2f %9.2f %9.2f %7.3f %7.3f .. %.3f %7.2f\n", title.c_str(),
                    Median(shot.readings) / 1e3, Quantile(shot.readings, 0.95) / 1e3,
                    Median(shot.sums) / 1e3, Median(shot.ratios), Quantile(shot.ratios, 0.25),
                    Quantile(shot.ratios, 0.75), shot.faults);
    }
}

void PrintSteps(const std::vector<Shot>& shots)
{
    std::printf("\n%-24s", "us in a reading | alone");
    for (const Shot& shot : shots) {
        std::printf(" %10s |%9s", shot.title, "");
    }
    for (size_t step = 0; step < STEPS; ++step) {
        std::printf("\n%-24s", step < CALL_KINDS ? Calls_KindName(static_cast<CallKind>(step))
                                                 : "service's own");
        for (const Shot& shot : shots) {
            std::printf(" %10.1f |", Median(shot.within[step]));
            if (step < CALL_PLATFORM) {
                std::printf("%9.1f", Median(shot.kindAlone[step]));
            } else {
                std::printf("%9s", "-");
            }
        }
    }
    std::printf("\n");
}

// The calls of a reading that finds nothing: behind the first three for each attempt a preparation
// (but for the first), a scan, an opening and a scan.
void PrintCalls(const Shot& shot)
{
    std::printf("\n%-36s %12s %12s %12s %12s", "median us a call, nothing found", "prepare", "scan",
                "open", "scan opened");
    size_t next = CALL_PREPARE;
    for (int n = 1; n <= Qrcode_AttemptCount(); ++n) {
        std::printf("\n%-36s", Qrcode_AttemptName(n));
        for (int i = 0; i < 4; ++i) {
            std::printf(" %12.1f", n == 1 && i == 0 ? 0.0 : Median(shot.alone.at(next++)));
        }
    }
    std::printf("\n");
}

bool MeasureReadings(const std::string& samples, std::string& error)
{
    std::vector<Shot> shots = {{"attempt-1", "plain.png", 1, 601},
                               {"attempt-8", "overexposed.png", 8, 101},
                               {"nothing", "no-code-wall.png", 0, 101}};
    for (Shot& shot : shots) {
        if (!Load(samples, shot, error)) {
            return false;
        }
        Measure(shot);
    }
    PrintReadings(shots);
    PrintSteps(shots);
    PrintCalls(shots.back());
    return true;
}

// Times `act`, which returns false without an effect; what it sends has to arrive.
bool MeasureMessage(const char* what, int peer, bool sends, const std::function<bool()>& act,
                    std::string& error)
{
    std::vector<double> us;
    for (int i = 0; i < MESSAGES; ++i) {
        bool done = false;
        PanelEvent event;
        us.push_back(Stopwatch_Us([&] { done = act(); }));
        if (!done || (sends && !Wait_Until([&] { return Panel_Receive(peer, event); }, LOST_MS))) {
            error = std::string("without an effect: ") + what;
            return false;
        }
    }
    std::printf("%-36s %12.1f %12.1f\n", what, Quantile(us, 0.5), Quantile(us, 0.95));
    return true;
}

// The service's listening thread, its sends and its log, with their fixed ports and paths.
bool MeasureMessages(std::string& error)
{
    const int peer = Panel_OpenSocket(error); // the main application's, until the process ends
    if (peer < 0) {
        return false;
    }
    if (NET_Socket_Server_Start() != 0) {
        error = "the service's port cannot be had";
        return false;
    }
    Qrcode_SetScanMode(1);

    const auto switchScanning = [&] {
        const int enable = 1 - Qrcode_GetScanEnable();
        PanelEvent event;
        Panel_Send(peer,
                   Panel_CommandFrame(enable == 1 ? MSG_CMD_QRCODE_ENABLE : MSG_CMD_QRCODE_DISABLE),
                   event, error);
        const Deadline deadline(LOST_MS);
        while (Qrcode_GetScanEnable() != enable && !deadline.Over()) {
        }
        return Qrcode_GetScanEnable() == enable;
    };
    const auto sendResult = [] {
        char text[QRCODE_TEXT_SIZE] = "VISITOR PASS 2024-0117";
        return API_Socket_SendMsg(text, sizeof(text), MSG_CMD_QRCODE_RESULT, 0) == 0;
    };
    const auto writeLog = [] {
        return API_Log_Write(QRCODE_LOG_PATH, "pMsgHead->MsgHead.nMsgCommand=0x%04x\n",
                             MSG_CMD_QRCODE_ENABLE) == 1;
    };
    std::printf("\n%-36s %12s %12s\n", "us", "median", "95 %");
    return MeasureMessage("a command sent -> its flag is set", peer, false, switchScanning,
                          error) &&
           MeasureMessage("a result handed to the socket", peer, true, sendResult, error) &&
           MeasureMessage("a log entry", peer, false, writeLog, error);
}

} // namespace

int main(int argc, char** argv)
{
    Qrcode_SetUpProcess(); // heap and threads as the service has them
    return CommandLine_Guard("service_cost", [&] {
        std::string error = "usage: service_cost SAMPLES";
        if (argc == 2 && MeasureReadings(argv[1], error) && MeasureMessages(error)) {
            return 0;
        }
        std::fprintf(stderr, "service_cost: %s\n", error.c_str());
        return static_cast<int>(argc == 2 ? EXIT_FAILED : EXIT_USAGE);
    });
}
