// What qrcode-inspect prints: a line or JSON object for each picture, the table of all.
#ifndef TOOLS_INSPECT_REPORT_H
#define TOOLS_INSPECT_REPORT_H

#include <string>
#include <vector>

#include "cascade.h"
#include "expected_text.h"
#include "likely_causes.h"
#include "watched_reading.h"

struct InspectedPicture {
    std::string path;
    WatchedReading reading;
    LikelyCauses causes;
    bool truth = false; // compared with `expected`
    ExpectedText expected;
};

// VERDICT_NONE when it was not asked for.
Verdict Report_Verdict(const InspectedPicture& picture);

// True for the expected text, where one is known, otherwise for a code's text that the service
// reports as it is.
bool Report_IsWell(const InspectedPicture& picture);

// How good an outcome is, and its colour: green, amber, red.
enum ReportGrade { GRADE_TOLD, GRADE_TOLD_OTHERWISE, GRADE_NOTHING };

// What the main application gets: exactly the text of the code; another text, or nothing though a
// code was found; nothing.
ReportGrade Report_Grade(const WatchedReading& reading);

// Why it does not get exactly the text, empty when it does.
std::string Report_Remark(const WatchedReading& reading);

// What else is to be said of it, one line each: the texts of several codes, the likely causes.
std::vector<std::string> Report_Details(const WatchedReading& reading, const LikelyCauses& causes);

// Heading of the lines, and a picture's line with remark and details below it, without the last
// line end. `pathWidth`: columns of the first column, which longer paths are shortened to.
std::string Report_Heading(size_t pathWidth, bool truth);
std::string Report_Line(const InspectedPicture& picture, size_t pathWidth, bool coloured);

// One JSON object on one line:
//   "file"        bytes that are no UTF-8 replaced
//   "fileHex"     the path's exact bytes
//   "charsets"    the character sets that the C library had, a list as in charsets.h
//   "outcome"     "read": the text is reported exactly; "altered": not as one code's whole text,
//                 "remark" says why; "too short": none is; "no code"; "not decodable"; "no picture"
//   "text"        bytes that are no UTF-8 replaced, or null
//   "hex"         the text's exact bytes
//   "bytes"       their number
//   "symbologies" zbar's names, in the order in which their texts are written
//   "attempt"     name of the one that won, or null
//   "opened"      whether it won by the scan after the opening
//   "scans"       number made
//   "ms"          from the JPEG to the result
//   "remark"      why there is no picture, or no text, or another one; or null
//   "texts"       of all codes found, in the order of their writing: "symbology", "text", "hex" and
//                 "bytes" of each; of a text the first 1024 bytes, of more than 8 texts the last
//   "causes"      of "no code", the likeliest first: "cause", its measured "value" and "unit",
//                 "sentence", and "more", the place that tells more
//   "located"     of "no code": where one seems to be: "shape" ("QR" or "bars"), "modulePixels",
//                 "outline" (four x, y in the 400 x 400 pixels of the sheet's first tile); or null
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
