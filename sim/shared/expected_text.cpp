#include "expected_text.h"

#include <filesystem>
#include <fstream>

#include "message.h"

namespace
{

enum { EXPECTED_MAX = 65536 }; // bytes; no text in a code is that long

} // namespace

ExpectedText Expected_Read(const std::string& picture)
{
    ExpectedText expected;
    const std::filesystem::path path = std::filesystem::path(picture).replace_extension(".txt");
    std::error_code ignored;
    std::ifstream file;
    if (std::filesystem::is_regular_file(path, ignored)) { // a FIFO would never open
        file.open(path, std::ios::binary);
    }
    if (file.is_open()) {
        std::string bytes(EXPECTED_MAX, '\0');
        file.read(bytes.data(), EXPECTED_MAX);
        expected.known = !file.bad();
        bytes.resize(static_cast<size_t>(file.gcount()));
        expected.lineEnd = !bytes.empty() && bytes.back() == '\n';
        expected.text = bytes.substr(0, bytes.size() - (expected.lineEnd ? 1 : 0));
    }
    return expected;
}

bool Expected_IsReportable(const ExpectedText& expected)
{
    return expected.known && expected.text.size() >= QRCODE_TEXT_REPORT_MIN;
}

Verdict Expected_Judge(const ExpectedText& expected, bool read, const std::string& text)
{
    if (!expected.known) {
        return VERDICT_NONE;
    }
    if (!read) {
        return expected.text.empty() ? VERDICT_NONE_AS_EXPECTED : VERDICT_MISSED;
    }
    const bool same = text == expected.text || (expected.lineEnd && text == expected.text + "\n");
    return same && !expected.text.empty() ? VERDICT_RIGHT : VERDICT_WRONG;
}

Verdict Expected_JudgeReport(const ExpectedText& expected, bool reported, const std::string& text)
{
    ExpectedText due = expected;
    if (!Expected_IsReportable(expected)) {
        due.text.clear();
    }
    return Expected_Judge(due, reported, text);
}
