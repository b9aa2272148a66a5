// Any descriptor sets, modes and time-outs to the waiting, receiving and sending on real sockets. A
// wait without limit is asked for only where something is ready; buffers are as large as the sizes
// say, so that one byte too many shows.
#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "udp_socket.h"

enum { STEPS = 12, DESCRIPTORS = 9, DATAGRAM_MAX = 70000, PAYLOAD_MAX = 65507 };
enum { WAIT_MS = 2, CLOSED = 60 };

// CLOSED is a descriptor that is not open, below the 64 that the kernel always looks at.
static int g_fd; // of a socket that does not block; it sends to itself
static struct sockaddr_in g_self;

extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
int __wrap_usleep(unsigned nUs); // the pauses between retries
int __wrap_usleep(unsigned)
{
    return 0;
}
}

static void Require(bool bTrue)
{
    if (!bTrue) {
        std::abort();
    }
}

static void Open()
{
    g_fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    g_self.sin_family = AF_INET;
    g_self.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t nSize = sizeof(g_self);
    Require(bind(g_fd, reinterpret_cast<sockaddr*>(&g_self), nSize) == 0);
    Require(getsockname(g_fd, reinterpret_cast<sockaddr*>(&g_self), &nSize) == 0);
}

static void Wait(FuzzedDataProvider& input)
{
    std::vector<int> fds(input.ConsumeIntegralInRange<size_t>(0, DESCRIPTORS));
    for (int& fd : fds) {
        fd = input.PickValueInArray({g_fd, g_fd, 0, -1, +CLOSED, 1024, 2147483647});
    }
    const int nCount = input.ConsumeBool() ? static_cast<int>(fds.size()) : -1;
    const int nModes = input.ConsumeIntegral<int>();
    const bool bMember = std::count(fds.begin(), fds.end(), g_fd) > 0;
    const bool bReady = nCount > 0 && (nModes & SELECT_WRITE) != 0 && bMember;
    const int nWaitMs = bReady ? input.ConsumeIntegral<int>() : WAIT_MS;
    const int nResult = API_Socket_Select(fds.data(), nCount, nModes, nWaitMs, "fuzz");
    const int nAsked = nModes & (SELECT_READ | SELECT_WRITE | SELECT_EXCEPT);
    const int nEvent = (nAsked & -nAsked) << 16; // the lowest one asked for counts
    Require(nResult < 1 || (nResult == (g_fd | nEvent) && bMember));
    const bool bBroken = std::any_of(fds.begin(), fds.end(), [](int fd) { return fd >= CLOSED; });
    Require(!bReady || (bBroken ? nResult == -1 : nEvent != SELECT_EVENT_WRITE || nResult > 0));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Open();
    FuzzedDataProvider input(data, size);
    for (int i = 0; i < STEPS && input.remaining_bytes() > 0; ++i) {
        Wait(input);
        const int fd = input.PickValueInArray({g_fd, g_fd, g_fd, 0, -1, +CLOSED});
        const int nLength = input.ConsumeIntegralInRange<int>(-1, DATAGRAM_MAX);
        const std::vector<char> out(static_cast<size_t>(std::max(nLength, 0)), 'd');
        const bool bAddress = input.ConsumeBool();
        const sockaddr_in* const pAddr = bAddress ? &g_self : nullptr;
        const int nSent = NET_SocketFunc_UdpSend(fd, out.data(), nLength, pAddr);
        const bool bTried = fd > 0 && nLength > 0 && bAddress;
        Require(nSent == (!bTried ? 0 : fd == g_fd && nLength <= PAYLOAD_MAX ? nLength : -1));
        const int nSize = input.ConsumeIntegralInRange<int>(1, DATAGRAM_MAX);
        const int nWant = input.ConsumeIntegralInRange<int>(-1, nSize);
        std::vector<char> in(static_cast<size_t>(nSize));
        const int nGot = NET_SocketFunc_UdpRecv(fd, in.data(), nSize, nWant);
        Require(nGot >= -1 && nGot <= nSize);
        Require(std::count(in.begin(), in.end(), 'd') == std::max(nGot, 0));
    }
    close(g_fd);
    return 0;
}
