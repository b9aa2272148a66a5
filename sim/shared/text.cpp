#include "text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <unistd.h>

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
const uint32_t NO_CODE_POINT = 0xFFFD; // in the place of a byte that is no UTF-8

uint8_t ByteAt(const std::string& text, size_t at)
{
    return static_cast<uint8_t>(text[at]);
}

// Bytes of the UTF-8 character that begins at `at`, 1..4, and its code point; 0 when there is none
// that is well formed.
size_t Utf8Length(const std::string& text, size_t at, uint32_t& code)
{
    code = NO_CODE_POINT;
    const uint8_t first = ByteAt(text, at);
    const size_t length = first < 0x80             ? 1
                          : (first & 0xE0) == 0xC0 ? 2
                          : (first & 0xF0) == 0xE0 ? 3
                          : (first & 0xF8) == 0xF0 ? 4
                                                   : 0;
    if (length == 1) {
        code = first;
    }
    if (length < 2 || at + length > text.size()) {
        return length == 1 ? 1 : 0;
    }
    uint32_t made = first & (0x7Fu >> length);
    for (size_t i = at + 1; i < at + length; ++i) {
        if ((ByteAt(text, i) & 0xC0) != 0x80) {
            return 0;
        }
        made = made << 6 | (ByteAt(text, i) & 0x3Fu);
    }
    const bool surrogate = made >= SURROGATE_FIRST && made <= SURROGATE_LAST;
    if (made < FIRST_OF_LENGTH[length] || made > CODE_POINT_LAST || surrogate) {
        return 0;
    }
    code = made;
    return length;
}

struct CodeRange {
    uint32_t first;
    uint32_t last;
};

template <size_t COUNT> bool IsIn(const CodeRange (&ranges)[COUNT], uint32_t code)
{
    return std::any_of(ranges, ranges + COUNT, [code](const CodeRange& range) {
        return code >= range.first && code <= range.last;
    });
}

// Control characters, marks and overrides of the direction, line ends and blanks without width.
const CodeRange ESCAPED[] = {{0x80, 0x9F},     {0xAD, 0xAD},     {0x61C, 0x61C},
                             {0x200B, 0x200F}, {0x2028, 0x202E}, {0x2060, 0x206F},
                             {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F}};
// Two columns on a terminal; none.
const CodeRange WIDE[] = {{0x1100, 0x115F},   {0x2E80, 0x303E},  {0x3041, 0xA4CF},
                          {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},  {0xFE30, 0xFE6F},
                          {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},  {0x1F300, 0x1F64F},
                          {0x1F900, 0x1F9FF}, {0x20000, 0x3FFFD}};
const CodeRange COMBINING[] = {
    {0x300, 0x36F}, {0x20D0, 0x20FF}, {0x3099, 0x309A}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}};

size_t ColumnsOf(uint32_t code)
{
    return IsIn(COMBINING, code) ? 0 : IsIn(WIDE, code) ? 2 : 1;
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

// Where the character behind the one at `at` begins, and the code point of that one.
size_t Behind(const std::string& text, size_t at, uint32_t& code)
{
    return at + std::max<size_t>(Utf8Length(text, at, code), 1);
}

} // namespace

std::string Text_Escape(const std::string& text)
{
    std::string escaped;
    for (size_t at = 0; at < text.size();) {
        uint32_t code = 0;
        const size_t length = Utf8Length(text, at, code);
        if (length > 1 && !IsIn(ESCAPED, code)) {
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

std::u32string Text_CodePoints(const std::string& text)
{
    std::u32string codes;
    for (size_t at = 0; at < text.size();) {
        uint32_t code = 0;
        at = Behind(text, at, code);
        codes += static_cast<char32_t>(code);
    }
    return codes;
}

size_t Text_Columns(const std::string& text)
{
    size_t columns = 0;
    for (const char32_t code : Text_CodePoints(text)) {
        columns += ColumnsOf(code);
    }
    return columns;
}

std::string Text_Shown(const std::string& text)
{
    const std::string escaped = Text_Escape(text);
    size_t bytes = 0;
    for (int i = 0; i < TEXT_SHOWN && bytes < escaped.size(); ++i) {
        uint32_t ignored = 0;
        bytes = Behind(escaped, bytes, ignored);
    }
    if (bytes == escaped.size()) {
        return "\"" + escaped + "\"";
    }
    return "\"" + escaped.substr(0, bytes) + "...\" (" + std::to_string(text.size()) + " bytes)";
}

std::string Text_Padded(const std::string& text, size_t columns)
{
    const size_t used = Text_Columns(text);
    return text + std::string(used < columns ? columns - used : 0, ' ');
}

std::string Text_Fitted(const std::string& text, size_t columns)
{
    const std::string dots = "...";
    const size_t used = Text_Columns(text);
    if (used <= columns || columns < dots.size()) {
        return Text_Padded(text, columns);
    }
    const size_t front = (columns - dots.size()) / 2;
    const size_t back = used - (columns - dots.size() - front); // columns before the end's
    std::string begin;
    std::string end;
    size_t column = 0;
    for (size_t at = 0; at < text.size();) {
        uint32_t code = 0;
        const size_t next = Behind(text, at, code);
        const size_t behind = column + ColumnsOf(code);
        if (behind <= front) {
            begin.append(text, at, next - at);
        } else if (column >= back) {
            end.append(text, at, next - at);
        }
        column = behind;
        at = next;
    }
    return Text_Padded(begin + dots + end, columns);
}

bool Text_MayEscape(int fd)
{
    const char* const term = std::getenv("TERM");
    const char* const noColour = std::getenv("NO_COLOR");
    return isatty(fd) == 1 && term != nullptr && std::string(term) != "dumb" &&
           (noColour == nullptr || noColour[0] == '\0');
}

std::string Text_Format(const char* format, ...)
{
    char buffer[TEXT_FORMAT_MAX + 1];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    return buffer;
}
