// What a datagram does to the service, and why one may not do what its sender hopes, said in words.
//
// A model of the service's flags as they follow from what passes on the link: mode, enable flag,
// and whether the service was parked at its one look at the mode. Start with a LinkAdvice for each
// start of the service (a second hello is taken for somebody else's); tell it what happens in the
// order of the times: Advice_Time with the time of each datagram before the datagram itself, and
// now and then between; Advice_Lost right after a datagram that nobody received. What is sent
// before the service's hello is taken without a word: it may be lost. Nothing here sends, receives
// or prints; each function returns what is to be said, a sentence each, mostly none. Times are
// microseconds since the epoch.
#ifndef SIM_LINK_ADVICE_H
#define SIM_LINK_ADVICE_H

#include <cstdint>
#include <string>
#include <vector>

#include "panel_event.h"

enum LinkFate {
    FATE_OPEN,   // the look at the mode is still to come
    FATE_PARKED, // the mode was QRCODE_MODE_NEVER then: it takes no picture until it is started
                 // anew
    FATE_SCANS   // it takes pictures whenever it is enabled
};

// A service that has just been started, and what was said of it already.
struct LinkAdvice {
    int64_t helloUs = 0; // 0 before its hello
    LinkFate fate = FATE_OPEN;
    uint8_t mode = QRCODE_MODE_NEVER;
    bool modeCame = false; // MSG_CMD_QRCODE_PARAM was seen, whatever the mode
    bool enabled = false;
    int64_t enabledUs = 0;    // when it was enabled last, 0 if never
    bool pictureCame = false; // the service has taken one
    bool saidIdle = false;
    bool saidSync = false;
};

using LinkNotes = std::vector<std::string>;

// A datagram on its way to either side; `out` as seen by the main application.
LinkNotes Advice_Datagram(LinkAdvice& advice, const PanelEvent& event);

// Nobody received that datagram: its port was not bound.
LinkNotes Advice_Lost(LinkAdvice& advice, const PanelEvent& event);

// The main application has sent a datagram from its port to another one than the service's.
LinkNotes Advice_Astray();

// It is `nowUs`, and all that happened before was told.
LinkNotes Advice_Time(LinkAdvice& advice, int64_t nowUs);

// The service has taken a picture, which only a scanning one does.
LinkNotes Advice_Picture(LinkAdvice& advice);

#endif
