// Takes one reading of a picture with the service's own code over the simulated platform, for
// instruction counts: one_reading PICTURE. Prints its result and text.
#include <cstdio>

#include "capture_decode.h"
#include "message.h"
#include "process_setup.h"
#include "sim_platform.h"

int main(int argc, char** argv)
{
    Qrcode_SetUpProcess();
    const int longViewMs = 3600000;
    std::string error = "usage: one_reading PICTURE";
    if (argc != 2 || !Sim_OpenScene(argv[1], longViewMs, "", error)) {
        std::fprintf(stderr, "one_reading: %s\n", error.c_str());
        return 2;
    }
    char text[QRCODE_TEXT_SIZE] = {};
    const int result = Qrcode_CaptureAndDecode(nullptr, text);
    std::printf("%d %s\n", result, text);
    return 0;
}
