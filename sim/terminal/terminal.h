// A whole terminal in one object: the service as a child process over the simulated platform, a
// scene before its camera, and the main application's side of its datagrams.
//
// Order: Start (or Launch, to answer the hello by hand), then the rest as often
// as needed; the destructor ends the service and removes what was made for it. The ports and the
// service's log folder are the real ones: for a private world (scripts/private-world.sh), one
// terminal at a time. While a member function waits, the service's output is read, so that it never
// blocks.
//
// Times are microseconds since the epoch: a datagram's is the kernel's time of arrival, or our own
// just before it is sent.
#ifndef SIM_TERMINAL_H
#define SIM_TERMINAL_H

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "panel_event.h"
#include "program.h"
#include "wait.h"

enum {
    TERMINAL_WAIT_MS = 20000, // far beyond anything that a loaded machine needs
    TERMINAL_NO_ANSWER = -1
};

struct TerminalOptions {
    std::vector<std::string> service;     // the command; an emulator's words may stand before it
    std::vector<std::string> environment; // NAME=VALUE, on top of what is set here
    std::string scene;                    // picture or folder; empty: what Show puts there
    bool newest = false;                  // no scene: the camera sees what Hand gives it
    int viewMs = 1;                       // how long each picture is on view
    std::string script;                   // a fault script's text (fault_script.h), or empty
    bool cameraEvents = false;            // take the camera's events
    bool port = true;                     // false: another program is the main application
    bool quiet = false;                   // what the service prints goes nowhere
    bool watched = false;                 // ... comes at once, standard error as NEWS_ERROR_LINE
    int mode = 1;                         // answers every hello; TERMINAL_NO_ANSWER for none
    bool enable = true;                   // ... and scanning is switched on with it
    size_t stackBytes = 0;                // limit of the service's stack, 0 for our own
    int receiveBytes = 0; // the main application's socket buffer, 0 for the system's
    int alsoFd = -1;      // a descriptor of the caller's that ends a wait when it is readable
};

// One event of the simulated camera, see scene.h.
struct CameraEvent {
    double time = 0.0; // seconds since the epoch
    std::string event; // "view", "blank", "unreadable", "empty"
    std::string picture;
    std::string reason;
    int round = 0;
};

enum TerminalNews { NEWS_NONE, NEWS_CAMERA, NEWS_DATAGRAM, NEWS_LINE, NEWS_ERROR_LINE };

class Terminal
{
public:
    explicit Terminal(TerminalOptions options);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Binds the main application's port, if the options want it and it is not bound, and starts the
    // service; what was read of an earlier one is forgotten. Start waits for the hello and answers
    // it as the options say. Return false with the reason.
    bool Launch(std::string& error);
    bool Start(std::string& error);

    // Ends the service: SIGTERM, then SIGKILL after 2 s. Kill sends SIGKILL at once. The socket
    // stays.
    void Stop() { service_.Stop(); }
    void Kill() { service_.Kill(); }

    Program& Service() { return service_; }
    ProcessFigures Figures() const { return Process_Figures(service_.Pid()); }

    // When the service was started, and when its hello arrived; 0 before.
    int64_t StartUs() const { return startUs_; }
    int64_t HelloUs() const { return helloUs_; }

    // --- The main application's side.

    // Binds and closes its port, as the application starting and ending. Launch binds by itself.
    bool OpenPort(std::string& error);
    void ClosePort();

    // Sends one datagram. Returns its time; whether anybody listens does not show.
    int64_t Send(const PanelBytes& datagram);
    int64_t SendCommand(int32_t command) { return Send(Panel_CommandFrame(command)); }
    int64_t SendMode(uint8_t mode) { return Send(Panel_ModeFrame(mode)); }

    bool AwaitHello(int waitMs = TERMINAL_WAIT_MS);

    // Text of the next result; empty when none comes in time or the service has ended.
    std::string AwaitResult(int waitMs = TERMINAL_WAIT_MS);

    // Waits for a result with this text and sets its time; other results are counted as stray.
    bool AwaitText(const std::string& text, int waitMs, int64_t& timeUs);
    int Stray() const { return stray_; }

    // Forgets what has come. SilentFor waits until no result has come for so long; false when they
    // never stop.
    void Forget();
    bool SilentFor(int ms);

    // --- The scene, where the options name none.

    // Puts a picture before the camera at once, by a rename, and sets the time; Clear takes it
    // away.
    bool Show(const std::string& picture, int64_t& timeUs, std::string& error);
    void Clear();

    // --- The newest picture, with that option; after the first Launch.

    // Puts a file of the caller's before the camera, which may remove its own name of it then; an
    // empty name takes away what is there. The file lies in the file system of the temporary files.
    bool Hand(const std::string& file, std::string& error);

    // Replaces the fault script, from the next snapshot on.
    bool SetScript(const std::string& script, std::string& error);

    // --- All that happens, one piece after the other.

    // The next piece of news, waiting for it up to `waitMs`; a signal (stop_signal.h) ends the
    // wait. The camera's event of a picture comes before the result that it leads to.
    TerminalNews Next(int waitMs, CameraEvent& camera, PanelEvent& datagram, std::string& line);

    // The next line that the service prints that holds `part`.
    bool AwaitLine(const std::string& part, std::string& line, int waitMs = TERMINAL_WAIT_MS);

    // Waits until `happened` says so, taking in meanwhile what comes.
    bool Await(const std::function<bool()>& happened, int waitMs = TERMINAL_WAIT_MS);

    // The datagrams that have come and were not taken yet.
    std::deque<PanelEvent>& Datagrams() { return datagrams_; }

private:
    void Pump(int waitMs);
    bool TakeResult(PanelEvent& result);
    void TakeDatagrams();
    void TakeCameraEvents();
    bool MakeFolder(std::string& error);

    TerminalOptions options_;
    Program service_;
    int fd_ = -1;        // the main application's socket
    int eventsFd_ = -1;  // the camera's FIFO
    std::string events_; // its last line so far
    std::string folder_; // temporary
    std::string shown_;  // file in the scene, or empty
    std::deque<CameraEvent> camera_;
    std::deque<PanelEvent> datagrams_;
    int64_t startUs_ = 0;
    int64_t helloUs_ = 0;
    int stray_ = 0;
};

// True for a datagram with this command.
bool Terminal_IsCommand(const PanelEvent& event, int32_t command);

#endif
