#include "demo_options.h"

#include <CLI/CLI.hpp>

bool Demo_ParseOptions(int argc, char** argv, DemoOptions& options, int& nExit)
{
    CLI::App app("Runs the qrcode service and the panel on pictures, tells what is read as it "
                 "happens, and counts.\nscripts/demo.sh runs this where the two have their ports "
                 "to themselves.");
    app.add_option("--service", options.service, "The service's program")->required();
    app.add_option("--panel", options.panel, "The panel's program")->required();
    app.add_option("--scene", options.scene, "Picture, or folder of pictures")->required();
    app.add_option("--view-ms", options.viewMs, "How long each picture is on view, in ms")
        ->check(CLI::Range(1, 3600000))
        ->capture_default_str();
    app.add_flag("--once", options.bOnce,
                 "Show each picture once (a folder on a terminal goes on otherwise)");
    app.add_flag("--strict", options.bStrict, "End with status 1 when one is missed or wrong");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        nExit = app.exit(error) == 0 ? DEMO_EXIT_OK : DEMO_EXIT_USAGE;
        return false;
    }
    return true;
}
