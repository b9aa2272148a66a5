#include "inspect_worker.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "memory_limit.h"
#include "program.h"
#include "wait.h"

namespace
{

// What the children do; one of several takes every `step`th number.
struct Task {
    size_t count;
    size_t step;
    size_t recordBytes;
    const std::function<void(size_t, void*)>& work;
};

struct Child {
    pid_t pid = -1;
    int in = -1; // its records
};

// In the child. Never returns, by an exception either.
[[noreturn]] void WorkFrom(size_t first, const Task& task, int out, pid_t parent) noexcept
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) { // it died before it was being watched
        _exit(EXIT_FAILURE);
    }
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    const MemoryLimit limit(WORKER_MEMORY_MB);
    const struct rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    std::vector<char> record(task.recordBytes);
    for (size_t n = first; n < task.count; n += task.step) {
        task.work(n, record.data());
        const char* at = record.data();
        for (size_t bytesLeft = task.recordBytes; bytesLeft > 0;) {
            const ssize_t written = write(out, at, bytesLeft);
            if (written < 0) {
                _exit(EXIT_FAILURE);
            }
            at += written;
            bytesLeft -= static_cast<size_t>(written);
        }
    }
    _exit(EXIT_SUCCESS);
}

// Starts a child at its next number. Returns false with the reason.
bool StartChild(size_t first, const Task& task, Child& child, std::string& error)
{
    std::fflush(stdout);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        error = std::string("no pipe: ") + std::strerror(errno);
        return false;
    }
    const pid_t parent = getpid();
    child.pid = fork();
    if (child.pid == 0) {
        close(ends[0]);
        WorkFrom(first, task, ends[1], parent);
    }
    error = std::string("no process: ") + std::strerror(errno);
    close(ends[1]);
    child.in = ends[0];
    return child.pid > 0;
}

// Waits for the end of a child that has done its numbers; with `kills` it need not have.
void EndChild(Child& child, bool kills)
{
    if (child.in >= 0) {
        close(child.in);
    }
    if (child.pid > 0) {
        if (kills) {
            kill(child.pid, SIGKILL);
        }
        waitpid(child.pid, nullptr, 0);
    }
    child = Child();
}

enum RecordEnd { RECORD_WHOLE, RECORD_BROKEN, RECORD_LATE };

RecordEnd ReadRecord(int in, int seconds, char* at, size_t bytesLeft)
{
    const Deadline deadline(seconds * 1000);
    while (bytesLeft > 0) {
        pollfd ready = {in, POLLIN, 0};
        const int readyCount = poll(&ready, 1, deadline.LeftMs());
        if (readyCount == 0) {
            return RECORD_LATE;
        }
        const ssize_t got = readyCount < 0 ? -1 : read(in, at, bytesLeft);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return RECORD_BROKEN;
        }
        at += got;
        bytesLeft -= static_cast<size_t>(got);
    }
    return RECORD_WHOLE;
}

// Says how a child ended that gave no record, after its end.
std::string DeathOf(Child& child, RecordEnd end)
{
    int status = 0;
    if (end == RECORD_LATE) {
        kill(child.pid, SIGKILL);
    }
    waitpid(child.pid, &status, 0);
    child.pid = -1;
    EndChild(child, false);
    return end == RECORD_LATE ? "takes too long" : "its reader " + Program_EndText(status);
}

} // namespace

bool Worker_ForEachBytes(
    size_t count, size_t recordBytes, const std::function<void(size_t, void* record)>& work,
    const std::function<void(size_t, const void* record, const std::string& death)>& done,
    int seconds, size_t children, std::string& error)
{
    const Task task = {count, children, recordBytes, work};
    std::vector<Child> all(children);
    std::vector<char> record(recordBytes);
    bool started = true;
    for (size_t n = 0; n < std::min(count, children) && started; ++n) {
        started = StartChild(n, task, all[n], error);
    }
    for (size_t n = 0; n < count && started; ++n) {
        Child& child = all[n % children];
        const RecordEnd end = ReadRecord(child.in, seconds, record.data(), recordBytes);
        if (end == RECORD_WHOLE) {
            done(n, record.data(), "");
            continue;
        }
        done(n, nullptr, DeathOf(child, end));
        started = n + children >= count || StartChild(n + children, task, child, error);
    }
    for (Child& child : all) {
        EndChild(child, !started);
    }
    return started;
}
