// The samples do what their table in samples/README.md says, and not by a hair: each is read at
// neighbouring qualities of the JPEG and a few pixels off as well, so that it is on other machines.
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <regex>
#include <set>
#include <sstream>

#include "allowances.h"
#include "camera_picture.h"
#include "cascade.h"
#include "files.h"
#include "snap_channel.h"
#include "watched_reading.h"

namespace
{

enum {
    SHIFT_MAX = 4,               // pixels
    TOTAL_BYTES_MAX = 700 * 1024 // pictures and texts together
};
// What may be slightly off on another machine; the first is the service's own.
const struct {
    cv::Point shift;
    int quality;
} VARIATIONS[] = {{{0, 0}, SNAP_QUALITY},
                  {{1, -1}, SNAP_QUALITY - 1},
                  {{-3, 2}, SNAP_QUALITY - 2},
                  {{4, 3}, SNAP_QUALITY},
                  {{-1, -4}, SNAP_QUALITY - 1}};

struct Row {
    std::string file;
    std::string text;
    std::string attempt; // "none", or which reads it, " opened" if only by its second scan
};

std::vector<Row> Table()
{
    const std::regex form(
        "\\| `([^`]+)` \\| [^|]+ \\| (?:`([^`]+)`|none) \\| (none|\\d(?: opened)?) \\|");
    std::istringstream lines(ReadAll(SAMPLES_SOURCE "/README.md"));
    std::vector<Row> rows;
    std::smatch match;
    for (std::string line; std::getline(lines, line);) {
        if (std::regex_match(line, match, form)) {
            rows.push_back({match[1], match[2], match[3]});
        }
    }
    return rows;
}

cv::Mat Shifted(const cv::Mat& frame, cv::Point shift)
{
    cv::Mat wide;
    cv::copyMakeBorder(frame, wide, SHIFT_MAX, SHIFT_MAX, SHIFT_MAX, SHIFT_MAX,
                       cv::BORDER_REPLICATE);
    return wide(cv::Rect(SHIFT_MAX - shift.x, SHIFT_MAX - shift.y, frame.cols, frame.rows)).clone();
}

TEST(SamplesTest, EachIsReadAsItsRowSaysAlsoSlightlyOff)
{
    std::set<std::string> attempts;
    for (const Row& row : Table()) {
        SCOPED_TRACE(row.file);
        EXPECT_EQ(row.text, SampleText(Sample(row.file)));
        attempts.insert(row.attempt);
        cv::Mat picture;
        std::string error;
        ASSERT_TRUE(Sim_LoadPicture(Sample(row.file), picture, error)) << error;
        const cv::Mat frame = Sim_CameraFrame(picture, SNAP_WIDTH, SNAP_HEIGHT);
        for (const auto& variation : VARIATIONS) {
            cv::Mat grey;
            const WatchedReading reading = Reading_Take(
                Sim_EncodeFrame(Shifted(frame, variation.shift), variation.quality), grey);
            const std::string attempt =
                reading.attempt == 0
                    ? "none"
                    : std::to_string(reading.attempt) + (reading.opened ? " opened" : "");
            EXPECT_EQ(row.attempt, attempt)
                << "quality " << variation.quality << ", shift " << variation.shift;
            EXPECT_EQ(row.text, std::string(reading.text));
            if (EMULATED_OR_SANITIZED) {
                break; // everything is slow there: the first only
            }
        }
    }
    for (int n = 1; n <= Qrcode_AttemptCount(); ++n) {
        EXPECT_EQ(1U, attempts.count(std::to_string(n))) << "no sample needs attempt " << n;
    }
    EXPECT_EQ(1U, attempts.count("1 opened")) << "no sample needs the opening";
}

TEST(SamplesTest, TheTableNamesAllOfThemAndTheyStaySmall)
{
    std::set<std::string> named;
    for (const Row& row : Table()) {
        named.insert(row.file);
    }
    std::set<std::string> pictures;
    uintmax_t bytes = 0;
    for (const auto& entry : std::filesystem::directory_iterator(SAMPLES_SOURCE)) {
        const std::string extension = entry.path().extension();
        if (extension == ".png" || extension == ".jpg") {
            pictures.insert(entry.path().filename());
        }
        bytes += entry.is_regular_file() ? entry.file_size() : 0;
    }
    EXPECT_EQ(named, pictures);
    EXPECT_GE(static_cast<uintmax_t>(TOTAL_BYTES_MAX), bytes);
}

#ifdef BMP_SAMPLES_DIR // where PNG is read too
TEST(SamplesTest, TheirBmpTwinsShowTheCameraTheSame)
{
    for (const Row& row : Table()) {
        SCOPED_TRACE(row.file);
        std::filesystem::path twin = std::filesystem::path(BMP_SAMPLES_DIR) / row.file;
        if (twin.extension() == ".png") {
            twin.replace_extension(".bmp");
        }
        std::vector<cv::Mat> frames;
        for (const std::string& path : {Sample(row.file), twin.string()}) {
            cv::Mat picture;
            std::string error;
            ASSERT_TRUE(Sim_LoadPicture(path, picture, error)) << path << ": " << error;
            frames.push_back(Sim_CameraFrame(picture, SNAP_WIDTH, SNAP_HEIGHT));
        }
        EXPECT_EQ(0, cv::norm(frames[0], frames[1], cv::NORM_INF));
        EXPECT_EQ(SampleText(Sample(row.file)), SampleText(twin));
    }
}
#endif

} // namespace
