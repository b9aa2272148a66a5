// A limit to what this process may take in memory, for work on files of others.
#ifndef SIM_MEMORY_LIMIT_H
#define SIM_MEMORY_LIMIT_H

#include <sys/resource.h>

// While it lives the process gets at most `moreMb` MiB beyond what it has at the beginning;
// allocations beyond that fail. Limits may lie within one another: the lowest holds.
class MemoryLimit
{
public:
    explicit MemoryLimit(int moreMb);
    ~MemoryLimit();
    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;

private:
    struct rlimit before_ = {RLIM_INFINITY, RLIM_INFINITY};
};

#endif
