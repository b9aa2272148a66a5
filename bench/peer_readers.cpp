#include "peer_readers.h"

#define ZX_USE_UTF8
#include <ZXing/ReadBarcode.h>
#include <algorithm>
#include <cstring>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/objdetect.hpp>
#include <opencv2/wechat_qrcode.hpp>

#include "capture_decode.h"
#include "cascade.h"
#include "message.h"
#include "snap_channel.h"
#include "snap_size.h"
#include "symbol_scan.h"

namespace
{

bool ServiceGrey(const std::vector<uint8_t>& jpeg, cv::Mat& grey)
{
    std::vector<uint8_t> buffer(MAXFRAMERINBUF);
    std::copy_n(jpeg.begin(), std::min(jpeg.size(), buffer.size()), buffer.begin());
    nSnapWidth = SNAP_WIDTH; // as the set-up of a snapshot does
    nSnapHeight = SNAP_HEIGHT;
    return Qrcode_DecodeMirrorGrey(buffer.data(), grey);
}

std::string ServiceReading(const std::vector<uint8_t>& jpeg)
{
    cv::Mat grey;
    char szText[QRCODE_TEXT_SIZE] = {};
    return ServiceGrey(jpeg, grey) && Qrcode_ScanCascade(grey, szText) > 0 ? szText : "";
}

// The scan that the service begins with, and nothing more.
std::string ZbarOnce(const std::vector<uint8_t>& jpeg)
{
    cv::Mat grey;
    char szText[QRCODE_TEXT_SIZE] = {};
    return ServiceGrey(jpeg, grey) && Qrcode_ScanImage(grey, szText) > 0 ? szText : "";
}

cv::Mat RightWayRound(const std::vector<uint8_t>& jpeg)
{
    cv::Mat turned;
    cv::flip(cv::imdecode(jpeg, cv::IMREAD_GRAYSCALE | cv::IMREAD_IGNORE_ORIENTATION), turned, 1);
    return turned;
}

std::string ZxingCpp(const std::vector<uint8_t>& jpeg)
{
    const cv::Mat grey = RightWayRound(jpeg);
    // By default every format, the harder search, and turned pictures.
    const ZXing::Result result = ZXing::ReadBarcode(
        {grey.data, grey.cols, grey.rows, ZXing::ImageFormat::Lum, static_cast<int>(grey.step)});
    return result.isValid() ? result.text() : "";
}

// OpenCV has two readers of QR codes. The older one's decoder is left out of Debian's build, so
// that it finds codes and cannot read them.
std::string OpencvFinder(const std::vector<uint8_t>& jpeg)
{
    cv::Mat corners;
    return cv::QRCodeDetector().detect(RightWayRound(jpeg), corners) ? "found" : "";
}

// The newer one, without the trained models that it can be given.
std::string OpencvWechat(const std::vector<uint8_t>& jpeg)
{
    static cv::wechat_qrcode::WeChatQRCode reader;
    const std::vector<std::string> texts = reader.detectAndDecode(RightWayRound(jpeg));
    return texts.empty() ? "" : texts.front();
}

} // namespace

const std::vector<PeerReader>& Peer_Readers()
{
    static const std::vector<PeerReader> readers = {{"service", ServiceReading, false},
                                                    {"zbar once", ZbarOnce, false},
                                                    {"ZXing-C++", ZxingCpp, false},
                                                    {"OpenCV WeChat", OpencvWechat, false},
                                                    {"OpenCV finder", OpencvFinder, true}};
    return readers;
}
