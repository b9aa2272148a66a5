#include "inspect_worker.h"

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
#include <type_traits>
#include <unistd.h>

#include "memory_limit.h"
#include "program.h"
#include "wait.h"

namespace
{

// In the child. Never returns, by an exception either.
[[noreturn]] void WorkFrom(size_t first, size_t count, int out, pid_t parent,
                           const std::function<InspectRecord(size_t)>& work) noexcept
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) { // it died before it was being watched
        _exit(EXIT_FAILURE);
    }
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    const MemoryLimit limit(WORKER_MEMORY_MB);
    const struct rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    for (size_t n = first; n < count; ++n) {
        const InspectRecord record = work(n);
        const char* at = reinterpret_cast<const char*>(&record);
        for (size_t bytesLeft = sizeof(record); bytesLeft > 0;) {
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

enum RecordEnd { RECORD_WHOLE, RECORD_BROKEN, RECORD_LATE };

RecordEnd ReadRecord(int in, int seconds, InspectRecord& record)
{
    const Deadline deadline(seconds * 1000);
    char* at = reinterpret_cast<char*>(&record);
    for (size_t bytesLeft = sizeof(record); bytesLeft > 0;) {
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

// How a child ended that gave no record.
std::string DeathOf(pid_t pid, RecordEnd end)
{
    int status = 0;
    if (end == RECORD_LATE) {
        kill(pid, SIGKILL);
    }
    waitpid(pid, &status, 0);
    return end == RECORD_LATE ? "takes too long" : "its reader " + Program_EndText(status);
}

} // namespace

static_assert(std::is_trivially_copyable<InspectRecord>::value, "it crosses a pipe");

bool Worker_ForEach(
    size_t count, const std::function<InspectRecord(size_t)>& work,
    const std::function<void(size_t, const InspectRecord&, const std::string& death)>& done,
    int seconds, std::string& error)
{
    for (size_t n = 0; n < count;) {
        std::fflush(stdout);
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            error = std::string("no pipe: ") + std::strerror(errno);
            return false;
        }
        const pid_t parent = getpid();
        const pid_t pid = fork();
        if (pid == 0) {
            close(ends[0]);
            WorkFrom(n, count, ends[1], parent, work);
        }
        error = std::string("no process: ") + std::strerror(errno);
        close(ends[1]);
        std::string death;
        for (; pid > 0 && n < count && death.empty(); ++n) {
            InspectRecord record;
            const RecordEnd end = ReadRecord(ends[0], seconds, record);
            if (end != RECORD_WHOLE) {
                record = InspectRecord();
                death = DeathOf(pid, end);
            }
            done(n, record, death);
        }
        close(ends[0]);
        if (pid < 0) {
            return false;
        }
        if (death.empty()) {
            waitpid(pid, nullptr, 0);
        }
    }
    return true;
}
