// What a person at the door feels: the time from a code coming into view to its result, and from
// the command that switches scanning on. Prints a table; each figure goes to the file of rows too,
// one line each, tab-separated:
//   view     SAMPLE  MS   from the picture's appearance in an empty scene to its result's arrival
//   enable   SAMPLE  MS   from 0x903, with the code in view, to its result's arrival
//   camera   SAMPLE  MS   what the simulated camera takes to load and encode a new picture; in
//                         "view" and "enable" it is on the service's bill
// with "missed" instead of MS for a result that does not come. For a private world.
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "command_line.h"
#include "expected_text.h"
#include "message.h"
#include "quantile.h"
#include "scene_files.h"
#include "stopwatch.h"
#include "terminal.h"
#include "watched_reading.h"

namespace
{

enum {
    EMPTY_MIN_MS = 2000, // of the empty scene before a code comes
    EMPTY_MAX_MS = 4000,
    FORGET_MS = 500,    // in which the service sees the empty scene and forgets the last text
    IDLE_MIN_MS = 1100, // scanning is off: the loop looks once a second
    IDLE_MAX_MS = 2100,
    LATEST_MS = 10000,     // a result that is later is missed
    LONG_VIEW_MS = 3600000 // until it is taken away
};

struct Sample {
    std::string path;
    std::string text;
};

enum Figure { VIEW, ENABLE, CAMERA, FIGURES };
const struct {
    const char* name;
    const char* title;
} FIGURE_TEXTS[FIGURES] = {{"view", "code comes into view -> its result"},
                           {"enable", "0x903, code in view -> its result"},
                           {"camera", "the simulated camera's own work for a new picture"}};

// All that was measured.
struct Record {
    std::ofstream rows;
    std::vector<double> ms[FIGURES];
    int missed[FIGURES] = {};
};

void Take(Record& record, Figure figure, const Sample& sample, bool came, double us)
{
    record.rows << FIGURE_TEXTS[figure].name << '\t'
                << sample.path.substr(sample.path.find_last_of('/') + 1) << '\t'
                << (came ? std::to_string(us / 1e3) : "missed") << std::endl;
    record.missed[figure] += came ? 0 : 1;
    if (came) {
        record.ms[figure].push_back(us / 1e3);
    }
}

void PrintTable(const Record& record)
{
    std::printf("%-50s %7s %7s %9s %9s %9s\n", "ms", "number", "missed", "median", "95 %",
                "highest");
    for (int i = 0; i < FIGURES; ++i) {
        const std::vector<double>& ms = record.ms[i];
        std::printf("%-50s %7zu %7d %9.1f %9.1f %9.1f\n", FIGURE_TEXTS[i].title,
                    ms.size() + static_cast<size_t>(record.missed[i]), record.missed[i],
                    Quantile(ms, 0.5), Quantile(ms, 0.95), Quantile(ms, 1.0));
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
            samples.push_back({path, expected.text});
        }
    }
    error = folder + ": no picture with a text that is reported";
    return !samples.empty();
}

// Lets a random time pass. What is reported meanwhile counts as stray: no result is without a text.
void Pause(Terminal& terminal, int minMs, int maxMs)
{
    static std::mt19937 random; // the same in every run
    int64_t never = 0;
    terminal.AwaitText("", std::uniform_int_distribution<int>(minMs, maxMs)(random), never);
}

// Puts the sample into the empty scene, for ENABLE while scanning is off, and waits for its result.
bool MeasureWait(Figure figure, const Sample& sample, Terminal& terminal, Record& record,
                 std::string& error)
{
    if (figure == VIEW) {
        Pause(terminal, EMPTY_MIN_MS, EMPTY_MAX_MS);
    } else {
        Pause(terminal, FORGET_MS, FORGET_MS);
        terminal.SendCommand(MSG_CMD_QRCODE_DISABLE);
        Pause(terminal, IDLE_MIN_MS, IDLE_MAX_MS);
    }
    int64_t fromUs = 0;
    int64_t toUs = 0;
    if (!terminal.Show(sample.path, fromUs, error)) {
        return false;
    }
    if (figure == ENABLE) {
        fromUs = terminal.SendCommand(MSG_CMD_QRCODE_ENABLE);
    }
    const bool came = terminal.AwaitText(sample.text, LATEST_MS, toUs);
    Take(record, figure, sample, came, static_cast<double>(toUs - fromUs));
    terminal.Clear();
    const bool runs = terminal.Service().Running();
    error = "the service " + terminal.Service().EndText();
    return runs;
}

bool Measure(const std::string& service, const std::vector<Sample>& samples, const int (&counts)[2],
             Record& record, std::string& error)
{
    for (const Sample& sample : samples) { // in this process
        std::vector<uint8_t> jpeg;
        bool made = false;
        const double us =
            Stopwatch_Us([&] { made = Reading_CameraJpeg(sample.path, jpeg, error); });
        Take(record, CAMERA, sample, made, us);
    }
    TerminalOptions door;
    door.service = {service};
    door.viewMs = LONG_VIEW_MS;
    door.quiet = true;
    Terminal terminal(door);
    bool runs = terminal.Start(error);
    for (const Figure figure : {VIEW, ENABLE}) {
        for (int i = 0; runs && i < counts[figure]; ++i) {
            const Sample& sample = samples[static_cast<size_t>(i) % samples.size()];
            runs = MeasureWait(figure, sample, terminal, record, error);
        }
    }
    if (terminal.Stray() > 0) {
        std::fprintf(stderr, "latency: %d results that nobody waited for\n", terminal.Stray());
    }
    return runs;
}

int Run(int argc, char** argv)
{
    std::string service;
    std::string folder;
    std::string rows;
    int counts[2] = {100, 30}; // of VIEW and ENABLE
    CLI::App app{"Measures the time from a code coming into view to its result.", "latency"};
    app.add_option("--service", service, "Path of the service")->required();
    app.add_option("--samples", folder, "Folder of pictures, texts beside them")->required();
    app.add_option("--rows", rows, "File for one line a figure")->required();
    app.add_option("--appearances", counts[VIEW], "Codes that come into view")
        ->capture_default_str();
    app.add_option("--enables", counts[ENABLE], "Times that scanning is switched on")
        ->capture_default_str();
    int exitStatus = 0;
    if (!CommandLine_Parse(app, argc, argv, exitStatus)) {
        return exitStatus;
    }
    std::vector<Sample> samples;
    Record record;
    record.rows.open(rows);
    std::string error = "cannot write " + rows;
    if (!record.rows || !ListSamples(folder, samples, error) ||
        !Measure(service, samples, counts, record, error)) {
        std::fprintf(stderr, "latency: %s\n", error.c_str());
        return EXIT_FAILED;
    }
    PrintTable(record);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    return CommandLine_Guard("latency", [&] { return Run(argc, argv); });
}
