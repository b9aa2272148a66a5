// Foreign text on a terminal, in a log or in a table.
#ifndef SIM_TEXT_H
#define SIM_TEXT_H

#include <string>

// The text on one line and without effect on a terminal: well-formed UTF-8 stays; control
// characters, those that turn the direction of writing or are invisible, and bytes that are no
// UTF-8 become \n, \r, \t or \xNN; \ and " get a \ before them.
std::string Text_Escape(const std::string& text);

// The escaped text in quotation marks; of a long one the beginning, and its length in bytes.
std::string Text_Shown(const std::string& text);

// Two lower-case hexadecimal digits for each byte.
std::string Text_Hex(const std::string& bytes);

// Its code points; U+FFFD for a byte that is no UTF-8.
std::u32string Text_CodePoints(const std::string& text);

// Columns that the text takes on a terminal: two for a Chinese character, none for a combining one.
size_t Text_Columns(const std::string& text);

// The text with blanks behind it, for a column of the table so wide; a longer one as it is.
std::string Text_Padded(const std::string& text, size_t columns);

// Exactly so many columns: a longer text keeps its beginning and its end, with "..." between.
std::string Text_Fitted(const std::string& text, size_t columns);

// As printf makes it; at most TEXT_FORMAT_MAX bytes, what is longer is cut.
enum { TEXT_FORMAT_MAX = 1023 };
__attribute__((format(printf, 1, 2))) std::string Text_Format(const char* format, ...);

// Whether the output may have colours and move the cursor: it is a terminal other than "dumb", and
// NO_COLOR is not set.
bool Text_MayEscape(int fd);

#endif
