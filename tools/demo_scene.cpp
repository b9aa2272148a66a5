#include "demo_scene.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "message.h"

namespace fs = std::filesystem;

std::string Demo_ScenePath(const std::string& scene)
{
    std::error_code ignored;
    const fs::path path = fs::absolute(scene, ignored).lexically_normal();
    return (path.has_filename() ? path : path.parent_path()).string();
}

DemoExpected Demo_ReadExpected(const std::string& picture)
{
    DemoExpected expected;
    std::ifstream file(fs::path(picture).replace_extension(".txt"), std::ios::binary);
    if (file) {
        expected.text.assign(std::istreambuf_iterator<char>(file), {});
        expected.bKnown = !file.bad();
        if (!expected.text.empty() && expected.text.back() == '\n') {
            expected.text.pop_back();
        }
    }
    return expected;
}

bool Demo_IsExpected(const DemoExpected& expected, const std::string& text)
{
    return text == expected.text || text == expected.text + "\n";
}

bool Demo_IsReportable(const DemoExpected& expected)
{
    return expected.bKnown && expected.text.size() >= QRCODE_TEXT_REPORT_MIN;
}
