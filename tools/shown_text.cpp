#include "shown_text.h"

#include <algorithm>

#include "text_escape.h"

enum { TEXT_SHOWN = 64 }; // characters of a text; the rest is told as its length

// Bytes of the first `nCharacters` characters of well-formed text.
static size_t BytesOf(const std::string& text, size_t nCharacters)
{
    size_t at = 0;
    while (at < text.size() && nCharacters > 0) {
        at += std::max<size_t>(Panel_Utf8Length(text, at), 1);
        --nCharacters;
    }
    return at;
}

size_t Text_Characters(const std::string& text)
{
    size_t nCharacters = 0;
    for (size_t at = 0; at < text.size(); ++nCharacters) {
        at += std::max<size_t>(Panel_Utf8Length(text, at), 1);
    }
    return nCharacters;
}

std::string Text_Shown(const std::string& text)
{
    const std::string escaped = Panel_EscapeText(text);
    const size_t nBytes = BytesOf(escaped, TEXT_SHOWN);
    if (nBytes == escaped.size()) {
        return "\"" + escaped + "\"";
    }
    return "\"" + escaped.substr(0, nBytes) + "...\" (" + std::to_string(text.size()) + " bytes)";
}

std::string Text_Padded(const std::string& text, size_t nCharacters)
{
    const size_t used = Text_Characters(text);
    return text + std::string(used < nCharacters ? nCharacters - used : 0, ' ');
}
