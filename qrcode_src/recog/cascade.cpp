#include "cascade.h"

#include <opencv2/imgproc.hpp>

#include "symbol_scan.h"

static const double WHITE = 255.0;

enum { ADAPTIVE_BLOCK = 33 }; // pixels, side of the neighbourhood

static cv::Mat PreparePlain(CascadePictures* pPictures, double /*dLevel*/)
{
    return pPictures->grey;
}

static cv::Mat PrepareOtsuInverted(CascadePictures* pPictures, double /*dLevel*/)
{
    cv::threshold(pPictures->grey, pPictures->thresholded, 0.0, WHITE,
                  cv::THRESH_BINARY_INV | cv::THRESH_OTSU);
    return pPictures->thresholded;
}

static cv::Mat PrepareAdaptive(CascadePictures* pPictures, double /*dLevel*/)
{
    cv::adaptiveThreshold(pPictures->grey, pPictures->adaptive, WHITE,
                          cv::ADAPTIVE_THRESH_GAUSSIAN_C, cv::THRESH_BINARY, ADAPTIVE_BLOCK, 0.0);
    return pPictures->adaptive;
}

static cv::Mat PrepareLevel(CascadePictures* pPictures, double dLevel)
{
    cv::threshold(pPictures->grey, pPictures->thresholded, dLevel, WHITE, cv::THRESH_BINARY);
    return pPictures->thresholded;
}

struct Attempt {
    const char* szName;
    cv::Mat (*pPrepare)(CascadePictures* pPictures, double dLevel);
    double dLevel; // of a fixed level: grey values above become white, the others black
};

// The cheapest comes first.
static const Attempt ATTEMPTS[] = {
    {"plain", PreparePlain, 0.0},
    {"Otsu inverted", PrepareOtsuInverted, 0.0}, // bright becomes black: light codes on dark
    {"adaptive", PrepareAdaptive, 0.0},          // for uneven light
    {"level 180", PrepareLevel, 180.0},          // from here on for bright, washed-out codes
    {"level 198", PrepareLevel, 198.0},
    {"level 216", PrepareLevel, 216.0},
    {"level 234", PrepareLevel, 234.0},
    {"level 252", PrepareLevel, 252.0},
};

int Qrcode_AttemptCount()
{
    return static_cast<int>(sizeof(ATTEMPTS) / sizeof(ATTEMPTS[0]));
}

const char* Qrcode_AttemptName(int nAttempt)
{
    return ATTEMPTS[nAttempt - 1].szName;
}

cv::Mat Qrcode_PrepareAttempt(int nAttempt, CascadePictures* pPictures)
{
    const Attempt& attempt = ATTEMPTS[nAttempt - 1];
    return attempt.pPrepare(pPictures, attempt.dLevel);
}

int Qrcode_ScanCascade(const cv::Mat& grey, char* szText)
{
    CascadePictures pictures;
    pictures.grey = grey;
    int nRet = 0;
    for (int n = 1; n <= Qrcode_AttemptCount() && nRet <= 0; ++n) {
        nRet = Qrcode_ScanWithOpening(Qrcode_PrepareAttempt(n, &pictures), szText);
    }
    return nRet;
}
