#include "picture_input.h"

#include <algorithm>
#include <cstring>

enum { HEADER = 2 };

Picture Picture_Make(int width, int height, uint8_t grey)
{
    Picture picture;
    picture.width = width;
    picture.height = height;
    picture.pixels.assign(static_cast<size_t>(width) * height, grey);
    return picture;
}

bool Picture_FromInput(const uint8_t* data, size_t size, Picture& picture)
{
    if (size <= HEADER) {
        return false;
    }
    const size_t word = data[0] + 256U * data[1];
    const size_t pixels = size - HEADER;
    const size_t width = std::min((word + PICTURE_SIDE_MAX - 1) % PICTURE_SIDE_MAX + 1, pixels);
    picture.width = static_cast<int>(width);
    picture.height = static_cast<int>(std::min<size_t>(pixels / width, PICTURE_SIDE_MAX));
    const uint8_t* const first = data + HEADER;
    picture.pixels.assign(first, first + width * picture.height);
    return true;
}

size_t Picture_ToInput(const Picture& picture, uint8_t* data, size_t sizeMax)
{
    const size_t width = picture.width;
    if (sizeMax < HEADER + width) {
        return 0;
    }
    const size_t rows = std::min<size_t>((sizeMax - HEADER) / width, picture.height);
    data[0] = static_cast<uint8_t>(width);
    data[1] = static_cast<uint8_t>(width >> 8);
    std::memcpy(data + HEADER, picture.pixels.data(), rows * width);
    return HEADER + rows * width;
}
