// The listening thread on a real socket, with the real dispatcher; the log writer stands in and
// tells what happened.
#include <condition_variable>
#include <cstdarg>
#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <mutex>
#include <pthread.h>

#include "log_entry.h"
#include "log_write.h"
#include "run_flags.h"
#include "socket_server.h"
#include "udp_peer.h"

namespace
{
std::mutex mutex;
std::condition_variable grown;
std::deque<std::string> entries;
} // namespace

int API_Log_Write(const char* path, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const std::string text = EntryText(format, args);
    va_end(args);
    EXPECT_STREQ("/Database/doorlog/qrcodelog.txt", path);
    const std::lock_guard<std::mutex> lock(mutex);
    entries.emplace_back(text);
    grown.notify_all();
    return 1;
}

namespace
{

std::string NextEntry()
{
    std::unique_lock<std::mutex> lock(mutex);
    if (!grown.wait_for(lock, std::chrono::seconds(20), [] { return !entries.empty(); })) {
        return "no entry";
    }
    const std::string entry = entries.front();
    entries.pop_front();
    return entry;
}

std::string Frame(uint32_t command, size_t length, uint8_t mode)
{
    std::string frame(length, '\0');
    std::memcpy(&frame[4], &command, 4);
    if (length > 1159) {
        frame[1159] = static_cast<char>(mode);
    }
    return frame;
}

TEST(ListenTest, HandsOnEveryDatagramAndEndsOnlyAtAFailedWait)
{
    UdpPeer server;
    UdpPeer peer;
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(&thread, nullptr, NET_Socket_Server_ListenTask,
                                reinterpret_cast<void*>(static_cast<intptr_t>(server.fd))));

    peer.SendTo(server.addr, Frame(0x604, 1160, 2));
    EXPECT_EQ("pMsgHead->MsgHead.nMsgCommand=0x0604\n", NextEntry());
    peer.SendTo(server.addr, Frame(0x903, 20, 0));
    EXPECT_EQ("pMsgHead->MsgHead.nMsgCommand=0x0903\n", NextEntry());

    peer.SendTo(server.addr, "\x56"); // one byte: the rest reads as zero, not as what came before
    EXPECT_EQ("pMsgHead->MsgHead.nMsgCommand=0x0000\n", NextEntry());

    peer.SendTo(server.addr, ""); // empty: an error of the receive, and the thread goes on
    EXPECT_EQ(0U, NextEntry().find("NET_SocketFunc_UdpRecv recv error "));

    peer.SendTo(server.addr, Frame(0x90D, 65000, 0xFF)); // as long as UDP takes
    EXPECT_EQ("pMsgHead->MsgHead.nMsgCommand=0x090d\n", NextEntry());
    peer.SendTo(server.addr, Frame(0, 20, 0)); // an entry comes before the act; the next one after
    NextEntry();
    EXPECT_EQ(2, Qrcode_GetScanMode());
    EXPECT_EQ(0, Qrcode_GetScanEnable());

    peer.SendTo(server.addr, Frame(0x604, 1159, 0)); // one byte too short for its mode
    EXPECT_EQ("pMsgHead->MsgHead.nMsgCommand=0x0604\n", NextEntry());
    peer.SendTo(server.addr, Frame(0, 20, 0));
    NextEntry();
    EXPECT_EQ(0, Qrcode_GetScanMode());

    // Pull the descriptor away under the thread; a last datagram ends the wait it is in.
    const int kept = dup(server.fd);
    close(server.fd);
    peer.SendTo(server.addr, "x");
    std::string entry = NextEntry();
    if (entry.find("NET_SocketFunc_UdpRecv") == 0) { // it was in its wait, not on the way to it
        EXPECT_EQ("NET_SocketFunc_UdpRecv recv error Bad file descriptor\n", entry);
        entry = NextEntry();
    }
    EXPECT_EQ("NET_Socket_Select Select error Bad file descriptor\n", entry);
    EXPECT_EQ(0, pthread_join(thread, nullptr));
    server.fd = kept;
}

} // namespace
