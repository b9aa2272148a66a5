#include "text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace
{

enum { TEXT_SHOWN = 64 }; // characters; of a longer text the length is given

// Bytes that are escaped by a letter, and these letters.
const std::string_view SPECIAL = "\n\r\t\\\"";
const char SPECIAL_LETTERS[] = "nrt\\\"";

// Limits of code points.
const uint32_t FIRST_OF_LENGTH[] = {0, 0, 0x80, 0x800, 0x10000}; // by length in bytes
const uint32_t SURROGATE_FIRST = 0xD800;
const uint32_t SURROGATE_LAST = 0xDFFF;
const uint32_t CODE_POINT_LAST = 0x10FFFF;

uint8_t ByteAt(const std::string& text, size_t at)
{
    return static_cast<uint8_t>(text[at]);
}

// Bytes of the UTF-8 character that begins at `at`, 1..4; 0 when there is none that is well formed.
size_t Utf8Length(const std::string& text, size_t at)
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
    const bool surrogate = code >= SURROGATE_FIRST && code <= SURROGATE_LAST;
    return code < FIRST_OF_LENGTH[length] || code > CODE_POINT_LAST || surrogate ? 0 : length;
}

// U+0080..U+009F, control characters of two bytes.
bool IsLateControl(const std::string& text, size_t at)
{
    return ByteAt(text, at) == 0xC2 && ByteAt(text, at + 1) < 0xA0;
}

std::string EscapeByte(uint8_t byte)
{
    const size_t special = SPECIAL.find(static_cast<char>(byte));
    if (special != std::string_view::npos) {
        return {'\\', SPECIAL_LETTERS[special]};
    }
    const std::string one(1, static_cast<char>(byte));
    return byte >= 0x20 && byte < 0x7F ? one : "\\x" + Text_Hex(one);
}

// Where the character behind the one at `at` begins.
size_t Behind(const std::string& text, size_t at)
{
    return at + std::max<size_t>(Utf8Length(text, at), 1);
}

// Bytes of the text's first so many characters.
size_t BytesOf(const std::string& text, size_t characters)
{
    size_t bytes = 0;
    for (size_t i = 0; i < characters && bytes < text.size(); ++i) {
        bytes = Behind(text, bytes);
    }
    return bytes;
}

} // namespace

std::string Text_Escape(const std::string& text)
{
    std::string escaped;
    for (size_t at = 0; at < text.size();) {
        const size_t length = Utf8Length(text, at);
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

std::string Text_Hex(const std::string& bytes)
{
    std::string hex;
    for (const char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof(digits), "%02x", static_cast<uint8_t>(byte));
        hex += digits;
    }
    return hex;
}

size_t Text_Characters(const std::string& text)
{
    size_t characters = 0;
    for (size_t at = 0; at < text.size(); at = Behind(text, at)) {
        ++characters;
    }
    return characters;
}

std::string Text_Shown(const std::string& text)
{
    const std::string escaped = Text_Escape(text);
    const size_t bytes = BytesOf(escaped, TEXT_SHOWN);
    if (bytes == escaped.size()) {
        return "\"" + escaped + "\"";
    }
    return "\"" + escaped.substr(0, bytes) + "...\" (" + std::to_string(text.size()) + " bytes)";
}

std::string Text_Padded(const std::string& text, size_t characters)
{
    const size_t used = Text_Characters(text);
    return text + std::string(used < characters ? characters - used : 0, ' ');
}

std::string Text_Fitted(const std::string& text, size_t characters)
{
    const std::string gap = "...";
    const size_t all = Text_Characters(text);
    if (all <= characters) {
        return Text_Padded(text, characters);
    }
    const size_t end = (characters - gap.size()) / 2;
    const size_t begin = characters - gap.size() - end;
    return text.substr(0, BytesOf(text, begin)) + gap + text.substr(BytesOf(text, all - end));
}
