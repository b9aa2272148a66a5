// A datagram socket on an ephemeral loopback port.
#ifndef TESTS_UDP_PEER_H
#define TESTS_UDP_PEER_H

#include <arpa/inet.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

struct UdpPeer {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};

    explicit UdpPeer(int port = 0)
    {
        addr.sin_family = AF_INET;
        addr.sin_port = htons(static_cast<uint16_t>(port));
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bound = bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
        socklen_t length = sizeof(addr);
        getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &length);
    }
    ~UdpPeer() { close(fd); }
    UdpPeer(const UdpPeer&) = delete;
    UdpPeer& operator=(const UdpPeer&) = delete;

    void SendTo(const sockaddr_in& to, const std::string& bytes) const
    {
        sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
               sizeof(to));
    }

    // The next datagram; false when none comes in time.
    bool Receive(std::string& bytes, int waitMs = 10000) const
    {
        const timeval wait = {waitMs / 1000, (waitMs % 1000) * 1000L};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait));
        std::string buffer(65536, '\0');
        const ssize_t length = recv(fd, buffer.data(), buffer.size(), 0);
        bytes = buffer.substr(0, length > 0 ? static_cast<size_t>(length) : 0);
        return length >= 0;
    }

    bool bound = false;
};

#endif
