// The text that is expected of a picture: the file NAME.txt beside NAME.png.
#ifndef TOOLS_EXPECTED_TEXT_H
#define TOOLS_EXPECTED_TEXT_H

#include <string>

struct ExpectedText {
    bool bKnown = false;   // there is a text file beside the picture
    std::string text;      // its content, without one line end at its end
    bool bLineEnd = false; // it had that line end, which may be the text's own
};

// Reads NAME.txt beside NAME.png.
ExpectedText Expected_Read(const std::string& picture);

// Whether a text that was read is the expected one, with or without that line end.
bool Expected_Is(const ExpectedText& expected, const std::string& text);

// Whether the service sends the text: it has QRCODE_TEXT_REPORT_MIN bytes.
bool Expected_IsReportable(const ExpectedText& expected);

#endif
