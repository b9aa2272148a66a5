#include "panel_socket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <netinet/in.h>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

enum { PANEL_RECV_MAX = 65536 }; // bytes: no UDP datagram is longer, nor a packet on loopback

struct sockaddr_in LoopbackAddr(uint16_t port)
{
    struct sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

int64_t Microseconds(const struct timespec& time)
{
    return static_cast<int64_t>(time.tv_sec) * 1000000 + time.tv_nsec / 1000;
}

} // namespace

int64_t Panel_NowUs()
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
    const int on = 1;
    const struct sockaddr_in addr = LoopbackAddr(QRCODE_PEER_PORT);
    setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof(on)); // else our own clock is taken
    if (bind(fd, reinterpret_cast<const struct sockaddr*>(&addr), sizeof(addr)) != 0) {
        error = "cannot listen on 127.0.0.1:" + std::to_string(QRCODE_PEER_PORT) + ": " +
                std::strerror(errno);
        close(fd);
        return -1;
    }
    return fd;
}

bool Panel_IsBound(uint16_t port)
{
    // A socket for IPv6 takes IPv4's datagrams too, unless it was told not to; that does not show.
    const std::string addresses[] = {"0100007F", "00000000", std::string(32, '0'),
                                     "0000000000000000FFFF00000100007F"};
    char end[8];
    std::snprintf(end, sizeof(end), ":%04X", static_cast<unsigned int>(port));
    for (const char* const table : {"/proc/net/udp", "/proc/net/udp6"}) {
        std::ifstream sockets(table);
        std::string line;
        while (std::getline(sockets, line)) {
            std::string slot;
            std::string local;
            std::istringstream(line) >> slot >> local;
            for (const std::string& address : addresses) {
                if (local == address + end) {
                    return true;
                }
            }
        }
    }
    return false;
}

bool Panel_Receive(int fd, PanelEvent& event)
{
    return Panel_ReceiveFrom(fd, event, nullptr, 0);
}

bool Panel_ReceiveFrom(int fd, PanelEvent& event, void* from, size_t fromBytes)
{
    event.out = false;
    event.datagram.resize(PANEL_RECV_MAX);
    struct iovec part = {event.datagram.data(), event.datagram.size()};
    alignas(struct cmsghdr) char control[256] = {};
    struct msghdr msg = {};
    msg.msg_name = from;
    msg.msg_namelen = static_cast<socklen_t>(fromBytes);
    msg.msg_iov = &part;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof(control);
    const ssize_t received = recvmsg(fd, &msg, MSG_DONTWAIT);
    if (received < 0) {
        return false;
    }
    event.timeUs = Panel_NowUs();
    event.datagram.resize(static_cast<size_t>(received));
    for (struct cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
        if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS) {
            struct timespec arrived;
            std::memcpy(&arrived, CMSG_DATA(c), sizeof(arrived));
            event.timeUs = Microseconds(arrived);
        }
    }
    return true;
}

bool Panel_Send(int fd, const PanelBytes& datagram, PanelEvent& event, std::string& error)
{
    const struct sockaddr_in addr = LoopbackAddr(QRCODE_SERVER_PORT);
    event.timeUs = Panel_NowUs();
    event.out = true;
    event.datagram = datagram;
    if (sendto(fd, datagram.data(), datagram.size(), 0,
               reinterpret_cast<const struct sockaddr*>(&addr), sizeof(addr)) < 0) {
        error = std::string("cannot send: ") + std::strerror(errno);
        return false;
    }
    return true;
}
