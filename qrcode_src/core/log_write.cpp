#include "log_write.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

// Stands in place of a line end, on purpose.
static const char LOG_ENTRY_END[] = "</br>";

// Room for "[...] " with every number at its widest.
enum { LOG_STAMP_MAX = 80 };

static void LockFirstByte(int fd, short nType)
{
    struct flock lock;
    std::memset(&lock, 0, sizeof(lock));
    lock.l_type = nType;
    lock.l_whence = SEEK_SET;
    lock.l_start = 0;
    lock.l_len = 1;
    fcntl(fd, F_SETLKW, &lock);
}

static void EmptyIfTooLarge(int fd)
{
    const off_t size = lseek(fd, 0, SEEK_END);
    if (size > LOG_MAX_FILE_SIZE) {
        const int nRet = ftruncate(fd, 0);
        static_cast<void>(nRet);
        lseek(fd, 0, SEEK_SET);
    }
}

enum { LOG_OPEN_FLAGS = O_WRONLY | O_CREAT | O_NOCTTY | O_APPEND | O_NONBLOCK };
#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(LOG_OPEN_FLAGS == 0xD41, "LOG_OPEN_FLAGS must be the word 0xD41 on the device");
#endif

int API_Log_Write(const char* path, const char* format, ...)
{
    const int fd = open(path, LOG_OPEN_FLAGS, 0600);
    if (fd < 1) { // descriptor 0 counts as a failure, as everywhere in the service
        return 0;
    }
    LockFirstByte(fd, F_WRLCK);
    EmptyIfTooLarge(fd);

    char szText[LOG_LINE_BUF_SIZE] = {0};
    char szLine[LOG_STAMP_MAX + LOG_LINE_BUF_SIZE + sizeof(LOG_ENTRY_END)] = {0};
    va_list args;
    va_start(args, format);
    std::vsnprintf(szText, sizeof(szText), format, args);
    va_end(args);

    const time_t now = time(nullptr);
    struct tm local;
    std::memset(&local, 0, sizeof(local));
    tzset(); // localtime_r alone need not notice that the terminal's zone was changed
    localtime_r(&now, &local);
    std::snprintf(szLine, sizeof(szLine), "[%04d-%02d-%02d %02d:%02d:%02d] %s%s",
                  local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                  local.tm_min, local.tm_sec, szText, LOG_ENTRY_END);

    const ssize_t nWritten = write(fd, szLine, std::strlen(szLine));
    static_cast<void>(nWritten); // a short or failed write is not completed
    LockFirstByte(fd, F_UNLCK);
    close(fd);
    return 1;
}
