#include "panel_socket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

enum { PANEL_RECV_MAX = 65536 }; // bytes: no UDP datagram is longer

static struct sockaddr_in LoopbackAddr(uint16_t nPort)
{
    struct sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(nPort);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

static int64_t Microseconds(const struct timespec& time)
{
    return static_cast<int64_t>(time.tv_sec) * 1000000 + time.tv_nsec / 1000;
}

static int64_t NowUs()
{
    struct timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return Microseconds(now);
}

int Panel_OpenSocket(std::string& error)
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        error = std::string("no socket: ") + std::strerror(errno);
        return -1;
    }
    const int nOn = 1;
    const struct sockaddr_in addr = LoopbackAddr(QRCODE_PEER_PORT);
    setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &nOn, sizeof(nOn)); // else our own clock is taken
    if (bind(fd, reinterpret_cast<const struct sockaddr*>(&addr), sizeof(addr)) != 0) {
        error = "cannot listen on 127.0.0.1:" + std::to_string(QRCODE_PEER_PORT) + ": " +
                std::strerror(errno);
        close(fd);
        return -1;
    }
    return fd;
}

bool Panel_Receive(int fd, PanelEvent& event)
{
    event.bOut = false;
    event.datagram.resize(PANEL_RECV_MAX);
    struct iovec part = {event.datagram.data(), event.datagram.size()};
    alignas(struct cmsghdr) char control[256] = {};
    struct msghdr msg = {};
    msg.msg_iov = &part;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof(control);
    const ssize_t nReceived = recvmsg(fd, &msg, MSG_DONTWAIT);
    if (nReceived < 0) {
        return false;
    }
    event.nTimeUs = NowUs();
    event.datagram.resize(static_cast<size_t>(nReceived));
    for (struct cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
        if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS) {
            struct timespec arrived;
            std::memcpy(&arrived, CMSG_DATA(c), sizeof(arrived));
            event.nTimeUs = Microseconds(arrived);
        }
    }
    return true;
}

bool Panel_Send(int fd, const PanelBytes& datagram, PanelEvent& event, std::string& error)
{
    const struct sockaddr_in addr = LoopbackAddr(QRCODE_SERVER_PORT);
    event.nTimeUs = NowUs();
    event.bOut = true;
    event.datagram = datagram;
    if (sendto(fd, datagram.data(), datagram.size(), 0,
               reinterpret_cast<const struct sockaddr*>(&addr), sizeof(addr)) < 0) {
        error = std::string("cannot send: ") + std::strerror(errno);
        return false;
    }
    return true;
}
