#include "panel_options.h"

#include <CLI/CLI.hpp>

static const double PANEL_SECONDS_MAX = 1e6; // well below what the loop's clock holds

// Written so that "nan" fails.
static std::string CheckSeconds(const std::string& text)
{
    double seconds = 0.0;
    const bool bNumber = CLI::detail::lexical_cast(text, seconds);
    return bNumber && seconds > 0.0 && seconds <= PANEL_SECONDS_MAX
               ? ""
               : "\"" + text + "\" is not a time above 0 and up to 1000000 s";
}

bool Panel_ParseOptions(int argc, char** argv, PanelOptions& options, int& nExit)
{
    CLI::App app(
        "Stands in for the terminal's main application: answers the qrcode service's hello "
        "with a mode,\nswitches scanning on, and prints every datagram either way.\n"
        "Standard input takes, one a line: enable, disable, stop, mode N, quit.");
    app.option_defaults()->take_last();
    int nMode = options.nMode;
    bool bNoEnable = false;
    app.add_option("--mode", nMode, "Scanning mode to answer with, 0..255")
        ->check(CLI::Range(0, 255))
        ->capture_default_str();
    app.add_flag("--no-enable", bNoEnable, "Do not switch scanning on after the answer");
    app.add_option("--count", options.nCount, "End with status 0 after this many results")
        ->check(CLI::Range(1u, 1000000000u));
    app.add_option("--seconds", options.seconds,
                   "End after this time: with status 1 when --count was not reached, else 0")
        ->check(CheckSeconds);
    app.add_flag("--json", options.bJson, "Print one JSON object a line");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        nExit = app.exit(error) == 0 ? PANEL_EXIT_OK : PANEL_EXIT_USAGE;
        return false;
    }
    options.nMode = static_cast<uint8_t>(nMode);
    options.bEnable = !bNoEnable;
    return true;
}
