// The text that is expected of a picture, the file NAME.txt beside NAME.png, and the judgement of
// what was read against it.
#ifndef SIM_EXPECTED_TEXT_H
#define SIM_EXPECTED_TEXT_H

#include <string>

struct ExpectedText {
    bool known = false;   // there is a text file beside the picture
    std::string text;     // its content, without one line end at its end
    bool lineEnd = false; // it had that line end, which may be the text's own
};

// Reads NAME.txt beside NAME.png.
ExpectedText Expected_Read(const std::string& picture);

// True when the text is known and the service sends it: it has QRCODE_TEXT_REPORT_MIN bytes.
bool Expected_IsReportable(const ExpectedText& expected);

enum Verdict {
    VERDICT_NONE,             // no text file
    VERDICT_RIGHT,            // byte for byte, with or without the line end
    VERDICT_WRONG,            // another text, or one where none is expected
    VERDICT_MISSED,           // none, where one is expected
    VERDICT_NONE_AS_EXPECTED, // none, as expected
    VERDICT_COUNT
};

// Judges what was read: `text`, or nothing when `read` is false.
Verdict Expected_Judge(const ExpectedText& expected, bool read, const std::string& text);

// The same for what the main application was sent: a text that is too short is expected to be kept
// back.
Verdict Expected_JudgeReport(const ExpectedText& expected, bool reported, const std::string& text);

#endif
