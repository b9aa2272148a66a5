#include "fault_script.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>

#include "sim_platform.h"

namespace
{

// Reads a whole word as an unsigned number, decimal or 0x....
template <typename Number>
bool ParseWord(const std::string& word, Number& value,
               unsigned long long most = std::numeric_limits<uint32_t>::max())
{
    char* end = nullptr;
    errno = 0;
    const unsigned long long number = std::strtoull(word.c_str(), &end, 0);
    value = static_cast<Number>(number);
    return !word.empty() && word[0] >= '0' && word[0] <= '9' && errno == 0 && *end == '\0' &&
           number <= most;
}

bool ParseFault(const std::vector<std::string>& words, SimScript& script)
{
    SimFault& fault = script.faults[words[0]];
    fault = SimFault();
    return (words.size() == 2 ||
            (words.size() == 3 && ParseWord(words[2], fault.calls, SIM_FAULT_CALLS_MAX))) &&
           ParseWord(words[1], fault.code);
}

bool ParsePicture(const std::vector<std::string>& words, SimScript& script)
{
    const std::string what = words.size() > 1 ? words[1] : "";
    if (what == "jpeg") {
        script.hasJpeg = true;
        return words.size() == 3 && Sim_ReadFile(words[2], script.jpeg);
    }
    script.pictureNever = script.pictureNever || what == "never";
    script.pictureNone = script.pictureNone || what == "none";
    return words.size() == 2 && (what == "never" || what == "none");
}

bool ParsePacks(const std::vector<std::string>& words, SimScript& script)
{
    script.packs.clear();
    for (size_t i = 1; i < words.size(); ++i) {
        const size_t colon = std::min(words[i].find(':'), words[i].size() - 1);
        const std::string valid = words[i].substr(colon + 1);
        SimPackLayout pack;
        pack.rest = valid == "*" && i + 1 == words.size();
        if (!ParseWord(words[i].substr(0, colon), pack.skip) ||
            (!pack.rest && !ParseWord(valid, pack.valid))) {
            return false;
        }
        script.packs.push_back(pack);
    }
    return !script.packs.empty();
}

bool ParseStatement(const std::vector<std::string>& words, SimScript& script)
{
    if (words[0] == "picture") {
        return ParsePicture(words, script);
    }
    if (words[0] == "packs") {
        return ParsePacks(words, script);
    }
    if (words[0] == "frame-ms") {
        return words.size() == 2 && ParseWord(words[1], script.frameMs, SIM_FRAME_MS_MAX);
    }
    return Sim_IsOperation(words[0]) && ParseFault(words, script);
}

} // namespace

bool Sim_ParseScript(const std::string& text, SimScript& script, std::string& error)
{
    SimScript parsed;
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        std::istringstream statement(line.substr(0, line.find('#')));
        const std::vector<std::string> words{std::istream_iterator<std::string>(statement),
                                             std::istream_iterator<std::string>()};
        if (!words.empty() && !ParseStatement(words, parsed)) {
            error = "line " + std::to_string(number) + ": cannot make sense of \"" + line + "\"";
            return false;
        }
    }
    script = parsed;
    return true;
}

bool Sim_ReadFile(const std::string& path, std::vector<uint8_t>& bytes)
{
    std::ifstream file(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return file.is_open() && !file.bad();
}
