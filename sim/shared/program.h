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
    bool errorsApart = false;             // its standard error has lines of its own
    size_t stackBytes = 0;                // limit of its stack, 0 for our own
};

// One of a program's outputs, read line by line.
struct ProgramStream {
    int fd = -1;      // readable when there is output; -1 when there is none to come
    std::string rest; // of a line whose end has not come
    std::deque<std::string> lines;
};

// How a process ended, from waitpid's status, as Program::EndText says it.
std::string Program_EndText(int status);

// Runs a command in this process's place. Returns only when that fails, with errno set.
void Program_Become(const std::vector<std::string>& command);

class Program
{
public:
    Program() = default;
    ~Program() { Stop(); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Starts it with default signals and in a process group of its own: the terminal's Ctrl-C is
    // not for it. It dies when this process dies. Standard output and error come as one, unless the
    // options want them apart. Returns false, with the reason in `error`, when there can be no
    // process; a program that cannot be run prints why and ends with status 127.
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
    int OutputFd() const { return output_.fd; }
    int ErrorFd() const { return errors_.fd; }

    // Takes what is there into the lines, at most 256 KiB at once: all that a pipe holds. An
    // incomplete last line counts once the output ended.
    void TakeOutput();

    // The next line without its end. Returns false when none comes in time, or none will.
    bool NextLine(std::string& line, int waitMs = 20000);

    // Reads on until a line holds `part`. Returns false when none does in time.
    bool AwaitLine(const std::string& part, std::string& line, int waitMs = 20000);

    // Writes a line to its standard input; lost when it no longer reads.
    void Say(const std::string& line) const;

    std::deque<std::string>& Lines() { return output_.lines; }
    std::deque<std::string>& ErrorLines() { return errors_.lines; }

private:
    pid_t pid_ = -1;
    pid_t group_ = -1; // outlives the program while members are left
    int status_ = -1;  // waitpid's
    int input_ = -1;
    ProgramStream output_;
    ProgramStream errors_;
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
