#include "code_maker.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <qrencode.h>
#include <zint.h>

namespace
{

template <class T, size_t N> const T& Pick(const T (&of)[N], Random& random)
{
    return of[random.Below(static_cast<int>(N))];
}

Modules Blank(int rows, int cols)
{
    Modules code;
    code.rows = rows;
    code.cols = cols;
    code.dark.assign(static_cast<size_t>(rows) * cols, 0);
    return code;
}

// ---- QR codes

enum { FINDER_SIDE = 7, QR_NO_DATA = 0x80, QR_VERSION_INFO = 0x08, FORMAT_BITS = 15 };

struct QrSize {
    int dataBytes;
    int correctionBytes;
};
const QrSize LEVEL_L[QR_RAW_VERSION_MAX] = {{19, 7}, {34, 10}, {55, 15}, {80, 20}, {108, 26}};

using QrPointer = std::unique_ptr<QRcode, decltype(&QRcode_free)>;

QrPointer Generated(const std::string& text, int version, QRecLevel level)
{
    return {QRcode_encodeString8bit(text.c_str(), version, level), QRcode_free};
}

bool IsMasked(int mask, int i, int j)
{
    switch (mask) {
    case 0:
        return (i + j) % 2 == 0;
    case 1:
        return i % 2 == 0;
    case 2:
        return j % 3 == 0;
    case 3:
        return (i + j) % 3 == 0;
    case 4:
        return (i / 2 + j / 3) % 2 == 0;
    case 5:
        return i * j % 2 + i * j % 3 == 0;
    case 6:
        return (i * j % 2 + i * j % 3) % 2 == 0;
    default:
        return ((i + j) % 2 + i * j % 3) % 2 == 0;
    }
}

// Product in the field of 256 elements that QR codes use.
uint8_t FieldProduct(uint8_t a, uint8_t b)
{
    unsigned product = 0;
    for (int bit = 7; bit >= 0; --bit) {
        product = product << 1 ^ (product >> 7 & 1) * 0x11d;
        product ^= (b >> bit & 1) * a;
    }
    return static_cast<uint8_t>(product);
}

// The Reed-Solomon remainder of the data, as many bytes as asked for.
std::vector<uint8_t> Correction(const std::vector<uint8_t>& data, int count)
{
    std::vector<uint8_t> generator(count, 0);
    generator.back() = 1;
    uint8_t root = 1;
    for (int i = 0; i < count; ++i, root = FieldProduct(root, 2)) {
        for (int j = 0; j < count; ++j) {
            generator[j] = FieldProduct(generator[j], root);
            if (j + 1 < count) {
                generator[j] ^= generator[j + 1];
            }
        }
    }
    std::vector<uint8_t> remainder(count, 0);
    for (const uint8_t byte : data) {
        const uint8_t factor = byte ^ remainder.front();
        remainder.erase(remainder.begin());
        remainder.push_back(0);
        for (int j = 0; j < count; ++j) {
            remainder[j] ^= FieldProduct(generator[j], factor);
        }
    }
    return remainder;
}

unsigned FormatWord(int format)
{
    unsigned remainder = static_cast<unsigned>(format);
    for (int i = 0; i < 10; ++i) {
        remainder = remainder << 1 ^ (remainder >> 9) * 0x537;
    }
    return (static_cast<unsigned>(format) << 10 | remainder) ^ 0x5412;
}

// A text, or what a wrong count, character set or mode makes of one.
std::string RandomBytes(Random& random, int length)
{
    static const char* const SAMPLES[] = {
        "VISITOR PASS 2024-0117", "\xef\xbb\xbfT\xc3\xbcr", "\x83\x65\x83\x58\x83\x67",
        "Gr\xfc\xdf Gott",        "\xa4\xa4\xa4\xe5",       "\xc3\x28\xed\xa0\x80\xf4\x90\x80\x80"};
    std::string text;
    const int samples = static_cast<int>(std::size(SAMPLES));
    const int kind = random.Below(samples + 2); // or printable characters, or any bytes
    while (static_cast<int>(text.size()) < length) {
        if (kind < samples) {
            text += SAMPLES[kind];
        } else {
            text += static_cast<char>(kind == samples ? random.From(' ', '~') : random.Below(256));
        }
    }
    text.resize(length);
    return text;
}

enum Mode {
    NUMERIC = 1,
    LETTERS = 2,
    APPEND = 3,
    BYTES = 4,
    GS1 = 5,
    ECI = 7,
    KANJI = 8,
    INDUSTRY = 9
};
enum { MODE_BITS = 4 };

// One segment, its parts right or wrong.
void PutSegment(QrBits& data, Random& random)
{
    static const int MODES[] = {NUMERIC, LETTERS, BYTES, KANJI,    ECI,
                                ECI,     APPEND,  GS1,   INDUSTRY, BYTES};
    static const int SETS[] = {0, 1, 2, 3, 7, 15, 20, 22, 24, 25, 26, 27, 28, 30, 127, 899, 999999};
    const int mode = random.Chance(5) ? random.Below(16) : Pick(MODES, random);
    data.Put(static_cast<unsigned>(mode), MODE_BITS);
    int count = random.Chance(70) ? random.From(1, 30) : random.Below(1024);
    const int right = count;
    if (random.Chance(10)) {
        count = random.Chance(50) ? 0 : random.Below(1024);
    }
    const auto put = [&](int end, int bits) {
        data.Put(
            static_cast<unsigned>(random.Chance(3) ? random.Below(1 << bits) : random.Below(end)),
            bits);
    };
    switch (mode) {
    case NUMERIC:
        data.Put(static_cast<unsigned>(count), 10);
        for (int i = right; i >= 3; i -= 3) {
            put(1000, 10);
        }
        if (right % 3 != 0) {
            put(right % 3 == 2 ? 100 : 10, right % 3 == 2 ? 7 : 4);
        }
        break;
    case LETTERS:
        data.Put(static_cast<unsigned>(count), 9);
        for (int i = right; i >= 2; i -= 2) {
            put(45 * 45, 11);
        }
        if (right % 2 != 0) {
            put(45, 6);
        }
        break;
    case BYTES:
        data.Put(static_cast<unsigned>(count), 8);
        for (const char byte : RandomBytes(random, right % 256)) {
            data.Put(static_cast<uint8_t>(byte), 8);
        }
        break;
    case KANJI:
        data.Put(static_cast<unsigned>(count), 8);
        for (int i = right % 256; i > 0; --i) {
            put(0x1740, 13);
        }
        break;
    case ECI: {
        const auto set =
            static_cast<unsigned>(random.Chance(80) ? Pick(SETS, random) : random.Below(1 << 21));
        switch (random.Below(6)) {
        case 0:
            data.Put(0x8000 | (set & 0x3fff), 16);
            break;
        case 1:
            data.Put(0xc00000 | (set & 0x1fffff), 24);
            break;
        case 2:
            data.Put(0xe0 | (set & 0x1f), 8);
            break; // no such form
        default:
            data.Put(set & 0x7f, 8);
        }
        break;
    }
    case APPEND:
        data.Put(static_cast<unsigned>(random.Below(random.Chance(80) ? 3 : 16)), 4); // index
        data.Put(static_cast<unsigned>(random.Below(random.Chance(80) ? 3 : 16)), 4); // last index
        data.Put(static_cast<unsigned>(random.Below(random.Chance(80) ? 2 : 256)), 8);
        break;
    case INDUSTRY:
        data.Put(static_cast<unsigned>(random.Below(256)), 8);
        break;
    default:
        break;
    }
}

Modules MakeQrSegments(Random& random)
{
    // Mostly small: the smaller the picture, the more of them a second.
    const int version = random.Chance(70) ? random.From(1, 2) : random.From(1, QR_RAW_VERSION_MAX);
    QrBits data;
    const size_t end = size_t{8} * Code_QrBytes(version);
    do {
        PutSegment(data, random);
    } while (data.bits.size() < end && !random.Chance(25));
    return Code_Qr(version, data, 8 + random.Below(8));
}

// Codes of one structured append group side by side, some missing, some in a wrong place.
Modules MakeQrGroup(Random& random)
{
    enum { IN_A_ROW = 3, CODES_MAX = 8, INDEX_END = 16, GAP = 5, VERSION = 1 };
    const int count = random.From(2, CODES_MAX);
    const int last = random.Chance(70) ? count - 1 : random.Below(INDEX_END);
    Modules group;
    for (int i = 0; i < count; ++i) {
        if (random.Chance(25)) {
            continue;
        }
        QrBits data;
        const int index = random.Chance(85) ? i : random.Below(INDEX_END);
        data.Put(APPEND, MODE_BITS);
        data.Put(static_cast<unsigned>(index << 4 | last), 8);
        data.Put(0, 8); // parity
        do {
            PutSegment(data, random);
        } while (random.Chance(30));
        const Modules code = Code_Qr(VERSION, data, 8 + random.Below(8));
        const int step = code.cols + GAP;
        if (group.rows == 0) {
            group = Blank((count + IN_A_ROW - 1) / IN_A_ROW * step - GAP,
                          std::min<int>(count, IN_A_ROW) * step - GAP);
        }
        for (int row = 0; row < code.rows; ++row) {
            for (int col = 0; col < code.cols; ++col) {
                group.At(i / IN_A_ROW * step + row, i % IN_A_ROW * step + col) = code.At(row, col);
            }
        }
    }
    return group;
}

Modules FromGenerated(const QRcode& qr)
{
    Modules code = Blank(qr.width, qr.width);
    for (size_t i = 0; i < code.dark.size(); ++i) {
        code.dark[i] = qr.data[i] & 1;
    }
    return code;
}

Modules MakeQr(Random& random)
{
    const int version = random.Chance(80) ? random.From(1, 8) : random.From(1, 40);
    const QrPointer qr = Generated(RandomBytes(random, random.From(1, 20)), version,
                                   static_cast<QRecLevel>(random.Below(4)));
    return qr ? FromGenerated(*qr) : Modules();
}

// ---- The scanner's own square code: dots around a field of bits, corners at two of its corners.
Modules MakeSq(Random& random)
{
    const int field = 4 * random.From(2, 5);
    const int side = field + 6;
    Modules code = Blank(side, side);
    for (int i = 0; i <= side - 4; i += 2) {
        code.At(0, i) = code.At(i, 0) = 1;
        code.At(i + 3, side - 1) = code.At(side - 1, i + 3) = 1;
    }
    code.At(0, side - 2) = code.At(1, side - 1) = 1;
    code.At(side - 2, 0) = code.At(side - 1, 1) = 1;
    for (int row = 3; row < side - 3; ++row) {
        for (int col = 3; col < side - 3; ++col) {
            code.At(row, col) = random.Chance(50);
        }
    }
    return code;
}

// ---- Barcodes

struct BarKind {
    const char* name;
    int symbology;
    // # a digit, ? a letter or digit, ~ any printable character, & some more of the last of these,
    // % the check digit of the 13 digits before it.
    std::vector<const char*> texts;
};

const std::vector<const char*> EXPANDED = {
    "[01]9############%[3103]00####",
    "[01]9############%[3202]00####",
    "[01]9############%[3203]01####",
    "[01]9############%[3102]0#####[11]240115",
    "[01]9############%[3205]0#####[17]240131",
    "[01]9############%[3922]###&",
    "[01]9############%[3933]978###&",
    "[01]#############%[10]?&",
    "[10]?&[21]#&",
    "[91]~&",
    "[91]?&[92]#&[93]?&",
    "[8110]?&",
};

const BarKind BARS[] = {
    {"EAN-13", BARCODE_EANX, {"############", "978#########", "979#########"}},
    {"EAN-8", BARCODE_EANX, {"#######"}},
    {"EAN-13 with add-on", BARCODE_EANX, {"############+##", "############+#####"}},
    {"UPC-A", BARCODE_UPCA, {"###########", "###########+##", "###########+#####"}},
    {"UPC-E", BARCODE_UPCE, {"0######", "1######", "0######+##"}},
    {"Interleaved 2 of 5", BARCODE_C25INTER, {"##&"}},
    {"Code 39", BARCODE_EXCODE39, {"?&", "~&"}},
    {"Code 93", BARCODE_CODE93, {"?&", "~&"}},
    {"Codabar", BARCODE_CODABAR, {"A#&B", "C#&D", "B##-##.##D"}},
    {"Code 128", BARCODE_CODE128, {"?&", "#&", "~&"}},
    {"GS1-128", BARCODE_GS1_128, {"[01]#############%[10]?&", "[00]##################"}},
    {"DataBar", BARCODE_DBAR_OMN, {"#############"}},
    {"DataBar stacked", BARCODE_DBAR_STK, {"#############"}},
    {"DataBar omnidirectional stacked", BARCODE_DBAR_OMNSTK, {"#############"}},
    {"DataBar Expanded", BARCODE_DBAR_EXP, EXPANDED},
    {"DataBar Expanded stacked", BARCODE_DBAR_EXPSTK, EXPANDED},
};

std::string RandomText(const std::string& form, Random& random)
{
    std::string text;
    char kind = '#';
    for (const char c : form) {
        int count = 1;
        if (c == '#' || c == '?' || c == '~') {
            kind = c;
        } else if (c == '&') {
            count = random.Chance(80) ? random.Below(12) : random.Below(70);
        } else if (c == '%') {
            int sum = 0;
            for (int i = 0; i < 13; ++i) {
                sum += (text[text.size() - 13 + i] - '0') * (i % 2 == 0 ? 3 : 1);
            }
            text += static_cast<char>('0' + (10 - sum % 10) % 10);
            continue;
        } else {
            text += c;
            continue;
        }
        for (; count > 0; --count) {
            const int letter = random.Below(36);
            if (kind == '#') {
                text += static_cast<char>('0' + random.Below(10));
            } else if (kind == '?') {
                text += static_cast<char>(letter < 10 ? '0' + letter : 'A' + letter - 10);
            } else {
                text += static_cast<char>(random.From(' ', '~'));
            }
        }
    }
    return text;
}

Modules MakeBar(const BarKind& kind, Random& random)
{
    const std::unique_ptr<zint_symbol, decltype(&ZBarcode_Delete)> symbol(ZBarcode_Create(),
                                                                          ZBarcode_Delete);
    symbol->symbology = kind.symbology;
    symbol->input_mode = DATA_MODE;
    if (kind.symbology == BARCODE_DBAR_EXPSTK) {
        symbol->option_2 = random.From(1, 5); // pairs of segments in a row
    }
    std::string text =
        RandomText(kind.texts[random.Below(static_cast<int>(kind.texts.size()))], random);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.c_str());
    if (ZBarcode_Encode(symbol.get(), bytes, static_cast<int>(text.size())) >= ZINT_ERROR) {
        return {};
    }
    const int lines = random.From(1, 3); // of modules, to a row of the code
    Modules code = Blank(symbol->rows * lines, symbol->width);
    for (int row = 0; row < code.rows; ++row) {
        for (int col = 0; col < code.cols; ++col) {
            code.At(row, col) = symbol->encoded_data[row / lines][col >> 3] >> (col & 7) & 1;
        }
    }
    return code;
}

// ---- Damage

std::vector<int> Runs(const Modules& code, int row)
{
    std::vector<int> runs;
    for (int col = 0; col < code.cols; ++col) {
        if (col == 0 || code.At(row, col) != code.At(row, col - 1)) {
            runs.push_back(0);
        }
        ++runs.back();
    }
    return runs;
}

void DamageRuns(std::vector<int>& runs, Random& random)
{
    const int count = static_cast<int>(runs.size());
    const int at = random.Below(count);
    // Colours stay: pieces have an even number of runs.
    const int piece = std::min(2 * random.From(1, 8), (count - at) / 2 * 2);
    switch (random.Below(6)) {
    case 0:
        if (at + 1 < count && runs[at + 1] > 1) {
            ++runs[at];
            --runs[at + 1];
        }
        break;
    case 1:
        runs[at] += random.From(1, 3);
        break;
    case 2:
        runs[at] = std::max(1, runs[at] - random.From(1, 3));
        break;
    case 3: {
        const std::vector<int> again(runs.begin() + at, runs.begin() + at + piece);
        for (int times = random.From(1, 4); times > 0; --times) {
            runs.insert(runs.begin() + at, again.begin(), again.end());
        }
        break;
    }
    case 4:
        runs.erase(runs.begin() + at, runs.begin() + at + piece);
        break;
    default:
        std::reverse(runs.begin() + at, runs.begin() + at + piece);
        break;
    }
}

// Damages a row, and those below it that are the same.
void DamageRow(Modules& code, Random& random)
{
    const int row = random.Below(code.rows);
    std::vector<int> runs = Runs(code, row);
    const bool firstDark = code.At(row, 0) != 0;
    for (int times = random.From(1, 3); times > 0 && !runs.empty(); --times) {
        DamageRuns(runs, random);
    }
    std::vector<uint8_t> line;
    for (size_t i = 0; i < runs.size(); ++i) {
        line.insert(line.end(), runs[i], static_cast<uint8_t>(i % 2 == 0 ? firstDark : !firstDark));
    }
    line.resize(std::min<size_t>(line.size(), PICTURE_SIDE_MAX));
    Modules wider = Blank(code.rows, std::max(code.cols, static_cast<int>(line.size())));
    line.resize(wider.cols);
    bool same = true;
    for (int i = 0; i < code.rows; ++i) {
        const auto from = code.dark.begin() + static_cast<ptrdiff_t>(i) * code.cols;
        same = i <= row || (same && std::equal(from, from + code.cols, &code.At(row, 0)));
        const auto to = wider.dark.begin() + static_cast<ptrdiff_t>(i) * wider.cols;
        if (i >= row && same) {
            std::copy(line.begin(), line.end(), to);
        } else {
            std::copy(from, from + code.cols, to);
        }
    }
    code = wider;
}

struct Box {
    int row, col, rows, cols;
};

Box RandomBox(const Modules& code, Random& random)
{
    Box box = {random.Below(code.rows), random.Below(code.cols), 0, 0};
    box.rows = random.From(1, std::min(code.rows - box.row, 1 + code.rows / 4));
    box.cols = random.From(1, std::min(code.cols - box.col, 1 + code.cols / 4));
    return box;
}

void PutFinder(Modules& code, int row, int col)
{
    for (int i = 0; i < FINDER_SIDE; ++i) {
        for (int j = 0; j < FINDER_SIDE; ++j) {
            const int ring = std::min({i, j, FINDER_SIDE - 1 - i, FINDER_SIDE - 1 - j});
            if (row + i < code.rows && col + j < code.cols) {
                code.At(row + i, col + j) = ring != 1;
            }
        }
    }
}

// Takes rows away or shows them twice.
void RepeatRows(Modules& code, Random& random)
{
    Modules other = code;
    other.dark.clear();
    other.rows = 0;
    const int at = random.Below(code.rows);
    const int count = random.From(1, std::min(code.rows - at, 6));
    const int times = random.Chance(50) ? 0 : 2;
    for (int row = 0; row < code.rows; ++row) {
        const int copies = row >= at && row < at + count ? times : 1;
        for (int i = 0; i < copies; ++i) {
            const auto from = code.dark.begin() + static_cast<ptrdiff_t>(row) * code.cols;
            other.dark.insert(other.dark.end(), from, from + code.cols);
            ++other.rows;
        }
    }
    if (other.rows > 0) {
        code = other;
    }
}

} // namespace

int Code_QrBytes(int version)
{
    return LEVEL_L[version - 1].dataBytes;
}

void Code_QrFormat(Modules& code, unsigned bits15)
{
    const int side = code.rows;
    for (int i = 0; i < FORMAT_BITS; ++i) {
        const uint8_t bit = bits15 >> i & 1;
        const int along = i < 6 ? i : i < 8 ? i + 1 : FORMAT_BITS - 1 - i + (i == 8 ? 1 : 0);
        (i < 8 ? code.At(along, 8) : code.At(8, along)) = bit;
        (i < 8 ? code.At(8, side - 1 - i) : code.At(side - FORMAT_BITS + i, 8)) = bit;
    }
}

Modules Code_Qr(int version, const QrBits& data, int format)
{
    std::vector<uint8_t> bytes(Code_QrBytes(version), 0);
    for (size_t i = 0; i < data.bits.size() && i < 8 * bytes.size(); ++i) {
        bytes[i / 8] |= data.bits[i] << (7 - i % 8);
    }
    const std::vector<uint8_t> correction = Correction(bytes, LEVEL_L[version - 1].correctionBytes);
    bytes.insert(bytes.end(), correction.begin(), correction.end());

    // The generator's code of this version says where the data's modules are.
    const QrPointer frame = Generated("A", version, QR_ECLEVEL_L);
    if (!frame) {
        std::abort();
    }
    Modules code = FromGenerated(*frame);
    const int side = code.cols;
    size_t bit = 0;
    bool up = true;
    for (int right = side - 1; right > 0; right -= right == 8 ? 3 : 2, up = !up) {
        for (int step = 0; step < side; ++step) {
            const int row = up ? side - 1 - step : step;
            for (int col = right; col > right - 2; --col) {
                if ((frame->data[row * side + col] & QR_NO_DATA) != 0) {
                    continue;
                }
                const bool dark = bit < 8 * bytes.size() && (bytes[bit / 8] >> (7 - bit % 8) & 1);
                code.At(row, col) = dark != IsMasked(format & 7, row, col);
                ++bit;
            }
        }
    }
    Code_QrFormat(code, FormatWord(format));
    return code;
}

enum { KIND_QR_SEGMENTS, KIND_QR_GROUP, KIND_QR, KIND_SQ, KIND_BARS };

int Code_Kinds()
{
    return KIND_BARS + static_cast<int>(std::size(BARS));
}

const char* Code_KindName(int kind)
{
    static const char* const NAMES[] = {"QR code, any segments", "QR codes of a group", "QR code",
                                        "SQ code"};
    return kind < KIND_BARS ? NAMES[kind] : BARS[kind - KIND_BARS].name;
}

Modules Code_Make(int kind, Random& random)
{
    switch (kind) {
    case KIND_QR_SEGMENTS:
        return MakeQrSegments(random);
    case KIND_QR_GROUP:
        return MakeQrGroup(random);
    case KIND_QR:
        return MakeQr(random);
    case KIND_SQ:
        return MakeSq(random);
    default:
        return MakeBar(BARS[kind - KIND_BARS], random);
    }
}

void Code_Damage(Modules& code, Random& random)
{
    const Box box = RandomBox(code, random);
    const int choice = random.Below(9);
    switch (choice) {
    case 0: // a few modules: within what is corrected, or beyond
        for (int flips = random.From(1, random.Chance(70) ? 8 : 60); flips > 0; --flips) {
            code.dark[random.Below(static_cast<int>(code.dark.size()))] ^= 1;
        }
        break;
    case 1:
    case 2:
    case 3:
        DamageRow(code, random);
        break;
    case 4:
        RepeatRows(code, random);
        break;
    case 5:
        if (code.rows == code.cols && code.rows > 20) {
            Code_QrFormat(code, random.Chance(50) ? FormatWord(random.Below(32))
                                                  : static_cast<unsigned>(random.Below(1 << 15)));
        }
        break;
    case 6:
        PutFinder(code, box.row, box.col);
        break;
    default:
        for (int i = 0; i < box.rows; ++i) {
            for (int j = 0; j < box.cols; ++j) {
                uint8_t& dark = code.At(box.row + i, box.col + j);
                dark = choice == 7 ? 0 : !dark;
            }
        }
    }
}

Modules Code_FinderField(int sideMax, Random& random)
{
    enum { STEP = FINDER_SIDE + 2, FINDERS_MAX = 60 };
    const int side = std::max<int>(3 * STEP, random.From(sideMax / 2, sideMax));
    Modules code = Blank(side, side);
    const bool inLine = random.Chance(50);
    const int room = side - STEP;
    const int finders = random.From(3, FINDERS_MAX);
    for (int i = 0; i < finders; ++i) {
        int row = random.Below(room);
        int col = random.Below(room);
        if (inLine) { // on a grid whose crossings are off by a module now and then
            row = row / STEP * STEP + random.Chance(20);
            col = col / STEP * STEP + random.Chance(20);
        }
        PutFinder(code, row, col);
    }
    return code;
}

Picture Code_Draw(const Modules& code, int px, int py, int margin)
{
    enum { INK = 0, PAPER = 255 };
    const int width = std::min<int>((code.cols + 2 * margin) * px, PICTURE_SIDE_MAX);
    const int height = std::min<int>((code.rows + 2 * margin) * py, PICTURE_SIDE_MAX);
    Picture picture = Picture_Make(width, height, PAPER);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int row = y / py - margin;
            const int col = x / px - margin;
            const bool inside = row >= 0 && row < code.rows && col >= 0 && col < code.cols;
            if (inside && code.At(row, col) != 0) {
                picture.At(x, y) = INK;
            }
        }
    }
    return picture;
}
