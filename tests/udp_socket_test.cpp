// The socket routines and the start of messaging on real sockets; what they call can be scripted to
// fail. The log writer stands in, and no thread is started.
#include "udp_socket.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/select.h>
#include <vector>

#include "log_stand_in.h"
#include "socket_server.h"
#include "udp_peer.h"

namespace
{

// What the next sends or receives give instead of the system's answer: an errno, or 0 for a result
// of 0, or PASS for the real call.
const int PASS = -1;
std::vector<int> script;
std::vector<useconds_t> pauses;
size_t mostSent = SIZE_MAX; // bytes that one sendto takes
size_t receiveSize = 0;     // bytes that the last recvfrom was asked for
int interruptions = 0;      // of the next waits, each after a millisecond
std::vector<int64_t> waits; // us; negative: without limit

// What was done, in its order: an option of a socket, or one of these.
enum { BIND = -1, THREAD = -2 };
std::vector<int> done;
int failing = 0; // the option that fails
int threadArgument = 0;

// The scripted result of the next call; 1 for the real one.
int Scripted()
{
    if (script.empty()) {
        return 1;
    }
    const int next = script.front();
    script.erase(script.begin());
    errno = next;
    return next == PASS ? 1 : (next == 0 ? 0 : -1);
}

} // namespace

extern "C" {
ssize_t __real_sendto(int, const void*, size_t, int, const sockaddr*, socklen_t);
ssize_t __real_recvfrom(int, void*, size_t, int, sockaddr*, socklen_t*);
int __real_setsockopt(int, int, int, const void*, socklen_t);
int __real_bind(int, const sockaddr*, socklen_t);
int __real_select(int, fd_set*, fd_set*, fd_set*, timeval*);

ssize_t __wrap_sendto(int fd, const void* data, size_t length, int flags, const sockaddr* to,
                      socklen_t toLength)
{
    const int result = Scripted();
    return result < 1 ? result
                      : __real_sendto(fd, data, std::min(length, mostSent), flags, to, toLength);
}

ssize_t __wrap_recvfrom(int fd, void* data, size_t length, int flags, sockaddr* from,
                        socklen_t* fromLength)
{
    receiveSize = length;
    const int result = Scripted();
    return result < 1 ? result : __real_recvfrom(fd, data, length, flags, from, fromLength);
}

int __wrap_select(int n, fd_set* in, fd_set* out, fd_set* except, timeval* wait)
{
    waits.push_back(wait != nullptr ? wait->tv_sec * 1000000 + wait->tv_usec : -1);
    if (interruptions > 0) {
        --interruptions;
        if (wait != nullptr) {
            wait->tv_usec -= 1000; // what is left, as the system tells it
        }
        errno = EINTR;
        return -1;
    }
    return __real_select(n, in, out, except, wait);
}

int __wrap_usleep(useconds_t us)
{
    pauses.push_back(us);
    return 0;
}

int __wrap_setsockopt(int fd, int level, int name, const void* value, socklen_t length)
{
    EXPECT_EQ(SOL_SOCKET, level);
    done.push_back(name);
    return name == failing ? -1 : __real_setsockopt(fd, level, name, value, length);
}

int __wrap_bind(int fd, const sockaddr* addr, socklen_t length)
{
    done.push_back(BIND);
    return __real_bind(fd, addr, length);
}

int __wrap_pthread_create(pthread_t* /*thread*/, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument)
{
    EXPECT_TRUE(attributes == nullptr && routine == NET_Socket_Server_ListenTask);
    done.push_back(THREAD);
    threadArgument = static_cast<int>(reinterpret_cast<intptr_t>(argument));
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
        done.clear();
        logged.clear();
        waits.clear();
        mostSent = SIZE_MAX;
        failing = 0;
    }
    void Arrive(const UdpPeer& at, const std::string& bytes) { sender.SendTo(at.addr, bytes); }

    UdpPeer sender;
    UdpPeer a;
    UdpPeer b;
};

TEST_F(UdpSocketTest, SelectNamesTheFirstReadyDescriptorReadHidesWriteAndWriteHidesExcept)
{
    const int input = open("/dev/null", O_RDONLY);
    dup2(input, STDIN_FILENO); // readable, but skipped
    close(input);
    Arrive(a, "x");
    Arrive(b, "x");
    const int idle = sender.fd;
    const struct {
        std::vector<int> socks;
        int modes;
        int waitMs;
        int answer;
    } cases[] = {
        {{0, idle}, READ, 1, 0},
        {{0, -1, b.fd, a.fd}, READ, 1000, b.fd | 0x10000},
        {{idle, a.fd}, READ, 0, a.fd | 0x10000},
        {{a.fd}, READ | WRITE | EXCEPT, 1000, a.fd | 0x10000},
        {{idle}, READ | WRITE, 1000, 0}, // writable, but reading was asked for
        {{idle}, WRITE, 1000, idle | 0x20000},
        {{idle}, WRITE | EXCEPT, 1000, idle | 0x20000},
        {{a.fd}, EXCEPT, 1, 0},
        {{a.fd}, 0, 1, 0},
        {{}, READ, 1, -1},
        {{0, -1}, READ, 1, -1},
        {{a.fd, 1024}, READ, 1, -1},
        {{31}, READ, 1, -1}, // not open: an error of select itself
    };
    for (const auto& wait : cases) {
        EXPECT_EQ(wait.answer, Select(wait.socks, wait.modes, wait.waitMs)) << &wait - cases;
    }
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(-1, API_Socket_Select(nullptr, 1, READ, 1, "caller"));
    EXPECT_EQ(-1, API_Socket_Select(&a.fd, -1, READ, 1, "caller"));
    EXPECT_EQ(-1, API_Socket_Select(&a.fd, 0, READ, 1, "caller"));
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

const std::string INTERRUPTED =
    "func = API_Socket_Select, LINE = 104, error = 4, ret = -1, nfunc = caller\n";
const std::string GAVE_UP =
    "retunfunc = API_Socket_Select, LINE = 115, error = 4, ret = -1, nfunc = caller\n";

TEST_F(UdpSocketTest, TenInterruptionsEndAWaitAndTheFirstHundredOfTheProcessArePrinted)
{
    for (const int before : {0, 98, 99, 100}) {
        g_SelectIntrCount = before;
        interruptions = 10;
        testing::internal::CaptureStdout();
        EXPECT_EQ(0, Select({a.fd}, READ, -1)) << "as a time-out";
        std::string expected;
        for (int i = before; i < std::min(before + 10, 100); ++i) {
            expected += INTERRUPTED;
        }
        EXPECT_EQ(expected + GAVE_UP, testing::internal::GetCapturedStdout()) << before;
        EXPECT_EQ(before + 10, g_SelectIntrCount) << "counted all the same";
    }
}

TEST_F(UdpSocketTest, InterruptedWaitGoesOnWithWhatIsLeftOfItsTime)
{
    g_SelectIntrCount = 100;
    interruptions = 2;
    EXPECT_EQ(a.fd | 0x20000, Select({a.fd}, WRITE, 2345));
    EXPECT_EQ((std::vector<int64_t>{2345000, 2344000, 2343000}), waits);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, Select({a.fd}, READ, 50));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
}

TEST_F(UdpSocketTest, RecvTakesOneDatagramOrGathersTheNumberWantedThroughThreeTimeOutsInARow)
{
    const struct {
        std::vector<std::string> arrive;
        std::vector<int> script;
        int size;
        int wanted;
        int result;
        std::string bytes;
        size_t pauses;
    } receives[] = {
        {{"one", "two"}, {}, 8, 0, 3, "one", 0},
        {{"0123456789"}, {}, 8, -1, 3, "two", 0},
        {{}, {}, 8, 0, 8, "01234567", 0}, // a longer datagram is cut
        {{"abc", "defg"}, {}, 8, 5, 5, "abcde", 0},
        {{}, {}, 8, 0, 0, "", 3},
        // What comes in between starts the count again, and is returned at the end.
        {{"abc"}, {EINTR, EAGAIN, EINTR, PASS, EAGAIN, EAGAIN, EINTR, EAGAIN}, 8, 8, 3, "abc", 6},
        {{""}, {}, 8, 0, -1, "", 0},
        {{}, {ECONNRESET}, 8, 0, -1, "", 0},
        {{}, {ENOTSOCK}, 8, 0, -1, "", 0},
        {{}, {ENOMEM}, 8, 0, -1, "", 0},
        {{}, {ENOMEM}, 0, 3, 0, "", 0}, // nothing is received
        {{}, {ENOMEM}, -1, 3, 0, "", 0},
        {{}, {ENOMEM}, 0, 0, 0, "", 0},
    };
    fcntl(a.fd, F_SETFL, O_NONBLOCK);
    for (const auto& receive : receives) {
        SCOPED_TRACE(&receive - receives);
        for (const std::string& datagram : receive.arrive) {
            Arrive(a, datagram);
        }
        script = receive.script;
        pauses.clear();
        std::string buffer(8, '#');
        EXPECT_EQ(receive.result,
                  NET_SocketFunc_UdpRecv(a.fd, buffer.data(), receive.size, receive.wanted));
        EXPECT_EQ(receive.bytes + std::string(8 - receive.bytes.size(), '#'), buffer);
        EXPECT_EQ(std::vector<useconds_t>(receive.pauses, 10000), pauses);
    }
}

TEST_F(UdpSocketTest, RecvWithoutABufferTakesItsSizeForTheNumberWanted)
{
    char buffer[8];
    for (const bool bufferIsNull : {false, true}) {
        script = {ENOMEM};
        EXPECT_EQ(-1, NET_SocketFunc_UdpRecv(a.fd, bufferIsNull ? nullptr : buffer, 8, 3));
        EXPECT_EQ(bufferIsNull ? 8U : 3U, receiveSize);
    }
}

TEST_F(UdpSocketTest, SendGoesOnWhereItStoppedAndGivesUpAtTheFourthRefusalInAll)
{
    const struct {
        std::vector<int> script;
        int result;
        std::vector<std::string> arrive;
        size_t pauses;
    } sends[] = {
        {{}, 5, {"ab", "cd", "e"}, 0},
        {{EAGAIN, PASS, EINTR, PASS, EAGAIN, PASS}, 5, {"ab", "cd", "e"}, 3},
        {{EAGAIN, EINTR, EAGAIN, EAGAIN}, -1, {}, 3},
        {{EAGAIN, PASS, EINTR, PASS, EAGAIN, EAGAIN}, -1, {"ab", "cd"}, 3},
        {{0}, -1, {}, 0},
        {{ECONNREFUSED}, -1, {}, 0},
        {{PASS, EMSGSIZE}, -1, {"ab"}, 0},
    };
    mostSent = 2;
    for (const auto& send : sends) {
        SCOPED_TRACE(&send - sends);
        script = send.script;
        pauses.clear();
        EXPECT_EQ(send.result, NET_SocketFunc_UdpSend(sender.fd, "abcde", 5, &a.addr));
        EXPECT_EQ(std::vector<useconds_t>(send.pauses, 1000), pauses);
        script.clear();
        std::string got;
        for (const std::string& part : send.arrive) {
            ASSERT_TRUE(a.Receive(got));
            EXPECT_EQ(part, got);
        }
        EXPECT_EQ(-1, recv(a.fd, got.data(), 1, MSG_DONTWAIT)) << "more than that came";
    }
    EXPECT_EQ(0, NET_SocketFunc_UdpSend(0, "x", 1, &a.addr));
    EXPECT_EQ(0, NET_SocketFunc_UdpSend(sender.fd, nullptr, 1, &a.addr));
    EXPECT_EQ(0, NET_SocketFunc_UdpSend(sender.fd, "x", 0, &a.addr));
    EXPECT_EQ(0, NET_SocketFunc_UdpSend(sender.fd, "x", 1, nullptr));
}

template <typename Value> Value Option(int fd, int name)
{
    Value value{};
    socklen_t length = sizeof(value);
    EXPECT_EQ(0, getsockopt(fd, SOL_SOCKET, name, &value, &length));
    return value;
}

TEST_F(UdpSocketTest, OptionsAreSetInMillisecondsAndBytes)
{
    EXPECT_EQ(-1, NET_SocketFunc_SetSockOpt(0, 1, 0, 0, 0, 0));
    EXPECT_EQ(-1, NET_SocketFunc_SetKeepAlive(0));
    EXPECT_EQ(0, NET_SocketFunc_SetSockOpt(a.fd, 1, 1234, 5001, 30000, 20000));
    EXPECT_EQ(1, Option<int>(a.fd, SO_KEEPALIVE));
    EXPECT_EQ(1, Option<int>(a.fd, SO_REUSEADDR));
    EXPECT_EQ(1, Option<timeval>(a.fd, SO_SNDTIMEO).tv_sec);
    EXPECT_EQ(5, Option<timeval>(a.fd, SO_RCVTIMEO).tv_sec);
    EXPECT_NEAR(234000, Option<timeval>(a.fd, SO_SNDTIMEO).tv_usec, 10000) << "in clock ticks";
    EXPECT_EQ(60000, Option<int>(a.fd, SO_SNDBUF)) << "the system doubles it";
    EXPECT_EQ(40000, Option<int>(a.fd, SO_RCVBUF));
}

TEST_F(UdpSocketTest, OptionsAreLeftOutAndFailEachByItself)
{
    const std::vector<int> all = {SO_KEEPALIVE, SO_REUSEADDR, SO_SNDTIMEO,
                                  SO_RCVTIMEO,  SO_SNDBUF,    SO_RCVBUF};
    for (size_t i = 0; i < all.size(); ++i) {
        int value[] = {1, 1, 1000, 1000, 20000, 20000};
        const auto set = [&] {
            done.clear();
            return NET_SocketFunc_SetSockOpt(a.fd, value[1], value[2], value[3], value[4],
                                             value[5]);
        };
        failing = all[i];
        EXPECT_EQ(i == 0 ? 0 : -1, set()) << "option " << i << "; keep-alive is passed over";
        EXPECT_EQ(all, done) << "the later ones are still set";
        value[i] = 0;
        EXPECT_EQ(0, set());
        EXPECT_EQ(i == 0 ? 1 : 0, std::count(done.begin(), done.end(), all[i]));
    }
}

std::string Address(const sockaddr_in& addr)
{
    return std::string(inet_ntoa(addr.sin_addr)) + ":" + std::to_string(ntohs(addr.sin_port));
}

TEST_F(UdpSocketTest, StartMakesTheServerSocketTheThreadAndAPlainClientSocket)
{
    ASSERT_EQ(0, NET_Socket_Server_Start());
    EXPECT_EQ(
        (std::vector<int>{SO_KEEPALIVE, SO_REUSEADDR, SO_SNDTIMEO, SO_RCVTIMEO, BIND, THREAD}),
        done);
    sockaddr_in bound{};
    socklen_t length = sizeof(bound);
    getsockname(threadArgument, reinterpret_cast<sockaddr*>(&bound), &length);
    EXPECT_EQ("127.0.0.1:10010", Address(bound));
    EXPECT_EQ("127.0.0.1:10000", Address(g_PeerAddr));
    EXPECT_EQ(AF_INET, g_PeerAddr.sin_family);
    EXPECT_EQ(3, Option<timeval>(threadArgument, SO_SNDTIMEO).tv_sec);
    EXPECT_EQ(3, Option<timeval>(threadArgument, SO_RCVTIMEO).tv_sec);
    EXPECT_EQ(1, Option<int>(threadArgument, SO_REUSEADDR));
    EXPECT_EQ(SOCK_DGRAM, Option<int>(g_ClientSock, SO_TYPE));
    EXPECT_TRUE(logged.empty());
    close(threadArgument);
    close(g_ClientSock);
    g_ClientSock = 0;
}

TEST_F(UdpSocketTest, StartOnATakenPortSaysSoAndMakesNothingElse)
{
    const UdpPeer other(10010);
    testing::internal::CaptureStdout(); // takes a descriptor itself
    const int next = dup(a.fd);
    close(next);
    const int result = NET_Socket_Server_Start();
    const bool leftOpen = fcntl(next, F_GETFD) == 0;
    EXPECT_EQ("API_Socket_Server_Init bind is error 98\n", testing::internal::GetCapturedStdout());
    EXPECT_EQ(-1, result);
    EXPECT_TRUE(leftOpen);
    close(next);
    EXPECT_EQ((std::vector<std::string>{
                  "/Database/doorlog/uilog.txt|API_Socket_Server_Init is error port=10010\n"}),
              logged);
    EXPECT_EQ(BIND, done.back());
    EXPECT_EQ(0, g_ClientSock);
}

} // namespace
