// qrcode-inspect: why a code is read, or not.
#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

#include "card_run.h"
#include "cascade.h"
#include "charsets.h"
#include "command_line.h"
#include "inspect_picture.h"
#include "inspect_report.h"
#include "inspect_sheet.h"
#include "inspect_worker.h"
#include "process_setup.h"
#include "scene_files.h"
#include "text.h"

namespace
{

const char ABOUT[] =
    "Puts pictures through the reading of the qrcode service and shows what happened.\n"
    "Ends with 0 when the service reports the text of each picture's code as it is; 1 when it\n"
    "reports another or none of some, or (with --truth) not the expected one; 2 on wrong usage. "
    "With\n"
    "--cards 0 when every card was read right somewhere and none was ever reported wrong, 1 "
    "otherwise.";

struct InspectOptions {
    std::vector<std::string> places; // pictures and folders
    bool snapshot = false; // files are the bytes of snapshots, not pictures for the camera
    bool json = false;
    bool truth = false;        // compare with the text file beside each picture
    std::string sheet;         // path of the sheet to draw, empty for none
    std::vector<int> attempts; // to draw on it, in this order; all when empty
};

enum { PATH_WIDEST = 48 }; // columns of the files' on a terminal; elsewhere nothing is cut

const char CLEAR_LINE[] = "\r\033[K";

void Complain(const std::string& path, const std::string& what)
{
    std::fprintf(stderr, "qrcode-inspect: %s: %s\n", Text_Escape(path).c_str(),
                 Text_Escape(what).c_str());
}

// All pictures, in the order of the command line. A file that is not there is one: it is counted.
// `folder` is set when there are folders among them, `failed` when one has none or cannot be
// listed.
std::vector<std::string> ListAll(const std::vector<std::string>& places, bool& folder, bool& failed)
{
    std::vector<std::string> all;
    for (const std::string& place : places) {
        std::error_code ignored;
        if (!std::filesystem::is_directory(place, ignored)) {
            all.push_back(place);
            continue;
        }
        folder = true;
        std::vector<std::string> pictures;
        std::string error;
        if (!Sim_ListPictures(place, pictures, error)) {
            Complain(place, "this folder cannot be listed");
        } else if (pictures.empty()) {
            Complain(place, "no pictures in this folder (folders below it are not looked into)");
        }
        failed = failed || pictures.empty();
        all.insert(all.end(), pictures.begin(), pictures.end());
    }
    return all;
}

// In the worker.
InspectRecord InspectOne(const std::string& path, const InspectOptions& options)
{
    cv::Mat grey;
    static bool warm = false;
    if (!warm) {
        warm = true;
        Inspect_WarmUp();
    }
    InspectRecord record = Inspect_Picture(path, options.snapshot, grey);
    if (options.sheet.empty() || record.reading.outcome == READING_NO_PICTURE) {
        return record;
    }
    std::string error = "there is no picture to draw";
    std::string name = std::filesystem::path(path).filename().string();
    if (Charsets_Used() != CHARSETS_ALL) {
        name += " (character sets: " + Charsets_Used() + ")";
    }
    cv::Mat sheet;
    record.sheetFailed =
        grey.empty() ||
        !Sheet_Draw(record.reading, record.causes, grey, name, options.attempts, sheet, error) ||
        !Sheet_Write(sheet, options.sheet, error);
    std::snprintf(record.sheetError, sizeof(record.sheetError), "%s", error.c_str());
    return record;
}

void PrintOne(const InspectedPicture& picture, const InspectOptions& options, size_t pathWidth)
{
    if (picture.reading.outcome == READING_NO_PICTURE ||
        picture.reading.outcome == READING_NOT_DECODABLE) {
        std::fflush(stdout);
        Complain(picture.path, picture.reading.remark);
    }
    const std::string line = options.json
                                 ? Report_Json(picture)
                                 : Report_Line(picture, pathWidth, Text_MayEscape(STDOUT_FILENO));
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

// Prints lines on standard output, faults and progress on standard error. Returns the exit status.
int Inspect(const InspectOptions& options)
{
    bool failed = false;
    bool folder = false;
    const std::vector<std::string> paths = ListAll(options.places, folder, failed);
    if (paths.empty()) {
        return EXIT_FAILED;
    }
    if (!options.sheet.empty() && paths.size() != 1) {
        std::fprintf(stderr, "qrcode-inspect: --sheet draws one picture, not %zu\n", paths.size());
        return EXIT_USAGE;
    }
    std::error_code ignored;
    if (!options.sheet.empty() && std::filesystem::equivalent(options.sheet, paths[0], ignored)) {
        Complain(options.sheet, "is the picture itself, not a name for the sheet");
        return EXIT_USAGE;
    }
    const bool many = folder || paths.size() > 1;
    size_t pathWidth = 0;
    for (const std::string& path : paths) {
        pathWidth = std::max(pathWidth, Text_Columns(Text_Escape(path)));
    }
    if (isatty(STDOUT_FILENO) == 1) {
        pathWidth = std::min<size_t>(pathWidth, PATH_WIDEST);
    }
    if (!options.json) {
        std::printf("%s\n", Report_Heading(pathWidth, options.truth).c_str());
    }

    InspectTally tally;
    const bool watched = many && Text_MayEscape(STDERR_FILENO); // by a person, for a while
    const char* const clearLine = watched ? CLEAR_LINE : "";
    const auto progress = [&](size_t done) {
        if (watched) {
            std::fprintf(stderr, "%s%zu of %zu", clearLine, done, paths.size());
        }
    };
    progress(0);
    std::string error;
    const bool ran = Worker_ForEach<InspectRecord>(
        paths.size(), [&](size_t n) { return InspectOne(paths[n], options); },
        [&](size_t n, const InspectRecord& record, const std::string& death) {
            InspectedPicture picture = {paths[n], record.reading, record.causes, options.truth, {}};
            if (!death.empty()) {
                std::snprintf(picture.reading.remark, READING_NOTE_SIZE, "%s", death.c_str());
            }
            if (options.truth) {
                picture.expected = Expected_Read(paths[n]);
            }
            Report_Count(tally, picture);
            std::fputs(clearLine, stderr);
            PrintOne(picture, options, pathWidth);
            progress(n + 1);
            if (!options.sheet.empty() && (record.sheetFailed || !death.empty())) {
                failed = true;
                Complain(options.sheet,
                         std::string("no sheet: ") + (death.empty() ? record.sheetError : death));
            }
        },
        WORKER_SECONDS, error);
    std::fputs(clearLine, stderr);
    if (!ran) {
        std::fprintf(stderr, "qrcode-inspect: %s\n", error.c_str());
        return EXIT_FAILED;
    }
    if (many) {
        std::fputs(Report_Table(tally).c_str(), options.json ? stderr : stdout);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::fputs("qrcode-inspect: what was found could not all be written\n", stderr);
        failed = true;
    }
    return tally.allWell && !failed ? 0 : EXIT_FAILED;
}

std::string CheckSheetName(const std::string& path)
{
    const bool png = path.size() > 4 && path.compare(path.size() - 4, 4, ".png") == 0;
    return png ? "" : "the sheet's name must end in .png";
}

// The options of the check of cards; returns the flag that asks for it.
CLI::Option* AddCardOptions(CLI::App& app, CardOptions& cards)
{
    CLI::Option* const check = app.add_flag(
        "--cards", "Check cards before they are printed, each in a grid of views: the places are "
                   "files of texts (one a line, - for standard input), each drawn as a QR code, or "
                   "pictures of cards with their text beside them");
    app.add_option("--level", cards.level, "Error correction of the QR codes (M)")
        ->type_name("L|M|Q|H")
        ->needs(check)
        ->check(CLI::IsMember({"L", "M", "Q", "H"}));
    app.add_option("--margin", cards.margin, "Light modules around them (4)")
        ->type_name("N")
        ->needs(check)
        ->check(CLI::Range(0, int{CARD_MARGIN_MAX}));
    app.add_flag("--straight", cards.straightOnly, "Only straight views, one of each size")
        ->needs(check);
    app.add_option("--worst", cards.worstFolder,
                   "Keep the worst view of each card that is not read right everywhere, as a "
                   "picture with its text beside it")
        ->type_name("FOLDER")
        ->needs(check);
    return check;
}

int Run(int argc, char** argv)
{
    // Standard descriptors that are closed must not become those of a pipe or a picture.
    int fd = -1;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
    InspectOptions options;
    CLI::App app(ABOUT, "qrcode-inspect");
    app.add_option("places", options.places, "Pictures, and folders of them")
        ->type_name("PICTURE|FOLDER");
    CLI::Option* const snapshot = app.add_flag(
        "--snapshot", options.snapshot,
        "Files are the JPEG bytes of snapshots saved on the terminal; otherwise they are "
        "pictures, which the simulated camera looks at");
    app.add_flag("--json", options.json, "One JSON object a picture; the table goes to stderr");
    CLI::Option* const truth = app.add_flag(
        "--truth", options.truth, "Compare each text with the file NAME.txt beside NAME.png");
    CLI::Option* const sheet = app.add_option("--sheet", options.sheet,
                                              "Draw all that the scanner is handed (one picture)")
                                   ->type_name("OUT.png")
                                   ->check(CheckSheetName);
    app.add_option("--attempts", options.attempts,
                   "Draw only these attempts on the sheet, 1 to 8, as in 1,4")
        ->type_name("N,...")
        ->delimiter(',')
        ->needs(sheet)
        ->check(CLI::Range(1, Qrcode_AttemptCount()));
    std::string charsets = CHARSETS_ALL;
    app.add_option("--charsets", charsets,
                   "Read as a terminal whose C library has just these character sets beside UTF-8: "
                   "some of sjis,latin1,big5, or none, as a bundle has unless told otherwise; all "
                   "(the default): as on this machine")
        ->type_name("LIST")
        ->check(Charsets_Check);
    CardOptions cards;
    CLI::Option* const check = AddCardOptions(app, cards);
    check->excludes(snapshot)->excludes(truth)->excludes(sheet);
    int exitStatus = 0;
    if (!CommandLine_Parse(app, argc, argv, exitStatus)) {
        return exitStatus;
    }
    if (options.places.empty()) {
        std::fputs("qrcode-inspect: no picture named; see --help\n", stderr);
        return EXIT_USAGE;
    }
    std::string error;
    if (!Charsets_Use(charsets, error)) {
        std::fprintf(stderr, "qrcode-inspect: --charsets: %s\n", error.c_str());
        return EXIT_FAILED;
    }
    Qrcode_SetUpProcess(); // its times are those of the service
    if (check->count() > 0) {
        cards.json = options.json;
        return Cards_Run(options.places, cards);
    }
    return Inspect(options);
}

} // namespace

int main(int argc, char** argv)
{
    return CommandLine_Guard("qrcode-inspect", [&] { return Run(argc, argv); });
}
