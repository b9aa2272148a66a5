// A datagram that came or went, and how it is shown.
#ifndef SIM_PANEL_EVENT_H
#define SIM_PANEL_EVENT_H

#include <cstdint>
#include <string>

#include "panel_frame.h"

struct PanelEvent {
    int64_t nTimeUs; // microseconds since the epoch: received by the kernel, or about to be sent
    bool bOut;       // sent by the panel
    PanelBytes datagram;
};

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
