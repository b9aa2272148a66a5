// Whole readings of every sample: what the scanner is handed, picture for picture and pixel for
// pixel, and what ends a reading. The expected pictures are computed here, plainly.
#include "cascade.h"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <zbar.h>

#include "capture_decode.h"
#include "files.h"
#include "message.h"
#include "pictures.h"
#include "sim_platform.h"
#include "snap_size.h"

namespace
{
std::vector<cv::Mat> handed; // copies of the pictures given to the scanner
size_t configured = 0;       // scanners
bool scansFail = false;
cv::Size snapSize; // what the snapshot leaves as its size; empty: its own
} // namespace

extern "C" {
int __real_zbar_scan_image(zbar::zbar_image_scanner_t* scanner, zbar::zbar_image_t* image);
int __real_zbar_image_scanner_set_config(zbar::zbar_image_scanner_t* scanner,
                                         zbar::zbar_symbol_type_t symbology,
                                         zbar::zbar_config_t config, int value);
int __real_HI_MPI_VENC_DestroyChn(int channel);

int __wrap_zbar_scan_image(zbar::zbar_image_scanner_t* scanner, zbar::zbar_image_t* image)
{
    const int width = static_cast<int>(zbar_image_get_width(image));
    const int height = static_cast<int>(zbar_image_get_height(image));
    EXPECT_EQ(0x30303859UL, zbar_image_get_format(image)) << "Y800";
    EXPECT_EQ(static_cast<unsigned long>(width) * static_cast<unsigned long>(height),
              zbar_image_get_data_length(image));
    handed.push_back(
        cv::Mat(height, width, CV_8UC1, const_cast<void*>(zbar_image_get_data(image))).clone());
    return scansFail ? -1 : __real_zbar_scan_image(scanner, image);
}

int __wrap_zbar_image_scanner_set_config(zbar::zbar_image_scanner_t* scanner,
                                         zbar::zbar_symbol_type_t symbology,
                                         zbar::zbar_config_t config, int value)
{
    EXPECT_TRUE(symbology == 0 && config == 0 && value == 1) << "every symbology on, nothing else";
    ++configured;
    return __real_zbar_image_scanner_set_config(scanner, symbology, config, value);
}

// The last call of a snapshot: the decoding comes next.
int __wrap_HI_MPI_VENC_DestroyChn(int channel)
{
    if (!snapSize.empty()) {
        nSnapWidth = static_cast<uint32_t>(snapSize.width);
        nSnapHeight = static_cast<uint32_t>(snapSize.height);
    }
    return __real_HI_MPI_VENC_DestroyChn(channel);
}
}

namespace
{

// Mirrored, one column beyond the right edge, and grey: the weights of red and blue are exchanged.
cv::Mat MirroredGrey(const cv::Mat& src)
{
    cv::Mat_<uint8_t> grey(src.size(), uint8_t{0});
    for (int i = 0; i < src.rows; ++i) {
        for (int j = 1; j < src.cols; ++j) {
            const cv::Vec3b& pixel = src.at<cv::Vec3b>(i, src.cols - j);
            grey(i, j) = static_cast<uint8_t>( // 15-bit fixed point
                (pixel[0] * 9798 + pixel[1] * 19235 + pixel[2] * 3735 + 16384) >> 15);
        }
    }
    return grey;
}

// All 16 pictures of a reading that finds nothing.
std::vector<cv::Mat> ExpectedPictures(const cv::Mat& src)
{
    const cv::Mat grey = MirroredGrey(src);
    std::vector<cv::Mat> prepared(3);
    prepared[0] = grey;
    cv::threshold(grey, prepared[1], 0.0, 255.0, cv::THRESH_BINARY_INV | cv::THRESH_OTSU);
    cv::adaptiveThreshold(grey, prepared[2], 255.0, cv::ADAPTIVE_THRESH_GAUSSIAN_C,
                          cv::THRESH_BINARY, 33, 0.0);
    for (const int level : {180, 198, 216, 234, 252}) {
        prepared.push_back(grey > level);
    }
    std::vector<cv::Mat> all;
    for (const cv::Mat& picture : prepared) {
        cv::Mat opened;
        cv::erode(picture, opened, cv::Mat()); // of 3 x 3; what lies outside does not count
        cv::dilate(opened, opened, cv::Mat());
        all.insert(all.end(), {picture, opened});
    }
    return all;
}

struct Reading {
    int result = 0;
    std::string text;
};

Reading Read()
{
    handed.clear();
    configured = 0;
    char text[QRCODE_TEXT_SIZE] = {0};
    const int result = Qrcode_CaptureAndDecode(nullptr, text);
    return {result, text};
}

void ExpectAlike(const cv::Mat& expected, const cv::Mat& picture)
{
    ASSERT_EQ(expected.size(), picture.size());
    EXPECT_EQ(0, cv::countNonZero(expected != picture)) << "pixels that differ";
}

TEST(CascadeTest, EveryPictureIsReadFromExactlyThesePictures)
{
    for (const std::string& path : TestPictures()) {
        SCOPED_TRACE(path);
        Sim_Reset();
        std::string error;
        ASSERT_TRUE(Sim_OpenScene(path, SIM_VIEW_MS, "", error)) << error;
        const Reading reading = Read();
        Sim_Reset();
        const std::vector<cv::Mat> expected =
            ExpectedPictures(cv::imdecode(CameraJpeg(path), cv::IMREAD_COLOR));
        ASSERT_TRUE(reading.result > 0 ? !handed.empty() && handed.size() <= 16U
                                       : handed.size() == 16U);
        for (size_t i = 0; i < handed.size(); ++i) {
            SCOPED_TRACE("scan " + std::to_string(i));
            ExpectAlike(expected[i], handed[i]);
        }
        EXPECT_EQ(handed.size(), configured) << "a scanner for each scan";
        EXPECT_EQ(reading.text.empty(), reading.result == 0);
    }
}

// A reading of these bytes as the snapshot's stream.
Reading ReadJpeg(const std::string& jpeg)
{
    Sim_Reset();
    SimScript script;
    script.hasJpeg = true;
    script.jpeg.assign(jpeg.begin(), jpeg.end());
    Sim_SetScript(script);
    testing::internal::CaptureStdout();
    Reading reading = Read();
    EXPECT_EQ(reading.result == -1 ? "src.data is NULL\n" : "",
              testing::internal::GetCapturedStdout());
    Sim_Reset();
    return reading;
}

std::string SampleJpeg(int width = 400, int height = 400, int quality = 99)
{
    const std::vector<uint8_t> jpeg = CameraJpeg(Sample("plain.png"), width, height, quality);
    return {jpeg.begin(), jpeg.end()};
}

// The JPEG with a segment put in behind its start marker.
std::string WithSegment(const std::string& jpeg, char marker, const std::string& content)
{
    const size_t length = content.size() + 2;
    const std::string head = {'\xFF', marker, static_cast<char>(length >> 8),
                              static_cast<char>(length & 0xFF)};
    return jpeg.substr(0, 2) + head + content + jpeg.substr(2);
}

TEST(CaptureDecodeTest, OrientationTagIsNotApplied)
{
    // A TIFF directory with the one entry "orientation: mirrored left to right".
    const std::string tag("Exif\0\0II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0\x02\0\0\0\0\0\0\0",
                          32);
    const std::string jpeg = SampleJpeg();
    const Reading plain = ReadJpeg(jpeg);
    const cv::Mat first = handed.at(0);
    const std::string bytes = WithSegment(jpeg, '\xE1', tag);
    EXPECT_EQ(plain.text, ReadJpeg(bytes).text);
    ExpectAlike(first, handed.at(0));
    const cv::Mat turned =
        cv::imdecode(std::vector<char>(bytes.begin(), bytes.end()), cv::IMREAD_COLOR);
    EXPECT_NE(0, cv::countNonZero(MirroredGrey(turned) != first)) << "the tag is a real one";
}

TEST(CaptureDecodeTest, DecoderSeesThreeBytesForEachPixelOfTheSnapshotAndNoMore)
{
    // Comments push the picture back until its header ends at, then one byte behind, the limit. A
    // cut behind the header still gives a picture, mostly grey; a cut in it gives none.
    const std::pair<cv::Size, size_t> limits[] = {
        {{}, 480000}, {{300, 100}, 90000}, {{100, 300}, 90000}, {{700, 600}, 1260000}};
    const std::string jpeg = SampleJpeg();
    const size_t scanStart = jpeg.find("\xFF\xDA");
    ASSERT_NE(std::string::npos, scanStart);
    const size_t headerEnd = scanStart + 2 + static_cast<uint8_t>(jpeg[scanStart + 3]);
    for (const auto& [size, limit] : limits) {
        snapSize = size;
        for (const int beyond : {0, 1}) {
            size_t left = limit - headerEnd + static_cast<size_t>(beyond);
            std::string padded = jpeg;
            while (left > 0) {
                const size_t segment = left > 70000 ? 65000 : (left > 60000 ? left / 2 : left);
                padded = WithSegment(padded, '\xFE', std::string(segment - 4, 'c'));
                left -= segment;
            }
            EXPECT_EQ(beyond == 0 ? 0 : -1, ReadJpeg(padded).result) << limit;
        }
    }
    snapSize = {};
    EXPECT_GT(ReadJpeg(jpeg + std::string(1500000, '\0')).result, 0);
}

TEST(CaptureDecodeTest, GeometryIsThePicturesOwn)
{
    // The encoder may be asked for 400 x 400; the decoder takes what the stream says.
    const Reading reading = ReadJpeg(SampleJpeg(700, 500, 90));
    ASSERT_FALSE(handed.empty());
    EXPECT_EQ(cv::Size(700, 500), handed[0].size());
    EXPECT_EQ(SampleText(Sample("plain.png")), reading.text);
}

TEST(CaptureDecodeTest, ScansThatFailAreScansThatFindNothing)
{
    scansFail = true;
    const Reading reading = ReadJpeg(SampleJpeg());
    scansFail = false;
    EXPECT_EQ(0, reading.result);
    EXPECT_EQ("", reading.text);
    EXPECT_EQ(16U, handed.size());
}

} // namespace
