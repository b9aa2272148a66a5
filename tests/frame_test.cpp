// Frames out, byte for byte, over a real socket.
#include <cstring>
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

TEST_F(FrameTest, HelloIsTwentyBytes)
{
    EXPECT_EQ(0, API_Socket_SendMsg(nullptr, 0, MSG_CMD_QRCODE_START, 0));
    ASSERT_TRUE(peer.Receive(frame));
    EXPECT_EQ(std::string("\x56\x34\0\0\x02\x06\0\0\x0a\0\0\0\0\0\0\0\0\0\0\0", 20), frame);
}

TEST_F(FrameTest, ResultCarriesTheWholeTextBuffer)
{
    std::string text(1024, '\0');
    text.replace(0, 11, "VISITOR-007");
    EXPECT_EQ(0, API_Socket_SendMsg(text.data(), 1024, MSG_CMD_QRCODE_RESULT, 0x01020304));
    ASSERT_TRUE(peer.Receive(frame));
    EXPECT_EQ(std::string("\x56\x34\0\0\x04\x09\0\0\x0a\0\0\0\x04\x03\x02\x01\0\x04\0\0", 20) +
                  text,
              frame);
}

TEST_F(FrameTest, PayloadAreaHolds3072Bytes)
{
    const std::string payload(3072, 'p');
    API_Socket_SendMsg(payload.data(), 3072, 0x7777, 0);
    ASSERT_TRUE(peer.Receive(frame));
    EXPECT_EQ(payload, frame.substr(20));
}

TEST_F(FrameTest, LengthCountsWithoutAPayload)
{
    API_Socket_SendMsg(nullptr, 7, 0x7777, 0);
    ASSERT_TRUE(peer.Receive(frame));
    EXPECT_EQ(27U, frame.size());
    EXPECT_EQ(7, frame[16]);
    EXPECT_EQ(std::string(7, '\0'), frame.substr(20));
}

TEST_F(FrameTest, WithoutASocketNothingIsSentAndNothingIsSaid)
{
    close(g_ClientSock);
    g_ClientSock = 0;
    EXPECT_EQ(0, API_Socket_SendMsg(nullptr, 0, MSG_CMD_QRCODE_START, 0));
    g_ClientSock = API_Socket_Client_Init(0, &g_PeerAddr);
    g_PeerAddr.sin_port = peer.addr.sin_port;
    API_Socket_SendMsg(nullptr, 0, 0x1234, 0);
    ASSERT_TRUE(peer.Receive(frame));
    EXPECT_EQ(0x34, frame[4]) << "the first datagram is the one after the socket was there";
}

} // namespace
