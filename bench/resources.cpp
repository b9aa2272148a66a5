// What the service takes of the machine. For a private world.
// resources use SERVICE BASELINE SAMPLES: memory beside the program BASELINE, which links the same
//   libraries and does nothing; CPU time of an idle minute; start to hello.
// resources beside SAMPLES FRAMES [SERVICE ONE_READING] x 2: two builds of the service and of
//   one_reading, in turn: the files and bytes that they load, memory, start to hello, and the CPU
//   time of readings. FRAMES has the camera's finished frames of the samples (scanned_pictures).
// resources stack PICTURE COMMAND...: the smallest stacks with which the service, started by
//   COMMAND, reports the picture's code. Natively one limit is for all threads. A word "@" of
//   COMMAND becomes the main thread's stack in bytes, as an emulator is told it; then the limit is
//   for the other threads alone.
#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "command_line.h"
#include "message.h"
#include "quantile.h"
#include "terminal.h"
#include "watched_reading.h"

namespace
{

enum {
    READING_MS = 5000, // of readings, for each picture
    SETTLE_MS = 2000,  // from the hello until the main thread idles or is parked
    IDLE_MS = 60000,
    STARTS = 21,
    WARM_UP = 10,       // readings, until memory and caches are as they stay
    STACK_STEP_KIB = 16 // to which stacks are measured
};
const size_t STACK_PLENTY_KIB = 8192;

using Words = std::vector<std::string>;

TerminalOptions Quiet(const Words& service, int mode)
{
    TerminalOptions options;
    options.service = service;
    options.quiet = true;
    options.mode = mode;
    options.enable = false;
    return options;
}

// Lets time pass. Returns false when the service ends meanwhile.
bool Pass(Terminal& terminal, int ms, std::string& error)
{
    const bool ended = terminal.Await([&] { return !terminal.Service().Running(); }, ms);
    error = "the service " + terminal.Service().EndText();
    return !ended;
}

void PrintMemory(const std::string& what, long first, long reading, long peak)
{
    std::printf("%-50s %9ld %9ld %9ld\n", what.c_str(), first, reading, peak);
}

// The files that a process has mapped, and their bytes.
struct LoadedFiles {
    long count = 0;
    long long bytes = 0;
};

LoadedFiles FilesOf(pid_t pid)
{
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    std::set<std::string> paths;
    for (std::string line; std::getline(maps, line);) {
        const size_t path = line.find('/');
        if (path != std::string::npos) {
            paths.insert(line.substr(path));
        }
    }
    LoadedFiles files;
    for (const std::string& path : paths) {
        std::error_code gone;
        const auto bytes = std::filesystem::file_size(path, gone);
        if (!gone) {
            ++files.count;
            files.bytes += static_cast<long long>(bytes);
        }
    }
    return files;
}

struct Memory {
    ProcessFigures first; // after the hello
    ProcessFigures last;  // after READING_MS of readings
    LoadedFiles files;    // ... too
};

// The camera gives a finished JPEG without a wait, so that the service does nothing but readings.
bool TakeMemory(const std::string& service, const std::string& picture, Memory& memory,
                std::string& error)
{
    std::vector<uint8_t> jpeg;
    if (!Reading_CameraJpeg(picture, jpeg, error)) {
        return false;
    }
    const std::filesystem::path path = std::filesystem::temp_directory_path() / "resources.jpg";
    std::ofstream(path, std::ios::binary) << std::string(jpeg.begin(), jpeg.end());
    TerminalOptions options = Quiet({service}, 1);
    options.script = "picture jpeg " + path.string() + "\nframe-ms 0\n";
    Terminal terminal(options);
    if (!terminal.Start(error)) {
        return false;
    }
    memory.first = terminal.Figures();
    terminal.SendCommand(MSG_CMD_QRCODE_ENABLE);
    if (!Pass(terminal, READING_MS, error)) {
        return false;
    }
    memory.last = terminal.Figures();
    memory.files = FilesOf(terminal.Service().Pid());
    std::filesystem::remove(path);
    return true;
}

bool MeasureMemory(const std::string& service, const std::string& picture,
                   const ProcessFigures& baseline, std::string& error)
{
    Memory memory;
    if (!TakeMemory(service, picture, memory, error)) {
        return false;
    }
    const ProcessFigures& first = memory.first;
    const ProcessFigures& last = memory.last;
    PrintMemory("the service on " + std::filesystem::path(picture).filename().string(),
                first.residentKib, last.residentKib, last.peakKib);
    PrintMemory("... above the libraries", first.residentKib - baseline.residentKib,
                last.residentKib - baseline.residentKib, last.peakKib - baseline.peakKib);
    return true;
}

bool MeasureIdle(const char* what, const std::string& service, int mode, std::string& error)
{
    Terminal terminal(Quiet({service}, mode));
    if (!terminal.Start(error) || !Pass(terminal, SETTLE_MS, error)) {
        return false;
    }
    const double before = terminal.Figures().cpuMs;
    const bool passed = Pass(terminal, IDLE_MS, error);
    std::printf("%-50s %9.2f ms\n", what, terminal.Figures().cpuMs - before);
    return passed;
}

// Starts the service and ends it.
bool TakeStart(const std::string& service, std::vector<double>& ms, std::string& error)
{
    Terminal terminal(Quiet({service}, 0));
    if (!terminal.Start(error)) {
        return false;
    }
    ms.push_back(static_cast<double>(terminal.HelloUs() - terminal.StartUs()) / 1e3);
    return true;
}

bool MeasureUse(const std::string& service, const std::string& baseline, const std::string& samples,
                std::string& error)
{
    ProgramOptions options;
    options.command = {baseline};
    Program program;
    if (!program.Start(options, error) || !program.AwaitLine("loaded", error)) {
        error = baseline + ": " + error;
        return false;
    }
    const ProcessFigures base = Process_Figures(program.Pid());
    program.Stop();
    std::printf("%-50s %9s %9s %9s\n", "memory, KiB", "at first", "reading", "peak");
    std::printf("%-50s %9ld %9s %9ld\n", "the libraries, nothing done with them", base.residentKib,
                "-", base.peakKib);
    if (!MeasureMemory(service, samples + "/plain.png", base, error) ||
        !MeasureMemory(service, samples + "/overexposed.png", base, error) ||
        !MeasureMemory(service, samples + "/no-code-wall.png", base, error) ||
        !MeasureIdle("CPU time of 60 s, scanning switched off", service, 1, error) ||
        !MeasureIdle("... parked", service, 0, error)) {
        return false;
    }
    std::vector<double> ms;
    for (int i = 0; i < STARTS; ++i) {
        if (!TakeStart(service, ms, error)) {
            return false;
        }
    }
    std::printf("%-50s %9.1f ms (%.1f .. %.1f, %d starts)\n", "start to hello, median",
                Quantile(ms, 0.5), Quantile(ms, 0.0), Quantile(ms, 1.0), STARTS);
    return true;
}

// Two builds side by side; the second is compared with the first.
const int SIDES = 2;
struct Side {
    std::string service;
    std::string reader; // one_reading
};
using Sides = std::array<Side, SIDES>;

void PrintBeside(const std::string& what, const std::array<double, SIDES>& figures, int decimals)
{
    std::printf("%-44s %12.*f %12.*f %8.3f\n", what.c_str(), decimals, figures[0], decimals,
                figures[1], figures[1] / figures[0]);
}

bool BesideMemory(const Sides& sides, const std::string& samples, std::string& error)
{
    std::array<Memory, SIDES> memory;
    for (const char* const sample : {"plain", "overexposed", "no-code-wall"}) {
        for (int side = 0; side < SIDES; ++side) {
            if (!TakeMemory(sides[side].service, samples + "/" + sample + ".png", memory[side],
                            error)) {
                return false;
            }
        }
        const auto print = [&](const std::string& what, auto figure) {
            PrintBeside(
                what,
                {static_cast<double>(figure(memory[0])), static_cast<double>(figure(memory[1]))},
                0);
        };
        const std::string on = std::string(" on ") + sample;
        if (sample == std::string("plain")) {
            print("files loaded", [](const Memory& of) { return of.files.count; });
            print("bytes of them", [](const Memory& of) { return of.files.bytes; });
            print("memory at first, KiB", [](const Memory& of) { return of.first.residentKib; });
        }
        print("... while reading" + on, [](const Memory& of) { return of.last.residentKib; });
        print("... at most" + on, [](const Memory& of) { return of.last.peakKib; });
    }
    return true;
}

// In turn, so that both see the same machine; every other pair the other way round.
template <typename Take> bool TakePairs(int pairs, Take take)
{
    for (int i = 0; i < pairs; ++i) {
        for (int turn = 0; turn < SIDES; ++turn) {
            if (!take(i % 2 == 0 ? turn : SIDES - 1 - turn)) {
                return false;
            }
        }
    }
    return true;
}

bool BesideStarts(const Sides& sides, std::string& error)
{
    std::array<std::vector<double>, SIDES> ms;
    if (!TakePairs(STARTS,
                   [&](int side) { return TakeStart(sides[side].service, ms[side], error); })) {
        return false;
    }
    PrintBeside("start to hello, median ms", {Quantile(ms[0], 0.5), Quantile(ms[1], 0.5)}, 1);
    return true;
}

bool BesideReadings(const Sides& sides, const std::string& title, const std::string& frame,
                    int pairs, bool found, std::string& error)
{
    std::array<Program, SIDES> readers;
    for (int side = 0; side < SIDES; ++side) {
        ProgramOptions options;
        options.command = {sides[side].reader, "turns", frame};
        options.input = true;
        if (!readers[side].Start(options, error)) {
            return false;
        }
    }
    std::array<std::vector<double>, SIDES> ms;
    std::array<double, SIDES> faults = {};
    const auto take = [&](int side) {
        double us = 0.0;
        long faulted = 0;
        int result = 0;
        std::string line;
        readers[side].Say("");
        if (!readers[side].NextLine(line) ||
            !(std::istringstream(line) >> us >> faulted >> result) || (result > 0) != found) {
            error = sides[side].reader + " on " + frame + ": " + line;
            return false;
        }
        ms[side].push_back(us / 1e3);
        faults[side] += static_cast<double>(faulted) / pairs;
        return true;
    };
    if (!TakePairs(WARM_UP, take)) {
        return false;
    }
    ms = {};
    faults = {};
    if (!TakePairs(pairs, take)) {
        return false;
    }
    std::vector<double> ratios;
    ratios.reserve(ms[0].size());
    for (int i = 0; i < pairs; ++i) {
        ratios.push_back(ms[1][i] / ms[0][i]);
    }
    std::printf("%-44s %12.3f %12.3f %8.3f %.3f .. %.3f\n", title.c_str(), Quantile(ms[0], 0.5),
                Quantile(ms[1], 0.5), Quantile(ratios, 0.5), Quantile(ratios, 0.25),
                Quantile(ratios, 0.75));
    std::printf("%-44s %12.2f %12.2f\n", "... page faults", faults[0], faults[1]);
    return true;
}

bool MeasureBeside(const Words& words, std::string& error)
{
    const std::string& samples = words[0];
    const std::string& frames = words[1];
    const Sides sides = {Side{words[2], words[3]}, Side{words[4], words[5]}};
    std::printf("%-44s %12s %12s %8s\n", "", "first", "second", "ratio");
    return BesideMemory(sides, samples, error) && BesideStarts(sides, error) &&
           BesideReadings(sides, "CPU ms, found at attempt 1", frames + "/samples_plain.png.jpg",
                          601, true, error) &&
           BesideReadings(sides, "CPU ms, found at attempt 8",
                          frames + "/samples_overexposed.png.jpg", 101, true, error) &&
           BesideReadings(sides, "CPU ms, nothing found", frames + "/samples_no-code-wall.png.jpg",
                          101, false, error);
}

// Prints the smallest stack with which the service reports the picture, to the step: of the main
// thread, as an emulator is told it, or the limit of the process.
bool MeasureStack(const char* what, bool ofMain, const std::string& picture, const Words& command,
                  std::string& error)
{
    const auto works = [&](size_t kib) {
        TerminalOptions options = Quiet(command, 1);
        std::replace(options.service.begin(), options.service.end(), std::string("@"),
                     std::to_string((ofMain ? kib : STACK_PLENTY_KIB) * 1024));
        options.scene = picture;
        options.enable = true;
        options.stackBytes = (ofMain ? STACK_PLENTY_KIB : kib) * 1024;
        Terminal terminal(options);
        return terminal.Start(error) && !terminal.AwaitResult().empty();
    };
    size_t low = 0;
    size_t high = STACK_PLENTY_KIB;
    if (!works(high)) {
        error = "the service reports nothing even with " + std::to_string(high) + " KiB of stack";
        return false;
    }
    while (high - low > STACK_STEP_KIB) {
        const size_t middle = (low + high) / 2 / STACK_STEP_KIB * STACK_STEP_KIB;
        (works(middle) ? high : low) = middle;
    }
    std::printf("%-42s %9zu KiB\n", what, high);
    return true;
}

bool MeasureStacks(const std::string& picture, const Words& command, std::string& error)
{
    if (std::count(command.begin(), command.end(), "@") == 0) {
        return MeasureStack("stack limit that the service needs", false, picture, command, error);
    }
    return MeasureStack("stack that the main thread needs", true, picture, command, error) &&
           MeasureStack("stack that the listening thread needs", false, picture, command, error);
}

} // namespace

int main(int argc, char** argv)
{
    return CommandLine_Guard("resources", [&] {
        const Words words(argv + std::min(argc, 1), argv + argc);
        const bool use = words.size() == 4 && words[0] == "use";
        const bool beside = words.size() == 7 && words[0] == "beside";
        const bool stack = words.size() >= 3 && words[0] == "stack";
        std::string error = "usage: resources use SERVICE BASELINE SAMPLES\n"
                            "       resources beside SAMPLES FRAMES SERVICE ONE_READING "
                            "SERVICE ONE_READING\n"
                            "       resources stack PICTURE COMMAND...";
        if ((use && MeasureUse(words[1], words[2], words[3], error)) ||
            (beside && MeasureBeside({words.begin() + 1, words.end()}, error)) ||
            (stack && MeasureStacks(words[1], {words.begin() + 2, words.end()}, error))) {
            return 0;
        }
        std::fprintf(stderr, "resources: %s\n", error.c_str());
        return static_cast<int>(use || beside || stack ? EXIT_FAILED : EXIT_USAGE);
    });
}
