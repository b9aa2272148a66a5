// The cascade of attempts: up to eight differently prepared versions of the grey picture.
#ifndef QRCODE_CASCADE_H
#define QRCODE_CASCADE_H

#include <opencv2/core/mat.hpp>

// Attempts in the order in which they are made; the cheapest comes first.
enum {
    ATTEMPT_PLAIN = 1,         // the grey picture as it is
    ATTEMPT_OTSU_INVERTED = 2, // Otsu's level, bright becomes black: for light codes on dark
    ATTEMPT_ADAPTIVE = 3,      // against the Gaussian mean of 33 x 33 pixels: for uneven light
    ATTEMPT_LEVEL_FIRST = 4,   // fixed levels 180, 198, 216, 234, 252: for bright, washed-out codes
    ATTEMPT_COUNT = 8
};

// Grey values of the fixed levels: pixels above become white, the others black.
enum { LEVEL_FIRST = 180, LEVEL_STEP = 18 };

// Prepares attempt nAttempt (ATTEMPT_PLAIN..ATTEMPT_COUNT) of `grey` (8-bit, one channel), which
// is not changed. Returns an 8-bit one-channel picture without gaps between rows: a header that
// shares the pixels of `grey` for ATTEMPT_PLAIN, of `work` for every other. `work` may be reused
// for the next attempt when the returned picture is done with.
cv::Mat Qrcode_PrepareAttempt(int nAttempt, const cv::Mat& grey, cv::Mat& work);

// Makes one attempt after the other with Qrcode_ScanWithOpening, on the picture and the caller's
// text buffer of QRCODE_TEXT_SIZE bytes, until one finds a text. Returns the length of its text in
// bytes, or 0 when none of the eight had any (see symbol_scan.h for what `szText` may hold then).
int Qrcode_ScanCascade(const cv::Mat& grey, char* szText);

#endif
