// charset_codes: draws QR codes of one text after another in the character sets that codes come in.
//
// The codes are drawn on a PC, where the C library has all sets, and read by charset_readings,
// where it may have few: on a line "KIND<TAB>TEXT<TAB>MODULES", the text in UTF-8 as hexadecimal
// digits, the modules row by row, 1 for a dark one.
#include <cstdio>
#include <fstream>
#include <iconv.h>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "card_view.h"
#include "command_line.h"
#include "text.h"

namespace
{

const char ABOUT[] = "Draws QR codes of texts from lists of words in several character sets, one "
                     "on a line, for charset_readings.\n"
                     "Ends with 1 when one cannot be drawn, 2 on wrong usage.";

enum { ECI_LATIN1 = 3, ECI_SJIS = 20, ECI_UTF8 = 26, ECI_BIG5 = 28 };

const char BOM[] = "\xEF\xBB\xBF";

const std::vector<std::string> BEYOND_ASCII = {"German",  "French",  "Polish",
                                               "Russian", "Chinese", "Japanese"};

// As makers of codes have it.
const struct Kind {
    const char* name;
    std::vector<std::string> languages;
    const char* charset; // iconv's name
    int eci = 0;
    bool kanji = false;
    const char* before = ""; // bytes before the text, which are no part of it
} KINDS[] = {
    {"ASCII", {"English"}, "UTF-8"},
    {"UTF-8, German", {"German"}, "UTF-8"},
    {"UTF-8, French", {"French"}, "UTF-8"},
    {"UTF-8, Polish", {"Polish"}, "UTF-8"},
    {"UTF-8, Russian", {"Russian"}, "UTF-8"},
    {"UTF-8, Chinese", {"Chinese"}, "UTF-8"},
    {"UTF-8, Japanese", {"Japanese"}, "UTF-8"},
    {"UTF-8 after a byte order mark", BEYOND_ASCII, "UTF-8", 0, false, BOM},
    {"UTF-8, ECI 26", BEYOND_ASCII, "UTF-8", ECI_UTF8},
    {"Latin-1", {"German", "French"}, "LATIN1"},
    {"Latin-1, ECI 3", {"German", "French"}, "LATIN1", ECI_LATIN1},
    {"Shift-JIS", {"Japanese"}, "SJIS"},
    {"Shift-JIS, kanji mode", {"Japanese"}, "SJIS", 0, true},
    {"Shift-JIS, ECI 20", {"Japanese"}, "SJIS", ECI_SJIS},
    {"Big5", {"Chinese"}, "BIG5"},
    {"Big5, ECI 28", {"Chinese"}, "BIG5", ECI_BIG5},
};

// The words of "LANGUAGE: WORD, WORD, ...".
std::vector<std::string> WordsOf(const std::string& language, const std::string& path)
{
    std::vector<std::string> words;
    std::ifstream file(path);
    const std::string begin = language + ": ";
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, begin.size(), begin) == 0) {
            std::istringstream in(line.substr(begin.size()));
            for (std::string word; std::getline(in >> std::ws, word, ',');) {
                words.push_back(word);
            }
        }
    }
    if (words.empty()) {
        throw std::runtime_error(path + ": no words of " + language);
    }
    return words;
}

// Two texts for each word: the word and a number, and four words and a number.
std::vector<std::string> TextsOf(const std::vector<std::string>& words)
{
    std::vector<std::string> texts;
    const size_t steps[] = {7, 18, 31};
    for (size_t n = 0; n < words.size(); ++n) {
        const std::string number = Text_Format(" %02zu", n + 1);
        texts.push_back(words[n] + number);
        std::string text = words[n];
        for (const size_t step : steps) {
            text += " " + words[(n + step) % words.size()];
        }
        texts.push_back(text + number);
    }
    return texts;
}

std::string Converted(std::string text, const char* charset)
{
    std::string bytes(4 * text.size(), '\0');
    char* in = &text[0];
    char* out = &bytes[0];
    size_t inLeft = text.size();
    size_t outLeft = bytes.size();
    iconv_t converter = iconv_open(charset, "UTF-8");
    if (converter == reinterpret_cast<iconv_t>(-1) ||
        iconv(converter, &in, &inLeft, &out, &outLeft) != 0) {
        throw std::runtime_error("cannot be written in " + std::string(charset) + ": " + text);
    }
    iconv_close(converter);
    bytes.resize(bytes.size() - outLeft);
    return bytes;
}

void Print(const Kind& kind, const std::string& text)
{
    Card card;
    std::string error;
    if (!Card_FromBytes({kind.before + Converted(text, kind.charset), kind.eci, kind.kanji}, text,
                        'M', 0, card, error)) {
        throw std::runtime_error(text + ": " + error);
    }
    std::string modules;
    for (const uint8_t grey : cv::Mat_<uint8_t>(card.face)) {
        modules += grey == 0 ? '1' : '0';
    }
    std::printf("%s\t%s\t%s\n", kind.name, Text_Hex(text).c_str(), modules.c_str());
}

int Run(int argc, char** argv)
{
    std::string words;
    CLI::App app(ABOUT, "charset_codes");
    app.add_option("words", words, "Lists of words: LANGUAGE: WORD, WORD, ...")
        ->type_name("FILE")
        ->required();
    int exitStatus = 0;
    if (!CommandLine_Parse(app, argc, argv, exitStatus)) {
        return exitStatus;
    }
    for (const Kind& kind : KINDS) {
        for (const std::string& language : kind.languages) {
            for (const std::string& text : TextsOf(WordsOf(language, words))) {
                Print(kind, text);
            }
        }
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    return CommandLine_Guard("charset_codes", [&] { return Run(argc, argv); });
}
