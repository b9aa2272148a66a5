#include "udp_socket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

int g_SelectIntrCount;

static const char LOOPBACK_ADDR[] = "127.0.0.1";

enum {
    SELECT_INTR_PRINTED = 100, // interruptions printed in the process's life
    SELECT_INTR_MAX = 9,       // interruptions of one wait that start it again
    SELECT_INTR_LINE = 104,    // places in the printed texts; fixed
    SELECT_GIVE_UP_LINE = 115,
    RETRY_MAX = 2, // pauses are made while the failures before are not above this: three in all
    RECV_PAUSE_US = 10000,
    SEND_PAUSE_US = 1000,
    SEND_FAILURE_MAX = 2000
};

static void FillLoopbackAddr(int nPort, struct sockaddr_in* pAddr)
{
    std::memset(pAddr, 0, sizeof(*pAddr));
    pAddr->sin_family = AF_INET;
    pAddr->sin_port = htons(static_cast<uint16_t>(nPort));
    pAddr->sin_addr.s_addr = inet_addr(LOOPBACK_ADDR);
}

// What the time-out options take: two 32-bit words where time is 32 bits wide.
static_assert(sizeof(time_t) != 4 || sizeof(struct timeval) == 8,
              "struct timeval must have 8 bytes for SO_SNDTIMEO and SO_RCVTIMEO");

static struct timeval TimevalOfMs(int nMs)
{
    const int nMicroseconds = (nMs % 1000) * 1000;
    struct timeval tv;
    tv.tv_sec = nMs / 1000;
    tv.tv_usec = nMicroseconds;
    return tv;
}

static bool IsTransient(int nError)
{
    return nError == EAGAIN || nError == EWOULDBLOCK || nError == EINTR;
}

int API_Socket_Server_Init(int nPort)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0); // a failure shows at bind
    struct sockaddr_in addr;
    FillLoopbackAddr(nPort, &addr);
    // A socket without some of its options is used as it is.
    NET_SocketFunc_SetSockOpt(fd, 1, SOCKET_WAIT_MS, SOCKET_WAIT_MS, 0, 0);
    if (bind(fd, reinterpret_cast<const struct sockaddr*>(&addr), sizeof(addr)) != 0) {
        std::printf("%s bind is error %d\n", "API_Socket_Server_Init", errno);
        return -1;
    }
    return fd;
}

int API_Socket_Client_Init(int nPort, struct sockaddr_in* pAddr)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    FillLoopbackAddr(nPort, pAddr);
    return fd;
}

int NET_SocketFunc_SetKeepAlive(int fd)
{
    if (fd < 1) {
        return -1;
    }
    const int nOn = 1;
    return setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &nOn, sizeof(nOn));
}

int NET_SocketFunc_SetSockOpt(int fd, int nReuse, int nSendMs, int nRecvMs, int nSendBuf,
                              int nRecvBuf)
{
    if (fd < 1) {
        return -1;
    }
    const struct timeval sendTime = TimevalOfMs(nSendMs);
    const struct timeval recvTime = TimevalOfMs(nRecvMs);
    NET_SocketFunc_SetKeepAlive(fd); // without effect on a datagram socket; kept all the same

    int nRet = 0;
    if (nReuse != 0 && setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &nReuse, sizeof(nReuse)) < 0) {
        nRet = -1;
    }
    if (nSendMs != 0 && setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &sendTime, sizeof(sendTime)) < 0) {
        nRet = -1;
    }
    if (nRecvMs != 0 && setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &recvTime, sizeof(recvTime)) < 0) {
        nRet = -1;
    }
    if (nSendBuf != 0 && setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &nSendBuf, sizeof(nSendBuf)) < 0) {
        nRet = -1;
    }
    if (nRecvBuf != 0 && setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &nRecvBuf, sizeof(nRecvBuf)) < 0) {
        nRet = -1;
    }
    return nRet;
}

// Puts the array's descriptors into one set. Returns the highest; 0 when there is none, -1 when one
// does not fit.
static int FillSet(const int* pSocks, int nCount, fd_set* pSet)
{
    int nHighest = 0;
    FD_ZERO(pSet);
    for (int i = 0; i < nCount; ++i) {
        if (pSocks[i] < 1) {
            continue;
        }
        if (pSocks[i] >= FD_SETSIZE) {
            return -1;
        }
        FD_SET(pSocks[i], pSet);
        if (pSocks[i] > nHighest) {
            nHighest = pSocks[i];
        }
    }
    return nHighest;
}

// Counts one interruption, prints the first ones of the process's life. Returns false at the one
// that ends the wait.
static bool GoOnAfterInterruption(int* pRetries, int nError, int nRet, const char* szCaller)
{
    if (g_SelectIntrCount < SELECT_INTR_PRINTED) {
        std::printf("func = %s, LINE = %d, error = %d, ret = %d, nfunc = %s\n", "API_Socket_Select",
                    SELECT_INTR_LINE, nError, nRet, szCaller);
    }
    ++g_SelectIntrCount;
    if (++*pRetries > SELECT_INTR_MAX) {
        std::printf("retunfunc = %s, LINE = %d, error = %d, ret = %d, nfunc = %s\n",
                    "API_Socket_Select", SELECT_GIVE_UP_LINE, nError, nRet, szCaller);
        return false;
    }
    return true;
}

int API_Socket_Select(const int* pSocks, int nCount, int nModes, int nWaitMs, const char* szCaller)
{
    if (pSocks == nullptr || nCount < 0) {
        return -1;
    }
    fd_set asked;
    const int nHighest = FillSet(pSocks, nCount, &asked);
    if (nHighest < 1) {
        return -1;
    }
    struct timeval wait = TimevalOfMs(nWaitMs);
    struct timeval* const pWait = nWaitMs > 0 ? &wait : nullptr;
    fd_set readSet = asked;
    fd_set writeSet = asked;
    fd_set exceptSet = asked;
    fd_set* const pRead = (nModes & SELECT_READ) != 0 ? &readSet : nullptr;
    fd_set* const pWrite = (nModes & SELECT_WRITE) != 0 ? &writeSet : nullptr;
    fd_set* const pExcept = (nModes & SELECT_EXCEPT) != 0 ? &exceptSet : nullptr;

    int nRetries = 0;
    int nRet = select(nHighest + 1, pRead, pWrite, pExcept, pWait);
    while (nRet < 0 && errno == EINTR) {
        if (!GoOnAfterInterruption(&nRetries, errno, nRet, szCaller)) {
            return 0;
        }
        nRet = select(nHighest + 1, pRead, pWrite, pExcept, pWait); // with what is left of the time
    }
    if (nRet <= 0) {
        return nRet < 0 ? -1 : 0;
    }

    // One set counts, on purpose: reading hides writing, and either hides exceptions.
    const fd_set* pReady = pExcept;
    int nEvent = SELECT_EVENT_EXCEPT;
    if (pRead != nullptr) {
        pReady = pRead;
        nEvent = SELECT_EVENT_READ;
    } else if (pWrite != nullptr) {
        pReady = pWrite;
        nEvent = SELECT_EVENT_WRITE;
    }
    for (int i = 0; pReady != nullptr && i < nCount; ++i) {
        if (pSocks[i] > 0 && FD_ISSET(pSocks[i], pReady)) {
            return pSocks[i] | nEvent;
        }
    }
    return 0;
}

int NET_SocketFunc_UdpRecv(int fd, void* pBuffer, int nSize, int nWant)
{
    const int nTarget = (nWant < 1 || pBuffer == nullptr || nSize < 1) ? nSize : nWant;
    int nReceived = 0;
    int nFailures = 0;
    while (nReceived < nTarget) {
        struct sockaddr_in peer;
        socklen_t nPeerLen = sizeof(peer);
        const ssize_t nRet = recvfrom(fd, static_cast<char*>(pBuffer) + nReceived,
                                      static_cast<size_t>(nTarget - nReceived), 0,
                                      reinterpret_cast<struct sockaddr*>(&peer), &nPeerLen);
        if (nRet == 0) {
            return -1;
        }
        if (nRet > 0) {
            nReceived += static_cast<int>(nRet);
            nFailures = 0;
            if (nWant > 0) {
                continue;
            }
            break;
        }
        if (!IsTransient(errno)) {
            return -1;
        }
        if (nFailures > RETRY_MAX) {
            break;
        }
        ++nFailures;
        usleep(RECV_PAUSE_US);
    }
    return nReceived;
}

int NET_SocketFunc_UdpSend(int fd, const void* pData, int nLength, const struct sockaddr_in* pAddr)
{
    if (fd < 1 || pData == nullptr || nLength < 1 || pAddr == nullptr) {
        return 0;
    }
    const char* pNext = static_cast<const char*>(pData);
    int nLeft = nLength;
    int nFailures = 0; // of the whole call, never reset
    while (nLeft > 0) {
        const ssize_t nRet =
            sendto(fd, pNext, static_cast<size_t>(nLeft), 0,
                   reinterpret_cast<const struct sockaddr*>(pAddr), sizeof(*pAddr));
        if (nRet == 0) {
            return -1;
        }
        if (nRet > 0) {
            pNext += nRet;
            nLeft -= static_cast<int>(nRet);
            continue;
        }
        if (nFailures > SEND_FAILURE_MAX) { // never reached behind RETRY_MAX; kept as it stands
            return -1;
        }
        if (!IsTransient(errno) || nFailures > RETRY_MAX) {
            return -1;
        }
        ++nFailures;
        usleep(SEND_PAUSE_US);
    }
    return nLength;
}
