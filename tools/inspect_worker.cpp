#include "inspect_worker.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

#include "child_process.h"

static_assert(std::is_trivially_copyable<InspectRecord>::value, "it crosses a pipe");

static const rlim_t BYTES_PER_MB = 1U << 20;

// Bytes of data that this process has now.
static rlim_t DataSize()
{
    std::ifstream statm("/proc/self/statm");
    rlim_t aPages[6] = {}; // size, resident, shared, text, library, data
    for (rlim_t& pages : aPages) {
        statm >> pages;
    }
    return aPages[5] * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

static void LimitMemory()
{
    const rlim_t limit = DataSize() + WORKER_MEMORY_MB * BYTES_PER_MB;
    const struct rlimit data = {limit, limit};
    setrlimit(RLIMIT_DATA, &data);
    const struct rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
}

// In the child. Never returns, by an exception either.
[[noreturn]] static void WorkFrom(size_t nFirst, size_t nCount, int out, pid_t parent,
                                  const std::function<InspectRecord(size_t)>& work) noexcept
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) { // it died before it was being watched
        _exit(EXIT_FAILURE);
    }
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    LimitMemory();
    for (size_t n = nFirst; n < nCount; ++n) {
        const InspectRecord record = work(n);
        const char* pAt = reinterpret_cast<const char*>(&record);
        for (size_t nLeft = sizeof(record); nLeft > 0;) {
            const ssize_t nWritten = write(out, pAt, nLeft);
            if (nWritten < 0) {
                _exit(EXIT_FAILURE);
            }
            pAt += nWritten;
            nLeft -= static_cast<size_t>(nWritten);
        }
    }
    _exit(EXIT_SUCCESS);
}

enum RecordEnd { RECORD_WHOLE, RECORD_BROKEN, RECORD_LATE };

static RecordEnd ReadRecord(int in, int nSeconds, InspectRecord& record)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(nSeconds);
    char* pAt = reinterpret_cast<char*>(&record);
    for (size_t nLeft = sizeof(record); nLeft > 0;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd ready = {in, POLLIN, 0};
        const int nReady = left.count() < 0 ? 0 : poll(&ready, 1, static_cast<int>(left.count()));
        if (nReady == 0) {
            return RECORD_LATE;
        }
        const ssize_t nRead = nReady < 0 ? -1 : read(in, pAt, nLeft);
        if (nRead < 0 && errno == EINTR) {
            continue;
        }
        if (nRead <= 0) {
            return RECORD_BROKEN;
        }
        pAt += nRead;
        nLeft -= static_cast<size_t>(nRead);
    }
    return RECORD_WHOLE;
}

// How a child ended that gave no record.
static std::string DeathOf(pid_t pid, RecordEnd end)
{
    ChildProcess child;
    if (end == RECORD_LATE) {
        kill(pid, SIGKILL);
    }
    waitpid(pid, &child.nStatus, 0);
    return end == RECORD_LATE ? "takes too long" : "its reader " + Child_EndText(child);
}

bool Worker_ForEach(
    size_t nCount, const std::function<InspectRecord(size_t)>& work,
    const std::function<void(size_t, const InspectRecord&, const std::string& death)>& done,
    int nSeconds, std::string& error)
{
    for (size_t n = 0; n < nCount;) {
        std::fflush(stdout);
        int aEnds[2];
        if (pipe2(aEnds, O_CLOEXEC) != 0) {
            error = std::string("no pipe: ") + std::strerror(errno);
            return false;
        }
        const pid_t parent = getpid();
        const pid_t pid = fork();
        if (pid == 0) {
            close(aEnds[0]);
            WorkFrom(n, nCount, aEnds[1], parent, work);
        }
        error = std::string("no process: ") + std::strerror(errno);
        close(aEnds[1]);
        std::string death;
        for (; pid > 0 && n < nCount && death.empty(); ++n) {
            InspectRecord record;
            const RecordEnd end = ReadRecord(aEnds[0], nSeconds, record);
            if (end != RECORD_WHOLE) {
                record = InspectRecord();
                death = DeathOf(pid, end);
            }
            done(n, record, death);
        }
        close(aEnds[0]);
        if (pid < 0) {
            return false;
        }
        if (death.empty()) {
            waitpid(pid, nullptr, 0);
        }
    }
    return true;
}
