// The datagrams between a service and its main application, seen on the loopback interface from
// outside, whoever sends them and whether or not anybody receives them. Neither side notices.
//
// Wants CAP_NET_RAW in this network namespace: root, or scripts/private-world.sh --open.
#ifndef SIM_LINK_TAP_H
#define SIM_LINK_TAP_H

#include <string>

#include "panel_event.h"

struct LinkTap {
    int fd = -1;          // readable when there is something to take
    int servicePort = -1; // where the service's frames come from, once its hello was seen
};

// Datagrams from now on are seen. Returns false with the reason in `error`.
bool Tap_Open(LinkTap& tap, std::string& error);

void Tap_Close(LinkTap& tap);

enum TapNews {
    TAP_NONE,     // nothing is there
    TAP_DATAGRAM, // `event` is one to QRCODE_PEER_PORT, or (`out`) to QRCODE_SERVER_PORT
    TAP_ASTRAY,   // ... to the port that the service's hello came from; `out`
    TAP_LOST      // nothing is bound to the port of an earlier one; `event.out` says which
};

// Takes what is there, in the order in which it was sent; times are the kernel's. Never blocks.
TapNews Tap_Take(LinkTap& tap, PanelEvent& event);

// Packets that came faster than they were taken, since the last call: they are not seen.
unsigned int Tap_Missed(const LinkTap& tap);

#endif
