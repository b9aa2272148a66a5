// Work on untrusted files, one after the other, in a child process with limited memory and time: a
// decoder that crashes, grows or hangs on one file does not affect the others.
#ifndef TOOLS_INSPECT_WORKER_H
#define TOOLS_INSPECT_WORKER_H

#include <cstddef>
#include <functional>
#include <string>

#include "likely_causes.h"
#include "watched_reading.h"

enum {
    WORKER_MEMORY_MB = 400, // beyond what the child begins with
    WORKER_SECONDS = 60     // for one file
};

// Flat: crosses a pipe.
struct InspectRecord {
    WatchedReading reading;
    LikelyCauses causes; // why there is no text, where they were looked for
    bool sheetFailed = false;
    char sheetError[READING_NOTE_SIZE] = {};
};

// Calls `work` for each number below `count`, in order, in the child, and `done` with each record
// in this process. `death` is empty; or it says how the child ended at this number, the record is
// then empty, and the next number gets a new child. A number that takes longer than `seconds` ends
// the child. The child's standard error is discarded: libraries print on it for every broken file.
// Returns false, with the reason in `error`, when a child cannot be started.
bool Worker_ForEach(
    size_t count, const std::function<InspectRecord(size_t)>& work,
    const std::function<void(size_t, const InspectRecord&, const std::string& death)>& done,
    int seconds, std::string& error);

#endif
