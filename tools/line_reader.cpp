#include "line_reader.h"

#include <cerrno>
#include <unistd.h>

// Returns false when there is nothing more for now; at the end of the input `fd` becomes -1.
static bool ReadSome(LineReader& reader)
{
    char aBytes[4096];
    const ssize_t nRead = read(reader.fd, aBytes, sizeof(aBytes));
    if (nRead > 0) {
        reader.rest.append(aBytes, static_cast<size_t>(nRead));
        return true;
    }
    if (nRead < 0 && (errno == EAGAIN || errno == EINTR)) {
        return false;
    }
    reader.fd = -1;
    return false;
}

std::vector<std::string> Line_Take(LineReader& reader)
{
    std::vector<std::string> lines;
    if (reader.fd < 0) {
        return lines;
    }
    bool bMore = true;
    while (bMore) {
        bMore = ReadSome(reader);
        size_t begin = 0;
        size_t end = 0;
        while ((end = reader.rest.find('\n', begin)) != std::string::npos) {
            lines.push_back(reader.rest.substr(begin, end - begin));
            begin = end + 1;
        }
        reader.rest.erase(0, begin);
        const bool bEnded = reader.fd < 0 && !reader.rest.empty();
        if (bEnded || reader.rest.size() > LINE_READER_MAX) {
            lines.push_back(reader.rest);
            reader.rest.clear();
        }
    }
    return lines;
}
