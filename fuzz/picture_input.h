// A grey picture as a fuzz input: two bytes of its width, low byte first, then its pixels, row by
// row. Every input of 3 bytes or more is a picture.
#ifndef FUZZ_PICTURE_INPUT_H
#define FUZZ_PICTURE_INPUT_H

#include <cstddef>
#include <cstdint>
#include <vector>

enum {
    PICTURE_SIDE_MAX = 400, // pixels, of the camera's frame
    PICTURE_INPUT_MAX = 2 + PICTURE_SIDE_MAX * PICTURE_SIDE_MAX
};

struct Picture {
    int width = 0; // pixels, from 1 on
    int height = 0;
    std::vector<uint8_t> pixels; // width * height, without gaps

    uint8_t& At(int x, int y) { return pixels[static_cast<size_t>(y) * width + x]; }
    uint8_t At(int x, int y) const { return pixels[static_cast<size_t>(y) * width + x]; }
};

// A picture of one grey value.
Picture Picture_Make(int width, int height, uint8_t grey);

// Any width word is brought into 1 .. PICTURE_SIDE_MAX. What is behind the last whole row, or the
// 400th, is left out; less than a row makes a picture of one row. Returns false for less than 3
// bytes.
bool Picture_FromInput(const uint8_t* data, size_t size, Picture& picture);

// Writes the picture as an input, cut to whole rows that fit into sizeMax bytes, and returns its
// size; 0 when not one fits.
size_t Picture_ToInput(const Picture& picture, uint8_t* data, size_t sizeMax);

#endif
