// A program under test as a child process, its output read line by line as it comes.
#ifndef TESTS_PROGRAM_H
#define TESTS_PROGRAM_H

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "wait.h"

class Program
{
public:
    // `environment` is what is added, NAME=VALUE each. Standard output and error come as one.
    explicit Program(const std::vector<std::string>& command,
                     const std::vector<std::string>& environment = {})
    {
        int in[2];
        int out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
            return;
        }
        signal(SIGPIPE, SIG_IGN); // of this program: words to a child that has ended are lost
        pid_ = fork();
        if (pid_ == 0) {
            signal(SIGPIPE, SIG_DFL);
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(in[0], STDIN_FILENO);
            dup2(out[1], STDOUT_FILENO);
            dup2(out[1], STDERR_FILENO);
            // A BLAS library behind OpenCV may start threads of its own while it loads.
            setenv("OPENBLAS_NUM_THREADS", "1", 1);
            for (const std::string& variable : environment) {
                putenv(const_cast<char*>(variable.c_str()));
            }
            std::vector<char*> argv;
            for (const std::string& word : command) {
                argv.push_back(const_cast<char*>(word.c_str()));
            }
            argv.push_back(nullptr);
            execvp(argv[0], argv.data()); // the emulator is on the PATH
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        toChild_ = in[1];
        fromChild_ = out[0];
    }
    ~Program()
    {
        Kill();
        close(toChild_);
        close(fromChild_);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // The next line without its end; false when none comes in time or the output has ended.
    bool Line(std::string& line, int waitMs = 20000)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMs);
        for (;;) {
            const size_t newline = pending_.find('\n');
            if (newline != std::string::npos) {
                line = pending_.substr(0, newline);
                pending_.erase(0, newline + 1);
                return true;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                end - std::chrono::steady_clock::now());
            pollfd ready = {fromChild_, POLLIN, 0};
            if (left.count() < 0 || poll(&ready, 1, static_cast<int>(left.count())) != 1) {
                return false;
            }
            char buffer[4096];
            const ssize_t length = read(fromChild_, buffer, sizeof(buffer));
            if (length <= 0) {
                return false;
            }
            pending_.append(buffer, static_cast<size_t>(length));
        }
    }

    // Reads on until a line holds `part`; false when none does in time.
    bool LineWith(const std::string& part, std::string& line, int waitMs = 20000)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMs);
        while (Line(line, waitMs)) {
            if (line.find(part) != std::string::npos) {
                return true;
            }
            if (std::chrono::steady_clock::now() > end) {
                break;
            }
        }
        return false;
    }

    void Say(const std::string& line) const
    {
        const std::string text = line + "\n";
        if (write(toChild_, text.data(), text.size()) < 0) {
            return;
        }
    }

    // Waits for the end by itself. Returns the exit status, or -1 for a signal or no end in time.
    int Wait()
    {
        if (!WaitUntil([this] { return !Runs(); })) {
            return -1;
        }
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    bool Runs() const
    {
        siginfo_t info = {};
        waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT);
        return info.si_pid == 0;
    }

    void Kill()
    {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
    }

    pid_t Pid() const { return pid_; }

private:
    pid_t pid_ = -1;
    int toChild_ = -1;
    int fromChild_ = -1;
    std::string pending_;
};

#endif
