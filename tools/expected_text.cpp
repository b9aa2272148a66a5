#include "expected_text.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "message.h"

ExpectedText Expected_Read(const std::string& picture)
{
    ExpectedText expected;
    std::ifstream file(std::filesystem::path(picture).replace_extension(".txt"), std::ios::binary);
    if (file) {
        expected.text.assign(std::istreambuf_iterator<char>(file), {});
        expected.bKnown = !file.bad();
        if (!expected.text.empty() && expected.text.back() == '\n') {
            expected.text.pop_back();
        }
    }
    return expected;
}

bool Expected_Is(const ExpectedText& expected, const std::string& text)
{
    return text == expected.text || text == expected.text + "\n";
}

bool Expected_IsReportable(const ExpectedText& expected)
{
    return expected.bKnown && expected.text.size() >= QRCODE_TEXT_REPORT_MIN;
}
