// Foreign text on a terminal, in a log or in a table.
#ifndef SIM_TEXT_H
#define SIM_TEXT_H

#include <string>

// The text on one line and without effect on a terminal: well-formed UTF-8 stays; control
// characters and bytes that are no UTF-8 become \n, \r, \t or \xNN; \ and " get a \ before them.
std::string Text_Escape(const std::string& text);

// The escaped text in quotation marks; of a long one the beginning, and its length in bytes.
std::string Text_Shown(const std::string& text);

// Two lower-case hexadecimal digits for each byte.
std::string Text_Hex(const std::string& bytes);

// Characters of the text; a byte that is no UTF-8 counts as one.
size_t Text_Characters(const std::string& text);

// The text with blanks behind it, for a column of so many characters; a longer one as it is.
std::string Text_Padded(const std::string& text, size_t characters);

// The same, but a longer text is cut in the middle, with "..." there, to exactly so many (5 at
// least).
std::string Text_Fitted(const std::string& text, size_t characters);

#endif
