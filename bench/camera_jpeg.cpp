// Writes the JPEG that the simulated camera makes of a picture, the right size for the service:
// camera_jpeg PICTURE > FILE. For scripts with "picture jpeg FILE" (fault_script.h).
#include <cstdio>
#include <string>
#include <vector>

#include "watched_reading.h"

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: camera_jpeg PICTURE > FILE\n");
        return 2;
    }
    std::vector<uint8_t> jpeg;
    std::string error;
    if (!Reading_CameraJpeg(argv[1], jpeg, error)) {
        std::fprintf(stderr, "camera_jpeg: %s: %s\n", argv[1], error.c_str());
        return 2;
    }
    if (std::fwrite(jpeg.data(), 1, jpeg.size(), stdout) != jpeg.size() ||
        std::fflush(stdout) != 0) {
        std::perror("camera_jpeg: standard output");
        return 1;
    }
    return 0;
}
