// The panel: stands in for the terminal's main application at the other end of the service's
// datagrams. Prints them on standard output, one a line; everything else on standard error.
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "panel_loop.h"
#include "panel_options.h"
#include "panel_socket.h"

int main(int argc, char** argv)
{
    PanelOptions options;
    int nExit = PANEL_EXIT_OK;
    if (!Panel_ParseOptions(argc, argv, options, nExit)) {
        return nExit;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    if (fcntl(STDIN_FILENO, F_GETFD) < 0) { // the socket must not become the standard input
        open("/dev/null", O_RDONLY);
    }
    std::string error;
    const int fd = Panel_OpenSocket(error);
    if (fd < 0) {
        std::fprintf(stderr, "panel: %s\n", error.c_str());
        return PANEL_EXIT_USAGE;
    }
    std::fprintf(stderr, "panel: listening on 127.0.0.1:%d\n", QRCODE_PEER_PORT);
    nExit = Panel_Run(options, fd);
    close(fd);
    return nExit;
}
