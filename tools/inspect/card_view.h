// A card, and the views of it that a door's camera may get: the grid that cards are checked in.
#ifndef TOOLS_CARD_VIEW_H
#define TOOLS_CARD_VIEW_H

#include <opencv2/core/mat.hpp>
#include <string>

#include "expected_text.h"

struct Card {
    ExpectedText expected; // what the main application is to get
    cv::Mat face;    // of a text its QR code, 8-bit grey, one pixel a module, with the margin;
                     // of a picture the picture, 8-bit blue-green-red
    int margin = 0;  // modules; of a picture 0
    int version = 0; // of the QR code, 1..40; 0 for a picture
    int mask = 0;    // ... its mask pattern, 0..7
};

// Draws a text's QR code as the program qrencode does: the smallest version that holds the text, at
// `level` ('L', 'M', 'Q' or 'H'), with `margin` light modules around it. Returns false, with the
// reason in `error`.
bool Card_FromText(const std::string& text, char level, int margin, Card& card, std::string& error);

// What is in a code whose maker does more than to hand over a text.
struct CardBytes {
    std::string bytes;
    int eci = 0;        // number of the character set that the code says it is in; 0 to say nothing
    bool kanji = false; // bytes in Shift-JIS: in kanji mode what can be
};

// As Card_FromText of bytes that are read as `text`; with a character set named, in byte mode
// alone.
bool Card_FromBytes(const CardBytes& content, const std::string& text, char level, int margin,
                    Card& card, std::string& error);

// Loads a picture of a card, and its text from the file NAME.txt beside it. Returns false, with the
// reason in `error`.
bool Card_FromPicture(const std::string& path, Card& card, std::string& error);

// How a card is held; the numbers are in card_view.cpp.
int View_Kinds();
const char* View_KindName(int kind); // "straight", "turned 3 degrees", ...

enum { VIEW_SIZES = 9 };

// The size by its number, 0..VIEW_SIZES - 1, from large to small: camera pixels a module, 10 to 2;
// of a picture percent of the camera's 400 pixels that its longer side fills, 100 to 20.
int View_Size(const Card& card, int sizeNumber);

// "8 px, straight" or "60 %, straight".
std::string View_Name(const Card& card, int sizeNumber, int kind);

// Draws what stands before the camera, 400 x 400 pixels, not mirrored; the same each time. Returns
// an empty picture when the code does not fit in; the margin may be cut off. The smallest size
// always fits.
cv::Mat View_Draw(const Card& card, int sizeNumber, int kind);

#endif
