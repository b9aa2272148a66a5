// Frames out, byte for byte, over a real socket.
#include <gtest/gtest.h>

#include "message.h"
#include "messaging.h"
#include "socket_server.h"
#include "udp_peer.h"
#include "udp_socket.h"

namespace
{

class FrameTest : public testing::Test
{
protected:
    void SetUp() override
    {
        g_ClientSock = API_Socket_Client_Init(0, &g_PeerAddr);
        g_PeerAddr.sin_port = peer.addr.sin_port;
    }
    void TearDown() override
    {
        close(g_ClientSock);
        g_ClientSock = 0;
    }

    UdpPeer peer;
    std::string frame;
};

TEST_F(FrameTest, HeadAndPayloadByteForByte)
{
    std::string text(1024, '\0');
    text.replace(0, 11, "VISITOR-007");
    const std::string longest(3072, 'p');
    const struct {
        const char* data;
        unsigned length;
        int command;
        int param;
        std::string frame; // behind its sync word
    } frames[] = {
        {nullptr, 0, 0x602, 0, {"\x02\x06\0\0\x0a\0\0\0\0\0\0\0\0\0\0\0", 16}},
        {text.data(), 1024, 0x904, 0x01020304,
         std::string("\x04\x09\0\0\x0a\0\0\0\x04\x03\x02\x01\0\x04\0\0", 16) + text},
        {longest.data(), 3072, -1, -2,
         std::string("\xff\xff\xff\xff\x0a\0\0\0\xfe\xff\xff\xff\0\x0c\0\0", 16) + longest},
        // The length counts without a payload.
        {nullptr, 7, 0x7777, 0, {"\x77\x77\0\0\x0a\0\0\0\0\0\0\0\x07\0\0\0\0\0\0\0\0\0\0", 23}},
    };
    for (const auto& sent : frames) {
        EXPECT_EQ(0, API_Socket_SendMsg(sent.data, sent.length, sent.command, sent.param));
        ASSERT_TRUE(peer.Receive(frame));
        EXPECT_EQ(std::string("\x56\x34\0\0", 4) + sent.frame, frame);
    }
}

TEST_F(FrameTest, WithoutASocketNothingIsSentAndNothingIsSaid)
{
    const int kept = g_ClientSock;
    g_ClientSock = 0;
    EXPECT_EQ(0, API_Socket_SendMsg(nullptr, 0, MSG_CMD_QRCODE_START, 0));
    g_ClientSock = kept;
    API_Socket_SendMsg(nullptr, 0, 0x1234, 0);
    ASSERT_TRUE(peer.Receive(frame));
    EXPECT_EQ(0x34, frame[4]) << "the first datagram is the one after the socket was there";
}

} // namespace
