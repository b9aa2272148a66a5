#include "picture_mutator.h"

#include <algorithm>

namespace
{

void Turn(Picture& picture)
{
    Picture turned = Picture_Make(picture.height, picture.width, 0);
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) {
            turned.At(y, x) = picture.At(x, y);
        }
    }
    picture = turned;
}

void Flip(Picture& picture)
{
    std::reverse(picture.pixels.begin(), picture.pixels.end());
}

void Negate(Picture& picture)
{
    for (uint8_t& pixel : picture.pixels) {
        pixel = static_cast<uint8_t>(~pixel);
    }
}

// Each row some pixels further, as a card that leans.
void Lean(Picture& picture, Random& random)
{
    const int every = random.From(1, 12);
    for (int y = 0; y < picture.height; ++y) {
        const auto row = picture.pixels.begin() + static_cast<ptrdiff_t>(y) * picture.width;
        std::rotate(row, row + y / every % picture.width, row + picture.width);
    }
}

void Blur(Picture& picture)
{
    for (size_t i = 1; i < picture.pixels.size(); ++i) {
        picture.pixels[i] = static_cast<uint8_t>((picture.pixels[i - 1] + picture.pixels[i]) / 2);
    }
}

void Dim(Picture& picture, Random& random)
{
    const int low = random.Below(128);
    const int high = random.From(low, 255);
    for (uint8_t& pixel : picture.pixels) {
        pixel = static_cast<uint8_t>(low + pixel * (high - low) / 255);
    }
}

void Speckle(Picture& picture, Random& random)
{
    const int end = static_cast<int>(picture.pixels.size());
    for (int count = random.From(1, random.Chance(70) ? 8 : 1 + end / 8); count > 0; --count) {
        picture.pixels[random.Below(end)] = static_cast<uint8_t>(random.Below(256));
    }
}

// Lays one picture over another, in parts beyond its edges; it grows to the right and below while
// there is room.
void Lay(Picture& picture, const Picture& other, int left, int top)
{
    Picture wider = Picture_Make(
        std::min<int>(std::max(picture.width, left + other.width), PICTURE_SIDE_MAX),
        std::min<int>(std::max(picture.height, top + other.height), PICTURE_SIDE_MAX), 255);
    for (int y = 0; y < wider.height; ++y) {
        for (int x = 0; x < wider.width; ++x) {
            const int otherX = x - left;
            const int otherY = y - top;
            if (otherX >= 0 && otherX < other.width && otherY >= 0 && otherY < other.height) {
                wider.At(x, y) = other.At(otherX, otherY);
            } else if (x < picture.width && y < picture.height) {
                wider.At(x, y) = picture.At(x, y);
            }
        }
    }
    picture = wider;
}

// Takes columns out, or stretches one.
void ResizeColumns(Picture& picture, Random& random)
{
    const int at = random.Below(picture.width);
    const int count = random.From(1, std::min(picture.width - at, 8));
    const bool wider = random.Chance(50) && picture.width + count <= PICTURE_SIDE_MAX;
    const int width = picture.width + (wider ? count : -count);
    if (width < 1) {
        return;
    }
    Picture other = Picture_Make(width, picture.height, 0);
    for (int y = 0; y < other.height; ++y) {
        for (int x = 0; x < width; ++x) {
            other.At(x, y) = picture.At(x < at  ? x
                                        : wider ? std::max(at, x - count)
                                                : x + count,
                                        y);
        }
    }
    picture = other;
}

} // namespace

Picture Mutator_Piece(const Picture& picture, Random& random)
{
    const int left = random.Below(picture.width);
    const int top = random.Below(picture.height);
    Picture piece =
        Picture_Make(random.From(1, picture.width - left), random.From(1, picture.height - top), 0);
    for (int y = 0; y < piece.height; ++y) {
        for (int x = 0; x < piece.width; ++x) {
            piece.At(x, y) = picture.At(left + x, top + y);
        }
    }
    return piece;
}

Picture Mutator_NewCode(Random& random, int side)
{
    if (random.Chance(2)) { // slow ones
        const int px = random.From(2, 3);
        return Code_Draw(Code_FinderField(side / px, random), px, px, 1);
    }
    Modules code;
    while (code.rows == 0) {
        code = Code_Make(random.Below(Code_Kinds()), random);
    }
    for (int times = random.Chance(30) ? 0 : random.From(1, 4); times > 0; --times) {
        Code_Damage(code, random);
    }
    const int px = random.Chance(60) ? 2 : random.From(1, 4); // fewer are not read, more are slow
    return Code_Draw(code, px, random.Chance(80) ? px : random.From(1, 4), random.Below(5));
}

void Mutator_Change(Picture& picture, Random& random)
{
    switch (random.Below(12)) {
    case 0:
        Turn(picture);
        break;
    case 1:
        Flip(picture);
        break;
    case 2:
        Negate(picture);
        break;
    case 3:
        Lean(picture, random);
        break;
    case 4:
        Blur(picture);
        break;
    case 5:
        Dim(picture, random);
        break;
    case 6:
        Speckle(picture, random);
        break;
    case 7:
        picture = Mutator_Piece(picture, random);
        break;
    case 8:
        Lay(picture, Mutator_Piece(picture, random), random.Below(picture.width),
            random.Below(picture.height));
        break;
    case 9:
        Lay(picture, Mutator_NewCode(random, PICTURE_SIDE_MAX / 4), random.Below(picture.width + 8),
            random.Below(picture.height + 8));
        break;
    case 10:
        Turn(picture);
        ResizeColumns(picture, random);
        Turn(picture);
        break;
    default:
        ResizeColumns(picture, random);
    }
}

void Mutator_Cross(Picture& picture, const Picture& other, Random& random)
{
    Lay(picture, random.Chance(50) ? other : Mutator_Piece(other, random),
        random.Below(picture.width + 8), random.Below(picture.height + 8));
}
