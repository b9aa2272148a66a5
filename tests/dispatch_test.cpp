// Every command through the dispatcher to the run flags; the log writer stands in.
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "log_stand_in.h"
#include "message.h"
#include "messaging.h"
#include "run_flags.h"

namespace
{

// A datagram that has a command and a mode, and odd bytes wherever nothing is looked at.
std::vector<uint8_t> Frame(uint32_t command, int mode = 0)
{
    std::vector<uint8_t> frame(1200, 0xAA);
    std::memcpy(&frame[4], &command, 4);
    frame[1159] = static_cast<uint8_t>(mode);
    return frame;
}

void Deal(const std::vector<uint8_t>& frame)
{
    logged.clear();
    EXPECT_EQ(0, NET_Socket_Server_DealMsg(frame.data()));
    EXPECT_EQ(1U, logged.size()) << "one entry a frame, whatever the command";
}

TEST(DispatchTest, EnableAndDisableActOnlyInModesThatAllowThem)
{
    for (const int mode : {0, 1, 2, 3, 0, 4, 3, 255, 0}) {
        const bool frozen = mode == 0 || mode == 3;
        for (const int before : {0, 1}) {
            for (const uint32_t command : {0x903U, 0x905U, 0x90DU}) {
                Qrcode_SetScanEnable(before);
                Deal(Frame(0x604, mode));
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

TEST(DispatchTest, OtherCommandsAreLoggedOnly)
{
    Qrcode_SetScanMode(1);
    for (const int enable : {0, 1}) {
        Qrcode_SetScanEnable(enable);
        for (const uint32_t command :
             {0U, 0x602U, 0x904U, 0x90CU, 0x903U << 16, 0x10604U, 0x10903U, 0x10905U, 0x1090DU,
              0x80000903U, 0x03U, 0x05U, 0x0DU, 0x04U, 0xFFFFFFFFU}) {
            Deal(Frame(command, 7));
            EXPECT_EQ(1, Qrcode_GetScanMode()) << std::hex << command;
            EXPECT_EQ(enable, Qrcode_GetScanEnable()) << std::hex << command;
        }
    }
    EXPECT_EQ("/Database/doorlog/qrcodelog.txt|pMsgHead->MsgHead.nMsgCommand=0xffffffff\n",
              logged.at(0));
    Deal(Frame(5));
    EXPECT_EQ("/Database/doorlog/qrcodelog.txt|pMsgHead->MsgHead.nMsgCommand=0x0005\n",
              logged.at(0));
}

TEST(DispatchTest, NullFrameIsRefusedWithoutAnEntry)
{
    logged.clear();
    EXPECT_EQ(-1, NET_Socket_Server_DealMsg(nullptr));
    EXPECT_TRUE(logged.empty());
}

TEST(RunFlagsTest, SetReturnsItsArgumentAndGetWhatIsStored)
{
    EXPECT_EQ(255, Qrcode_SetScanMode(255));
    EXPECT_EQ(255, Qrcode_GetScanMode());
    EXPECT_EQ(-7, Qrcode_SetScanEnable(-7));
    EXPECT_EQ(-7, Qrcode_GetScanEnable());
}

} // namespace
