// The panel: takes the place of the terminal's main application at the other end of the service's
// datagrams. Prints them on standard output, one a line; everything else on standard error.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <limits>
#include <map>
#include <poll.h>
#include <string>
#include <unistd.h>

#include "command_line.h"
#include "panel_socket.h"
#include "stop_signal.h"
#include "text.h"
#include "wait.h"

namespace
{

enum {
    EXIT_TIME = 1,           // the time ran out before the count was reached
    INPUT_LINE_MAX = 1024,   // bytes of a line on standard input
    FOREGROUND_LOOK_MS = 200 // between looks whether a shell has brought us there
};

const double SECONDS_MAX = 1e6; // in ms still an int

struct Panel {
    int mode = 1;          // scanning mode that answers MSG_CMD_QRCODE_START
    bool enable = true;    // MSG_CMD_QRCODE_ENABLE follows that answer
    bool json = false;     // JSON lines instead of lines for a person
    uint32_t count = 0;    // results to end after, 0 for no such end
    double seconds = 0.0;  // to end after, 0 for no such end
    int fd = -1;           // the socket
    bool inputOpen = true; // standard input is still read; its end does not end the panel
    std::string input;     // its last line so far
    uint32_t results = 0;
    bool quit = false;
};

void Print(const Panel& panel, const PanelEvent& event)
{
    std::puts(panel.json ? Panel_EventJson(event).c_str() : Panel_EventLine(event).c_str());
}

void Send(const Panel& panel, const PanelBytes& datagram)
{
    PanelEvent event;
    std::string error;
    if (Panel_Send(panel.fd, datagram, event, error)) {
        Print(panel, event);
    } else {
        std::fprintf(stderr, "panel: %s\n", error.c_str());
    }
}

void SendMode(const Panel& panel)
{
    Send(panel, Panel_ModeFrame(static_cast<uint8_t>(panel.mode)));
}

void TakeDatagram(Panel& panel)
{
    PanelEvent event;
    if (!Panel_Receive(panel.fd, event)) {
        return;
    }
    Print(panel, event);
    MsgHead head;
    if (!Panel_ReadHead(event.datagram, head)) {
        return;
    }
    if (head.nMsgCommand == MSG_CMD_QRCODE_START) { // again after each restart of the service
        SendMode(panel);
        if (panel.enable) {
            Send(panel, Panel_CommandFrame(MSG_CMD_QRCODE_ENABLE));
        }
    }
    if (head.nMsgCommand == MSG_CMD_QRCODE_RESULT) {
        ++panel.results;
    }
}

// Reads "mode N", N of 0..255.
bool ReadMode(const std::string& line, int& mode)
{
    const std::string word = line.substr(0, line.find_first_of(" \t"));
    const std::string digits = CLI::detail::trim_copy(line.substr(word.size()));
    const char* const end = digits.data() + digits.size();
    uint8_t number = 0;
    const std::from_chars_result result = std::from_chars(digits.data(), end, number);
    if (word != "mode" || result.ec != std::errc() || result.ptr != end) {
        return false;
    }
    mode = number;
    return true;
}

void Obey(Panel& panel, const std::string& line)
{
    static const std::map<std::string, int32_t> COMMANDS = {{"enable", MSG_CMD_QRCODE_ENABLE},
                                                            {"disable", MSG_CMD_QRCODE_DISABLE},
                                                            {"stop", MSG_CMD_QRCODE_STOP}};
    const std::string words = CLI::detail::trim_copy(line);
    const auto command = COMMANDS.find(words);
    if (command != COMMANDS.end()) {
        Send(panel, Panel_CommandFrame(command->second));
    } else if (words == "quit") {
        panel.quit = true;
    } else if (ReadMode(words, panel.mode)) {
        SendMode(panel);
    } else if (!words.empty()) {
        std::fprintf(stderr,
                     "panel: \"%s\" is none of: enable, disable, stop, mode N (0..255), quit\n",
                     Text_Escape(words).c_str());
    }
}

// False while another job has the terminal: a read of standard input would fail.
bool InputIsOurs()
{
    const pid_t foreground = tcgetpgrp(STDIN_FILENO);
    return foreground < 0 || foreground == getpgrp(); // below 0: no terminal, or not ours
}

void TakeInput(Panel& panel)
{
    char bytes[INPUT_LINE_MAX];
    const ssize_t got = read(STDIN_FILENO, bytes, sizeof(bytes));
    if (got < 0 && (errno == EINTR || errno == EAGAIN || (errno == EIO && !InputIsOurs()))) {
        return;
    }
    if (got <= 0) { // a last line without its end counts
        panel.inputOpen = false;
        Obey(panel, panel.input);
        return;
    }
    panel.input.append(bytes, static_cast<size_t>(got));
    size_t end = 0;
    while (!panel.quit && (end = panel.input.find('\n')) != std::string::npos) {
        Obey(panel, panel.input.substr(0, end));
        panel.input.erase(0, end + 1);
    }
    if (panel.input.size() > INPUT_LINE_MAX) {
        std::fprintf(stderr, "panel: line of more than %d bytes ignored\n", INPUT_LINE_MAX);
        panel.input.clear();
    }
}

// Works until the count, the time, "quit" or a signal (stop_signal.h) ends it. Returns the status
// to exit with.
int Work(Panel& panel)
{
    Stop_TakeSignals();
    std::signal(SIGTTIN, SIG_IGN); // in a shell's background: keep running, without the input
    const int noLimitMs = std::numeric_limits<int>::max();
    const bool limited = panel.seconds > 0.0;
    const Deadline deadline(static_cast<int>(panel.seconds * 1000.0));
    for (;;) {
        const bool inputOurs = panel.inputOpen && InputIsOurs();
        const int waitMs = std::min(limited ? deadline.LeftMs() : noLimitMs,
                                    panel.inputOpen && !inputOurs ? FOREGROUND_LOOK_MS : noLimitMs);
        pollfd fds[2] = {{panel.fd, POLLIN, 0}, {inputOurs ? STDIN_FILENO : -1, POLLIN, 0}};
        const struct timespec wait = {waitMs / 1000, (waitMs % 1000) * 1000000L};
        if (ppoll(fds, 2, &wait, Stop_WaitMask()) > 0) {
            if (fds[0].revents != 0) {
                TakeDatagram(panel);
            }
            if (fds[1].revents != 0) {
                TakeInput(panel);
            }
        }
        if (panel.quit || Stop_Asked() || (panel.count > 0 && panel.results >= panel.count)) {
            return 0;
        }
        if (limited && deadline.Over()) {
            return panel.count > 0 ? EXIT_TIME : 0;
        }
    }
}

// Written so that "nan" fails.
std::string CheckSeconds(const std::string& text)
{
    double seconds = 0.0;
    const bool number = CLI::detail::lexical_cast(text, seconds);
    return number && seconds > 0.0 && seconds <= SECONDS_MAX
               ? ""
               : "\"" + text + "\" is not a time above 0 and up to 1000000 s";
}

int Run(int argc, char** argv)
{
    Panel panel;
    CLI::App app(
        "Takes the place of the terminal's main application: answers the qrcode service's hello "
        "with a mode,\nswitches scanning on, and prints every datagram either way.\n"
        "Standard input takes, one a line: enable, disable, stop, mode N, quit.",
        "panel");
    app.option_defaults()->take_last();
    app.add_option("--mode", panel.mode, "Scanning mode to answer with, 0..255")
        ->check(CLI::Range(0, 255))
        ->capture_default_str();
    app.add_flag("!--no-enable", panel.enable, "Do not switch scanning on after the answer");
    app.add_option("--count", panel.count, "End with status 0 after this many results")
        ->check(CLI::Range(1u, 1000000000u));
    app.add_option("--seconds", panel.seconds,
                   "End after this time: with status 1 when --count was not reached, else 0")
        ->check(CheckSeconds);
    app.add_flag("--json", panel.json, "Print one JSON object a line");
    int exitStatus = 0;
    if (!CommandLine_Parse(app, argc, argv, exitStatus)) {
        return exitStatus;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    if (fcntl(STDIN_FILENO, F_GETFD) < 0) { // the socket must not become the standard input
        open("/dev/null", O_RDONLY);
    }
    std::string error;
    panel.fd = Panel_OpenSocket(error);
    if (panel.fd < 0) {
        std::fprintf(stderr, "panel: %s\n", error.c_str());
        return EXIT_USAGE; // somebody else has the port
    }
    std::fprintf(stderr, "panel: listening on 127.0.0.1:%d\n", QRCODE_PEER_PORT);
    exitStatus = Work(panel);
    close(panel.fd);
    return exitStatus;
}

} // namespace

int main(int argc, char** argv)
{
    return CommandLine_Guard("panel", [&] { return Run(argc, argv); });
}
