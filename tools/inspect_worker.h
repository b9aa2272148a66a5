// Work on foreign files, one after the other, in a child process with limited memory and time: a
// decoder that breaks, grows or hangs on one of them takes nothing else along.
#ifndef TOOLS_INSPECT_WORKER_H
#define TOOLS_INSPECT_WORKER_H

#include <cstddef>
#include <functional>
#include <string>

#include "watched_reading.h"

enum {
    WORKER_MEMORY_MB = 400, // beyond what the child begins with
    WORKER_SECONDS = 60     // for one file
};

// Flat: crosses a pipe.
struct InspectRecord {
    WatchedReading reading;
    bool bSheetFailed = false;
    char szSheetError[READING_NOTE_SIZE] = {};
};

// Does `work` for each number below `nCount`, in order, in the child, whose standard error goes
// nowhere (libraries tell it about every broken file), and hands each record to `done` in this
// process. `death` is empty, or how the child ended at this number, and the record then an empty
// one; the next number gets a new child. A number that takes longer than `nSeconds` ends the child.
// Returns false, with the reason in `error`, when there can be no child.
bool Worker_ForEach(
    size_t nCount, const std::function<InspectRecord(size_t)>& work,
    const std::function<void(size_t, const InspectRecord&, const std::string& death)>& done,
    int nSeconds, std::string& error);

#endif
