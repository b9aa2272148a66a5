// The panel's one socket: 127.0.0.1:QRCODE_PEER_PORT, sending to 127.0.0.1:QRCODE_SERVER_PORT.
#ifndef SIM_PANEL_SOCKET_H
#define SIM_PANEL_SOCKET_H

#include <string>

#include "panel_event.h"

// Makes and binds the socket; the kernel notes each datagram's time of arrival on it. Returns its
// descriptor, the caller's to close; or -1 with the reason in `error`.
int Panel_OpenSocket(std::string& error);

// Microseconds since the epoch.
int64_t Panel_NowUs();

// True when a UDP socket of this network namespace is bound to the port and gets what is sent to
// 127.0.0.1 there.
bool Panel_IsBound(uint16_t port);

// Takes one datagram that is there already. Returns false when there is none. ReceiveFrom takes the
// sender's address too, of the kind that the socket has.
bool Panel_Receive(int fd, PanelEvent& event);
bool Panel_ReceiveFrom(int fd, PanelEvent& event, void* from, size_t fromBytes);

// Sends one datagram to the service and makes the event of it. Returns false, with the reason in
// `error`, when sendto fails; it does not fail when nobody listens.
bool Panel_Send(int fd, const PanelBytes& datagram, PanelEvent& event, std::string& error);

#endif
