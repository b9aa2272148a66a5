// The datagrams between the service and its main application, from the application's side: the
// frames of message.h that it sends, what is read from those that it receives, and how either is
// printed. Nothing here sends or receives.
#ifndef SIM_PANEL_EVENT_H
#define SIM_PANEL_EVENT_H

#include <cstdint>
#include <string>
#include <vector>

#include "message.h"

// The bytes of one datagram.
using PanelBytes = std::vector<uint8_t>;

// A frame without a payload: the 20-byte header alone.
PanelBytes Panel_CommandFrame(int32_t command);

// MSG_CMD_QRCODE_PARAM with the mode byte in its place, in the smallest datagram that holds it.
PanelBytes Panel_ModeFrame(uint8_t mode);

// Copies the header out of a datagram. Returns false when the datagram is shorter than a header.
bool Panel_ReadHead(const PanelBytes& datagram, MsgHead& head);

// The text of a MSG_CMD_QRCODE_RESULT: its payload up to the first zero or the datagram's end.
std::string Panel_ResultText(const PanelBytes& datagram);

// A datagram received or sent.
struct PanelEvent {
    int64_t timeUs; // microseconds since the epoch: received by the kernel, or about to be sent
    bool out;       // sent by the panel
    PanelBytes datagram;
};

// "hh:mm:ss.uuuuuu", local time.
std::string Panel_ClockText(int64_t timeUs);

// One line without its line end for a person: local time, direction, command, what it carries.
std::string Panel_EventLine(const PanelEvent& event);

// One JSON object on one line without its line end:
//   "time"       seconds since the epoch, with microseconds
//   "direction"  "in" or "out"
//   "command"    "0x904"; null for a datagram shorter than a header
//   "name"       as in message.h; "unknown", or "short" for a datagram shorter than a header
//   "bytes"      length of the datagram
//   "mode"       of a MSG_CMD_QRCODE_PARAM that holds one
//   "text"       of a MSG_CMD_QRCODE_RESULT, bytes that are no UTF-8 replaced
//   "hex"        of a MSG_CMD_QRCODE_RESULT, the text's exact bytes
std::string Panel_EventJson(const PanelEvent& event);

#endif
