// Lines out of a non-blocking descriptor.
#ifndef TOOLS_LINE_READER_H
#define TOOLS_LINE_READER_H

#include <string>
#include <vector>

enum { LINE_READER_MAX = 65536 }; // bytes: a longer line comes in pieces

struct LineReader {
    int fd = -1;      // not owned; -1 for nothing to read, also once its end was seen
    std::string rest; // of a line whose end has not come
};

// Takes all that is there and returns the lines that are complete, without their ends. At the end
// of the input an incomplete last line counts.
std::vector<std::string> Line_Take(LineReader& reader);

#endif
