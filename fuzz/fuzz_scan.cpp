// Grey pictures of any size up to the camera's to the scan, all symbologies. New pictures are
// mostly codes, valid and damaged, and what can be done to a picture of one.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <opencv2/core.hpp>

#include "picture_input.h"
#include "picture_mutator.h"
#include "snap_channel.h"
#include "symbol_scan.h"
#include "text_buffer.h"

extern "C" {
int LLVMFuzzerInitialize(int* argc, char*** argv);
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t sizeMax, unsigned seed);
size_t LLVMFuzzerCustomCrossOver(const uint8_t* first, size_t firstSize, const uint8_t* second,
                                 size_t secondSize, uint8_t* out, size_t sizeMax, unsigned seed);
size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t sizeMax);
}

namespace
{

static_assert(static_cast<int>(PICTURE_SIDE_MAX) == SNAP_WIDTH &&
                  static_cast<int>(PICTURE_SIDE_MAX) == SNAP_HEIGHT,
              "pictures go up to the camera's frame");

enum { TRIES_MAX = 8, SMALL = 6000 };

// Bytes that the next input may have: mostly few, for a scan's time grows with the picture.
size_t MostBytes(Random& random, size_t sizeMax)
{
    return random.Chance(85) ? std::min<size_t>(SMALL, sizeMax) : sizeMax;
}

} // namespace

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    cv::setNumThreads(0);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Picture picture;
    if (!Picture_FromInput(data, size, picture)) {
        return 0;
    }
    const std::vector<uint8_t> before = picture.pixels;
    const cv::Mat grey(picture.height, picture.width, CV_8UC1, picture.pixels.data());
    TextBuffer buffer;
    buffer.Require(Qrcode_ScanWithOpening(grey, buffer.text));
    if (picture.pixels != before) {
        std::abort();
    }
    return 0;
}

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t sizeMax, unsigned seed)
{
    Random random(seed);
    Picture from;
    const int choice = random.Below(100);
    const bool isNew = !Picture_FromInput(data, size, from) || choice < 35;
    if (!isNew && choice < 65) {
        return LLVMFuzzerMutate(data, size, sizeMax);
    }
    const size_t most = MostBytes(random, sizeMax);
    for (int tries = 0; tries < TRIES_MAX; ++tries) {
        Picture picture = isNew ? Mutator_NewCode(random, PICTURE_SIDE_MAX) : from;
        if (!isNew && picture.pixels.size() + 2 > most) {
            picture = Mutator_Piece(picture, random);
        } else if (!isNew || random.Chance(20)) {
            Mutator_Change(picture, random);
        }
        if (picture.pixels.size() + 2 <= most) {
            return Picture_ToInput(picture, data, sizeMax);
        }
    }
    return LLVMFuzzerMutate(data, size, sizeMax);
}

size_t LLVMFuzzerCustomCrossOver(const uint8_t* first, size_t firstSize, const uint8_t* second,
                                 size_t secondSize, uint8_t* out, size_t sizeMax, unsigned seed)
{
    Random random(seed);
    Picture picture;
    Picture other;
    if (!Picture_FromInput(first, firstSize, picture) ||
        !Picture_FromInput(second, secondSize, other)) {
        return 0;
    }
    Mutator_Cross(picture, other, random);
    return picture.pixels.size() + 2 <= MostBytes(random, sizeMax)
               ? Picture_ToInput(picture, out, sizeMax)
               : 0;
}
