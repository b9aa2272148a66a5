// The desk's program: it takes the port on this machine, and then serves from wherever it is
// started, which may be another network. scripts/desk.sh does both.
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "command_line.h"
#include "desk_inspector.h"
#include "desk_session.h"
#include "program.h"
#include "stop_signal.h"

namespace
{

enum {
    HANDED_FD = 3, // a listening socket that was opened by somebody else, as systemd hands it
    BACKLOG = 64,
    PORT_MIN = 1024
};

// Opens the port and runs the command with it. Returns the status to exit with when that fails.
int Listen(uint16_t port, const std::vector<std::string>& command)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(fd, BACKLOG) != 0) {
        std::fprintf(stderr, "desk: port %d of 127.0.0.1: %s; take another one with --port\n", port,
                     std::strerror(errno));
        return EXIT_FAILED;
    }
    if (fd != HANDED_FD) {
        dup2(fd, HANDED_FD);
        close(fd);
    }
    Program_Become(command);
    std::fprintf(stderr, "desk: %s: %s\n", command[0].c_str(), std::strerror(errno));
    return EXIT_FAILED;
}

int Run(int argc, char** argv)
{
    DeskOptions options;
    std::string folder;
    std::vector<std::string> command;
    int exitStatus = 0;
    CLI::App app("A terminal and its main application on a page for a browser of this machine.\n"
                 "scripts/desk.sh runs this where the service has its ports to itself.",
                 "desk");
    app.add_option("--port", options.port, "The page's port")
        ->check(CLI::Range(int{PORT_MIN}, 65535))
        ->capture_default_str();
    app.add_option("--service", options.service, "The service's program");
    app.add_option("--scene", options.scene, "Picture, or folder of pictures, to choose from");
    app.add_option("--page", options.page, "Folder of the page's files");
    app.add_option("--inspect", folder, "Read the files of this folder that standard input names");
    app.add_option("command", command,
                   "Open the port, and run this command, which gets it as descriptor 3: this "
                   "program with --page");
    if (!CommandLine_Parse(app, argc, argv, exitStatus)) {
        return exitStatus;
    }
    if (!folder.empty()) {
        return Inspector_Run(folder);
    }
    if (!command.empty()) {
        return Listen(options.port, command);
    }
    int listening = 0;
    socklen_t size = sizeof(listening);
    if (options.page.empty() ||
        getsockopt(HANDED_FD, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) != 0 ||
        listening == 0) {
        std::fprintf(stderr, "desk: no page, or no listening socket as descriptor %d; see --help\n",
                     HANDED_FD);
        return EXIT_USAGE;
    }
    // No program that is started from here on reaches this machine.
    fcntl(HANDED_FD, F_SETFD, FD_CLOEXEC);
    Stop_TakeSignals();
    std::signal(SIGPIPE, SIG_IGN); // a browser may go at any time
    options.socket = HANDED_FD;
    return Desk_Run(options);
}

} // namespace

int main(int argc, char** argv)
{
    return CommandLine_Guard("desk", [&] { return Run(argc, argv); });
}
