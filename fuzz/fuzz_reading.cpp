// Any bytes as the snapshot's JPEG to a whole reading over the simulated platform. Two exceptions
// of OpenCV's are what some headers earn: of more pixels than OPENCV_IO_MAX_IMAGE_PIXELS, and of a
// side of SHRT_MAX or more. They end the service and are passed over here.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <opencv2/core.hpp>
#include <string>

#include "capture_decode.h"
#include "message.h"
#include "sim_platform.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    cv::setNumThreads(0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    SimScript script;
    script.frameMs = 0;
    script.hasJpeg = true;
    script.jpeg.assign(data, data + size);
    Sim_SetScript(script);
    char text[QRCODE_TEXT_SIZE + 1];
    std::memset(text, 0, sizeof(text));
    text[QRCODE_TEXT_SIZE] = 'x'; // behind the buffer
    int length = -1;
    try {
        length = Qrcode_CaptureAndDecode(nullptr, text);
    } catch (const cv::Exception& exception) {
        const std::string what = exception.what();
        if (what.find("CV_IO_MAX_IMAGE_PIXELS") == std::string::npos &&
            what.find("SHRT_MAX") == std::string::npos) {
            std::abort();
        }
        Sim_Reset();
        return 0;
    }
    const bool well = length >= -1 && length < QRCODE_TEXT_SIZE &&
                      text[QRCODE_TEXT_SIZE - 1] == '\0' && text[QRCODE_TEXT_SIZE] == 'x' &&
                      (length < 1 || static_cast<int>(std::strlen(text)) >= length) &&
                      (length != -1 || text[0] == '\0');
    if (!well) {
        std::abort();
    }
    return 0;
}
