#include "panel_frame.h"

#include <algorithm>
#include <cstring>

static PanelBytes Frame(int32_t nCommand, uint32_t nPayload)
{
    MsgHead head = {};
    head.nMsgSync = MSG_SYNC;
    head.nMsgCommand = nCommand;
    head.nMsgSource = PANEL_SOURCE;
    head.nMsgLength = nPayload;
    PanelBytes datagram(MSG_HEAD_SIZE + nPayload, 0);
    std::memcpy(datagram.data(), &head, sizeof(head));
    return datagram;
}

PanelBytes Panel_CommandFrame(int32_t nCommand)
{
    return Frame(nCommand, 0);
}

PanelBytes Panel_ModeFrame(uint8_t nMode)
{
    PanelBytes datagram = Frame(MSG_CMD_QRCODE_PARAM, MSG_PARAM_MODE_OFFSET + 1 - MSG_HEAD_SIZE);
    datagram[MSG_PARAM_MODE_OFFSET] = nMode;
    return datagram;
}

bool Panel_ReadHead(const PanelBytes& datagram, MsgHead& head)
{
    if (datagram.size() < sizeof(head)) {
        return false;
    }
    std::memcpy(&head, datagram.data(), sizeof(head));
    return true;
}

const char* Panel_CommandName(int32_t nCommand)
{
    switch (nCommand) {
    case MSG_CMD_QRCODE_START:
        return "MSG_CMD_QRCODE_START";
    case MSG_CMD_QRCODE_PARAM:
        return "MSG_CMD_QRCODE_PARAM";
    case MSG_CMD_QRCODE_ENABLE:
        return "MSG_CMD_QRCODE_ENABLE";
    case MSG_CMD_QRCODE_RESULT:
        return "MSG_CMD_QRCODE_RESULT";
    case MSG_CMD_QRCODE_DISABLE:
        return "MSG_CMD_QRCODE_DISABLE";
    case MSG_CMD_QRCODE_STOP:
        return "MSG_CMD_QRCODE_STOP";
    default:
        return nullptr;
    }
}

std::string Panel_ResultText(const PanelBytes& datagram)
{
    if (datagram.size() <= MSG_HEAD_SIZE) {
        return "";
    }
    const auto begin = datagram.begin() + MSG_HEAD_SIZE;
    return std::string(begin, std::find(begin, datagram.end(), 0));
}
