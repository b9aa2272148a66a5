// What a person at the door feels: the time from a code coming into view to its result, and from
// the command that switches scanning on. Prints one line a figure, tab-separated:
//   view     SAMPLE  MS   from the picture's appearance in an empty scene to its result's arrival
//   enable   SAMPLE  MS   from 0x903, with the code in view, to its result's arrival
//   found    SAMPLE  MS   one reading of it, of this process's own
//   empty    -       MS   one reading of the empty scene
//   camera   SAMPLE  MS   what the simulated camera takes to load and encode a new picture; in
//                         "view" and "enable" it is on the service's bill
// with "missed" instead of MS for a result that does not come. For a private world.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <functional>
#include <opencv2/core/utility.hpp>
#include <random>
#include <string>
#include <vector>

#include "camera_picture.h"
#include "capture_decode.h"
#include "door.h"
#include "expected_text.h"
#include "message.h"
#include "quantile.h"
#include "scene_files.h"
#include "sim_platform.h"
#include "snap_channel.h"

namespace
{

enum {
    EMPTY_MIN_MS = 2000, // of the empty scene before a code comes
    EMPTY_MAX_MS = 4000,
    FORGET_MS = 500,    // in which the service sees the empty scene and forgets the last text
    IDLE_MIN_MS = 1100, // scanning is off: the loop looks once a second
    IDLE_MAX_MS = 2100,
    LATEST_MS = 10000, // a result that is later is missed
    READINGS = 11,     // of each cost, of which the median is printed
    EXIT_FAILED = 1,
    EXIT_USAGE = 2
};

struct Options {
    std::string service;
    std::string samples;
    int nAppearances = 100;
    int nEnables = 30;
    uint32_t nSeed = 1;
};

struct Sample {
    std::string path;
    std::string name;
    std::string text;
};

void Print(const char* szWhat, const std::string& name, double ms)
{
    std::printf("%s\t%s\t%.3f\n", szWhat, name.c_str(), ms);
    std::fflush(stdout);
}

void PrintSpan(const char* szWhat, const std::string& name, int64_t fromUs, int64_t toUs)
{
    if (toUs < 0) {
        std::printf("%s\t%s\tmissed\n", szWhat, name.c_str());
    } else {
        Print(szWhat, name, static_cast<double>(toUs - fromUs) / 1e3);
    }
}

double MedianMs(const std::function<void()>& act)
{
    std::vector<double> ms;
    for (int i = 0; i < READINGS; ++i) {
        const auto begin = std::chrono::steady_clock::now();
        act();
        ms.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
                .count());
    }
    return Quantile(ms, 0.5);
}

double ReadingMs(const cv::Mat& frame)
{
    SimScript script;
    script.frameMs = 0;
    script.hasJpeg = true;
    script.jpeg = Sim_EncodeFrame(frame, SNAP_QUALITY);
    Sim_SetScript(script);
    return MedianMs([] {
        char szText[QRCODE_TEXT_SIZE] = {};
        Qrcode_CaptureAndDecode(nullptr, szText);
    });
}

void PrintCosts(const std::vector<Sample>& samples)
{
    Print("empty", "-", ReadingMs(Sim_EmptyFrame(SNAP_WIDTH, SNAP_HEIGHT)));
    for (const Sample& sample : samples) {
        cv::Mat picture;
        std::string error;
        Print("camera", sample.name, MedianMs([&] {
                  if (Sim_LoadPicture(sample.path, picture, error)) {
                      Sim_EncodeFrame(Sim_CameraFrame(picture, SNAP_WIDTH, SNAP_HEIGHT),
                                      SNAP_QUALITY);
                  }
              }));
        Print("found", sample.name, ReadingMs(Sim_CameraFrame(picture, SNAP_WIDTH, SNAP_HEIGHT)));
    }
}

// Samples whose text the service reports.
bool ListSamples(const std::string& folder, std::vector<Sample>& samples, std::string& error)
{
    std::vector<std::string> paths;
    if (!Sim_ListPictures(folder, paths, error)) {
        return false;
    }
    for (const std::string& path : paths) {
        const ExpectedText expected = Expected_Read(path);
        if (Expected_IsReportable(expected)) {
            samples.push_back({path, path.substr(path.find_last_of('/') + 1), expected.text});
        }
    }
    error = folder + ": no picture with a text that is reported";
    return !samples.empty();
}

class Waits
{
public:
    explicit Waits(uint32_t nSeed) : engine_(nSeed) {}
    int Between(int minMs, int maxMs)
    {
        return std::uniform_int_distribution<int>(minMs, maxMs)(engine_);
    }

private:
    std::mt19937 engine_;
};

bool Measure(Door& door, const Options& options, const std::vector<Sample>& samples,
             std::string& error)
{
    Waits waits(options.nSeed);
    int64_t fromUs = 0;
    for (int i = 0; i < options.nAppearances; ++i) {
        const Sample& sample = samples[static_cast<size_t>(i) % samples.size()];
        Door_Pause(door, waits.Between(EMPTY_MIN_MS, EMPTY_MAX_MS));
        if (!Door_Show(door, sample.path, fromUs, error)) {
            return false;
        }
        PrintSpan("view", sample.name, fromUs, Door_AwaitText(door, sample.text, LATEST_MS));
        Door_Clear(door);
    }
    for (int i = 0; i < options.nEnables; ++i) {
        const Sample& sample = samples[static_cast<size_t>(i) % samples.size()];
        Door_Pause(door, FORGET_MS);
        Door_Command(door, MSG_CMD_QRCODE_DISABLE);
        Door_Pause(door, waits.Between(IDLE_MIN_MS, IDLE_MAX_MS));
        if (!Door_Show(door, sample.path, fromUs, error)) {
            return false;
        }
        fromUs = Door_Command(door, MSG_CMD_QRCODE_ENABLE);
        PrintSpan("enable", sample.name, fromUs, Door_AwaitText(door, sample.text, LATEST_MS));
        Door_Clear(door);
    }
    error = "the service " + Child_EndText(door.service);
    return Child_Runs(door.service);
}

bool ParseOptions(int argc, char** argv, Options& options, int& nExit)
{
    const int nMost = 100000;
    CLI::App app{"Measures the time from a code coming into view to its result."};
    app.add_option("--service", options.service, "Path of the service")->required();
    app.add_option("--samples", options.samples, "Folder of pictures, texts beside them")
        ->required();
    app.add_option("--appearances", options.nAppearances, "Codes that come into view")
        ->check(CLI::Range(0, nMost))
        ->capture_default_str();
    app.add_option("--enables", options.nEnables, "Times that scanning is switched on")
        ->check(CLI::Range(0, nMost))
        ->capture_default_str();
    app.add_option("--seed", options.nSeed, "Of the waits between")->capture_default_str();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        nExit = app.exit(error) == 0 ? 0 : EXIT_USAGE;
        return false;
    }
    return true;
}

int Run(int argc, char** argv)
{
    Options options;
    int nExit = 0;
    if (!ParseOptions(argc, argv, options, nExit)) {
        return nExit;
    }
    std::vector<Sample> samples;
    std::string error;
    if (!ListSamples(options.samples, samples, error)) {
        std::fprintf(stderr, "latency: %s\n", error.c_str());
        return EXIT_USAGE;
    }
    cv::setNumThreads(0); // as the service has it
    PrintCosts(samples);

    Door door;
    const bool bWell =
        Door_Open(door, options.service, error) && Measure(door, options, samples, error);
    Door_Close(door);
    if (!bWell) {
        std::fprintf(stderr, "latency: %s\n", error.c_str());
        return EXIT_FAILED;
    }
    if (door.nStray > 0) {
        std::fprintf(stderr, "latency: %d results that nobody waited for\n", door.nStray);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return Run(argc, argv);
    } catch (const std::exception& exception) { // of the memory or a library
        std::fprintf(stderr, "latency: %s\n", exception.what());
        return EXIT_FAILED;
    }
}
