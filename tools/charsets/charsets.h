// Which character sets zbar finds: what a terminal with just these of the C library's modules
// reads.
//
// For each QR code zbar asks the C library's iconv for SJIS, ISO8859-1 and BIG-5, tries them on the
// code's bytes, and goes without one that is missing. A program that links this has iconv_open
// answer for the sets in use alone; the service's code and zbar are unchanged.
#ifndef TOOLS_CHARSETS_H
#define TOOLS_CHARSETS_H

#include <string>

const char CHARSETS_ALL[] = "all";

// What is wrong with a list of character sets, empty when nothing is. A list is "all", "none", or
// some of "sjis", "latin1", "big5" with "," between.
std::string Charsets_Check(const std::string& list);

// From now on iconv_open knows the list's sets, and UTF-8; with "all", what it is without us, every
// name that this machine's C library knows. Returns false, with the reason in `error` and nothing
// changed, when the list is wrong or this machine's C library lacks one of the sets.
bool Charsets_Use(const std::string& list, std::string& error);

// The list in use, in the order above, each set once.
const std::string& Charsets_Used();

#endif
