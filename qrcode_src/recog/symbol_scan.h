// Looks for QR codes and other barcodes in one grey picture with zbar, every symbology switched on.
//
// Pictures are 8-bit, one channel, without gaps between rows; this is not checked. They are passed
// as headers that share the caller's pixels, which are not changed. Stateless: each scan has a
// scanner of its own. Exceptions of zbar and OpenCV pass to the caller.
#ifndef QRCODE_SYMBOL_SCAN_H
#define QRCODE_SYMBOL_SCAN_H

#include <opencv2/core/mat.hpp>

// Scans once. The text of each symbol found, up to its first zero byte and QRCODE_TEXT_SIZE - 1
// bytes of it, is written over the start of `szText`, in zbar's order and without a terminator:
// after several symbols the last text stands first, with the tail of a longer earlier one behind
// it. Returns the bytes written for the last symbol; 0, with `szText` untouched, for no symbol or
// an error of the scan. When the last of several texts is empty the result is 0 as well, and an
// earlier one stands in `szText`.
int Qrcode_ScanImage(cv::Mat picture, char* szText);

// A 3 x 3 opening of the picture, in memory of its own: bright specks and lines narrower than 3
// pixels are gone.
cv::Mat Qrcode_OpenPicture(const cv::Mat& picture);

// Scans, and when that returns less than 1 scans once more, the picture opened. Returns the result
// of the last scan made.
int Qrcode_ScanWithOpening(cv::Mat picture, char* szText);

#endif
