// What the decoding of foreign bytes may end with, besides a result.
#ifndef DECODER_LIMITS_H
#define DECODER_LIMITS_H

#include <opencv2/core.hpp>
#include <string>

// True for the exceptions of OpenCV's that some headers earn: a size that it refuses (of more
// pixels than OPENCV_IO_MAX_IMAGE_PIXELS; only a BMP can say a side below 1 or above 2^20), and for
// remap a side of SHRT_MAX or more. They end the service, so a terminal relies on its encoder for
// the size; every other exception is a finding.
inline bool DecoderLimits_Known(const cv::Exception& exception)
{
    const std::string what = exception.what();
    return what.find("validateInputImageSize") != std::string::npos ||
           what.find("SHRT_MAX") != std::string::npos;
}

#endif
