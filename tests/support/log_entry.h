// For stand-ins of the log writer: the text of an entry.
#ifndef TESTS_LOG_ENTRY_H
#define TESTS_LOG_ENTRY_H

#include <cstdarg>
#include <cstdio>
#include <string>

inline std::string EntryText(const char* format, va_list args)
{
    char text[200];
    std::vsnprintf(text, sizeof(text), format, args);
    return text;
}

#endif
