#include "program.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "wait.h"

namespace fs = std::filesystem;

namespace
{

enum {
    STOP_MS = 2000,
    LINE_MAX_BYTES = 65536, // a longer line comes in pieces
    READ_BYTES = 4096,
    READS_MAX = 64 // at once: more than a pipe holds, but one that prints without end is left
};

// In the child. Never returns.
[[noreturn]] void RunProgram(const ProgramOptions& options, int input, int output, int errors,
                             pid_t parent)
{
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (const int signal : {SIGINT, SIGTERM, SIGPIPE, SIGHUP}) {
        std::signal(signal, SIG_DFL);
    }
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) { // it died before it was being watched
        _exit(EXIT_FAILURE);
    }
    if (options.stackBytes > 0) {
        const struct rlimit stack = {options.stackBytes, options.stackBytes};
        setrlimit(RLIMIT_STACK, &stack);
    }
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(errors, STDERR_FILENO);
    for (const std::string& variable : options.environment) {
        putenv(const_cast<char*>(variable.c_str()));
    }
    Program_Become(options.command);
    dprintf(STDERR_FILENO, "cannot run %s: %s\n", options.command[0].c_str(), std::strerror(errno));
    _exit(127);
}

// A pseudo terminal that passes on what is written as it is: `ends[0]` ours, `ends[1]` the
// program's.
bool OpenTerminal(int ends[2])
{
    struct termios plain = {};
    if (openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr) != 0) {
        return false;
    }
    tcgetattr(ends[1], &plain);
    cfmakeraw(&plain);
    tcsetattr(ends[1], TCSANOW, &plain);
    return fcntl(ends[0], F_SETFD, FD_CLOEXEC) == 0 && fcntl(ends[1], F_SETFD, FD_CLOEXEC) == 0;
}

void Close(int& fd)
{
    if (fd >= 0) {
        close(fd);
        fd = -1;
    }
}

void Take(ProgramStream& stream)
{
    char bytes[READ_BYTES];
    for (int reads = 0; reads < READS_MAX && stream.fd >= 0; ++reads) {
        const ssize_t length = read(stream.fd, bytes, sizeof(bytes));
        if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        }
        if (length <= 0) {
            Close(stream.fd);
        } else {
            stream.rest.append(bytes, static_cast<size_t>(length));
        }
        size_t begin = 0;
        for (size_t end = 0; (end = stream.rest.find('\n', begin)) != std::string::npos;) {
            stream.lines.push_back(stream.rest.substr(begin, end - begin));
            begin = end + 1;
        }
        stream.rest.erase(0, begin);
        if (stream.rest.size() > LINE_MAX_BYTES || (stream.fd < 0 && !stream.rest.empty())) {
            stream.lines.push_back(std::move(stream.rest));
            stream.rest.clear();
        }
    }
}

} // namespace

bool Program::Start(const ProgramOptions& options, std::string& error)
{
    Stop();
    output_ = ProgramStream();
    errors_ = ProgramStream();
    int in[2] = {-1, -1};
    int out[2] = {-1, -1};
    int err[2] = {-1, -1};
    if (options.input) {
        if (pipe2(in, O_CLOEXEC) != 0) {
            in[0] = -1; // told below
        }
        std::signal(SIGPIPE, SIG_IGN); // a line for a program that has ended is lost
    } else {
        in[0] = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    if (options.quiet) {
        out[1] = open("/dev/null", O_WRONLY | O_CLOEXEC);
    } else if (options.terminal ? OpenTerminal(out) : pipe2(out, O_CLOEXEC) == 0) {
        fcntl(out[0], F_SETFL, O_NONBLOCK);
    }
    if (options.errorsApart && pipe2(err, O_CLOEXEC) == 0) {
        fcntl(err[0], F_SETFL, O_NONBLOCK);
    }
    input_ = in[1];
    output_.fd = out[0];
    errors_.fd = err[0];
    const pid_t parent = getpid();
    const bool ready = in[0] >= 0 && out[1] >= 0 && (err[1] >= 0 || !options.errorsApart);
    pid_ = ready ? fork() : -1;
    if (pid_ == 0) {
        RunProgram(options, in[0], out[1], options.errorsApart ? err[1] : out[1], parent);
    }
    group_ = pid_;
    if (pid_ > 0) {
        setpgid(pid_, pid_); // the child does it too: whoever comes first
    }
    error = std::string(ready ? "no process: " : "no pipe: ") + std::strerror(errno);
    Close(in[0]);
    Close(out[1]);
    Close(err[1]);
    return pid_ > 0;
}

bool Program::Running()
{
    if (pid_ > 0 && waitpid(pid_, &status_, WNOHANG) != 0) {
        pid_ = -1;
    }
    return pid_ > 0;
}

int Program::Wait(int waitMs)
{
    if (!Wait_Until([this] { return !Running(); }, waitMs)) {
        return -1;
    }
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : -1;
}

void Program::Stop()
{
    if (Running()) {
        kill(-group_, SIGTERM);
        const auto ended = [this] {
            TakeOutput(); // its last words; and a full pipe would hold it up
            return !Running();
        };
        Wait_Until(ended, STOP_MS);
    }
    Kill();
    TakeOutput();
    Close(input_);
    Close(output_.fd);
    Close(errors_.fd);
}

void Program::Kill()
{
    if (group_ > 0) {
        kill(-group_, SIGKILL);
        group_ = -1;
    }
    if (pid_ > 0) {
        waitpid(pid_, &status_, 0);
        pid_ = -1;
    }
}

void Program::TakeOutput()
{
    Take(output_);
    Take(errors_);
}

bool Program::NextLine(std::string& line, int waitMs)
{
    const Deadline deadline(waitMs);
    TakeOutput();
    while (output_.lines.empty() && output_.fd >= 0 && !deadline.Over()) {
        pollfd ready = {output_.fd, POLLIN, 0};
        poll(&ready, 1, deadline.LeftMs());
        TakeOutput();
    }
    if (output_.lines.empty()) {
        return false;
    }
    line = output_.lines.front();
    output_.lines.pop_front();
    return true;
}

bool Program::AwaitLine(const std::string& part, std::string& line, int waitMs)
{
    const Deadline deadline(waitMs);
    while (NextLine(line, deadline.LeftMs())) {
        if (line.find(part) != std::string::npos) {
            return true;
        }
    }
    return false;
}

void Program::Say(const std::string& line) const
{
    const std::string text = line + "\n";
    static_cast<void>(!write(input_, text.data(), text.size()));
}

void Program_Become(const std::vector<std::string>& command)
{
    std::vector<char*> words;
    words.reserve(command.size() + 1);
    for (const std::string& word : command) {
        words.push_back(const_cast<char*>(word.c_str()));
    }
    words.push_back(nullptr);
    execvp(words[0], words.data());
}

std::string Program_EndText(int status)
{
    if (WIFSIGNALED(status)) {
        const int number = WTERMSIG(status);
        return "was killed by signal " + std::to_string(number) + " (" + strsignal(number) + ")";
    }
    return "ended with status " + std::to_string(WEXITSTATUS(status));
}

ProcessFigures Process_Figures(pid_t pid)
{
    ProcessFigures figures;
    const fs::path folder = fs::path("/proc") / std::to_string(pid);
    std::error_code ignored;
    for (const fs::directory_entry& task : fs::directory_iterator(folder / "task", ignored)) {
        double cpuNs = 0.0;
        std::ifstream(task.path() / "schedstat") >> cpuNs;
        figures.cpuMs += cpuNs / 1e6;
        ++figures.threads;
    }
    for (const fs::directory_entry& fd : fs::directory_iterator(folder / "fd", ignored)) {
        figures.descriptors += fd.path().empty() ? 0 : 1;
    }
    std::ifstream status(folder / "status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            status >> figures.residentKib;
        } else if (word == "VmHWM:") {
            status >> figures.peakKib;
        }
    }
    return figures;
}
