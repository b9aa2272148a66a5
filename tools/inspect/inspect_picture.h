// One picture's reading, and why nothing is read. For a worker: it is an untrusted file.
#ifndef TOOLS_INSPECT_PICTURE_H
#define TOOLS_INSPECT_PICTURE_H

#include <opencv2/core/mat.hpp>
#include <string>

#include "likely_causes.h"
#include "watched_reading.h"

// Flat: crosses a pipe.
struct InspectRecord {
    WatchedReading reading;
    LikelyCauses causes; // why there is no text, where they were looked for
    bool sheetFailed = false;
    char sheetError[READING_NOTE_SIZE] = {};
};

// A reading of the wall beforehand: later times are those of a service that has been running.
void Inspect_WarmUp();

// Reads a picture that the simulated camera looks at, or, with `snapshot`, the file of a saved
// snapshot. `grey` receives the picture that every attempt starts from; it is empty when there is
// none.
InspectRecord Inspect_Picture(const std::string& path, bool snapshot, cv::Mat& grey);

#endif
