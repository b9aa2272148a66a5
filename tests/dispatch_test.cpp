// Every command through the dispatcher to the run flags; the log writer stands in.
#include <cstdarg>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "log_entry.h"
#include "log_write.h"
#include "message.h"
#include "messaging.h"
#include "run_flags.h"

namespace
{
std::vector<std::string> entries; // path and text
}

int API_Log_Write(const char* path, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const std::string text = EntryText(format, args);
    va_end(args);
    entries.push_back(std::string(path) + "|" + text);
    return 1;
}

namespace
{

// A received datagram as the listening thread hands it on: zeros behind its end.
std::vector<uint8_t> Frame(uint32_t command, uint8_t mode = 0, uint32_t sync = 0x3456)
{
    std::vector<uint8_t> frame(1160, 0);
    std::memcpy(&frame[0], &sync, 4);
    std::memcpy(&frame[4], &command, 4);
    frame[1159] = mode;
    return frame;
}

void Deal(const std::vector<uint8_t>& frame)
{
    entries.clear();
    EXPECT_EQ(0, NET_Socket_Server_DealMsg(frame.data()));
    EXPECT_EQ(1U, entries.size()) << "one entry a frame, whatever the command";
}

TEST(DispatchTest, EnableAndDisableActOnlyInModesThatAllowThem)
{
    for (const int mode : {0, 1, 2, 3, 4, 255}) {
        const bool frozen = mode == 0 || mode == 3;
        for (const int before : {0, 1}) {
            for (const uint32_t command : {0x903U, 0x905U, 0x90DU}) {
                Qrcode_SetScanEnable(before);
                Deal(Frame(0x604, static_cast<uint8_t>(mode)));
                EXPECT_EQ(mode, Qrcode_GetScanMode());
                EXPECT_EQ(before, Qrcode_GetScanEnable()) << "a mode leaves the flag alone";
                Deal(Frame(command));
                const int wanted = command == 0x903U ? 1 : 0;
                EXPECT_EQ(frozen ? before : wanted, Qrcode_GetScanEnable())
                    << "mode " << mode << ", command " << std::hex << command;
            }
        }
    }
}

TEST(DispatchTest, ModeIsSetWhateverTheModeAndOnlyFromItsByte)
{
    for (const int mode : {3, 1, 0, 255, 0, 3}) {
        std::vector<uint8_t> frame(1200, 0xAA);
        const std::vector<uint8_t> head = Frame(0x604);
        std::copy(head.begin(), head.begin() + 20, frame.begin());
        frame[1159] = static_cast<uint8_t>(mode);
        Deal(frame);
        EXPECT_EQ(mode, Qrcode_GetScanMode());
    }
}

TEST(DispatchTest, HeaderFieldsOtherThanTheCommandAreNotLookedAt)
{
    Deal(Frame(0x604, 1));
    std::vector<uint8_t> frame = Frame(0x903, 0, 0xFFFFFFFFU);
    std::memset(&frame[8], 0xFF, 12);
    Qrcode_SetScanEnable(0);
    Deal(frame);
    EXPECT_EQ(1, Qrcode_GetScanEnable());
}

TEST(DispatchTest, OtherCommandsAreLoggedOnly)
{
    Qrcode_SetScanMode(1);
    Qrcode_SetScanEnable(1);
    for (const uint32_t command : {0U, 0x602U, 0x904U, 0x90CU, 0x903U << 16, 0xFFFFFFFFU}) {
        Deal(Frame(command, 7));
        EXPECT_EQ(1, Qrcode_GetScanMode());
        EXPECT_EQ(1, Qrcode_GetScanEnable());
    }
    EXPECT_EQ("/Database/doorlog/qrcodelog.txt|pMsgHead->MsgHead.nMsgCommand=0xffffffff\n",
              entries.at(0));
    Deal(Frame(5));
    EXPECT_EQ("/Database/doorlog/qrcodelog.txt|pMsgHead->MsgHead.nMsgCommand=0x0005\n",
              entries.at(0));
}

TEST(DispatchTest, NullFrameIsRefusedWithoutAnEntry)
{
    entries.clear();
    EXPECT_EQ(-1, NET_Socket_Server_DealMsg(nullptr));
    EXPECT_TRUE(entries.empty());
}

TEST(RunFlagsTest, SetReturnsItsArgumentAndGetWhatIsStored)
{
    EXPECT_EQ(255, Qrcode_SetScanMode(255));
    EXPECT_EQ(255, Qrcode_GetScanMode());
    EXPECT_EQ(-7, Qrcode_SetScanEnable(-7));
    EXPECT_EQ(-7, Qrcode_GetScanEnable());
    EXPECT_EQ(-7, Qrcode_SetScanEnable(-7));
    EXPECT_EQ(-7, Qrcode_GetScanEnable());
}

} // namespace
