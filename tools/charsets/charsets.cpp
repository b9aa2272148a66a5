#include "charsets.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <iconv.h>
#include <sstream>
#include <vector>

namespace
{

const char NONE[] = "none";
const char UTF8[] = "UTF-8"; // no module: every C library has it built in

const struct Charset {
    const char* word;
    const char* name; // by which zbar asks for it
} CHARSETS[] = {{"sjis", "SJIS"}, {"latin1", "ISO8859-1"}, {"big5", "BIG-5"}};

std::string used = CHARSETS_ALL;
std::vector<std::string> names; // that iconv_open knows, unless all are used

std::vector<std::string> WordsOf(const std::string& list)
{
    std::vector<std::string> words;
    std::istringstream in(list + ",");
    for (std::string word; std::getline(in, word, ',');) {
        words.push_back(word);
    }
    return words;
}

// The one of the C library, which ours stands before.
iconv_t RealOpen(const char* to, const char* from)
{
    static const auto real =
        reinterpret_cast<decltype(&iconv_open)>(dlsym(RTLD_NEXT, "iconv_open"));
    if (real == nullptr) { // a C library without iconv
        errno = EINVAL;
        return reinterpret_cast<iconv_t>(-1);
    }
    return real(to, from);
}

bool IsKnown(const char* name)
{
    return used == CHARSETS_ALL || std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

extern "C" iconv_t iconv_open(const char* to, const char* from)
{
    if (!IsKnown(to) || !IsKnown(from)) {
        errno = EINVAL;
        return reinterpret_cast<iconv_t>(-1);
    }
    return RealOpen(to, from);
}

std::string Charsets_Check(const std::string& list)
{
    if (list == CHARSETS_ALL || list == NONE) {
        return "";
    }
    for (const std::string& word : WordsOf(list)) {
        if (std::none_of(std::begin(CHARSETS), std::end(CHARSETS),
                         [&](const Charset& set) { return word == set.word; })) {
            return "no character set \"" + word +
                   "\"; there are sjis, latin1 and big5, with \",\" between, or none, or all";
        }
    }
    return "";
}

bool Charsets_Use(const std::string& list, std::string& error)
{
    error = Charsets_Check(list);
    if (!error.empty()) {
        return false;
    }
    const std::vector<std::string> words = WordsOf(list);
    std::vector<std::string> chosen = {UTF8};
    std::string sorted;
    for (const Charset& set : CHARSETS) {
        if (std::find(words.begin(), words.end(), set.word) == words.end()) {
            continue;
        }
        iconv_t opened = RealOpen(UTF8, set.name);
        if (opened == reinterpret_cast<iconv_t>(-1)) {
            error = "this machine's C library has no module for " + std::string(set.word);
            return false;
        }
        iconv_close(opened);
        chosen.emplace_back(set.name);
        sorted += (sorted.empty() ? "" : ",") + std::string(set.word);
    }
    names = chosen;
    used = sorted.empty() ? list : sorted;
    return true;
}

const std::string& Charsets_Used()
{
    return used;
}
