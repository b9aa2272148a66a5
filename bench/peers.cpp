// Other readers on the same pictures as the service, as its simulated camera shows them:
// peers [--rows FILE] PICTURE_OR_FOLDER... Every reading is made in a child process that may break.
// Prints a table; the rows behind it go to FILE, tab-separated: folder, picture, reader, verdict,
// ms, text in hexadecimal digits, how the child broke.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <opencv2/core/utility.hpp>
#include <string>
#include <vector>

#include "expected_text.h"
#include "inspect_worker.h"
#include "peer_readers.h"
#include "quantile.h"
#include "scene_files.h"
#include "text_escape.h"
#include "watched_reading.h"

namespace
{

enum {
    TIMED_RUNS = 3, // of each reading, of which the median counts; behind one that is not timed
    EXIT_FAILED = 1,
    EXIT_USAGE = 2
};

enum Verdict {
    PEER_RIGHT,
    PEER_FOUND, // by one that only finds
    PEER_WRONG,
    PEER_MISSED,
    PEER_QUIET, // there is no code, and none was read
    PEER_FALSE, // ... and one was read
    PEER_CRASHED,
    VERDICTS
};
const std::array<const char*, VERDICTS> VERDICT_NAMES = {"right", "found", "wrong",  "missed",
                                                         "quiet", "false", "crashed"};

struct Tally {
    std::array<int, VERDICTS> counts = {};
    std::vector<double> ms;
};

struct PeerRun {
    std::vector<std::string> pictures;
    std::vector<ExpectedText> expected;
    std::vector<Tally> tallies;
    std::ofstream rows;
};

Verdict Judge(const PeerReader& reader, const ExpectedText& expected, const std::string& text)
{
    if (expected.text.empty()) {
        return text.empty() ? PEER_QUIET : PEER_FALSE;
    }
    if (text.empty()) {
        return PEER_MISSED;
    }
    if (reader.bOnlyFinds) {
        return PEER_FOUND;
    }
    return Expected_Is(expected, text) ? PEER_RIGHT : PEER_WRONG;
}

// One reader on one picture, in the child. Of the record the outcome, the time and the beginning of
// the text are used as they are named; its number of an attempt carries the verdict on the whole
// text.
InspectRecord ReadOne(const std::string& picture, const ExpectedText& expected,
                      const PeerReader& reader)
{
    InspectRecord record;
    std::vector<uint8_t> jpeg;
    std::string error;
    if (!Reading_CameraJpeg(picture, jpeg, error)) {
        return record;
    }
    std::string text = reader.pRead(jpeg);
    std::vector<double> ms;
    for (int i = 0; i < TIMED_RUNS; ++i) {
        const auto begin = std::chrono::steady_clock::now();
        text = reader.pRead(jpeg);
        ms.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
                .count());
    }
    record.reading.ms = Quantile(ms, 0.5);
    record.reading.nAttempt = Judge(reader, expected, text);
    record.reading.outcome = text.empty() ? READING_NO_CODE : READING_TEXT;
    std::snprintf(record.reading.szText, sizeof(record.reading.szText), "%s", text.c_str());
    return record;
}

void Take(PeerRun& run, size_t n, const InspectRecord& record, const std::string& death)
{
    const size_t nReaders = Peer_Readers().size();
    const std::string& picture = run.pictures[n / nReaders];
    const PeerReader& reader = Peer_Readers()[n % nReaders];
    const WatchedReading& reading = record.reading;
    if (death.empty() && reading.outcome == READING_NO_PICTURE) {
        if (n % nReaders == 0) {
            std::fprintf(stderr, "peers: skipped %s: cannot be read\n", picture.c_str());
        }
        return;
    }
    Tally& tally = run.tallies[n % nReaders];
    const Verdict verdict = death.empty() ? static_cast<Verdict>(reading.nAttempt) : PEER_CRASHED;
    ++tally.counts[verdict];
    if (death.empty()) {
        tally.ms.push_back(reading.ms);
    }
    const std::filesystem::path path(picture);
    run.rows << path.parent_path().filename().string() << '\t' << path.filename().string() << '\t'
             << reader.szName << '\t' << VERDICT_NAMES[verdict] << '\t' << reading.ms << '\t'
             << Panel_HexText(reading.szText) << '\t' << death << '\n';
}

void PrintTable(const PeerRun& run)
{
    std::printf("%-14s", "reader");
    for (const char* szName : VERDICT_NAMES) {
        std::printf(" %8s", szName);
    }
    std::printf(" %10s %10s\n", "median ms", "95 % ms");
    for (size_t i = 0; i < run.tallies.size(); ++i) {
        const Tally& tally = run.tallies[i];
        std::printf("%-14s", Peer_Readers()[i].szName);
        for (const int nCount : tally.counts) {
            std::printf(" %8d", nCount);
        }
        std::printf(" %10.2f %10.2f\n", Quantile(tally.ms, 0.5), Quantile(tally.ms, 0.95));
    }
}

// Pictures with a known text, of all places. Returns false after saying what is wrong.
bool List(const std::vector<std::string>& places, PeerRun& run)
{
    for (const std::string& place : places) {
        std::vector<std::string> found;
        std::string error;
        if (!Sim_ListPictures(place, found, error)) {
            std::fprintf(stderr, "peers: %s\n", error.c_str());
            return false;
        }
        for (const std::string& picture : found) {
            const ExpectedText expected = Expected_Read(picture);
            if (expected.bKnown) {
                run.pictures.push_back(picture);
                run.expected.push_back(expected);
            }
        }
    }
    if (run.pictures.empty()) {
        std::fprintf(stderr, "peers: no picture with its text beside it\n");
    }
    return !run.pictures.empty();
}

int Run(int argc, char** argv)
{
    std::vector<std::string> places;
    std::string rowsPath;
    CLI::App app{"Reads pictures with the service's reading and with others, and compares.\n"
                 "Only pictures with their text NAME.txt beside them count."};
    app.add_option("PLACE", places, "Pictures or folders of pictures")->required();
    app.add_option("--rows", rowsPath, "File for one line a picture and reader");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : EXIT_USAGE;
    }
    cv::setNumThreads(0); // one core for everybody
    PeerRun run;
    if (!List(places, run)) {
        return EXIT_USAGE;
    }
    if (!rowsPath.empty()) {
        run.rows.open(rowsPath);
        if (!run.rows) {
            std::fprintf(stderr, "peers: cannot write %s\n", rowsPath.c_str());
            return EXIT_USAGE;
        }
    }
    const std::vector<PeerReader>& readers = Peer_Readers();
    run.tallies.resize(readers.size());
    std::string error;
    const bool bRan = Worker_ForEach(
        run.pictures.size() * readers.size(),
        [&](size_t n) {
            const size_t nPicture = n / readers.size();
            return ReadOne(run.pictures[nPicture], run.expected[nPicture],
                           readers[n % readers.size()]);
        },
        [&](size_t n, const InspectRecord& record, const std::string& death) {
            Take(run, n, record, death);
        },
        WORKER_SECONDS, error);
    if (!bRan) {
        std::fprintf(stderr, "peers: %s\n", error.c_str());
        return EXIT_FAILED;
    }
    PrintTable(run);
    return rowsPath.empty() || run.rows ? 0 : EXIT_FAILED;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return Run(argc, argv);
    } catch (const std::exception& exception) { // of the memory or a library
        std::fprintf(stderr, "peers: %s\n", exception.what());
        return EXIT_FAILED;
    }
}
