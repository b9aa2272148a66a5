// Any bytes as the snapshot's JPEG to a whole reading over the simulated platform. The exceptions
// of decoder_limits.h are passed over.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <opencv2/core.hpp>

#include "capture_decode.h"
#include "decoder_limits.h"
#include "sim_platform.h"
#include "text_buffer.h"

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
    TextBuffer buffer;
    int length = -1;
    try {
        length = Qrcode_CaptureAndDecode(nullptr, buffer.text);
    } catch (const cv::Exception& exception) {
        if (!DecoderLimits_Known(exception)) {
            std::abort();
        }
        buffer.Require(0);
        Sim_Reset();
        return 0;
    }
    buffer.Require(std::max(length, 0));
    if (length < -1 || (length == -1 && buffer.text[0] != '\0')) {
        std::abort();
    }
    return 0;
}
