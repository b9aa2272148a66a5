// Whole readings of every sample: what the scanner is handed, picture for picture and pixel for
// pixel, which attempt wins, and the text. The expected pictures are computed here, plainly.
#include "cascade.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <set>
#include <zbar.h>

#include "camera_picture.h"
#include "capture_decode.h"
#include "files.h"
#include "message.h"
#include "scene_files.h"
#include "sim_platform.h"

namespace
{
std::vector<cv::Mat> handed; // copies of the pictures given to the scanner
std::vector<std::vector<int>> configured;
} // namespace

extern "C" {
int __real_zbar_scan_image(zbar::zbar_image_scanner_t* scanner, zbar::zbar_image_t* image);
int __wrap_zbar_scan_image(zbar::zbar_image_scanner_t* scanner, zbar::zbar_image_t* image);
int __real_zbar_image_scanner_set_config(zbar::zbar_image_scanner_t* scanner,
                                         zbar::zbar_symbol_type_t symbology,
                                         zbar::zbar_config_t config, int value);
int __wrap_zbar_image_scanner_set_config(zbar::zbar_image_scanner_t* scanner,
                                         zbar::zbar_symbol_type_t symbology,
                                         zbar::zbar_config_t config, int value);

int __wrap_zbar_scan_image(zbar::zbar_image_scanner_t* scanner, zbar::zbar_image_t* image)
{
    const int width = static_cast<int>(zbar_image_get_width(image));
    const int height = static_cast<int>(zbar_image_get_height(image));
    EXPECT_EQ(0x30303859UL, zbar_image_get_format(image)) << "Y800";
    EXPECT_EQ(static_cast<unsigned long>(width) * static_cast<unsigned long>(height),
              zbar_image_get_data_length(image));
    handed.push_back(
        cv::Mat(height, width, CV_8UC1, const_cast<void*>(zbar_image_get_data(image))).clone());
    return __real_zbar_scan_image(scanner, image);
}

int __wrap_zbar_image_scanner_set_config(zbar::zbar_image_scanner_t* scanner,
                                         zbar::zbar_symbol_type_t symbology,
                                         zbar::zbar_config_t config, int value)
{
    configured.push_back({symbology, config, value});
    return __real_zbar_image_scanner_set_config(scanner, symbology, config, value);
}
}

namespace
{

using Picture = cv::Mat_<uint8_t>;

Picture MirroredGrey(const cv::Mat& src)
{
    Picture grey(src.rows, src.cols);
    for (int i = 0; i < src.rows; ++i) {
        grey(i, 0) = 0; // one column beyond the right edge
        for (int j = 1; j < src.cols; ++j) {
            const cv::Vec3b& pixel = src.at<cv::Vec3b>(i, src.cols - j);
            // The weights of red and blue are exchanged; 15-bit fixed point.
            grey(i, j) = static_cast<uint8_t>(
                (pixel[0] * 9798 + pixel[1] * 19235 + pixel[2] * 3735 + 16384) >> 15);
        }
    }
    return grey;
}

Picture Level(const Picture& grey, int level, int above, int below)
{
    Picture out(grey.size());
    for (int i = 0; i < grey.rows; ++i) {
        for (int j = 0; j < grey.cols; ++j) {
            out(i, j) = static_cast<uint8_t>(grey(i, j) > level ? above : below);
        }
    }
    return out;
}

// The level that parts the grey values into two classes with the greatest variance between them.
int OtsuLevel(const Picture& grey)
{
    std::vector<double> share(256, 0.0);
    double mean = 0.0;
    const double pixels = static_cast<double>(grey.total());
    for (const uint8_t value : grey) {
        share[value] += 1.0 / pixels;
    }
    for (int value = 0; value < 256; ++value) {
        mean += value * share[static_cast<size_t>(value)];
    }
    int best = 0;
    double greatest = 0.0;
    double below = 0.0;
    double sumBelow = 0.0;
    for (int level = 0; level < 256; ++level) {
        below += share[static_cast<size_t>(level)];
        sumBelow += level * share[static_cast<size_t>(level)];
        if (below < 1e-7 || below > 1.0 - 1e-7) {
            continue;
        }
        const double between = std::pow(mean * below - sumBelow, 2) / (below * (1.0 - below));
        if (between > greatest * (1.0 + 1e-12)) {
            greatest = between;
            best = level;
        }
    }
    return best;
}

// The darkest or brightest of 3 x 3 pixels; what lies outside does not count.
Picture Extreme(const Picture& in, bool darkest)
{
    Picture out(in.size());
    for (int i = 0; i < in.rows; ++i) {
        for (int j = 0; j < in.cols; ++j) {
            uint8_t value = in(i, j);
            for (int y = std::max(0, i - 1); y <= std::min(in.rows - 1, i + 1); ++y) {
                for (int x = std::max(0, j - 1); x <= std::min(in.cols - 1, j + 1); ++x) {
                    value = darkest ? std::min(value, in(y, x)) : std::max(value, in(y, x));
                }
            }
            out(i, j) = value;
        }
    }
    return out;
}

// All 16 pictures of a reading that finds nothing.
std::vector<Picture> ExpectedPictures(const cv::Mat& src)
{
    const Picture grey = MirroredGrey(src);
    Picture adaptive;
    cv::adaptiveThreshold(grey, adaptive, 255.0, 1, 0, 33, 0.0);
    std::vector<Picture> prepared = {grey, Level(grey, OtsuLevel(grey), 0, 255), adaptive};
    for (const int level : {180, 198, 216, 234, 252}) {
        prepared.push_back(Level(grey, level, 255, 0));
    }
    std::vector<Picture> all;
    for (const Picture& picture : prepared) {
        all.push_back(picture);
        all.push_back(Extreme(Extreme(picture, true), false));
    }
    return all;
}

std::vector<std::filesystem::path> Samples()
{
    std::vector<std::filesystem::path> pictures;
    for (const auto& entry : std::filesystem::directory_iterator(SAMPLES_DIR)) {
        std::filesystem::path expected = entry.path();
        expected.replace_extension(".txt");
        if (entry.path().extension() != ".txt" && std::filesystem::exists(expected)) {
            pictures.push_back(entry.path());
        }
    }
    std::sort(pictures.begin(), pictures.end());
    return pictures;
}

struct Reading {
    int result = 0;
    std::string text;
};

Reading Read()
{
    handed.clear();
    configured.clear();
    char text[QRCODE_TEXT_SIZE] = {0};
    const int result = Qrcode_CaptureAndDecode(nullptr, text);
    return {result, text};
}

void ExpectAlike(const Picture& expected, const cv::Mat& picture)
{
    ASSERT_EQ(expected.size(), picture.size());
    EXPECT_EQ(0, cv::countNonZero(expected != picture)) << "pixels that differ";
}

// Takes a reading of a picture and checks what the scanner was handed, in order.
void ReadAndCompare(const std::filesystem::path& path, Reading& reading)
{
    Sim_Reset();
    std::string error;
    ASSERT_TRUE(Sim_OpenScene(path.string(), SIM_VIEW_MS, "", error)) << error;
    reading = Read();

    cv::Mat picture;
    ASSERT_TRUE(Sim_LoadPicture(path.string(), picture, error));
    const cv::Mat src =
        cv::imdecode(Sim_EncodeFrame(Sim_CameraFrame(picture, 400, 400), 99), cv::IMREAD_COLOR);
    const std::vector<Picture> expected = ExpectedPictures(src);
    ASSERT_EQ(16U, expected.size());
    ASSERT_GE(16U, handed.size());
    ASSERT_LE(1U, handed.size());
    for (size_t i = 0; i < handed.size(); ++i) {
        SCOPED_TRACE("scan " + std::to_string(i));
        ExpectAlike(expected[i], handed[i]);
    }
    EXPECT_EQ(std::vector<std::vector<int>>(handed.size(), {0, 0, 1}), configured)
        << "a scanner for each scan, every symbology on, nothing else changed";
    EXPECT_TRUE(reading.result > 0 || handed.size() == 16U);
    Sim_Reset();
}

TEST(CascadeTest, EverySampleIsReadAsExpectedFromExactlyThesePictures)
{
    std::set<size_t> winners;
    bool openedWon = false;
    for (const std::filesystem::path& sample : Samples()) {
        SCOPED_TRACE(sample.filename());
        Reading reading;
        ReadAndCompare(sample, reading);
        EXPECT_EQ(SampleText(sample), reading.text);
        EXPECT_EQ(reading.text.empty(), reading.result == 0);
        if (reading.result > 0) {
            winners.insert((handed.size() + 1) / 2);
            openedWon = openedWon || handed.size() % 2 == 0;
        }
    }
    EXPECT_EQ((std::set<size_t>{1, 2, 3, 4, 5, 6, 7, 8}), winners);
    EXPECT_TRUE(openedWon);

    // Pictures of one's own may join: QRCODE_TEST_PICTURES names a folder of them.
    const char* const folder = std::getenv("QRCODE_TEST_PICTURES");
    std::vector<std::string> others;
    std::string error;
    ASSERT_TRUE(folder == nullptr || Sim_ListPictures(folder, others, error)) << error;
    size_t scans = 0;
    for (const std::string& picture : others) {
        SCOPED_TRACE(picture);
        Reading reading;
        ReadAndCompare(picture, reading);
        scans += handed.size();
    }
    if (!others.empty()) {
        std::printf("%zu pictures in %s, %zu scans compared\n", others.size(), folder, scans);
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
    const Reading reading = Read();
    EXPECT_EQ(reading.result == -1 ? "src.data is NULL\n" : "",
              testing::internal::GetCapturedStdout());
    Sim_Reset();
    return reading;
}

std::string SampleJpeg()
{
    cv::Mat picture;
    std::string error;
    EXPECT_TRUE(Sim_LoadPicture(SAMPLES_DIR "/plain.png", picture, error));
    const std::vector<uint8_t> jpeg = Sim_EncodeFrame(Sim_CameraFrame(picture, 400, 400), 99);
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
    const Reading tagged = ReadJpeg(WithSegment(jpeg, '\xE1', tag));
    EXPECT_EQ(plain.text, tagged.text);
    ExpectAlike(first, handed.at(0));
    const std::string bytes = WithSegment(jpeg, '\xE1', tag);
    const cv::Mat turned = cv::imdecode(
        cv::Mat(1, static_cast<int>(bytes.size()), CV_8UC1, const_cast<char*>(bytes.data())),
        cv::IMREAD_COLOR);
    EXPECT_NE(0, cv::countNonZero(MirroredGrey(turned) != first)) << "the tag is a real one";
}

TEST(CaptureDecodeTest, DecoderSees480000BytesAndNoMore)
{
    // Comments push the picture back until its header ends at, then one byte behind, the limit. A
    // cut behind the header still gives a picture, mostly grey; a cut in it gives none.
    const std::string jpeg = SampleJpeg();
    const size_t scanStart = jpeg.find("\xFF\xDA");
    ASSERT_NE(std::string::npos, scanStart);
    const size_t headerEnd = scanStart + 2 + static_cast<uint8_t>(jpeg[scanStart + 3]);
    for (const int beyond : {0, 1}) {
        size_t left = 480000 - headerEnd + static_cast<size_t>(beyond);
        std::string padded = jpeg;
        while (left > 0) {
            const size_t segment = left > 70000 ? 65000 : (left > 60000 ? left / 2 : left);
            padded = WithSegment(padded, '\xFE', std::string(segment - 4, 'c'));
            left -= segment;
        }
        EXPECT_EQ(beyond == 0 ? 0 : -1, ReadJpeg(padded).result);
    }
    EXPECT_GT(ReadJpeg(jpeg + std::string(1500000, '\0')).result, 0);
}

TEST(CaptureDecodeTest, GeometryIsThePicturesOwn)
{
    // The encoder may be asked for 400 x 400; the decoder takes what the stream says.
    cv::Mat picture;
    std::string error;
    ASSERT_TRUE(Sim_LoadPicture(SAMPLES_DIR "/plain.png", picture, error));
    const std::vector<uint8_t> jpeg = Sim_EncodeFrame(Sim_CameraFrame(picture, 500, 300), 90);
    const Reading reading = ReadJpeg({jpeg.begin(), jpeg.end()});
    ASSERT_FALSE(handed.empty());
    EXPECT_EQ(cv::Size(500, 300), handed[0].size());
    EXPECT_EQ(SampleText(SAMPLES_DIR "/plain.png"), reading.text);
}

TEST(PrepareAttemptTest, LeavesTheGreyPictureAlone)
{
    cv::Mat grey(40, 60, CV_8UC1);
    cv::randu(grey, 0, 256);
    const cv::Mat before = grey.clone();
    cv::Mat work;
    for (int n = 1; n <= ATTEMPT_COUNT; ++n) {
        const cv::Mat prepared = Qrcode_PrepareAttempt(n, grey, work);
        EXPECT_EQ(n == 1, prepared.data == grey.data);
        EXPECT_TRUE(prepared.isContinuous());
        ExpectAlike(before, grey);
    }
}

} // namespace
