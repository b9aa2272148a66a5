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
    char szText[QRCODE_TEXT_SIZE + 1];
    std::memset(szText, 0, sizeof(szText));
    szText[QRCODE_TEXT_SIZE] = 'x'; // behind the buffer
    int nLength = -1;
    try {
        nLength = Qrcode_CaptureAndDecode(nullptr, szText);
    } catch (const cv::Exception& exception) {
        const std::string what = exception.what();
        if (what.find("CV_IO_MAX_IMAGE_PIXELS") == std::string::npos &&
            what.find("SHRT_MAX") == std::string::npos) {
            std::abort();
        }
        Sim_Reset();
        return 0;
    }
    const bool bWell = nLength >= -1 && nLength < QRCODE_TEXT_SIZE &&
                       szText[QRCODE_TEXT_SIZE - 1] == '\0' && szText[QRCODE_TEXT_SIZE] == 'x' &&
                       (nLength < 1 || static_cast<int>(std::strlen(szText)) >= nLength) &&
                       (nLength != -1 || szText[0] == '\0');
    if (!bWell) {
        std::abort();
    }
    return 0;
}
