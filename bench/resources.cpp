// What the service takes of the machine. For a private world.
// resources use SERVICE BASELINE SAMPLES: memory beside the program BASELINE, which links the same
//   libraries and does nothing; CPU time of an idle minute; start to hello.
// resources stack PICTURE COMMAND...: the smallest stacks with which the service, started by
//   COMMAND, reports the picture's code. Natively one limit is for all threads. A word "@" of
//   COMMAND becomes the main thread's stack in bytes, as an emulator is told it; then the limit is
//   for the other threads alone.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
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

// The camera gives a finished JPEG without a wait, so that the service does nothing but readings.
bool MeasureMemory(const std::string& service, const std::string& picture,
                   const ProcessFigures& baseline, std::string& error)
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
    const ProcessFigures first = terminal.Figures();
    terminal.SendCommand(MSG_CMD_QRCODE_ENABLE);
    if (!Pass(terminal, READING_MS, error)) {
        return false;
    }
    const ProcessFigures last = terminal.Figures();
    std::filesystem::remove(path);
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
    Terminal terminal(Quiet({service}, 0));
    std::vector<double> ms;
    for (int i = 0; i < STARTS; ++i) {
        if (!terminal.Start(error)) {
            return false;
        }
        ms.push_back(static_cast<double>(terminal.HelloUs() - terminal.StartUs()) / 1e3);
    }
    std::printf("%-50s %9.1f ms (%.1f .. %.1f, %d starts)\n", "start to hello, median",
                Quantile(ms, 0.5), Quantile(ms, 0.0), Quantile(ms, 1.0), STARTS);
    return true;
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
        const bool stack = words.size() >= 3 && words[0] == "stack";
        std::string error = "usage: resources use SERVICE BASELINE SAMPLES\n"
                            "       resources stack PICTURE COMMAND...";
        if ((use && MeasureUse(words[1], words[2], words[3], error)) ||
            (stack && MeasureStacks(words[1], {words.begin() + 2, words.end()}, error))) {
            return 0;
        }
        std::fprintf(stderr, "resources: %s\n", error.c_str());
        return static_cast<int>(use || stack ? EXIT_FAILED : EXIT_USAGE);
    });
}
