// Writes the JPEG that the simulated camera makes of a picture, the right size for the service:
// camera_jpeg PICTURE > FILE. For scripts with "picture jpeg FILE" (fault_script.h).
#include <cstdio>
#include <string>
#include <vector>

#include "camera_picture.h"

enum {
    FRAME_SIDE = 400, // pixels
    FRAME_QUALITY = 99
};

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: camera_jpeg PICTURE > FILE\n");
        return 2;
    }
    cv::Mat picture;
    std::string error;
    if (!Sim_LoadPicture(argv[1], picture, error)) {
        std::fprintf(stderr, "camera_jpeg: %s: %s\n", argv[1], error.c_str());
        return 2;
    }
    const std::vector<uint8_t> jpeg =
        Sim_EncodeFrame(Sim_CameraFrame(picture, FRAME_SIDE, FRAME_SIDE), FRAME_QUALITY);
    if (std::fwrite(jpeg.data(), 1, jpeg.size(), stdout) != jpeg.size() ||
        std::fflush(stdout) != 0) {
        std::perror("camera_jpeg: standard output");
        return 1;
    }
    return 0;
}
