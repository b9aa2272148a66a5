// The demo's runner: service, panel and pictures, watched by a person. Expects QRCODE_SERVER_PORT,
// QRCODE_PEER_PORT and the service's log folder to be its own; scripts/demo.sh sees to that.
#include <cstdio>

#include "demo_options.h"
#include "demo_session.h"

int main(int argc, char** argv)
{
    DemoOptions options;
    int nExit = DEMO_EXIT_OK;
    if (!Demo_ParseOptions(argc, argv, options, nExit)) {
        return nExit;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    return Demo_Run(options);
}
