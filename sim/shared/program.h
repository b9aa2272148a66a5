// A program as a child process, its output read line by line as it comes, and what it takes.
#ifndef SIM_PROGRAM_H
#define SIM_PROGRAM_H

#include <cstddef>
#include <deque>
#include <string>
#include <sys/types.h>
#include <vector>

struct ProgramOptions {
    std::vector<std::string> command;     // its first word is looked up on the PATH
    std::vector<std::string> environment; // NAME=VALUE each, on top of our own
    bool quiet = false;                   // its output goes to /dev/null, not to us
    bool input = false;                   // standard input is a pipe for Say; otherwise /dev/null
    bool terminal = false;                // its output is a terminal, so that it keeps nothing back
    size_t stackBytes = 0;                // limit of its stack, 0 for our own
};

// How a process ended, from waitpid's status, as Program::EndText says it.
std::string Program_EndText(int status);

class Program
{
public:
    Program() = default;
    ~Program() { Stop(); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Starts it with default signals and in a process group of its own: the terminal's Ctrl-C is
    // not for it. It dies when this process dies. Standard output and error come as one. Returns
    // false, with the reason in `error`, when there can be no process; a program that cannot be run
    // prints why and ends with status 127.
    bool Start(const ProgramOptions& options, std::string& error);

    // True while it runs; reaps it once it has ended. Never blocks.
    bool Running();

    // Waits for its end. Returns the exit status, or -1 after a signal or when it does not end in
    // time.
    int Wait(int waitMs = 20000);

    // waitpid's status, once its end was seen.
    int EndStatus() const { return status_; }

    // SIGTERM, then SIGKILL after 2 s, to all of its process group; waits for the end, takes
    // its last output into the lines, and closes the pipes. What it started and left behind is
    // killed too. Does nothing for a program that was never started.
    void Stop();

    // SIGKILL to all of its process group; waits for the end.
    void Kill();

    pid_t Pid() const { return pid_; } // -1 before the start and once the end was seen

    // How it ended: "ended with status 2", "was killed by signal 11 (Segmentation fault)".
    std::string EndText() const { return Program_EndText(status_); }

    // Readable when there is output; -1 when there is none to come.
    int OutputFd() const { return output_; }

    // Takes what is there into the lines, at most 256 KiB at once: all that a pipe holds. An
    // incomplete last line counts once the output ended.
    void TakeOutput();

    // The next line without its end. Returns false when none comes in time, or none will.
    bool NextLine(std::string& line, int waitMs = 20000);

    // Reads on until a line holds `part`. Returns false when none does in time.
    bool AwaitLine(const std::string& part, std::string& line, int waitMs = 20000);

    // Writes a line to its standard input; lost when it no longer reads.
    void Say(const std::string& line) const;

    std::deque<std::string>& Lines() { return lines_; }

private:
    pid_t pid_ = -1;
    pid_t group_ = -1; // outlives the program while members are left
    int status_ = -1;  // waitpid's
    int input_ = -1;
    int output_ = -1;
    std::string rest_; // of a line whose end has not come
    std::deque<std::string> lines_;
};

// What a running process takes of the machine, from /proc.
struct ProcessFigures {
    double cpuMs = 0.0;   // on a processor, all threads
    long residentKib = 0; // in memory now
    long peakKib = 0;     // ... at most so far
    long threads = 0;
    long descriptors = 0;
};

// All zero for a process that is not there.
ProcessFigures Process_Figures(pid_t pid);

#endif
