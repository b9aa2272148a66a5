#include "inspect_run.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <unistd.h>

#include "camera_picture.h"
#include "inspect_report.h"
#include "inspect_sheet.h"
#include "inspect_worker.h"
#include "scene_files.h"
#include "shown_text.h"
#include "snap_channel.h"
#include "text_escape.h"

enum { PATH_WIDEST = 48 }; // characters of the files' column

static void Complain(const std::string& path, const std::string& what)
{
    std::fprintf(stderr, "qrcode-inspect: %s: %s\n", Panel_EscapeText(path).c_str(),
                 Panel_EscapeText(what).c_str());
}

// All pictures, in the order of the command line. A file that is not there is one: it is counted.
// `bFolder` is set when there are folders among them, `bFailed` when one has none or cannot be
// listed.
static std::vector<std::string> ListAll(const std::vector<std::string>& places, bool& bFolder,
                                        bool& bFailed)
{
    std::vector<std::string> all;
    for (const std::string& place : places) {
        std::error_code ignored;
        if (!std::filesystem::is_directory(place, ignored)) {
            all.push_back(place);
            continue;
        }
        bFolder = true;
        std::vector<std::string> pictures;
        std::string error;
        if (!Sim_ListPictures(place, pictures, error)) {
            Complain(place, "this folder cannot be listed");
        } else if (pictures.empty()) {
            Complain(place, "no pictures in this folder (folders below it are not looked into)");
        }
        bFailed = bFailed || pictures.empty();
        all.insert(all.end(), pictures.begin(), pictures.end());
    }
    return all;
}

// A reading beforehand, so that the times are those of a service that has been running.
static void WarmUp()
{
    cv::Mat grey;
    Reading_Take(Sim_EncodeFrame(Sim_EmptyFrame(SNAP_WIDTH, SNAP_HEIGHT), SNAP_QUALITY), grey);
}

// In the worker.
static InspectRecord InspectOne(const std::string& path, const InspectOptions& options)
{
    static bool bWarm = false;
    if (!bWarm) {
        bWarm = true;
        WarmUp();
    }
    InspectRecord record;
    std::vector<uint8_t> jpeg;
    std::string error;
    if (!(options.bSnapshot ? Reading_SavedJpeg : Reading_CameraJpeg)(path, jpeg, error)) {
        std::snprintf(record.reading.szRemark, sizeof(record.reading.szRemark), "%s",
                      error.c_str());
        return record;
    }
    cv::Mat grey;
    record.reading = Reading_Take(jpeg, grey);
    if (options.sheet.empty()) {
        return record;
    }
    error = "there is no picture to draw";
    const std::string name = std::filesystem::path(path).filename().string();
    record.bSheetFailed =
        grey.empty() || !Sheet_Write(Sheet_Draw(record.reading, grey, name, options.attempts),
                                     options.sheet, error);
    std::snprintf(record.szSheetError, sizeof(record.szSheetError), "%s", error.c_str());
    return record;
}

struct InspectScreen {
    bool bProgress = false; // a person watches a folder being worked on
    size_t nPathWidth = 0;
};

static void Progress(const InspectScreen& screen, size_t nDone, size_t nAll)
{
    if (screen.bProgress) {
        std::fprintf(stderr, "\r\033[K%zu of %zu", nDone, nAll);
    }
}

static void ClearProgress(const InspectScreen& screen)
{
    if (screen.bProgress) {
        std::fputs("\r\033[K", stderr);
    }
}

static void PrintOne(const InspectedPicture& picture, const InspectOptions& options,
                     const InspectScreen& screen)
{
    if (picture.reading.outcome == READING_NO_PICTURE ||
        picture.reading.outcome == READING_NOT_DECODABLE) {
        std::fflush(stdout);
        Complain(picture.path, picture.reading.szRemark);
    }
    const std::string line =
        options.bJson ? Report_Json(picture) : Report_Line(picture, screen.nPathWidth);
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

int Inspect_Run(const InspectOptions& options)
{
    bool bFailed = false;
    bool bFolder = false;
    const std::vector<std::string> paths = ListAll(options.places, bFolder, bFailed);
    if (paths.empty()) {
        return INSPECT_EXIT_UNREAD;
    }
    if (!options.sheet.empty() && paths.size() != 1) {
        std::fprintf(stderr, "qrcode-inspect: --sheet draws one picture, not %zu\n", paths.size());
        return INSPECT_EXIT_USAGE;
    }
    std::error_code ignored;
    if (!options.sheet.empty() && std::filesystem::equivalent(options.sheet, paths[0], ignored)) {
        Complain(options.sheet, "is the picture itself, not a name for the sheet");
        return INSPECT_EXIT_USAGE;
    }
    const bool bMany = bFolder || paths.size() > 1;
    InspectScreen screen;
    screen.bProgress = bMany && isatty(STDERR_FILENO) == 1;
    for (const std::string& path : paths) {
        screen.nPathWidth = std::max(screen.nPathWidth, Text_Characters(Panel_EscapeText(path)));
    }
    screen.nPathWidth = std::min<size_t>(screen.nPathWidth, PATH_WIDEST);
    if (!options.bJson) {
        std::printf("%s\n", Report_Heading(screen.nPathWidth, options.bTruth).c_str());
    }

    InspectTally tally;
    Progress(screen, 0, paths.size());
    std::string error;
    const bool bRan = Worker_ForEach(
        paths.size(), [&](size_t n) { return InspectOne(paths[n], options); },
        [&](size_t n, const InspectRecord& record, const std::string& death) {
            InspectedPicture picture = {paths[n], record.reading, options.bTruth, {}};
            if (!death.empty()) {
                std::snprintf(picture.reading.szRemark, READING_NOTE_SIZE, "%s", death.c_str());
            }
            if (options.bTruth) {
                picture.expected = Expected_Read(paths[n]);
            }
            Report_Count(tally, picture);
            ClearProgress(screen);
            PrintOne(picture, options, screen);
            Progress(screen, n + 1, paths.size());
            if (!options.sheet.empty() && (record.bSheetFailed || !death.empty())) {
                bFailed = true;
                Complain(options.sheet,
                         std::string("no sheet: ") + (death.empty() ? record.szSheetError : death));
            }
        },
        WORKER_SECONDS, error);
    ClearProgress(screen);
    if (!bRan) {
        std::fprintf(stderr, "qrcode-inspect: %s\n", error.c_str());
        return INSPECT_EXIT_UNREAD;
    }
    if (bMany) {
        std::fputs(Report_Table(tally).c_str(), options.bJson ? stderr : stdout);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::fputs("qrcode-inspect: what was found could not all be written\n", stderr);
        bFailed = true;
    }
    return tally.bAllWell && !bFailed ? INSPECT_EXIT_OK : INSPECT_EXIT_UNREAD;
}
