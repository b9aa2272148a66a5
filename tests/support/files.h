// Small files for tests, all below the private /tmp.
#ifndef TESTS_FILES_H
#define TESTS_FILES_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "expected_text.h"

inline std::string ReadAll(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void WriteAll(const std::filesystem::path& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

// A sample by its name in samples/. Where the program can read no PNG, SAMPLES_DIR holds those as
// BMP.
inline std::string Sample(const std::string& name)
{
    std::filesystem::path path = std::filesystem::path(SAMPLES_DIR) / name;
    if (!std::filesystem::exists(path)) {
        path.replace_extension(".bmp");
    }
    return path.string();
}

// The expected text beside a sample.
inline std::string SampleText(const std::filesystem::path& picture)
{
    return Expected_Read(picture.string()).text;
}

// A folder of the test's own, empty at first, gone at the end.
class TempFolder
{
public:
    TempFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "qrcode-test-XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    ~TempFolder() { std::filesystem::remove_all(path_); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
    const std::filesystem::path& Path() const { return path_; }

private:
    std::filesystem::path path_;
};

#endif
