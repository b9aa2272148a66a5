#include "inspect_options.h"

#include <CLI/CLI.hpp>

#include "cascade.h"

static const char ABOUT[] =
    "Puts pictures through the reading of the qrcode service and shows what happened.\n"
    "Ends with 0 when every picture gave a text that the service reports; 1 when some did not, or\n"
    "(with --truth) gave another than the expected one; 2 on wrong usage.";

static std::string CheckSheetName(const std::string& path)
{
    const bool bPng = path.size() > 4 && path.compare(path.size() - 4, 4, ".png") == 0;
    return bPng ? "" : "the sheet's name must end in .png";
}

bool Inspect_ParseOptions(int argc, char** argv, InspectOptions& options, int& nExit)
{
    CLI::App app(ABOUT, "qrcode-inspect");
    app.add_option("places", options.places, "Pictures, and folders of them")
        ->required()
        ->type_name("PICTURE|FOLDER");
    app.add_flag("--snapshot", options.bSnapshot,
                 "Files are the JPEG bytes of snapshots saved on the terminal; otherwise they are "
                 "pictures, which the simulated camera looks at");
    app.add_flag("--json", options.bJson, "One JSON object a picture; the table goes to stderr");
    app.add_flag("--truth", options.bTruth,
                 "Compare each text with the file NAME.txt beside NAME.png");
    CLI::Option* const sheet = app.add_option("--sheet", options.sheet,
                                              "Draw all that the scanner is handed (one picture)")
                                   ->type_name("OUT.png")
                                   ->check(CheckSheetName);
    app.add_option("--attempts", options.attempts,
                   "Draw only these attempts on the sheet, 1 to 8, as in 1,4")
        ->type_name("N,...")
        ->delimiter(',')
        ->needs(sheet)
        ->check(CLI::Range(static_cast<int>(ATTEMPT_PLAIN), static_cast<int>(ATTEMPT_COUNT)));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        nExit = app.exit(error) == 0 ? INSPECT_EXIT_OK : INSPECT_EXIT_USAGE;
        return false;
    }
    return true;
}
