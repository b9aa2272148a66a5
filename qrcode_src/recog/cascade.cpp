#include "cascade.h"

#include <opencv2/imgproc.hpp>

#include "symbol_scan.h"

static const double WHITE = 255.0;

enum { ADAPTIVE_BLOCK = 33 }; // pixels, side of the neighbourhood

cv::Mat Qrcode_PrepareAttempt(int nAttempt, const cv::Mat& grey, cv::Mat& work)
{
    switch (nAttempt) {
    case ATTEMPT_PLAIN:
        return grey;
    case ATTEMPT_OTSU_INVERTED:
        cv::threshold(grey, work, 0.0, WHITE, cv::THRESH_BINARY_INV | cv::THRESH_OTSU);
        return work;
    case ATTEMPT_ADAPTIVE:
        cv::adaptiveThreshold(grey, work, WHITE, cv::ADAPTIVE_THRESH_GAUSSIAN_C, cv::THRESH_BINARY,
                              ADAPTIVE_BLOCK, 0.0);
        return work;
    default:
        cv::threshold(grey, work, LEVEL_FIRST + LEVEL_STEP * (nAttempt - ATTEMPT_LEVEL_FIRST),
                      WHITE, cv::THRESH_BINARY);
        return work;
    }
}

int Qrcode_ScanCascade(const cv::Mat& grey, char* szText)
{
    cv::Mat work;
    int nRet = 0;
    for (int n = ATTEMPT_PLAIN; n <= ATTEMPT_COUNT && nRet <= 0; ++n) {
        nRet = Qrcode_ScanWithOpening(Qrcode_PrepareAttempt(n, grey, work), szText);
    }
    return nRet;
}
