// Foreign text in the columns of a terminal.
#ifndef TOOLS_SHOWN_TEXT_H
#define TOOLS_SHOWN_TEXT_H

#include <string>

// The text in quotation marks, on one line and without effect on a terminal; of a long one the
// beginning, and its length in bytes.
std::string Text_Shown(const std::string& text);

// Characters of well-formed UTF-8.
size_t Text_Characters(const std::string& text);

// The text with blanks behind it, for a column of so many characters; a longer one as it is.
std::string Text_Padded(const std::string& text, size_t nCharacters);

#endif
