// Log entries on real files: form, cut, cap, lock and time zone.
#include "log_write.h"

#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <regex>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "files.h"
#include "wait.h"

namespace
{

const char STAMP[] = R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\] )";

class LogWriteTest : public testing::Test
{
protected:
    TempFolder folder;
    std::string path = folder / "log.txt";
};

TEST_F(LogWriteTest, EntriesFollowEachOtherWithTheMarkerForALineEnd)
{
    EXPECT_EQ(1, API_Log_Write(path.c_str(), "command=0x%04x\n", 0x602));
    EXPECT_EQ(1, API_Log_Write(path.c_str(), "error %s\n", "Success"));
    const std::regex form(std::string(STAMP) + "command=0x0602\n</br>" + STAMP +
                          "error Success\n</br>");
    EXPECT_TRUE(std::regex_match(ReadAll(path), form)) << ReadAll(path);
}

TEST_F(LogWriteTest, NewFileIsTheOwnersAlone)
{
    API_Log_Write(path.c_str(), "x");
    struct stat info;
    ASSERT_EQ(0, stat(path.c_str(), &info));
    EXPECT_EQ(0600U, info.st_mode & 0777U);
}

TEST_F(LogWriteTest, StampIsLocalTimeAndFollowsAChangedZone)
{
    for (const char* const zone : {"UTC0", "XYZ-14", "ABC+12"}) {
        setenv("TZ", zone, 1);
        std::filesystem::remove(path);
        const time_t before = time(nullptr);
        API_Log_Write(path.c_str(), "x");
        const time_t after = time(nullptr);
        struct tm stamp = {};
        ASSERT_NE(nullptr, strptime(ReadAll(path).c_str(), "[%Y-%m-%d %H:%M:%S] x</br>", &stamp));
        stamp.tm_isdst = -1;
        const time_t written = mktime(&stamp);
        EXPECT_LE(before, written) << zone;
        EXPECT_GE(after, written) << zone;
    }
    unsetenv("TZ");
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

TEST_F(LogWriteTest, MissingFolderDropsTheEntry)
{
    EXPECT_EQ(0, API_Log_Write((folder / "absent/log.txt").c_str(), "x"));
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
}

TEST_F(LogWriteTest, NeverWaitsForAReader)
{
    ASSERT_EQ(0, mkfifo(path.c_str(), 0600)); // nobody reads it
    EXPECT_EQ(0, API_Log_Write(path.c_str(), "x"));
}

TEST_F(LogWriteTest, EntriesOfTwoThreadsStayWhole)
{
    const int entries = 2000;
    const auto writeAll = [this](const char* text) {
        for (int i = 0; i < entries; ++i) {
            API_Log_Write(path.c_str(), "%s\n", text);
        }
    };
    std::thread other(writeAll, "from the other thread");
    writeAll("from this one");
    other.join();
    const std::string bytes = ReadAll(path);
    EXPECT_EQ(entries * (22 + 21 + 1 + 5 + 22 + 13 + 1 + 5), static_cast<int>(bytes.size()));
    const std::regex form(std::string(STAMP) + "from (the other thread|this one)\n</br>");
    const std::sregex_iterator found(bytes.begin(), bytes.end(), form);
    EXPECT_EQ(2 * entries, std::distance(found, std::sregex_iterator()));
}

TEST_F(LogWriteTest, DescriptorZeroCountsAsAFailure)
{
    const int kept = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    EXPECT_EQ(0, API_Log_Write(path.c_str(), "x"));
    dup2(kept, STDIN_FILENO);
    close(kept);
    EXPECT_EQ("", ReadAll(path));
}

TEST_F(LogWriteTest, KeepsNoDescriptor)
{
    const int before = dup(STDOUT_FILENO);
    close(before);
    API_Log_Write(path.c_str(), "x");
    const int after = dup(STDOUT_FILENO);
    close(after);
    EXPECT_EQ(before, after);
}

TEST_F(LogWriteTest, WaitsForAnotherProcessThatHoldsTheFirstByte)
{
    WriteAll(path, "");
    int toChild[2];
    int toParent[2];
    ASSERT_EQ(0, pipe(toChild));
    ASSERT_EQ(0, pipe(toParent));
    const pid_t child = fork();
    if (child == 0) { // holds byte 0 until told, then adds a line and leaves
        const int fd = open(path.c_str(), O_WRONLY | O_APPEND);
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_len = 1;
        fcntl(fd, F_SETLKW, &lock);
        char go = 'l';
        bool done = write(toParent[1], &go, 1) == 1 && read(toChild[0], &go, 1) == 1;
        // The writer is blocked (or about to be); whatever it wrote by now is there already.
        done = done && write(fd, "child|", 6) == 6;
        _exit(done ? 0 : 1);
    }
    char go = 0;
    ASSERT_EQ(1, read(toParent[0], &go, 1));
    std::thread writer([this] { API_Log_Write(path.c_str(), "waited"); });
    // Until the kernel lists a waiter for byte 0 of the file, and for no other.
    struct stat info;
    ASSERT_EQ(0, stat(path.c_str(), &info));
    const std::regex waiter("-> POSIX +ADVISORY +WRITE .*:" + std::to_string(info.st_ino) + " 0 0");
    EXPECT_TRUE(WaitUntil([&] { return std::regex_search(ReadAll("/proc/locks"), waiter); }));
    EXPECT_EQ("", ReadAll(path));
    ASSERT_EQ(1, write(toChild[1], &go, 1));
    writer.join();
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    EXPECT_TRUE(std::regex_match(ReadAll(path),
                                 std::regex("child\\|" + std::string(STAMP) + "waited</br>")))
        << ReadAll(path);
    for (const int fd : {toChild[0], toChild[1], toParent[0], toParent[1]}) {
        close(fd);
    }
}

} // namespace
