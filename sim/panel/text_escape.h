// Foreign text on a terminal or in a log.
#ifndef SIM_TEXT_ESCAPE_H
#define SIM_TEXT_ESCAPE_H

#include <string>

// The text on one line and without effect on a terminal: well-formed UTF-8 stays; control
// characters and bytes that are no UTF-8 become \n, \r, \t or \xNN; \ and " get a \ before them.
std::string Panel_EscapeText(const std::string& text);

// Bytes of the UTF-8 character that begins at `at`, 1..4; 0 when there is none that is well formed.
size_t Panel_Utf8Length(const std::string& text, size_t at);

// Two lower-case hexadecimal digits for each byte.
std::string Panel_HexText(const std::string& bytes);

#endif
