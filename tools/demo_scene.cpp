#include "demo_scene.h"

#include <algorithm>
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

static bool IsPicture(const fs::directory_entry& entry)
{
    const std::string name = entry.path().filename().string();
    const auto ends = [&name](const std::string& ending) {
        return name.size() >= ending.size() &&
               name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
    };
    std::error_code ignored;
    return name[0] != '.' && !ends(".txt") && !ends(".md") && entry.is_regular_file(ignored);
}

bool Demo_ListPictures(const std::string& scene, std::vector<std::string>& paths,
                       std::string& error)
{
    std::error_code code;
    const fs::file_status status = fs::status(scene, code);
    if (!fs::exists(status)) {
        error = "no such picture or folder: " + scene;
        return false;
    }
    paths.clear();
    if (!fs::is_directory(status)) {
        paths.push_back(scene);
        error = scene + " is neither a file nor a folder";
        return fs::is_regular_file(status);
    }
    fs::directory_iterator entry(scene, code);
    for (; !code && entry != fs::directory_iterator(); entry.increment(code)) {
        if (IsPicture(*entry)) {
            paths.push_back(entry->path().string());
        }
    }
    std::sort(paths.begin(), paths.end());
    error = "cannot read folder " + scene + ": " + code.message();
    return !code;
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
