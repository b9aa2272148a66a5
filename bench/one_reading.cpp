// Takes readings of one picture with the service's own code over the simulated platform, for
// instruction counts: one_reading PICTURE READINGS. Prints the result of the last.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <opencv2/core/utility.hpp>

#include "capture_decode.h"
#include "message.h"
#include "sim_platform.h"

int main(int argc, char** argv)
{
    const int readings = argc == 3 ? static_cast<int>(std::strtol(argv[2], nullptr, 10)) : 0;
    if (readings < 1) {
        std::fprintf(stderr, "usage: one_reading PICTURE READINGS\n");
        return 2;
    }
    const int longViewMs = 3600000;
    std::string error;
    if (!Sim_OpenScene(argv[1], longViewMs, "", error)) {
        std::fprintf(stderr, "one_reading: %s\n", error.c_str());
        return 2;
    }
    cv::setNumThreads(0);
    char text[QRCODE_TEXT_SIZE];
    int result = 0;
    for (int i = 0; i < readings; ++i) {
        std::memset(text, 0, sizeof(text));
        result = Qrcode_CaptureAndDecode(nullptr, text);
    }
    std::printf("%d %s\n", result, text);
    return 0;
}
