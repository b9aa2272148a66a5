// Stands in for the log writer in the program of the one file that includes it.
#ifndef TESTS_LOG_STAND_IN_H
#define TESTS_LOG_STAND_IN_H

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "log_write.h"

std::vector<std::string> logged; // path and text of each entry, "|" between

int API_Log_Write(const char* path, const char* format, ...)
{
    char text[200];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    logged.push_back(std::string(path) + "|" + text);
    return 1;
}

#endif
