// Codes as a stranger might hold them up: valid ones of every symbology that the scanner knows, and
// damaged where decoders are weak.
#ifndef FUZZ_CODE_MAKER_H
#define FUZZ_CODE_MAKER_H

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "picture_input.h"

// Numbers that the same seed gives again.
struct Random {
    explicit Random(unsigned seed) : engine(seed) {}
    int Below(int end) { return static_cast<int>(engine() % static_cast<unsigned>(end)); }
    int From(int first, int last) { return first + Below(last - first + 1); }
    bool Chance(int percent) { return Below(100) < percent; }
    std::minstd_rand engine;
};

// A code, one value a module: 1 dark, 0 light.
struct Modules {
    int rows = 0;
    int cols = 0;
    std::vector<uint8_t> dark; // rows * cols

    uint8_t& At(int row, int col) { return dark[static_cast<size_t>(row) * cols + col]; }
    uint8_t At(int row, int col) const { return dark[static_cast<size_t>(row) * cols + col]; }
};

// ---- QR codes, module by module: what no generator makes.

enum { QR_RAW_VERSION_MAX = 5 }; // up to it a code of level L is one block

// Bits of a QR code's data, most significant first.
struct QrBits {
    std::vector<uint8_t> bits;
    void Put(unsigned value, int count)
    {
        while (--count >= 0) {
            bits.push_back(value >> count & 1);
        }
    }
};

// Bytes of data that a code of this version holds at level L, 1 .. QR_RAW_VERSION_MAX.
int Code_QrBytes(int version);

// A QR code of level L with any bits as its data, cut or filled up with zeros, and right error
// correction. `format` is the 5 bits of the format information, of which the low 3 are the mask:
// 8 + mask is level L. Code_QrFormat puts any 15 bits in its place.
Modules Code_Qr(int version, const QrBits& data, int format);
void Code_QrFormat(Modules& code, unsigned bits15);

// ---- All symbologies.

// Kinds of codes, from 0 on; a name for each ("QR code", "DataBar Expanded stacked", ...).
int Code_Kinds();
const char* Code_KindName(int kind);

// A valid code of this kind with a random text. Empty (no rows) when the generator refuses the
// text, or chance leaves every code of a group out; both are rare.
Modules Code_Make(int kind, Random& random);

// Damages it: flips modules, moves the edges of bars, repeats, drops or exchanges pieces, cuts.
void Code_Damage(Modules& code, Random& random);

// Finder patterns of QR codes, up to 60, free or almost in line, in a field of at most this side.
Modules Code_FinderField(int sideMax, Random& random);

// Draws a code, a module as px * py pixels, with a margin of as many light modules, cut at
// PICTURE_SIDE_MAX.
Picture Code_Draw(const Modules& code, int px, int py, int margin);

#endif
