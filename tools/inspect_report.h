// What qrcode-inspect prints: a line or JSON object for each picture, the table of all.
#ifndef TOOLS_INSPECT_REPORT_H
#define TOOLS_INSPECT_REPORT_H

#include <string>
#include <vector>

#include "cascade.h"
#include "expected_text.h"
#include "watched_reading.h"

// What the expected text says of a picture's text.
enum InspectVerdict {
    VERDICT_NONE,    // no text is expected or known, and none came, or it was not asked
    VERDICT_RIGHT,   // byte for byte
    VERDICT_WRONG,   // another, or one where none is expected
    VERDICT_MISSED,  // none, where one is expected
    VERDICT_AS_EMPTY // none, as expected
};

struct InspectedPicture {
    std::string path;
    WatchedReading reading;
    bool bTruth = false; // compared with `expected`
    ExpectedText expected;
};

InspectVerdict Report_Verdict(const InspectedPicture& picture);

// Whether it counts as it should be: the expected text, where one is known; else a text that the
// service reports.
bool Report_IsWell(const InspectedPicture& picture);

// Heading of the lines, and a picture's line, without line ends. `nPathWidth`: characters of the
// first column.
std::string Report_Heading(size_t nPathWidth, bool bTruth);
std::string Report_Line(const InspectedPicture& picture, size_t nPathWidth);

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
        int nRead = 0; // reportable or not
        int nOpened = 0;
        int nRight = 0;
        int nWrong = 0;
    };
    bool bTruth = false;
    int nPictures = 0;
    int nRead = 0;
    int nShort = 0;
    int nNotDecodable = 0;
    int nNoPicture = 0;
    int nRight = 0;
    int nWrong = 0;
    int nMissed = 0;
    int nAsEmpty = 0;
    int nUnknown = 0;                     // without an expected text
    Attempt aAttempts[ATTEMPT_COUNT + 1]; // by the attempt's number
    std::vector<double> readMs;
    std::vector<double> unreadMs; // of pictures that were decoded
    bool bAllWell = true;
};

void Report_Count(InspectTally& tally, const InspectedPicture& picture);

// The table, several lines with their ends.
std::string Report_Table(const InspectTally& tally);

#endif
