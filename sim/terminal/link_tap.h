// The datagrams between a service and its main application, seen on the loopback interface from
// outside, whoever sends them and whether or not anybody receives them. Neither side notices.
//
// Wants CAP_NET_RAW in this network namespace: root, or scripts/private-world.sh --open.
#ifndef SIM_LINK_TAP_H
#define SIM_LINK_TAP_H

#include <string>

#include "panel_event.h"

// Returns a descriptor, the caller's to close, that is readable when there is something to take; or
// -1 with the reason in `error`. Datagrams from now on are seen.
int Tap_Open(std::string& error);

enum TapNews {
    TAP_NONE,     // nothing is there
    TAP_DATAGRAM, // `event` is one to QRCODE_PEER_PORT, or (`out`) to QRCODE_SERVER_PORT
    TAP_ASTRAY,   // ... from QRCODE_PEER_PORT to another port of 127.0.0.1; `out`
    TAP_LOST      // nothing is bound to the port of an earlier one; `event.out` says which
};

// Takes what is there, in the order in which it was sent; times are the kernel's. Never blocks.
TapNews Tap_Take(int fd, PanelEvent& event);

// Packets that came faster than they were taken, since the last call: they are not seen.
unsigned int Tap_Missed(int fd);

#endif
