// Which version of a file it is.
#ifndef SIM_FILE_STAMP_H
#define SIM_FILE_STAMP_H

#include <array>
#include <cstdint>
#include <string>
#include <sys/stat.h>

// When it was modified, in ns, its bytes, and its number: two may be renamed there within one tick
// of the file system's clock.
using FileStamp = std::array<int64_t, 3>;
const FileStamp NO_FILE = {-1, -1, -1};

// NO_FILE for what is not there or no regular file.
inline FileStamp File_Stamp(const std::string& path)
{
    struct stat info;
    if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return NO_FILE;
    }
    return {int64_t{info.st_mtim.tv_sec} * 1000000000 + info.st_mtim.tv_nsec, info.st_size,
            static_cast<int64_t>(info.st_ino)};
}

#endif
