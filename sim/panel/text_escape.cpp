#include "text_escape.h"

#include <cstdint>
#include <cstdio>

// Limits of code points.
static const uint32_t FIRST_OF_LENGTH[] = {0, 0, 0x80, 0x800, 0x10000}; // by length in bytes
static const uint32_t SURROGATE_FIRST = 0xD800;
static const uint32_t SURROGATE_LAST = 0xDFFF;
static const uint32_t CODE_POINT_LAST = 0x10FFFF;

static uint8_t ByteAt(const std::string& text, size_t at)
{
    return static_cast<uint8_t>(text[at]);
}

size_t Panel_Utf8Length(const std::string& text, size_t at)
{
    const uint8_t first = ByteAt(text, at);
    const size_t length = first < 0x80             ? 1
                          : (first & 0xE0) == 0xC0 ? 2
                          : (first & 0xF0) == 0xE0 ? 3
                          : (first & 0xF8) == 0xF0 ? 4
                                                   : 0;
    if (length < 2 || at + length > text.size()) {
        return length == 1 ? 1 : 0;
    }
    uint32_t code = first & (0x7Fu >> length);
    for (size_t i = at + 1; i < at + length; ++i) {
        if ((ByteAt(text, i) & 0xC0) != 0x80) {
            return 0;
        }
        code = code << 6 | (ByteAt(text, i) & 0x3Fu);
    }
    const bool bSurrogate = code >= SURROGATE_FIRST && code <= SURROGATE_LAST;
    return code < FIRST_OF_LENGTH[length] || code > CODE_POINT_LAST || bSurrogate ? 0 : length;
}

// U+0080..U+009F, control characters of two bytes.
static bool IsLateControl(const std::string& text, size_t at)
{
    return ByteAt(text, at) == 0xC2 && ByteAt(text, at + 1) < 0xA0;
}

static std::string EscapeByte(uint8_t byte)
{
    switch (byte) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    case '\\':
        return "\\\\";
    case '"':
        return "\\\"";
    default:
        break;
    }
    if (byte >= 0x20 && byte < 0x7F) {
        return std::string(1, static_cast<char>(byte));
    }
    char szHex[5];
    std::snprintf(szHex, sizeof(szHex), "\\x%02x", byte);
    return szHex;
}

std::string Panel_EscapeText(const std::string& text)
{
    std::string escaped;
    for (size_t at = 0; at < text.size();) {
        const size_t length = Panel_Utf8Length(text, at);
        if (length > 1 && !IsLateControl(text, at)) {
            escaped.append(text, at, length);
            at += length;
        } else {
            escaped += EscapeByte(ByteAt(text, at));
            ++at;
        }
    }
    return escaped;
}

std::string Panel_HexText(const std::string& bytes)
{
    std::string hex;
    for (const char byte : bytes) {
        char szHex[3];
        std::snprintf(szHex, sizeof(szHex), "%02x", static_cast<uint8_t>(byte));
        hex += szHex;
    }
    return hex;
}
