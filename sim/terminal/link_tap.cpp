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

// Of a UDP packet to 127.0.0.1.
struct UdpEnds {
    int source = 0;
    int dest = 0;
    size_t payload = 0; // offset in the packet
};

// Reads a UDP packet's headers at `offset`. Returns false for any other packet.
bool ReadUdp(const PanelBytes& packet, size_t offset, UdpEnds& ends)
{
    struct iphdr ip = {};
    struct udphdr udp = {};
    if (!ReadHeader(packet, offset, ip) || ip.protocol != IPPROTO_UDP ||
        ip.daddr != htonl(INADDR_LOOPBACK) || !ReadHeader(packet, offset + HeaderBytes(ip), udp)) {
        return false;
    }
    ends.source = ntohs(udp.source);
    ends.dest = ntohs(udp.dest);
    ends.payload = offset + HeaderBytes(ip) + sizeof(udp);
    return true;
}

bool IsOurs(const UdpEnds& ends)
{
    return ends.dest == QRCODE_PEER_PORT || ends.dest == QRCODE_SERVER_PORT;
}

TapNews LookAtUdp(LinkTap& tap, const UdpEnds& ends, PanelEvent& event)
{
    const bool astray = ends.dest == tap.servicePort;
    if (!IsOurs(ends) && !astray) {
        return TAP_NONE;
    }
    event.out = ends.dest != QRCODE_PEER_PORT;
    event.datagram.erase(event.datagram.begin(),
                         event.datagram.begin() + static_cast<std::ptrdiff_t>(ends.payload));
    MsgHead head = {};
    if (!event.out && tap.servicePort < 0 && Panel_ReadHead(event.datagram, head) &&
        head.nMsgCommand == MSG_CMD_QRCODE_START) {
        tap.servicePort = ends.source;
    }
    return astray ? TAP_ASTRAY : TAP_DATAGRAM;
}

TapNews Look(LinkTap& tap, PanelEvent& event)
{
    struct iphdr ip = {};
    struct icmphdr icmp = {};
    UdpEnds ends;
    if (ReadUdp(event.datagram, 0, ends)) {
        return LookAtUdp(tap, ends, event);
    }
    if (ReadHeader(event.datagram, 0, ip) && ip.protocol == IPPROTO_ICMP &&
        ReadHeader(event.datagram, HeaderBytes(ip), icmp) && icmp.type == ICMP_DEST_UNREACH &&
        icmp.code == ICMP_PORT_UNREACH &&
        ReadUdp(event.datagram, HeaderBytes(ip) + sizeof(icmp), ends) && IsOurs(ends)) {
        event.out = ends.dest == QRCODE_SERVER_PORT;
        event.datagram.clear();
        return TAP_LOST;
    }
    return TAP_NONE;
}

} // namespace

bool Tap_Open(LinkTap& tap, std::string& error)
{
    // All protocols: such a packet is seen before its receiver gets it, so that an answer never
    // comes before what it answers.
    tap.fd = socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_ALL));
    struct sockaddr_ll loopback = {};
    loopback.sll_family = AF_PACKET;
    loopback.sll_protocol = htons(ETH_P_ALL);
    loopback.sll_ifindex = static_cast<int>(if_nametoindex("lo"));
    const int on = 1;
    const int bytes = TAP_BUFFER_BYTES;
    if (tap.fd < 0 ||
        bind(tap.fd, reinterpret_cast<const struct sockaddr*>(&loopback), sizeof(loopback)) != 0) {
        error = std::string("cannot watch the loopback interface: ") + std::strerror(errno);
        Tap_Close(tap);
        return false;
    }
    setsockopt(tap.fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof(on));
    if (setsockopt(tap.fd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof(bytes)) != 0) {
        setsockopt(tap.fd, SOL_SOCKET, SO_RCVBUF, &bytes,
                   sizeof(bytes)); // as much as anybody may have
    }
    return true;
}

void Tap_Close(LinkTap& tap)
{
    if (tap.fd >= 0) {
        close(tap.fd);
        tap.fd = -1;
    }
}

TapNews Tap_Take(LinkTap& tap, PanelEvent& event)
{
    struct sockaddr_ll from = {};
    while (tap.fd >= 0 && Panel_ReceiveFrom(tap.fd, event, &from, sizeof(from))) {
        // The loopback interface shows each packet twice, leaving and arriving.
        const TapNews news = from.sll_pkttype == PACKET_OUTGOING ? TAP_NONE : Look(tap, event);
        if (news != TAP_NONE) {
            return news;
        }
    }
    return TAP_NONE;
}

unsigned int Tap_Missed(const LinkTap& tap)
{
    struct tpacket_stats stats = {};
    socklen_t size = sizeof(stats);
    getsockopt(tap.fd, SOL_PACKET, PACKET_STATISTICS, &stats, &size);
    return stats.tp_drops;
}
