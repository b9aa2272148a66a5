// One card put through the service's own reading in every view of the grid, and the judgement.
#ifndef TOOLS_CARD_CHECK_H
#define TOOLS_CARD_CHECK_H

#include <cstdint>
#include <string>

#include "card_view.h"
#include "watched_reading.h"

// From good to bad.
enum CardVerdict {
    CARD_NOT_MADE, // the card does not fit into this view
    CARD_RIGHT,    // the main application is sent the card's text, byte for byte
    CARD_UNREAD,   // no text found
    CARD_SHORT,    // a text too short to be sent, the card's own or a false one
    CARD_WRONG,    // the main application is sent something else
    CARD_VERDICTS
};

// Name of a verdict in lines and JSON: "right", "not read", "too short", "wrong".
const char* Card_VerdictName(CardVerdict verdict);

struct CardSight {
    int sizeNumber = 0;
    int kind = 0;
    CardVerdict verdict = CARD_NOT_MADE;
    char text[QRCODE_TEXT_SIZE] = {}; // what came, up to its first zero
    char symbologies[READING_NOTE_SIZE] = {};
};

enum { CARD_KINDS_MAX = 16, CARD_WRONG_KEPT = 8 };

// Flat, so that it can cross a pipe.
struct CardRecord {
    char error[READING_NOTE_SIZE] = {}; // why it could not be checked; empty when it was
    int version = 0;
    int mask = 0;
    uint8_t verdicts[VIEW_SIZES][CARD_KINDS_MAX] = {}; // CardVerdict by size and kind
    CardSight worst; // of those with the worst verdict the clearest: the largest, the first kind
    int wrongKept = 0;
    CardSight wrong[CARD_WRONG_KEPT];          // the first of the wrong ones
    char text[QRCODE_TEXT_SIZE] = {};          // of a picture's card, may be cut
    char picture[READING_NOTE_SIZE] = {};      // file of the worst view; empty for none
    char pictureError[READING_NOTE_SIZE] = {}; // why it could not be written
};

CardVerdict Card_Judge(const ExpectedText& expected, const WatchedReading& reading);

// Takes a reading of every view; with `straightOnly` of one of each size. Uses Watch_Begin.
CardRecord Card_Check(const Card& card, bool straightOnly);

#endif
