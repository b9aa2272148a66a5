#include "panel_event.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>

#include "text.h"

namespace
{

const int64_t US_PER_S = 1000000;
const int32_t PANEL_SOURCE = 1;

struct CommandName {
    int32_t command;
    const char* name;
};

const CommandName COMMAND_NAMES[] = {{MSG_CMD_QRCODE_START, "MSG_CMD_QRCODE_START"},
                                     {MSG_CMD_QRCODE_PARAM, "MSG_CMD_QRCODE_PARAM"},
                                     {MSG_CMD_QRCODE_ENABLE, "MSG_CMD_QRCODE_ENABLE"},
                                     {MSG_CMD_QRCODE_RESULT, "MSG_CMD_QRCODE_RESULT"},
                                     {MSG_CMD_QRCODE_DISABLE, "MSG_CMD_QRCODE_DISABLE"},
                                     {MSG_CMD_QRCODE_STOP, "MSG_CMD_QRCODE_STOP"}};

// The command's name in message.h, or `unknown` for one that is not there.
std::string NameOf(int32_t command, const char* unknown)
{
    for (const CommandName& known : COMMAND_NAMES) {
        if (known.command == command) {
            return known.name;
        }
    }
    return unknown;
}

PanelBytes Frame(int32_t command, uint32_t payload)
{
    MsgHead head = {};
    head.nMsgSync = MSG_SYNC;
    head.nMsgCommand = command;
    head.nMsgSource = PANEL_SOURCE; // the service does not look at it
    head.nMsgLength = payload;
    PanelBytes datagram(MSG_HEAD_SIZE + payload, 0);
    std::memcpy(datagram.data(), &head, sizeof(head));
    return datagram;
}

std::string CommandText(int32_t command)
{
    char hex[16];
    std::snprintf(hex, sizeof(hex), "0x%x", static_cast<unsigned int>(command));
    return hex;
}

bool HasMode(const MsgHead& head, const PanelBytes& datagram)
{
    return head.nMsgCommand == MSG_CMD_QRCODE_PARAM && datagram.size() > MSG_PARAM_MODE_OFFSET;
}

} // namespace

std::string Panel_ClockText(int64_t timeUs)
{
    const time_t seconds = static_cast<time_t>(timeUs / US_PER_S);
    struct tm local = {};
    localtime_r(&seconds, &local);
    char clock[16];
    std::strftime(clock, sizeof(clock), "%H:%M:%S", &local);
    char all[32];
    std::snprintf(all, sizeof(all), "%s.%06d", clock, static_cast<int>(timeUs % US_PER_S));
    return all;
}

PanelBytes Panel_CommandFrame(int32_t command)
{
    return Frame(command, 0);
}

PanelBytes Panel_ModeFrame(uint8_t mode)
{
    PanelBytes datagram = Frame(MSG_CMD_QRCODE_PARAM, MSG_PARAM_MODE_OFFSET + 1 - MSG_HEAD_SIZE);
    datagram[MSG_PARAM_MODE_OFFSET] = mode;
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

std::string Panel_ResultText(const PanelBytes& datagram)
{
    if (datagram.size() <= MSG_HEAD_SIZE) {
        return "";
    }
    const auto begin = datagram.begin() + MSG_HEAD_SIZE;
    return std::string(begin, std::find(begin, datagram.end(), 0));
}

std::string Panel_EventLine(const PanelEvent& event)
{
    std::string line = Panel_ClockText(event.timeUs) + (event.out ? " out " : " in  ");
    const std::string bytes = std::to_string(event.datagram.size()) + " bytes";
    MsgHead head;
    if (!Panel_ReadHead(event.datagram, head)) {
        return line + "datagram shorter than a header, " + bytes;
    }
    line += NameOf(head.nMsgCommand, "unknown command") + " " + CommandText(head.nMsgCommand) +
            ", " + bytes;
    if (HasMode(head, event.datagram)) {
        line += ": mode " + std::to_string(event.datagram[MSG_PARAM_MODE_OFFSET]);
    }
    if (head.nMsgCommand == MSG_CMD_QRCODE_RESULT) {
        line += ": \"" + Text_Escape(Panel_ResultText(event.datagram)) + "\"";
    }
    return line;
}

std::string Panel_EventJson(const PanelEvent& event)
{
    nlohmann::ordered_json json;
    json["time"] = static_cast<double>(event.timeUs) / static_cast<double>(US_PER_S);
    json["direction"] = event.out ? "out" : "in";
    json["command"] = nullptr;
    json["name"] = "short";
    json["bytes"] = event.datagram.size();
    MsgHead head;
    if (Panel_ReadHead(event.datagram, head)) {
        json["command"] = CommandText(head.nMsgCommand);
        json["name"] = NameOf(head.nMsgCommand, "unknown");
        if (HasMode(head, event.datagram)) {
            json["mode"] = event.datagram[MSG_PARAM_MODE_OFFSET];
        }
        if (head.nMsgCommand == MSG_CMD_QRCODE_RESULT) {
            const std::string text = Panel_ResultText(event.datagram);
            json["text"] = text;
            json["hex"] = Text_Hex(text);
        }
    }
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}
