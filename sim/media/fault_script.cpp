#include "fault_script.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>

#include "sim_platform.h"

namespace
{

// Reads a whole word as an unsigned number of 32 bits, decimal or 0x....
bool ParseWord(const std::string& word, uint32_t& value)
{
    if (word.empty() || word[0] < '0' || word[0] > '9') {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    const unsigned long long number = std::strtoull(word.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || number > std::numeric_limits<uint32_t>::max()) {
        return false;
    }
    value = static_cast<uint32_t>(number);
    return true;
}

bool ParseFault(const std::vector<std::string>& words, SimScript& script)
{
    uint32_t code = 0;
    uint32_t calls = 0;
    if (words.size() < 2 || words.size() > 3 || !ParseWord(words[1], code)) {
        return false;
    }
    SimFault fault;
    fault.code = static_cast<int>(code);
    if (words.size() == 3) {
        if (!ParseWord(words[2], calls) || calls > 1000000000) {
            return false;
        }
        fault.calls = static_cast<int>(calls);
    }
    script.faults[words[0]] = fault;
    return true;
}

bool ParsePicture(const std::vector<std::string>& words, SimScript& script)
{
    if (words.size() == 2 && words[1] == "never") {
        script.pictureNever = true;
        return true;
    }
    if (words.size() == 2 && words[1] == "none") {
        script.pictureNone = true;
        return true;
    }
    std::string bytes;
    if (words.size() == 3 && words[1] == "jpeg" && Sim_ReadFile(words[2], bytes)) {
        script.hasJpeg = true;
        script.jpeg.assign(bytes.begin(), bytes.end());
        return true;
    }
    return false;
}

bool ParsePacks(const std::vector<std::string>& words, SimScript& script)
{
    std::vector<SimPackLayout> packs;
    for (size_t i = 1; i < words.size(); ++i) {
        const size_t colon = words[i].find(':');
        SimPackLayout pack;
        if (colon == std::string::npos || !ParseWord(words[i].substr(0, colon), pack.skip)) {
            return false;
        }
        const std::string valid = words[i].substr(colon + 1);
        pack.rest = valid == "*" && i + 1 == words.size();
        if (!pack.rest && !ParseWord(valid, pack.valid)) {
            return false;
        }
        packs.push_back(pack);
    }
    script.packs = packs;
    return !packs.empty();
}

bool ParseFrameMs(const std::vector<std::string>& words, SimScript& script)
{
    uint32_t ms = 0;
    if (words.size() != 2 || !ParseWord(words[1], ms) || ms > SIM_FRAME_MS_MAX) {
        return false;
    }
    script.frameMs = static_cast<int>(ms);
    return true;
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
        return ParseFrameMs(words, script);
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

bool Sim_ReadFile(const std::string& path, std::string& bytes)
{
    std::ifstream file(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return file.is_open() && !file.bad();
}
