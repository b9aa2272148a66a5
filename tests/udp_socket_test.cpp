// The socket routines on real sockets; sendto, recvfrom and usleep can be scripted to fail.
#include "udp_socket.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <vector>

#include "allowances.h"
#include "udp_peer.h"

namespace
{

// What the next calls give instead of the system's answer: an errno, or 0 for a result of 0, or
// PASS for the real call.
const int PASS = -1;
std::vector<int> script;
std::vector<useconds_t> pauses;

int NextScripted()
{
    if (script.empty()) {
        return PASS;
    }
    const int next = script.front();
    script.erase(script.begin());
    return next;
}

} // namespace

extern "C" {
ssize_t __real_sendto(int, const void*, size_t, int, const sockaddr*, socklen_t);
ssize_t __real_recvfrom(int, void*, size_t, int, sockaddr*, socklen_t*);
ssize_t __wrap_sendto(int, const void*, size_t, int, const sockaddr*, socklen_t);
ssize_t __wrap_recvfrom(int, void*, size_t, int, sockaddr*, socklen_t*);
int __wrap_usleep(useconds_t us);

ssize_t __wrap_sendto(int fd, const void* data, size_t length, int flags, const sockaddr* to,
                      socklen_t toLength)
{
    const int next = NextScripted();
    if (next == PASS) {
        return __real_sendto(fd, data, length, flags, to, toLength);
    }
    errno = next;
    return next == 0 ? 0 : -1;
}

ssize_t __wrap_recvfrom(int fd, void* data, size_t length, int flags, sockaddr* from,
                        socklen_t* fromLength)
{
    const int next = NextScripted();
    if (next == PASS) {
        return __real_recvfrom(fd, data, length, flags, from, fromLength);
    }
    errno = next;
    return next == 0 ? 0 : -1;
}

int __wrap_usleep(useconds_t us)
{
    pauses.push_back(us);
    return 0;
}
}

namespace
{

const int READ = SELECT_READ;
const int WRITE = SELECT_WRITE;
const int EXCEPT = SELECT_EXCEPT;

int Select(const std::vector<int>& socks, int modes, int waitMs)
{
    return API_Socket_Select(socks.data(), static_cast<int>(socks.size()), modes, waitMs, "caller");
}

class UdpSocketTest : public testing::Test
{
protected:
    void SetUp() override
    {
        script.clear();
        pauses.clear();
    }
    void Arrive(const UdpPeer& at, const std::string& bytes) { sender.SendTo(at.addr, bytes); }

    UdpPeer sender;
    UdpPeer a;
    UdpPeer b;
};

TEST_F(UdpSocketTest, SelectNamesTheFirstReadyDescriptorOfTheArray)
{
    Arrive(a, "x");
    Arrive(b, "x");
    EXPECT_EQ(b.fd | 0x10000, Select({0, -1, b.fd, a.fd}, READ, 1000));
    EXPECT_EQ(a.fd | 0x10000, Select({sender.fd, a.fd}, READ, 0));
}

TEST_F(UdpSocketTest, SelectLetsReadHideWriteAndWriteHideExcept)
{
    EXPECT_EQ(a.fd | 0x20000, Select({a.fd}, WRITE, 1000));
    EXPECT_EQ(0, Select({a.fd}, READ | WRITE, 1000)) << "writable, but reading was asked for";
    EXPECT_EQ(a.fd | 0x20000, Select({a.fd}, WRITE | EXCEPT, 1000));
    Arrive(a, "x");
    EXPECT_EQ(a.fd | 0x10000, Select({a.fd}, READ | WRITE | EXCEPT, 1000));
    EXPECT_EQ(0, Select({a.fd}, EXCEPT, 1));
    EXPECT_EQ(0, Select({a.fd}, 0, 1));
}

TEST_F(UdpSocketTest, SelectSeesUrgentDataAsAnException)
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr = a.addr;
    addr.sin_port = 0;
    socklen_t length = sizeof(addr);
    ASSERT_EQ(0, bind(listener, reinterpret_cast<sockaddr*>(&addr), length));
    ASSERT_EQ(0, listen(listener, 1));
    getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &length);
    ASSERT_EQ(0, connect(client, reinterpret_cast<sockaddr*>(&addr), length));
    const int server = accept(listener, nullptr, nullptr);
    ASSERT_EQ(1, send(client, "!", 1, MSG_OOB));
    EXPECT_EQ(server | 0x40000, Select({server}, EXCEPT, 10000));
    close(server);
    close(client);
    close(listener);
}

TEST_F(UdpSocketTest, SelectRefusesWhatItCannotWaitFor)
{
    EXPECT_EQ(-1, API_Socket_Select(nullptr, 1, READ, 1, "caller"));
    EXPECT_EQ(-1, API_Socket_Select(&a.fd, -1, READ, 1, "caller"));
    EXPECT_EQ(-1, API_Socket_Select(&a.fd, 0, READ, 1, "caller"));
    EXPECT_EQ(-1, Select({0, -1}, READ, 1));
    EXPECT_EQ(-1, Select({a.fd, 1024}, READ, 1));
    EXPECT_EQ(-1, Select({31}, READ, 1)) << "not open: an error of select itself";
    EXPECT_EQ(EBADF, errno);
}

// Interrupts every wait of this thread until it is gone.
class Interruptions
{
public:
    Interruptions()
    {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, &before_);
        const itimerval every = {{0, 2000}, {0, 2000}};
        setitimer(ITIMER_REAL, &every, nullptr);
    }
    ~Interruptions()
    {
        const itimerval never = {};
        setitimer(ITIMER_REAL, &never, nullptr);
        sigaction(SIGALRM, &before_, nullptr);
    }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

private:
    struct sigaction before_ = {};
};

const std::string INTERRUPTED =
    "func = API_Socket_Select, LINE = 104, error = 4, ret = -1, nfunc = caller\n";
const std::string GAVE_UP =
    "retunfunc = API_Socket_Select, LINE = 115, error = 4, ret = -1, nfunc = caller\n";

TEST_F(UdpSocketTest, TenInterruptionsEndAWaitAsATimeOut)
{
    g_SelectIntrCount = 0;
    std::string expected;
    for (int i = 0; i < 10; ++i) {
        expected += INTERRUPTED;
    }
    const int input = open("/dev/null", O_RDONLY);
    dup2(input, STDIN_FILENO);
    close(input);
    testing::internal::CaptureStdout();
    int result = 0;
    {
        const Interruptions interruptions;
        result = Select({0, a.fd}, READ, 0); // without limit; 0 is readable, and is skipped
    }
    EXPECT_EQ(expected + GAVE_UP, testing::internal::GetCapturedStdout());
    EXPECT_EQ(0, result);
    EXPECT_EQ(10, g_SelectIntrCount);
}

TEST_F(UdpSocketTest, InterruptedWaitGoesOnWithWhatIsLeftOfItsTime)
{
    testing::internal::CaptureStdout();
    {
        const Interruptions interruptions; // every 2 ms
        EXPECT_EQ(0, Select({a.fd}, READ, 10));
    }
    const bool gaveUp =
        testing::internal::GetCapturedStdout().find("retunfunc") != std::string::npos;
    EXPECT_TRUE(!gaveUp || !SELECT_KEEPS_WHAT_IS_LEFT);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, Select({a.fd}, READ, 50));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
}

TEST_F(UdpSocketTest, OnlyTheFirstHundredInterruptionsOfTheProcessArePrinted)
{
    for (const int before : {98, 99, 100}) {
        g_SelectIntrCount = before;
        testing::internal::CaptureStdout();
        {
            const Interruptions interruptions;
            Select({a.fd}, READ, -1);
        }
        std::string expected;
        for (int i = before; i < 100; ++i) {
            expected += INTERRUPTED;
        }
        EXPECT_EQ(expected + GAVE_UP, testing::internal::GetCapturedStdout()) << before;
        EXPECT_EQ(before + 10, g_SelectIntrCount) << "counted all the same";
    }
}

TEST_F(UdpSocketTest, RecvTakesOneDatagramWhenNoNumberIsWanted)
{
    char buffer[8];
    Arrive(a, "one");
    Arrive(a, "two");
    EXPECT_EQ(3, NET_SocketFunc_UdpRecv(a.fd, buffer, 8, 0));
    EXPECT_EQ("one", std::string(buffer, 3));
    Arrive(a, "0123456789");
    EXPECT_EQ(3, NET_SocketFunc_UdpRecv(a.fd, buffer, 8, -1));
    EXPECT_EQ(8, NET_SocketFunc_UdpRecv(a.fd, buffer, 8, 0)) << "a longer datagram is cut";
}

TEST_F(UdpSocketTest, RecvGathersTheNumberWanted)
{
    char buffer[16] = {};
    Arrive(a, "abc");
    Arrive(a, "defg");
    EXPECT_EQ(5, NET_SocketFunc_UdpRecv(a.fd, buffer, 16, 5));
    EXPECT_EQ(std::string("abcde"), buffer);
}

TEST_F(UdpSocketTest, RecvGivesUpAtTheFourthTimeOutInARow)
{
    char buffer[8];
    fcntl(a.fd, F_SETFL, O_NONBLOCK);
    EXPECT_EQ(0, NET_SocketFunc_UdpRecv(a.fd, buffer, 8, 0));
    EXPECT_EQ((std::vector<useconds_t>{10000, 10000, 10000}), pauses);

    pauses.clear(); // what came in between starts the count again, and is returned at the end
    Arrive(a, "abc");
    script = {EINTR, EAGAIN, EINTR, PASS, EAGAIN, EAGAIN, EINTR, EAGAIN};
    EXPECT_EQ(3, NET_SocketFunc_UdpRecv(a.fd, buffer, 8, 8));
    EXPECT_EQ(6U, pauses.size());
    EXPECT_TRUE(script.empty());
}

TEST_F(UdpSocketTest, RecvFailsOnAnEmptyDatagramAndOnAnyOtherError)
{
    char buffer[8];
    Arrive(a, "");
    EXPECT_EQ(-1, NET_SocketFunc_UdpRecv(a.fd, buffer, 8, 0));
    for (const int error : {ECONNRESET, ENOTSOCK, ENOMEM}) {
        script = {error};
        EXPECT_EQ(-1, NET_SocketFunc_UdpRecv(a.fd, buffer, 8, 0));
    }
    EXPECT_EQ(-1, NET_SocketFunc_UdpRecv(-1, buffer, 8, 0));
    EXPECT_EQ(0, NET_SocketFunc_UdpRecv(a.fd, buffer, 0, 0));
    EXPECT_TRUE(pauses.empty());
}

TEST_F(UdpSocketTest, SendReturnsTheLengthOrNothingForBadArguments)
{
    std::string got;
    EXPECT_EQ(0, NET_SocketFunc_UdpSend(0, "x", 1, &a.addr));
    EXPECT_EQ(0, NET_SocketFunc_UdpSend(sender.fd, nullptr, 1, &a.addr));
    EXPECT_EQ(0, NET_SocketFunc_UdpSend(sender.fd, "x", 0, &a.addr));
    EXPECT_EQ(0, NET_SocketFunc_UdpSend(sender.fd, "x", 1, nullptr));
    EXPECT_EQ(5, NET_SocketFunc_UdpSend(sender.fd, "first", 5, &a.addr));
    ASSERT_TRUE(a.Receive(got));
    EXPECT_EQ("first", got);
}

TEST_F(UdpSocketTest, SendGivesUpAtTheFourthRefusal)
{
    script = {EAGAIN, EINTR, EAGAIN, PASS};
    EXPECT_EQ(1, NET_SocketFunc_UdpSend(sender.fd, "x", 1, &a.addr));
    EXPECT_EQ((std::vector<useconds_t>{1000, 1000, 1000}), pauses);

    pauses.clear();
    script = {EAGAIN, EAGAIN, EAGAIN, EAGAIN, PASS};
    EXPECT_EQ(-1, NET_SocketFunc_UdpSend(sender.fd, "x", 1, &a.addr));
    EXPECT_EQ(3U, pauses.size());

    pauses.clear();
    for (const int error : {0, ECONNREFUSED, EMSGSIZE}) {
        script = {error};
        EXPECT_EQ(-1, NET_SocketFunc_UdpSend(sender.fd, "x", 1, &a.addr));
    }
    EXPECT_TRUE(pauses.empty());
}

template <typename Value> Value Option(int fd, int name)
{
    Value value{};
    socklen_t length = sizeof(value);
    EXPECT_EQ(0, getsockopt(fd, SOL_SOCKET, name, &value, &length));
    return value;
}

TEST_F(UdpSocketTest, OptionsAreSetWhereTheirArgumentIsNotZero)
{
    EXPECT_EQ(-1, NET_SocketFunc_SetSockOpt(0, 1, 0, 0, 0, 0));
    EXPECT_EQ(-1, NET_SocketFunc_SetKeepAlive(0));
    const int untouched = Option<int>(a.fd, SO_SNDBUF);
    EXPECT_EQ(0, NET_SocketFunc_SetSockOpt(a.fd, 1, 1234, 5001, 0, 20000));
    EXPECT_EQ(1, Option<int>(a.fd, SO_KEEPALIVE));
    EXPECT_EQ(1, Option<int>(a.fd, SO_REUSEADDR));
    EXPECT_EQ(1, Option<timeval>(a.fd, SO_SNDTIMEO).tv_sec);
    EXPECT_EQ(5, Option<timeval>(a.fd, SO_RCVTIMEO).tv_sec);
    EXPECT_NEAR(234000, Option<timeval>(a.fd, SO_SNDTIMEO).tv_usec, 10000) << "in clock ticks";
    EXPECT_EQ(untouched, Option<int>(a.fd, SO_SNDBUF));
    EXPECT_EQ(40000, Option<int>(a.fd, SO_RCVBUF)) << "the system doubles it";

    EXPECT_EQ(-1, NET_SocketFunc_SetSockOpt(b.fd, 0, -1500, 2000, 30000, 0)) << "bad time-out";
    EXPECT_EQ(2, Option<timeval>(b.fd, SO_RCVTIMEO).tv_sec) << "the later ones are still set";
    EXPECT_EQ(60000, Option<int>(b.fd, SO_SNDBUF));
    EXPECT_EQ(0, Option<int>(b.fd, SO_REUSEADDR));
}

TEST_F(UdpSocketTest, ServerSocketIsBoundToLoopbackWithItsTimeOuts)
{
    const int fd = API_Socket_Server_Init(10010);
    ASSERT_GT(fd, 0);
    sockaddr_in addr{};
    socklen_t length = sizeof(addr);
    getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &length);
    EXPECT_EQ(htonl(INADDR_LOOPBACK), addr.sin_addr.s_addr);
    EXPECT_EQ(htons(10010), addr.sin_port);
    EXPECT_EQ(3, Option<timeval>(fd, SO_SNDTIMEO).tv_sec);
    EXPECT_EQ(3, Option<timeval>(fd, SO_RCVTIMEO).tv_sec);
    EXPECT_EQ(1, Option<int>(fd, SO_REUSEADDR));
    close(fd);
}

TEST_F(UdpSocketTest, ServerSocketOnATakenPortSaysSo)
{
    const int next = dup(a.fd);
    close(next);
    testing::internal::CaptureStdout();
    const int result = API_Socket_Server_Init(ntohs(a.addr.sin_port));
    const bool leftOpen = fcntl(next, F_GETFD) == 0;
    EXPECT_EQ("API_Socket_Server_Init bind is error 98\n", testing::internal::GetCapturedStdout());
    EXPECT_EQ(-1, result);
    EXPECT_TRUE(leftOpen);
    close(next);
}

} // namespace
