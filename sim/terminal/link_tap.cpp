#include "link_tap.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/ip_icmp.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "panel_socket.h"

namespace
{

enum { TAP_BUFFER_BYTES = 4 << 20 }; // a burst of some thousand small datagrams

// Copies a header out of the packet. Returns false when the packet is shorter.
template <typename Header> bool ReadHeader(const PanelBytes& packet, size_t offset, Header& header)
{
    if (packet.size() < offset + sizeof(header)) {
        return false;
    }
    std::memcpy(&header, packet.data() + offset, sizeof(header));
    return true;
}

size_t HeaderBytes(const struct iphdr& ip)
{
    return size_t{ip.ihl} * sizeof(uint32_t);
}

// Reads a UDP packet's headers at `offset`; sets the payload's offset. Returns TAP_NONE when it is
// not between our two.
TapNews ReadUdp(const PanelBytes& packet, size_t offset, bool& out, size_t& payload)
{
    struct iphdr ip = {};
    struct udphdr udp = {};
    if (!ReadHeader(packet, offset, ip) || ip.protocol != IPPROTO_UDP ||
        ip.daddr != htonl(INADDR_LOOPBACK) || !ReadHeader(packet, offset + HeaderBytes(ip), udp)) {
        return TAP_NONE;
    }
    payload = offset + HeaderBytes(ip) + sizeof(udp);
    out = ntohs(udp.dest) != QRCODE_PEER_PORT;
    return !out || ntohs(udp.dest) == QRCODE_SERVER_PORT ? TAP_DATAGRAM
           : ntohs(udp.source) == QRCODE_PEER_PORT       ? TAP_ASTRAY
                                                         : TAP_NONE;
}

TapNews Look(PanelEvent& event)
{
    struct iphdr ip = {};
    struct icmphdr icmp = {};
    size_t payload = 0;
    const TapNews news = ReadUdp(event.datagram, 0, event.out, payload);
    if (news != TAP_NONE) {
        event.datagram.erase(event.datagram.begin(),
                             event.datagram.begin() + static_cast<std::ptrdiff_t>(payload));
        return news;
    }
    if (ReadHeader(event.datagram, 0, ip) && ip.protocol == IPPROTO_ICMP &&
        ReadHeader(event.datagram, HeaderBytes(ip), icmp) && icmp.type == ICMP_DEST_UNREACH &&
        icmp.code == ICMP_PORT_UNREACH &&
        ReadUdp(event.datagram, HeaderBytes(ip) + sizeof(icmp), event.out, payload) ==
            TAP_DATAGRAM) {
        event.datagram.clear();
        return TAP_LOST;
    }
    return TAP_NONE;
}

} // namespace

int Tap_Open(std::string& error)
{
    // All protocols: such a packet is seen before its receiver gets it, so that an answer never
    // comes before what it answers.
    const int fd = socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_ALL));
    struct sockaddr_ll loopback = {};
    loopback.sll_family = AF_PACKET;
    loopback.sll_protocol = htons(ETH_P_ALL);
    loopback.sll_ifindex = static_cast<int>(if_nametoindex("lo"));
    const int on = 1;
    const int bytes = TAP_BUFFER_BYTES;
    if (fd < 0 ||
        bind(fd, reinterpret_cast<const struct sockaddr*>(&loopback), sizeof(loopback)) != 0) {
        error = std::string("cannot watch the loopback interface: ") + std::strerror(errno);
        if (fd >= 0) {
            close(fd);
        }
        return -1;
    }
    setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof(on));
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof(bytes)) != 0) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes)); // as much as anybody may have
    }
    return fd;
}

TapNews Tap_Take(int fd, PanelEvent& event)
{
    struct sockaddr_ll from = {};
    while (fd >= 0 && Panel_ReceiveFrom(fd, event, &from, sizeof(from))) {
        // The loopback interface shows each packet twice, leaving and arriving.
        const TapNews news = from.sll_pkttype == PACKET_OUTGOING ? TAP_NONE : Look(event);
        if (news != TAP_NONE) {
            return news;
        }
    }
    return TAP_NONE;
}

unsigned int Tap_Missed(int fd)
{
    struct tpacket_stats stats = {};
    socklen_t size = sizeof(stats);
    getsockopt(fd, SOL_PACKET, PACKET_STATISTICS, &stats, &size);
    return stats.tp_drops;
}
