// The listening thread over scripted waits and datagrams, with the real dispatcher; the log writer
// stands in. It runs on the test's own thread.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <vector>

#include "log_stand_in.h"
#include "run_flags.h"
#include "socket_server.h"

namespace
{

const int FD = 77; // of the scripted socket; nothing is open there
const int TIME_OUT = -1;
const int READY = 0;
std::vector<int> waits; // what they give: TIME_OUT, READY or an errno
size_t nextWait = 0;
bool ready = false; // the last wait said so

struct Receive {
    int error; // 0 for a datagram
    std::string bytes;
};
std::vector<Receive> receives;
size_t nextReceive = 0;
const int EARLIER_ERROR = EXDEV; // in errno, where a receive that does not fail leaves it

} // namespace

extern "C" {
int __wrap_select(int n, fd_set* in, fd_set* out, fd_set* except, timeval* wait)
{
    EXPECT_TRUE(n == FD + 1 && in != nullptr && FD_ISSET(FD, in));
    EXPECT_TRUE(out == nullptr && except == nullptr) << "a socket is always writable";
    EXPECT_TRUE(wait != nullptr && wait->tv_sec == 3 && wait->tv_usec == 0);
    const int answer = waits.at(nextWait++);
    ready = answer == READY;
    if (answer == TIME_OUT) {
        FD_ZERO(in);
        return 0;
    }
    errno = answer;
    return ready ? 1 : -1;
}

ssize_t __wrap_recvfrom(int fd, void* data, size_t size, int flags, sockaddr* /*from*/,
                        socklen_t* /*fromLength*/)
{
    const char* const buffer = static_cast<const char*>(data);
    EXPECT_TRUE(fd == FD && size == 524288 && flags == 0 && ready);
    EXPECT_EQ(524288, std::count(buffer, buffer + size, '\0')) << "not cleared";
    const Receive& answer = receives.at(nextReceive++);
    std::copy(answer.bytes.begin(), answer.bytes.end(), static_cast<char*>(data));
    errno = answer.error != 0 ? answer.error : EARLIER_ERROR;
    return answer.error != 0 ? -1 : static_cast<ssize_t>(answer.bytes.size());
}
}

namespace
{

std::string Frame(uint32_t command, size_t length, int mode)
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
    const Receive nothing = {EAGAIN, ""}; // the fourth in a row ends a receive
    receives = {{0, Frame(0x604, 1160, 2)},
                {0, Frame(0x903, 20, 0)},
                {0, "\x56"}, // the rest reads as zero, not as what came before
                {0, ""},
                nothing,
                nothing,
                nothing,
                nothing,
                {ECONNRESET, ""},
                {0, std::string(524288, '\xFF')}, // all that the buffer holds
                {0, Frame(0x604, 1159, 0)}};      // one byte too short for its mode
    waits = {READY, TIME_OUT, READY,    EINTR, READY, READY, TIME_OUT,
             READY, READY,    TIME_OUT, READY, READY, ENOMEM};
    testing::internal::CaptureStdout();
    EXPECT_EQ(nullptr, NET_Socket_Server_ListenTask(reinterpret_cast<void*>(intptr_t{FD})));
    EXPECT_EQ("func = API_Socket_Select, LINE = 104, error = 4, ret = -1, "
              "nfunc = NET_Socket_Server_ListenTask\n",
              testing::internal::GetCapturedStdout());
    const std::string command = "pMsgHead->MsgHead.nMsgCommand=0x";
    const std::string receive = "NET_SocketFunc_UdpRecv recv error ";
    std::vector<std::string> expected;
    for (const std::string& entry :
         {command + "0604", command + "0903", command + "0000",
          receive + std::strerror(EARLIER_ERROR), receive + std::strerror(EAGAIN),
          receive + std::strerror(ECONNRESET), command + "ffffffff", command + "0604",
          std::string("NET_Socket_Select Select error ") + std::strerror(ENOMEM)}) {
        expected.push_back("/Database/doorlog/qrcodelog.txt|" + entry + "\n");
    }
    EXPECT_EQ(expected, logged);
    EXPECT_TRUE(nextWait == waits.size() && nextReceive == receives.size());
    EXPECT_EQ(0, Qrcode_GetScanMode());
    EXPECT_EQ(1, Qrcode_GetScanEnable());
}

} // namespace
