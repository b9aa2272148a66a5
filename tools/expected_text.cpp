#include "expected_text.h"

#include <filesystem>
#include <fstream>

#include "message.h"

enum { EXPECTED_MAX = 65536 }; // bytes; no text in a code is that long

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
        expected.bKnown = !file.bad();
        bytes.resize(static_cast<size_t>(file.gcount()));
        expected.bLineEnd = !bytes.empty() && bytes.back() == '\n';
        expected.text = bytes.substr(0, bytes.size() - (expected.bLineEnd ? 1 : 0));
    }
    return expected;
}

bool Expected_Is(const ExpectedText& expected, const std::string& text)
{
    return text == expected.text || (expected.bLineEnd && text == expected.text + "\n");
}

bool Expected_IsReportable(const ExpectedText& expected)
{
    return expected.bKnown && expected.text.size() >= QRCODE_TEXT_REPORT_MIN;
}
