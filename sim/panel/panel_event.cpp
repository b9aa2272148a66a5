#include "panel_event.h"

#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

#include "text_escape.h"

static const int64_t US_PER_S = 1000000;

// "hh:mm:ss.uuuuuu", local time.
static std::string ClockText(int64_t nTimeUs)
{
    const time_t seconds = static_cast<time_t>(nTimeUs / US_PER_S);
    struct tm local = {};
    localtime_r(&seconds, &local);
    char szClock[16];
    std::strftime(szClock, sizeof(szClock), "%H:%M:%S", &local);
    char szAll[32];
    std::snprintf(szAll, sizeof(szAll), "%s.%06d", szClock, static_cast<int>(nTimeUs % US_PER_S));
    return szAll;
}

static std::string CommandText(int32_t nCommand)
{
    char szHex[16];
    std::snprintf(szHex, sizeof(szHex), "0x%x", static_cast<unsigned int>(nCommand));
    return szHex;
}

static bool HasMode(const MsgHead& head, const PanelBytes& datagram)
{
    return head.nMsgCommand == MSG_CMD_QRCODE_PARAM && datagram.size() > MSG_PARAM_MODE_OFFSET;
}

std::string Panel_EventLine(const PanelEvent& event)
{
    std::string line = ClockText(event.nTimeUs) + (event.bOut ? " out " : " in  ");
    const std::string bytes = std::to_string(event.datagram.size()) + " bytes";
    MsgHead head;
    if (!Panel_ReadHead(event.datagram, head)) {
        return line + "datagram shorter than a header, " + bytes;
    }
    const char* szName = Panel_CommandName(head.nMsgCommand);
    line += szName != nullptr ? szName : "unknown command";
    line += " " + CommandText(head.nMsgCommand) + ", " + bytes;
    if (HasMode(head, event.datagram)) {
        line += ": mode " + std::to_string(event.datagram[MSG_PARAM_MODE_OFFSET]);
    }
    if (head.nMsgCommand == MSG_CMD_QRCODE_RESULT) {
        line += ": \"" + Panel_EscapeText(Panel_ResultText(event.datagram)) + "\"";
    }
    return line;
}

std::string Panel_EventJson(const PanelEvent& event)
{
    nlohmann::ordered_json json;
    json["time"] = static_cast<double>(event.nTimeUs) / static_cast<double>(US_PER_S);
    json["direction"] = event.bOut ? "out" : "in";
    json["command"] = nullptr;
    json["name"] = "short";
    json["bytes"] = event.datagram.size();
    MsgHead head;
    if (Panel_ReadHead(event.datagram, head)) {
        const char* szName = Panel_CommandName(head.nMsgCommand);
        json["command"] = CommandText(head.nMsgCommand);
        json["name"] = szName != nullptr ? szName : "unknown";
        if (HasMode(head, event.datagram)) {
            json["mode"] = event.datagram[MSG_PARAM_MODE_OFFSET];
        }
        if (head.nMsgCommand == MSG_CMD_QRCODE_RESULT) {
            const std::string text = Panel_ResultText(event.datagram);
            json["text"] = text;
            json["hex"] = Panel_HexText(text);
        }
    }
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}
