#include "floor.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <sys/select.h>
#include <zbar.h>

#include "message.h"
#include "snap_channel.h"

enum {
    PIXELS = SNAP_WIDTH * SNAP_HEIGHT,
    DECODED_BYTES = PIXELS * 3,
    ATTEMPTS = 8,
    FIRST_LEVEL_ATTEMPT = 4,
    CAMERA_GROUP = 1
};

using Clock = std::chrono::steady_clock;

const char* Floor_StepName(FloorStep step)
{
    static const char* const aNames[FLOOR_STEPS] = {"snapshot", "decode", "mirror", "grey",
                                                    "prepare",  "open",   "scan"};
    return aNames[step];
}

namespace
{

// Adds the time since the last lap to a step.
class Stopwatch
{
public:
    explicit Stopwatch(FloorTimes* pTimes) : pTimes_(pTimes)
    {
        if (pTimes_ != nullptr) {
            last_ = Clock::now();
        }
    }
    void Lap(FloorStep step)
    {
        if (pTimes_ != nullptr) {
            const Clock::time_point now = Clock::now();
            pTimes_->aUs[step] += std::chrono::duration<double, std::micro>(now - last_).count();
            last_ = now;
        }
    }

private:
    FloorTimes* pTimes_;
    Clock::time_point last_;
};

struct MirrorTables {
    cv::Mat x{SNAP_HEIGHT, SNAP_WIDTH, CV_32FC1};
    cv::Mat y{SNAP_HEIGHT, SNAP_WIDTH, CV_32FC1};
    MirrorTables()
    {
        for (int i = 0; i < SNAP_HEIGHT; ++i) {
            for (int j = 0; j < SNAP_WIDTH; ++j) {
                x.at<float>(i, j) = static_cast<float>(SNAP_WIDTH - j);
                y.at<float>(i, j) = static_cast<float>(i);
            }
        }
    }
};

void TakeSnapshot(uint8_t* pPicture)
{
    MediaVpssChnAttr vpss = {};
    HI_MPI_VPSS_GetChnAttr(CAMERA_GROUP, 0, &vpss);
    MediaVencChnAttr attr = {};
    attr.Encode.nPayloadType = MEDIA_PAYLOAD_JPEG;
    attr.Encode.nMaxWidth = SNAP_WIDTH;
    attr.Encode.nMaxHeight = SNAP_HEIGHT;
    attr.Encode.nBufSize = PIXELS * 2;
    attr.Encode.nProfile = 1;
    attr.Encode.bByFrame = 1;
    attr.Encode.nPicWidth = SNAP_WIDTH;
    attr.Encode.nPicHeight = SNAP_HEIGHT;
    HI_MPI_VENC_CreateChn(SNAP_VENC_CHN, &attr);
    MediaJpegParam param = {};
    HI_MPI_VENC_GetJpegParam(SNAP_VENC_CHN, &param);
    param.nQuality = SNAP_QUALITY;
    HI_MPI_VENC_SetJpegParam(SNAP_VENC_CHN, &param);
    const MediaEndpoint src = {MEDIA_MOD_VPSS, CAMERA_GROUP, 0};
    const MediaEndpoint dst = {MEDIA_MOD_VENC, 0, SNAP_VENC_CHN};
    HI_MPI_SYS_Bind(&src, &dst);
    const MediaRecvParam recv = {1};
    HI_MPI_VENC_StartRecvFrame(SNAP_VENC_CHN, &recv);

    const int fd = HI_MPI_VENC_GetFd(SNAP_VENC_CHN);
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    struct timeval wait = {1, 0};
    select(fd + 1, &set, nullptr, nullptr, &wait);
    MediaVencStatus status = {};
    HI_MPI_VENC_QueryStatus(SNAP_VENC_CHN, &status);
    MediaPack pack = {};
    MediaStream stream = {};
    stream.pPack = &pack;
    stream.nPacks = 1;
    HI_MPI_VENC_GetStream(SNAP_VENC_CHN, &stream, -1);
    std::memcpy(pPicture, pack.pAddr + pack.nOffset, pack.nLen - pack.nOffset);

    HI_MPI_VENC_ReleaseStream(SNAP_VENC_CHN, &stream);
    HI_MPI_SYS_UnBind(&src, &dst);
    HI_MPI_VENC_StopRecvFrame(SNAP_VENC_CHN);
    HI_MPI_VENC_DestroyChn(SNAP_VENC_CHN);
}

int Scan(const cv::Mat& picture, char* szText)
{
    zbar::ImageScanner scanner;
    scanner.set_config(zbar::ZBAR_NONE, zbar::ZBAR_CFG_ENABLE, 1);
    zbar::Image image(SNAP_WIDTH, SNAP_HEIGHT, "Y800", picture.data, PIXELS);
    scanner.scan(image);
    int nLength = 0;
    for (auto symbol = image.symbol_begin(); symbol != image.symbol_end(); ++symbol) {
        const std::string data = symbol->get_data();
        nLength = static_cast<int>(strnlen(data.c_str(), QRCODE_TEXT_SIZE - 1));
        std::memcpy(szText, data.c_str(), static_cast<size_t>(nLength));
    }
    image.set_data(nullptr, 0);
    return nLength;
}

void Prepare(int nAttempt, const cv::Mat& grey, cv::Mat& work)
{
    if (nAttempt == 2) {
        cv::threshold(grey, work, 0.0, 255.0, cv::THRESH_BINARY_INV | cv::THRESH_OTSU);
    } else if (nAttempt == 3) {
        cv::adaptiveThreshold(grey, work, 255.0, cv::ADAPTIVE_THRESH_GAUSSIAN_C, cv::THRESH_BINARY,
                              33, 0.0);
    } else {
        cv::threshold(grey, work, 180 + 18 * (nAttempt - FIRST_LEVEL_ATTEMPT), 255.0,
                      cv::THRESH_BINARY);
    }
}

} // namespace

int Floor_Reading(char* szText, FloorTimes* pTimes)
{
    static const MirrorTables tables;
    Stopwatch watch(pTimes);

    uint8_t picture[MAXFRAMERINBUF];
    std::memset(picture, 0, sizeof(picture));
    TakeSnapshot(picture);
    watch.Lap(FLOOR_SNAPSHOT);

    const cv::Mat encoded(1, DECODED_BYTES, CV_8UC1, picture);
    const cv::Mat src = cv::imdecode(encoded, cv::IMREAD_COLOR | cv::IMREAD_IGNORE_ORIENTATION);
    watch.Lap(FLOOR_DECODE);
    if (src.empty()) {
        return -1;
    }
    cv::Mat mirrored(src.size(), src.type());
    cv::remap(src, mirrored, tables.x, tables.y, cv::INTER_LINEAR, cv::BORDER_CONSTANT,
              cv::Scalar());
    watch.Lap(FLOOR_MIRROR);
    cv::Mat grey;
    cv::cvtColor(mirrored, grey, cv::COLOR_RGB2GRAY, 0);
    watch.Lap(FLOOR_GREY);

    cv::Mat work;
    for (int nAttempt = 1; nAttempt <= ATTEMPTS; ++nAttempt) {
        if (nAttempt > 1) {
            Prepare(nAttempt, grey, work);
            watch.Lap(FLOOR_PREPARE);
        }
        const cv::Mat& attempt = nAttempt > 1 ? work : grey;
        int nLength = Scan(attempt, szText);
        watch.Lap(FLOOR_SCAN);
        if (nLength > 0) {
            return nLength;
        }
        const cv::Mat kernel =
            cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3), cv::Point(-1, -1));
        cv::Mat opened;
        cv::morphologyEx(attempt, opened, cv::MORPH_OPEN, kernel, cv::Point(-1, -1), 1,
                         cv::BORDER_CONSTANT, cv::morphologyDefaultBorderValue());
        watch.Lap(FLOOR_OPEN);
        nLength = Scan(opened, szText);
        watch.Lap(FLOOR_SCAN);
        if (nLength > 0) {
            return nLength;
        }
    }
    return 0;
}
