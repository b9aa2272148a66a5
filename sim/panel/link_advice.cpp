#include "link_advice.h"

#include <algorithm>
#include <cstdio>

namespace
{

enum {
    LOOK_GRACE_MS = 20,    // the service looks a little later than after QRCODE_ANSWER_MS
    IDLE_SAID_MS = 3000,   // after the hello: an application that wants to read has said so
    PICTURE_WAIT_MS = 3000 // an enabled service that scans takes its first within a second
};

const int64_t US_PER_MS = 1000;
const char UNTIL[] = " until a mode other than 0 and 3 comes";
const char PARKED[] = "the service is parked for good; only a new start of it ends that";

std::string Hex(uint32_t word)
{
    char hex[16];
    std::snprintf(hex, sizeof(hex), "0x%x", word);
    return hex;
}

bool IsFrozen(uint8_t mode)
{
    return mode == QRCODE_MODE_NEVER || mode == QRCODE_MODE_FROZEN;
}

bool IsReceived(uint32_t command)
{
    return command == MSG_CMD_QRCODE_PARAM || command == MSG_CMD_QRCODE_ENABLE ||
           command == MSG_CMD_QRCODE_DISABLE || command == MSG_CMD_QRCODE_STOP;
}

int64_t SinceHelloMs(const LinkAdvice& advice, int64_t timeUs)
{
    return (timeUs - advice.helloUs) / US_PER_MS;
}

// The service's own frame: it sends none without these.
bool IsHello(const PanelBytes& datagram)
{
    MsgHead head = {};
    return Panel_ReadHead(datagram, head) && head.nMsgCommand == MSG_CMD_QRCODE_START &&
           head.nMsgSync == MSG_SYNC && head.nMsgSource == MSG_SOURCE_QRCODE &&
           datagram.size() == MSG_HEAD_SIZE;
}

// What becomes of reading while the enable flag is frozen.
std::string Stays(const LinkAdvice& advice)
{
    if (advice.fate == FATE_OPEN && advice.enabled) {
        return "the enable flag stays on"; // whether it reads is not settled
    }
    return std::string("reading stays ") +
           (advice.enabled && advice.fate == FATE_SCANS ? "on" : "off");
}

void TakeMode(LinkAdvice& advice, const PanelEvent& event, LinkNotes& notes)
{
    const bool held = event.datagram.size() > MSG_PARAM_MODE_OFFSET;
    const uint8_t mode = held ? event.datagram[MSG_PARAM_MODE_OFFSET] : uint8_t{QRCODE_MODE_NEVER};
    if (!held) {
        notes.push_back("too short to hold the mode byte at offset " +
                        std::to_string(MSG_PARAM_MODE_OFFSET) + ": it sets mode 0");
    }
    const std::string name = "mode " + std::to_string(mode);
    const bool other = (mode == QRCODE_MODE_NEVER) != (advice.mode == QRCODE_MODE_NEVER);
    const bool late = other && advice.helloUs != 0 && advice.fate == FATE_OPEN &&
                      SinceHelloMs(advice, event.timeUs) >= QRCODE_ANSWER_MS;
    advice.mode = mode;
    advice.modeCame = true;
    char since[40];
    std::snprintf(since, sizeof(since), "%.3f s after 0x602",
                  static_cast<double>(event.timeUs - advice.helloUs) / 1e6);
    if (advice.fate == FATE_PARKED) {
        notes.push_back(name + " came " + since + ", later than 0.3 s: the service stays parked");
    } else if (late) {
        notes.push_back(name + " came " + since + ", too late to be sure that it counts");
    } else if (advice.fate == FATE_OPEN && mode == QRCODE_MODE_NEVER) {
        notes.push_back("mode 0: the service parks for good, unless another mode follows within "
                        "0.3 s of 0x602");
    } else if (IsFrozen(mode)) {
        notes.push_back(name + ": " + Stays(advice) + ", 0x903, 0x905 and 0x90d are ignored" +
                        UNTIL);
    }
}

void TakeSwitch(LinkAdvice& advice, uint32_t command, int64_t timeUs, LinkNotes& notes)
{
    const bool enable = command == MSG_CMD_QRCODE_ENABLE;
    if (IsFrozen(advice.mode)) {
        notes.push_back("ignored, because the mode is " + std::to_string(advice.mode) +
                        (advice.modeCame ? "" : ": no 0x604 has come") + "; " + Stays(advice));
        return;
    }
    advice.enabledUs = enable && !advice.enabled ? timeUs : advice.enabledUs;
    advice.enabled = enable;
    if (enable && advice.fate == FATE_PARKED) {
        notes.push_back(std::string("without effect: ") + PARKED);
    }
}

void TakeUnknown(uint32_t command, LinkNotes& notes)
{
    const uint32_t swapped = __builtin_bswap32(command);
    std::string note = Hex(command) + " is no command to the service: logged, otherwise ignored";
    if (IsReceived(swapped)) {
        note += "; are these the bytes of " + Hex(swapped) + " in the wrong order?";
    }
    notes.push_back(note);
}

} // namespace

LinkNotes Advice_Datagram(LinkAdvice& advice, const PanelEvent& event)
{
    LinkNotes notes;
    MsgHead head = {};
    std::copy_n(event.datagram.begin(), std::min(event.datagram.size(), sizeof(head)),
                reinterpret_cast<uint8_t*>(&head)); // what is missing reads as zero
    const auto command = static_cast<uint32_t>(head.nMsgCommand);
    if (!event.out) {
        if (command == MSG_CMD_QRCODE_START) {
            const bool first = IsHello(event.datagram) && advice.helloUs == 0;
            advice.helloUs = first ? event.timeUs : advice.helloUs;
            if (!first) {
                notes.push_back("not this service's: it sends a whole 0x602, once");
            }
        }
        if (IsReceived(command)) {
            notes.push_back(Hex(command) +
                            " went to the main application's own port; the service "
                            "listens on 127.0.0.1:" +
                            std::to_string(QRCODE_SERVER_PORT));
        }
        return notes;
    }
    if (event.datagram.empty()) {
        return advice.helloUs == 0
                   ? notes
                   : LinkNotes{"empty: the service logs a receive error and ignores it"};
    }
    if (event.datagram.size() < MSG_HEAD_SIZE) {
        notes.push_back("shorter than a header: what is missing counts as zero, so the command "
                        "is " +
                        Hex(command));
    } else if (head.nMsgSync != MSG_SYNC && !advice.saidSync) {
        advice.saidSync = advice.helloUs != 0;
        notes.push_back("the sync word is " + Hex(head.nMsgSync) + ", not " + Hex(MSG_SYNC) +
                        ": the service does not look at it, and obeys all the same");
    }
    if (command == MSG_CMD_QRCODE_PARAM) {
        TakeMode(advice, event, notes);
    } else if (IsReceived(command)) {
        TakeSwitch(advice, command, event.timeUs, notes);
    } else {
        TakeUnknown(command, notes);
    }
    return advice.helloUs != 0 ? notes : LinkNotes(); // before, it may be lost
}

LinkNotes Advice_Lost(LinkAdvice& advice, const PanelEvent& event)
{
    const std::string port = std::to_string(event.out ? QRCODE_SERVER_PORT : QRCODE_PEER_PORT);
    std::string note = "lost: nothing is bound to 127.0.0.1:" + port;
    if (event.out) {
        advice = LinkAdvice(); // no service, no flags
        return {note + ", the service is not up; it says 0x602 when it is"};
    }
    MsgHead head = {};
    const bool whole = Panel_ReadHead(event.datagram, head); // the service sends no shorter one
    if (whole && head.nMsgCommand == MSG_CMD_QRCODE_START) {
        note += "; 0x602 is sent once only";
    } else if (whole && head.nMsgCommand == MSG_CMD_QRCODE_RESULT) {
        note += "; it does not come again while the code stays in view";
    } else {
        return {note};
    }
    return {note + ". The service sends there, never to where a command came from"};
}

LinkNotes Advice_Astray()
{
    return {"not sent to 127.0.0.1:" + std::to_string(QRCODE_SERVER_PORT) +
            ": the service reads nothing at the port that its frames come from"};
}

LinkNotes Advice_Time(LinkAdvice& advice, int64_t nowUs)
{
    LinkNotes notes;
    if (advice.helloUs == 0) {
        return notes;
    }
    const int64_t sinceMs = SinceHelloMs(advice, nowUs);
    if (advice.fate == FATE_OPEN && sinceMs >= QRCODE_ANSWER_MS + LOOK_GRACE_MS) {
        advice.fate = advice.mode == QRCODE_MODE_NEVER ? FATE_PARKED : FATE_SCANS;
        if (advice.fate == FATE_PARKED) {
            notes.push_back(std::string(advice.modeCame ? "no mode but 0 came" : "no 0x604 came") +
                            " within 0.3 s of 0x602: " + PARKED);
        }
    }
    if (advice.fate != FATE_SCANS || advice.saidIdle || advice.pictureCame) {
        return notes;
    }
    if (advice.enabledUs == 0 && sinceMs >= IDLE_SAID_MS) {
        advice.saidIdle = true;
        notes.push_back("no 0x903 was obeyed: the service idles and takes no picture");
    } else if (advice.enabled && sinceMs >= PICTURE_WAIT_MS &&
               nowUs - advice.enabledUs >= PICTURE_WAIT_MS * US_PER_MS) {
        advice.saidIdle = true;
        notes.push_back("no picture is taken although 0x903 came: the mode was perhaps taken too "
                        "late; only a new start of the service ends that");
    }
    return notes;
}

LinkNotes Advice_Picture(LinkAdvice& advice)
{
    const bool surprise = advice.fate == FATE_PARKED;
    advice.fate = FATE_SCANS;
    advice.pictureCame = true;
    return surprise ? LinkNotes{"it takes pictures all the same: it looked at the mode late, and "
                                "may not the next time"}
                    : LinkNotes();
}
