// The cascade of attempts: differently prepared versions of the grey picture, scanned one after the
// other. Its table in cascade.cpp is the one list of them: tools and tests ask for number and
// names.
#ifndef QRCODE_CASCADE_H
#define QRCODE_CASCADE_H

#include <opencv2/core/mat.hpp>

// The working pictures of one cascade: 8-bit, one channel, the same size, without gaps between
// rows.
struct CascadePictures {
    cv::Mat grey;        // what every attempt starts from; the caller's, never changed
    cv::Mat thresholded; // made by the inverted Otsu attempt, used again by the fixed levels
    cv::Mat adaptive;    // made by the adaptive attempt
};

// Number of attempts, 8. An attempt's number counts from 1, in the order in which they are made.
int Qrcode_AttemptCount();

// What people call an attempt: "plain", "Otsu inverted", "adaptive", "level 180" and so on.
const char* Qrcode_AttemptName(int nAttempt);

// Prepares attempt nAttempt. Returns a header that shares the pixels of the working picture that
// holds it; they are valid until another attempt is prepared with the same working pictures.
cv::Mat Qrcode_PrepareAttempt(int nAttempt, CascadePictures* pPictures);

// Makes one attempt after the other with Qrcode_ScanWithOpening, on the picture and the caller's
// text buffer of QRCODE_TEXT_SIZE bytes, until one finds a text. Returns the length of its text in
// bytes, or 0 when no attempt had any (see symbol_scan.h for what `szText` may hold then).
int Qrcode_ScanCascade(const cv::Mat& grey, char* szText);

#endif
