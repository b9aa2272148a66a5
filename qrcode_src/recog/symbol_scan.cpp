#include "symbol_scan.h"

#include <cstring>
#include <opencv2/imgproc.hpp>
#include <string>
#include <zbar.h>

#include "message.h"

enum { OPENING_SIDE = 3 }; // pixels

int Qrcode_ScanImage(cv::Mat picture, char* szText)
{
    zbar::ImageScanner scanner;
    scanner.set_config(zbar::ZBAR_NONE, zbar::ZBAR_CFG_ENABLE, 1); // NONE: every symbology
    zbar::Image image(static_cast<unsigned>(picture.cols), static_cast<unsigned>(picture.rows),
                      "Y800", picture.data,
                      static_cast<unsigned long>(picture.rows) *
                          static_cast<unsigned long>(picture.cols));
    scanner.scan(image); // its count is not used, the symbols are

    int nRet = 0;
    const zbar::SymbolIterator end = image.symbol_end();
    for (zbar::SymbolIterator symbol = image.symbol_begin(); symbol != end; ++symbol) {
        const std::string data = symbol->get_data();
        // The last byte of the buffer stays the caller's zero. Later texts overlap earlier ones on
        // purpose, without clearing them.
        const size_t nLen = strnlen(data.c_str(), QRCODE_TEXT_SIZE - 1);
        std::memcpy(szText, data.c_str(), nLen);
        nRet = static_cast<int>(nLen);
    }
    image.set_data(nullptr, 0); // the pixels are the caller's
    return nRet;
}

cv::Mat Qrcode_OpenPicture(const cv::Mat& picture)
{
    const cv::Mat kernel = cv::getStructuringElement(
        cv::MORPH_RECT, cv::Size(OPENING_SIDE, OPENING_SIDE), cv::Point(-1, -1));
    cv::Mat opened;
    cv::morphologyEx(picture, opened, cv::MORPH_OPEN, kernel, cv::Point(-1, -1), 1,
                     cv::BORDER_CONSTANT, cv::morphologyDefaultBorderValue());
    return opened;
}

int Qrcode_ScanWithOpening(cv::Mat picture, char* szText)
{
    const int nRet = Qrcode_ScanImage(picture, szText);
    return nRet < 1 ? Qrcode_ScanImage(Qrcode_OpenPicture(picture), szText) : nRet;
}
