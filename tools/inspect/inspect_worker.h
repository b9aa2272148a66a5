// Work on untrusted files in child processes with limited memory and time: a decoder that crashes,
// grows or hangs on one file does not affect the others.
#ifndef TOOLS_INSPECT_WORKER_H
#define TOOLS_INSPECT_WORKER_H

#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>

enum {
    WORKER_MEMORY_MB = 400, // beyond what the child begins with
    WORKER_SECONDS = 60     // for one file
};

// As Worker_ForEach, for records of `recordBytes`. `done` gets no record (nullptr) after a death.
bool Worker_ForEachBytes(
    size_t count, size_t recordBytes, const std::function<void(size_t, void* record)>& work,
    const std::function<void(size_t, const void* record, const std::string& death)>& done,
    int seconds, size_t children, std::string& error);

// Calls `work` for each number below `count` in a child, and `done` with each record in this
// process, in order. Of several children each takes every second, third, ... number. `death` is
// empty; or it says how the child ended at this number, the record is then empty, and a new child
// takes the rest of its numbers. A record that is waited for longer than `seconds` ends its child.
// The children's standard error is discarded: libraries print on it for every broken file. Returns
// false, with the reason in `error`, when a child cannot be started.
template <typename Record>
bool Worker_ForEach(
    size_t count, const std::function<Record(size_t)>& work,
    const std::function<void(size_t, const Record&, const std::string& death)>& done, int seconds,
    std::string& error, size_t children = 1)
{
    static_assert(std::is_trivially_copyable<Record>::value, "it crosses a pipe");
    return Worker_ForEachBytes(
        count, sizeof(Record),
        [&work](size_t n, void* bytes) {
            const Record record = work(n);
            std::memcpy(bytes, &record, sizeof(record));
        },
        [&done](size_t n, const void* bytes, const std::string& death) {
            Record record;
            if (bytes != nullptr) {
                std::memcpy(&record, bytes, sizeof(record));
            }
            done(n, record, death);
        },
        seconds, children, error);
}

#endif
