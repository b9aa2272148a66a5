// The caller's text buffer as a reading gets it, with a byte behind it that must stay.
#ifndef FUZZ_TEXT_BUFFER_H
#define FUZZ_TEXT_BUFFER_H

#include <cstdlib>
#include <cstring>

#include "message.h"

struct TextBuffer {
    char text[QRCODE_TEXT_SIZE] = {};
    char behind = 'x';

    // Ends the process unless the buffer can be what a reading or a scan leaves that returned this.
    void Require(int length) const
    {
        const bool well = length >= 0 && length < QRCODE_TEXT_SIZE &&
                          text[QRCODE_TEXT_SIZE - 1] == '\0' && behind == 'x' &&
                          static_cast<int>(std::strlen(text)) >= length;
        if (!well) {
            std::abort();
        }
    }
};

#endif
