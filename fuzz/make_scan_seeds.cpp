// make_scan_seeds FOLDER: writes a valid code of every kind into FOLDER, as inputs of the target
// scan, named after the kind, drawn as small as it is read, and prints of 100 others of the kind
// how many are read at 1, 2 and 3 pixels a module. Ends with 1 when of a kind none is read or a
// file cannot be written.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <opencv2/core.hpp>
#include <string>

#include "code_maker.h"
#include "picture_input.h"
#include "symbol_scan.h"
#include "text_buffer.h"

namespace
{

enum { TRIES = 100, PIXELS_MAX = 3, MARGIN = 4 };

bool IsRead(Picture& picture)
{
    TextBuffer buffer;
    const cv::Mat grey(picture.height, picture.width, CV_8UC1, picture.pixels.data());
    return Qrcode_ScanImage(grey, buffer.text) > 0;
}

bool Write(const std::string& folder, std::string name, const Picture& picture)
{
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) {
        return std::isalnum(c) != 0 ? static_cast<char>(std::tolower(c)) : '-';
    });
    std::vector<uint8_t> input(PICTURE_INPUT_MAX);
    input.resize(Picture_ToInput(picture, input.data(), input.size()));
    std::ofstream file(folder + "/" + name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(input.data()),
               static_cast<std::streamsize>(input.size()));
    file.close();
    return file.good();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_scan_seeds FOLDER\n");
        return 2;
    }
    bool well = true;
    std::printf("%-34s %8s %8s %8s\n", "kind", "1 pixel", "2 pixels", "3 pixels");
    for (int kind = 0; kind < Code_Kinds(); ++kind) {
        int read[PIXELS_MAX + 1] = {};
        Picture smallest;
        for (int seed = 1; seed <= TRIES; ++seed) {
            Random random(static_cast<unsigned>(seed));
            const Modules code = Code_Make(kind, random);
            for (int px = 1; code.rows > 0 && px <= PIXELS_MAX; ++px) {
                Picture picture = Code_Draw(code, px, px, MARGIN);
                if (IsRead(picture)) {
                    ++read[px];
                    if (smallest.pixels.empty() || picture.pixels.size() < smallest.pixels.size()) {
                        smallest = picture;
                    }
                }
            }
        }
        std::printf("%-34s %8d %8d %8d\n", Code_KindName(kind), read[1], read[2], read[3]);
        if (smallest.pixels.empty() || !Write(argv[1], Code_KindName(kind), smallest)) {
            std::fprintf(stderr, "make_scan_seeds: %s: none is read, or no file\n",
                         Code_KindName(kind));
            well = false;
        }
    }
    return well ? 0 : 1;
}
