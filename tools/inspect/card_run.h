// qrcode-inspect --cards: many cards checked before they are printed.
#ifndef TOOLS_CARD_RUN_H
#define TOOLS_CARD_RUN_H

#include <string>
#include <vector>

enum { CARD_MARGIN_MAX = 20 }; // modules

struct CardOptions {
    std::string level = "M"; // of error correction: "L", "M", "Q" or "H"
    int margin = 4;          // modules
    bool straightOnly = false;
    std::string worstFolder; // for pictures of the worst views, empty for none
    bool json = false;
};

// Checks the cards of all places in a child for each processor: files of texts, one a line ("-":
// standard input), pictures, and folders of pictures. Prints a line or JSON object for each card in
// the order of the input, and a table of all; faults and progress go to standard error. Holds some
// hundred cards at a time, whatever the input's length. The same input gives the same results.
// Returns the exit status: 0 when no card was ever wrong and each was read right somewhere.
int Cards_Run(const std::vector<std::string>& places, const CardOptions& options);

#endif
