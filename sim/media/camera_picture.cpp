#include "camera_picture.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include "memory_limit.h"

namespace
{

const double ALPHA_8_BIT = 255.0;
const double ALPHA_16_BIT = 65535.0;

// Puts a picture with an alpha channel on white, as a viewer shows it on paper. Row by row, for the
// rows are worked on as floats.
cv::Mat OnWhite(const cv::Mat& withAlpha)
{
    const double full = withAlpha.depth() == CV_16U ? ALPHA_16_BIT : ALPHA_8_BIT;
    cv::Mat picture(withAlpha.size(), CV_8UC3);
    cv::Mat scaled;
    cv::Mat merged;
    std::vector<cv::Mat> channels;
    for (int i = 0; i < picture.rows; ++i) {
        withAlpha.row(i).convertTo(scaled, CV_32F, 1.0 / full);
        channels.clear();
        cv::split(scaled, channels);
        const cv::Mat alpha = channels[3];
        channels.resize(3);
        for (cv::Mat& channel : channels) {
            channel = channel.mul(alpha) + (1.0 - alpha);
        }
        cv::merge(channels, merged);
        cv::Mat row = picture.row(i);
        merged.convertTo(row, CV_8U, ALPHA_8_BIT);
    }
    return picture;
}

} // namespace

bool Sim_CheckPictureFile(const std::string& path, std::string& error)
{
    struct stat info = {};
    if (stat(path.c_str(), &info) != 0) {
        error = errno == ENOENT || errno == ENOTDIR ? "no such file" : std::strerror(errno);
        return false;
    }
    error = !S_ISREG(info.st_mode)            ? "not a regular file"
            : info.st_size == 0               ? "empty file"
            : access(path.c_str(), R_OK) != 0 ? std::strerror(errno)
                                              : "";
    return error.empty();
}

bool Sim_LoadPicture(const std::string& path, cv::Mat& picture, std::string& error)
{
    if (!Sim_CheckPictureFile(path, error)) {
        return false;
    }
    const MemoryLimit limit(SIM_PICTURE_MEMORY_MB);
    try {
        cv::Mat raw = cv::imread(path, cv::IMREAD_UNCHANGED);
        const bool hasAlpha =
            raw.channels() == 4 && (raw.depth() == CV_8U || raw.depth() == CV_16U);
        if (hasAlpha) {
            picture = OnWhite(raw);
        } else {
            raw.release(); // never two large pictures at a time
            picture = cv::imread(path, cv::IMREAD_COLOR);
        }
    } catch (const cv::Exception& exception) { // too large, or a decoder's own complaint
        picture.release();
        if (exception.code == cv::Error::StsNoMem) {
            error = "too large a picture for the memory there is";
            return false;
        }
    } catch (const std::bad_alloc&) {
        picture.release();
    }
    if (picture.empty()) {
        error = "not a picture that can be read, or too large a one";
        return false;
    }
    return true;
}

cv::Mat Sim_CameraFrame(const cv::Mat& picture, int width, int height)
{
    const double scale = std::min({1.0, static_cast<double>(width) / picture.cols,
                                   static_cast<double>(height) / picture.rows});
    const cv::Size fitted(std::max(1, std::min(width, cvRound(picture.cols * scale))),
                          std::max(1, std::min(height, cvRound(picture.rows * scale))));
    cv::Mat small = picture;
    if (fitted != picture.size()) {
        cv::resize(picture, small, fitted, 0, 0, cv::INTER_AREA);
    }
    cv::Mat frame = Sim_EmptyFrame(width, height);
    const cv::Rect place((width - fitted.width) / 2, (height - fitted.height) / 2, fitted.width,
                         fitted.height);
    small.copyTo(frame(place));
    cv::Mat mirrored;
    cv::flip(frame, mirrored, 1);
    return mirrored;
}

cv::Mat Sim_EmptyFrame(int width, int height)
{
    return cv::Mat(height, width, CV_8UC3, cv::Scalar::all(SIM_WALL_GREY));
}

std::vector<uint8_t> Sim_EncodeFrame(const cv::Mat& frame, int quality)
{
    std::vector<uint8_t> jpeg;
    cv::imencode(".jpg", frame, jpeg, {cv::IMWRITE_JPEG_QUALITY, quality});
    return jpeg;
}
