// Log entries on real files: form, cut, cap, lock and time. The clock is the test's.
#include "log_write.h"

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <regex>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "files.h"
#include "wait.h"

namespace
{

std::atomic<time_t> now;

// Where two threads wait for each other, once it is opened for them.
struct Meeting {
    std::atomic<int> missing{0};
    void Arrive()
    {
        if (missing > 0) {
            --missing;
            Wait_Until([this] { return missing == 0; });
        }
    }
};
Meeting beforeTheLine; // behind the text
Meeting beforeTheWrite;
std::atomic<int> writes{0};

} // namespace

extern "C" {
ssize_t __real_write(int fd, const void* bytes, size_t size);

time_t __wrap_time(time_t* result)
{
    beforeTheLine.Arrive();
    if (result != nullptr) {
        *result = now;
    }
    return now;
}

ssize_t __wrap_write(int fd, const void* bytes, size_t size)
{
    ++writes;
    beforeTheWrite.Arrive();
    return __real_write(fd, bytes, size);
}
}

namespace
{

class LogWriteTest : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TZ", "UTC0", 1);
        now = 1704164645; // 2024-01-02 03:04:05
    }
    TempFolder folder;
    std::string path = folder / "log.txt";
};

TEST_F(LogWriteTest, EntriesFollowEachOtherWithTheMarkerForALineEndInAFileOfTheOwner)
{
    const int unused = dup(STDOUT_FILENO);
    close(unused);
    EXPECT_EQ(1, API_Log_Write(path.c_str(), "command=0x%04x\n", 0x602));
    EXPECT_EQ(1, API_Log_Write(path.c_str(), "error %s\n", "Success"));
    EXPECT_EQ("[2024-01-02 03:04:05] command=0x0602\n</br>"
              "[2024-01-02 03:04:05] error Success\n</br>",
              ReadAll(path));
    EXPECT_EQ(std::filesystem::perms(0600), std::filesystem::status(path).permissions());
    EXPECT_EQ(-1, fcntl(unused, F_GETFD)) << "a descriptor is kept";
}

TEST_F(LogWriteTest, StampIsEachEntrysLocalTimeAndFollowsAChangedZone)
{
    for (const char* const zone : {"UTC0", "XYZ-14", "ABC+12"}) {
        setenv("TZ", zone, 1);
        API_Log_Write(path.c_str(), "x");
        now += 366 * 86400 + 1; // a leap year and a second
    }
    EXPECT_EQ("[2024-01-02 03:04:05] x</br>[2025-01-02 17:04:06] x</br>"
              "[2026-01-02 15:04:07] x</br>",
              ReadAll(path));
}

TEST_F(LogWriteTest, CutsTheTextAt10239Characters)
{
    for (const size_t length : {size_t{10238}, size_t{10239}, size_t{10240}, size_t{20000}}) {
        std::filesystem::remove(path);
        const std::string text(length, 't');
        EXPECT_EQ(1, API_Log_Write(path.c_str(), "%s", text.c_str()));
        const std::string entry = ReadAll(path);
        EXPECT_EQ(text.substr(0, 10239) + "</br>", entry.substr(22)) << length;
    }
}

TEST_F(LogWriteTest, EmptiesAFileAboveTheCapOnly)
{
    for (const size_t size : {size_t{3145727}, size_t{3145728}, size_t{3145729}}) {
        WriteAll(path, std::string(size, 'o'));
        EXPECT_EQ(1, API_Log_Write(path.c_str(), "new\n"));
        const std::string bytes = ReadAll(path);
        const size_t entry = 22 + 4 + 5;
        EXPECT_EQ(size > 3145728 ? entry : size + entry, bytes.size()) << size;
        EXPECT_EQ("] new\n</br>", bytes.substr(bytes.size() - 11));
    }
}

TEST_F(LogWriteTest, WhatCannotBeOpenedDropsTheEntry)
{
    EXPECT_EQ(0, API_Log_Write((folder / "absent/log.txt").c_str(), "x"));
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
    ASSERT_EQ(0, mkfifo((folder / "fifo").c_str(), 0600)); // nobody reads it
    EXPECT_EQ(0, API_Log_Write((folder / "fifo").c_str(), "x"));
    const int kept = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    EXPECT_EQ(0, API_Log_Write(path.c_str(), "x")) << "descriptor 0 counts as a failure";
    dup2(kept, STDIN_FILENO);
    close(kept);
    EXPECT_EQ("", ReadAll(path));
}

TEST_F(LogWriteTest, EntriesOfTwoThreadsStayWhole)
{
    beforeTheLine.missing = 2;
    beforeTheWrite.missing = 2;
    writes = 0;
    std::thread other([this] { API_Log_Write(path.c_str(), "other"); });
    API_Log_Write(path.c_str(), "first");
    other.join();
    const std::string first = "[2024-01-02 03:04:05] first</br>";
    const std::string second = "[2024-01-02 03:04:05] other</br>";
    const std::string bytes = ReadAll(path);
    EXPECT_TRUE(bytes == first + second || bytes == second + first) << bytes;
    EXPECT_EQ(2, writes) << "one for an entry";
}

TEST_F(LogWriteTest, WaitsForTheFirstByteBeforeItLooksAtSizeAndTime)
{
    WriteAll(path, std::string(3145728, 'o')); // just kept
    const int holder = open(path.c_str(), O_WRONLY | O_APPEND);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_len = 1;
    ASSERT_EQ(0, fcntl(holder, F_OFD_SETLK, &lock)); // holds off this process, too
    std::thread writer([this] { API_Log_Write(path.c_str(), "waited"); });
    // Until the kernel lists a waiter for byte 0 of the file, and for no other.
    struct stat info;
    fstat(holder, &info);
    const std::regex waiter("-> POSIX +ADVISORY +WRITE .*:" + std::to_string(info.st_ino) + " 0 0");
    EXPECT_TRUE(Wait_Until([&] { return std::regex_search(ReadAll("/proc/locks"), waiter); }));
    EXPECT_EQ(1, write(holder, "o", 1)); // one byte too many
    ++now;
    close(holder);
    writer.join();
    EXPECT_EQ("[2024-01-02 03:04:06] waited</br>", ReadAll(path));
}

} // namespace
