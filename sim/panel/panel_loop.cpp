#include "panel_loop.h"

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <poll.h>
#include <string>
#include <time.h>
#include <unistd.h>

#include "panel_event.h"
#include "panel_frame.h"
#include "panel_socket.h"
#include "stop_signal.h"
#include "text_escape.h"

enum { PANEL_LINE_MAX = 1024 }; // bytes of a line on standard input

struct Panel {
    PanelOptions options;
    int fd;
    bool bInput;       // standard input is still read
    std::string input; // its last line so far
    uint32_t nResults;
    bool bQuit;
};

static double MonotonicSeconds()
{
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

static void Print(const Panel& panel, const PanelEvent& event)
{
    std::puts(panel.options.bJson ? Panel_EventJson(event).c_str()
                                  : Panel_EventLine(event).c_str());
}

static void Send(const Panel& panel, const PanelBytes& datagram)
{
    PanelEvent event;
    std::string error;
    if (Panel_Send(panel.fd, datagram, event, error)) {
        Print(panel, event);
    } else {
        std::fprintf(stderr, "panel: %s\n", error.c_str());
    }
}

static void TakeDatagram(Panel& panel)
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
        Send(panel, Panel_ModeFrame(panel.options.nMode));
        if (panel.options.bEnable) {
            Send(panel, Panel_CommandFrame(MSG_CMD_QRCODE_ENABLE));
        }
    }
    if (head.nMsgCommand == MSG_CMD_QRCODE_RESULT) {
        ++panel.nResults;
    }
}

// Reads the number of "mode N". Returns -1 when it is none of 0..255.
static int ModeNumber(const std::string& digits)
{
    if (digits.empty() || digits.size() > 3 ||
        digits.find_first_not_of("0123456789") != std::string::npos) {
        return -1;
    }
    const int nMode = std::stoi(digits);
    return nMode <= UINT8_MAX ? nMode : -1;
}

static const char BLANKS[] = " \t\r";

static std::string Trimmed(const std::string& text)
{
    const size_t first = text.find_first_not_of(BLANKS);
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

static void Obey(Panel& panel, const std::string& line)
{
    const std::string all = Trimmed(line);
    const std::string word = all.substr(0, all.find_first_of(BLANKS));
    const std::string rest = Trimmed(all.substr(word.size()));
    const int nMode = word == "mode" ? ModeNumber(rest) : -1;
    if (all.empty()) {
        return;
    }
    if (all == "enable") {
        Send(panel, Panel_CommandFrame(MSG_CMD_QRCODE_ENABLE));
    } else if (all == "disable") {
        Send(panel, Panel_CommandFrame(MSG_CMD_QRCODE_DISABLE));
    } else if (all == "stop") {
        Send(panel, Panel_CommandFrame(MSG_CMD_QRCODE_STOP));
    } else if (all == "quit") {
        panel.bQuit = true;
    } else if (nMode >= 0) {
        panel.options.nMode = static_cast<uint8_t>(nMode);
        Send(panel, Panel_ModeFrame(panel.options.nMode));
    } else {
        std::fprintf(stderr,
                     "panel: \"%s\" is none of: enable, disable, stop, mode N (0..255), quit\n",
                     Panel_EscapeText(all).c_str());
    }
}

static void TakeInput(Panel& panel)
{
    char aBytes[PANEL_LINE_MAX];
    const ssize_t nRead = read(STDIN_FILENO, aBytes, sizeof(aBytes));
    if (nRead < 0 && (errno == EINTR || errno == EAGAIN)) {
        return;
    }
    if (nRead <= 0) { // a last line without its end counts
        panel.bInput = false;
        Obey(panel, panel.input);
        return;
    }
    panel.input.append(aBytes, static_cast<size_t>(nRead));
    size_t end = 0;
    while (!panel.bQuit && (end = panel.input.find('\n')) != std::string::npos) {
        Obey(panel, panel.input.substr(0, end));
        panel.input.erase(0, end + 1);
    }
    if (panel.input.size() > PANEL_LINE_MAX) {
        std::fprintf(stderr, "panel: line of more than %d bytes ignored\n", PANEL_LINE_MAX);
        panel.input.clear();
    }
}

// Waits for a datagram, input, a signal or the deadline, and deals with what has come.
static void TakeNext(Panel& panel, double deadline, const sigset_t& waitMask)
{
    struct pollfd aPoll[2] = {{panel.fd, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    struct timespec left = {};
    const double seconds = deadline - MonotonicSeconds();
    if (seconds > 0.0) {
        left.tv_sec = static_cast<time_t>(seconds);
        left.tv_nsec = static_cast<long>(std::fmod(seconds, 1.0) * 1e9);
    }
    const bool bLimited = panel.options.seconds > 0.0;
    if (ppoll(aPoll, panel.bInput ? 2 : 1, bLimited ? &left : nullptr, &waitMask) < 1) {
        return;
    }
    if (aPoll[0].revents != 0) {
        TakeDatagram(panel);
    }
    if (panel.bInput && aPoll[1].revents != 0) {
        TakeInput(panel);
    }
}

int Panel_Run(const PanelOptions& options, int fd)
{
    Panel panel = {options, fd, true, "", 0, false};
    const sigset_t waitMask = Stop_TakeSignals();
    std::signal(SIGTTIN, SIG_IGN); // in a shell's background: keep running, without the input
    const double deadline = MonotonicSeconds() + options.seconds;
    for (;;) {
        TakeNext(panel, deadline, waitMask);
        if (panel.bQuit || Stop_Asked() ||
            (options.nCount > 0 && panel.nResults >= options.nCount)) {
            return PANEL_EXIT_OK;
        }
        if (options.seconds > 0.0 && MonotonicSeconds() >= deadline) {
            return options.nCount > 0 ? PANEL_EXIT_TIME : PANEL_EXIT_OK;
        }
    }
}
