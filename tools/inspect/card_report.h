// What the check of cards prints: a line or JSON object for each card, the table of all.
#ifndef TOOLS_CARD_REPORT_H
#define TOOLS_CARD_REPORT_H

#include <string>

#include "card_check.h"

struct CheckedCard {
    size_t number = 0;  // from 1 on
    std::string source; // "cards.txt:12", or the picture's path
    std::string text;
    char level = 'M';
    CardRecord record;
};

// Views of a card with this verdict.
int CardReport_Views(const CardRecord& record, CardVerdict verdict);

// True when it was read right somewhere and never wrong.
bool CardReport_IsWell(const CardRecord& record);

// Heading of the lines, and a card's line, without line ends.
std::string CardReport_Heading();
std::string CardReport_Line(const CheckedCard& card);

// One JSON object on one line:
//   "card"     its number    "source"  file and line, or the picture
//   "text"     bytes that are no UTF-8 replaced    "hex"  its exact bytes
//   "charsets" the character sets that the C library had, a list as in charsets.h
//   "level", "version", "mask"  of the QR code, null for a picture
//   "views"    number made   "right", "wrong", "tooShort", "notRead"  how many of them
//   "worst"    the worst view: "view", "size", "held", "verdict", "text", "hex", "symbologies"
//   "wrongViews"  the first of the wrong ones, likewise
//   "sizes"    for each size that fits: "size", "right", "wrong", "tooShort", "notRead"
//   "picture"  file of the worst view, or null
//   "error"    why it was not checked, or null
std::string CardReport_Json(const CheckedCard& card);

struct CardTally {
    int cards = 0;
    int wrong = 0;      // ever
    int neverRight = 0; // but checked
    int unchecked = 0;
    // Views by size and by kind; of QR codes and, in the second, of pictures.
    long sizes[2][VIEW_SIZES][CARD_VERDICTS] = {};
    long kinds[CARD_KINDS_MAX][CARD_VERDICTS] = {};
};

void CardReport_Count(CardTally& tally, const CheckedCard& card);

// The table, several lines with their ends. `seconds`: what it all took.
std::string CardReport_Table(const CardTally& tally, double seconds);

#endif
