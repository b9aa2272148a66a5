// The frames of message.h from the main application's side: those that it sends, and what is read
// from those that it receives. Nothing here sends, receives or prints.
#ifndef SIM_PANEL_FRAME_H
#define SIM_PANEL_FRAME_H

#include <cstdint>
#include <string>
#include <vector>

#include "message.h"

// nMsgSource of the panel's frames; the service does not look at it.
enum { PANEL_SOURCE = 1 };

// The bytes of one datagram.
using PanelBytes = std::vector<uint8_t>;

// A frame without a payload: the 20-byte header alone.
PanelBytes Panel_CommandFrame(int32_t nCommand);

// MSG_CMD_QRCODE_PARAM with the mode byte in its place, in the smallest datagram that holds it.
PanelBytes Panel_ModeFrame(uint8_t nMode);

// Copies the header out of a datagram. Returns false when the datagram is shorter than a header.
bool Panel_ReadHead(const PanelBytes& datagram, MsgHead& head);

// The command's name in message.h, or null for one that is not there.
const char* Panel_CommandName(int32_t nCommand);

// The text of a MSG_CMD_QRCODE_RESULT: its payload up to the first zero or the datagram's end.
std::string Panel_ResultText(const PanelBytes& datagram);

#endif
