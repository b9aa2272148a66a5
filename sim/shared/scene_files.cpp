#include "scene_files.h"

#include <algorithm>
#include <filesystem>

namespace
{

namespace fs = std::filesystem;

bool IsPicture(const fs::directory_entry& entry)
{
    const std::string name = entry.path().filename().string();
    const std::string ending = entry.path().extension().string();
    std::error_code ignored;
    return name[0] != '.' && ending != ".txt" && ending != ".md" && entry.is_regular_file(ignored);
}

} // namespace

bool Sim_ListPictures(const std::string& scene, std::vector<std::string>& paths, std::string& error)
{
    std::error_code code;
    const fs::file_status status = fs::status(scene, code);
    paths.clear();
    if (!fs::exists(status)) {
        error = "no such picture or folder: " + scene;
        return false;
    }
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
