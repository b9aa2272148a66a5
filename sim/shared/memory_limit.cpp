#include "memory_limit.h"

#include <algorithm>
#include <fstream>
#include <unistd.h>

namespace
{

const rlim_t BYTES_PER_MB = 1U << 20;

// Bytes of data that this process has now.
rlim_t DataSize()
{
    std::ifstream statm("/proc/self/statm");
    rlim_t all[6] = {}; // size, resident, shared, text, library, data
    for (rlim_t& pages : all) {
        statm >> pages;
    }
    return all[5] * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

} // namespace

MemoryLimit::MemoryLimit(int moreMb)
{
    getrlimit(RLIMIT_DATA, &before_);
    struct rlimit limit = before_;
    limit.rlim_cur =
        std::min(before_.rlim_cur, DataSize() + static_cast<rlim_t>(moreMb) * BYTES_PER_MB);
    setrlimit(RLIMIT_DATA, &limit);
}

MemoryLimit::~MemoryLimit()
{
    setrlimit(RLIMIT_DATA, &before_);
}
