// What qrcode-inspect prints: a line or JSON object for each picture, the table of all.
#ifndef TOOLS_INSPECT_REPORT_H
#define TOOLS_INSPECT_REPORT_H

#include <string>
#include <vector>

#include "cascade.h"
#include "expected_text.h"
#include "watched_reading.h"

struct InspectedPicture {
    std::string path;
    WatchedReading reading;
    bool truth = false; // compared with `expected`
    ExpectedText expected;
};

// VERDICT_NONE when it was not asked for.
Verdict Report_Verdict(const InspectedPicture& picture);

// True for the expected text, where one is known, otherwise for a text that the service reports.
bool Report_IsWell(const InspectedPicture& picture);

// Heading of the lines, and a picture's line, without line ends. `pathWidth`: characters of the
// first column.
std::string Report_Heading(size_t pathWidth, bool truth);
std::string Report_Line(const InspectedPicture& picture, size_t pathWidth);

// One JSON object on one line:
//   "file"        bytes that are no UTF-8 replaced
//   "fileHex"     the path's exact bytes
//   "outcome"     "read", "too short", "no code", "not decodable", "no picture"
//   "text"        bytes that are no UTF-8 replaced, or null
//   "hex"         the text's exact bytes
//   "bytes"       their number
//   "symbologies" zbar's names, in the order in which their texts are written
//   "attempt"     name of the one that won, or null
//   "opened"      whether it won by the scan after the opening
//   "scans"       number made
//   "ms"          from the JPEG to the result
//   "remark"      why there is no picture, or null
//   "verdict"     with a known expected text: "right", "wrong", "missed", "none as expected"
//   "expected"    that text
std::string Report_Json(const InspectedPicture& picture);

struct InspectTally {
    struct Attempt {
        int read = 0; // reportable or not
        int opened = 0;
        int right = 0;
        int wrong = 0;
    };
    bool truth = false;
    int pictures = 0;
    int outcomes[READING_OUTCOMES] = {}; // by ReadingOutcome
    int verdicts[VERDICT_COUNT] = {};    // by Verdict
    std::vector<Attempt> attempts{static_cast<size_t>(Qrcode_AttemptCount()) + 1}; // by number
    std::vector<double> readMs;
    std::vector<double> unreadMs; // of pictures that were decoded
    bool allWell = true;
};

void Report_Count(InspectTally& tally, const InspectedPicture& picture);

// The table, several lines with their ends.
std::string Report_Table(const InspectTally& tally);

#endif
