// Why a view is not read: each fault drawn in a known size comes first, with that size; without the
// fault it is not named.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <ctime>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <set>
#include <string>

#include "likely_causes.h"

namespace
{

const double CODE_MODULE = 12.0; // pixels, of the sample
const int CODE_MODULES = 25;     // a side

// The sample with modules of so many pixels, turned, its centre off the picture's by `offset`.
cv::Mat Code(double module, double degrees = 7.0, cv::Point offset = {},
             const char* sample = SAMPLES_DIR "/plain.png", double sampleModule = CODE_MODULE)
{
    const cv::Mat drawn = cv::imread(sample, cv::IMREAD_GRAYSCALE);
    EXPECT_FALSE(drawn.empty()) << sample;
    const double scale = module / sampleModule;
    const cv::Point2f middle(static_cast<float>(drawn.cols - 1) / 2,
                             static_cast<float>(drawn.rows - 1) / 2);
    cv::Mat shrunk; // as a camera does: the mean of what falls on a pixel
    cv::GaussianBlur(drawn, shrunk, cv::Size(), 0.3 / scale);
    cv::Mat turn = cv::getRotationMatrix2D(middle, degrees, scale);
    turn.at<double>(0, 2) += 199.5 - middle.x + offset.x;
    turn.at<double>(1, 2) += 199.5 - middle.y + offset.y;
    cv::Mat view;
    cv::warpAffine(shrunk, view, turn, cv::Size(400, 400), cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                   cv::Scalar(drawn.at<uchar>(0, 0)));
    return view;
}

cv::Mat Bars(double narrow, double degrees, cv::Point offset = {})
{
    return Code(narrow, degrees, offset, SAMPLES_DIR "/code128.png", 4.0);
}

cv::Mat Blurred(const cv::Mat& view, double sigma)
{
    cv::Mat blurred;
    cv::GaussianBlur(view, blurred, cv::Size(), sigma);
    return blurred;
}

cv::Mat Faded(const cv::Mat& view, double share, double darkest)
{
    cv::Mat faded;
    view.convertTo(faded, -1, share, darkest);
    return faded;
}

// A white disc in the code's middle.
cv::Mat Glaring(cv::Mat view, double radius)
{
    cv::circle(view, cv::Point(200, 200), cvRound(radius), cv::Scalar(255), cv::FILLED);
    return view;
}

// Held so that the right side is `share` as long as the left one.
cv::Mat Aslant(const cv::Mat& view, float share)
{
    const float gap = 200 * (1 - share);
    const cv::Point2f from[] = {{0, 0}, {400, 0}, {400, 400}, {0, 400}};
    const cv::Point2f onto[] = {{0, 0}, {400, gap}, {400, 400 - gap}, {0, 400}};
    cv::Mat aslant;
    cv::warpPerspective(view, aslant, cv::getPerspectiveTransform(from, onto), view.size(),
                        cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    return aslant;
}

cv::Mat Noise(int from, int to)
{
    cv::Mat noise(400, 400, CV_8UC1);
    cv::RNG random(1);
    random.fill(noise, cv::RNG::UNIFORM, from, to);
    return noise;
}

cv::Mat WithoutCorner(cv::Mat view)
{
    view(cv::Rect(255, 80, 80, 80)) = view.at<uchar>(0, 0);
    return view;
}

struct Fault {
    const char* name;
    std::function<cv::Mat()> draw;
    CauseKind first;
    double value;
    double tolerance;
};

// On one thread, as the tool is: OpenCV's own look like races to the thread sanitizer.
class LikelyCausesTest : public testing::Test
{
protected:
    void SetUp() override { cv::setNumThreads(0); }
};

TEST_F(LikelyCausesTest, TheFaultThatWasDrawnComesFirstInItsSize)
{
    const double paper = 200; // below white: glare shows on it
    const Fault faults[] = {
        {"none", [] { return Code(6); }, CAUSE_UNEXPLAINED, 6.0, 0.1},
        {"none, upright", [] { return Code(5, 0); }, CAUSE_UNEXPLAINED, 5.0, 0.1},
        {"none, bars", [] { return Bars(2, 0); }, CAUSE_UNEXPLAINED, 2.0, 0.3},
        {"small", [] { return Code(1.9); }, CAUSE_SMALL, 1.9, 0.1},
        {"small, noisy ground", [] { return Code(2.2, 30) - Noise(0, 20); }, CAUSE_SMALL, 2.2, 0.1},
        {"narrow bars", [] { return Bars(1.2, 0); }, CAUSE_SMALL, 1.2, 0.3},
        {"blur", [] { return Blurred(Code(6), 0.7 * 6); }, CAUSE_BLUR, 0.7, 0.05},
        {"more blur", [] { return Blurred(Code(6), 0.8 * 6); }, CAUSE_BLUR, 0.78, 0.06},
        {"small and blurred", [] { return Blurred(Code(4), 0.7 * 4); }, CAUSE_BLUR, 0.7, 0.08},
        {"blurred bars", [] { return Blurred(Bars(2, 0), 1.5); }, CAUSE_BLUR, 1.4, 0.3},
        {"faint", [] { return Faded(Code(6), 20.0 / 210, 150); }, CAUSE_FAINT, 20, 2},
        {"inverted", [] { return cv::Mat(~Code(6)); }, CAUSE_INVERTED, 210, 6},
        {"glare", [=] { return Glaring(Faded(Code(6), paper / 255, 0), 4 * 6); }, CAUSE_GLARE, 4,
         0.2},
        {"glare on white", [] { return Glaring(Faded(Code(6), 1.2, -5), 4 * 6); }, CAUSE_GLARE, 4,
         0.2},
        {"cut below, 18 pixels",
         [] {
             return Code(6, 0, {0, 143});
         },
         CAUSE_CUT, 3, 0.3},
        {"cut at the left",
         [] {
             return Code(6, 0, {-185, 0});
         },
         CAUSE_CUT, 6.1, 0.3}, // at least
        {"bars cut",
         [] {
             return Bars(2, 0, {-110, 0});
         },
         CAUSE_CUT, 0, 0},
        {"turned bars", [] { return Bars(2, 35); }, CAUSE_TURNED, 35, 3},
        {"turned bars, from upright", [] { return Bars(2, 60); }, CAUSE_TURNED, 30, 3},
        {"aslant", [] { return Aslant(Code(10, 0), 0.4F); }, CAUSE_OFF_GRID, 69, 8},
        {"a corner covered", [] { return WithoutCorner(Code(6, 0)); }, CAUSE_CORNER, 2, 0},
        {"lens covered", [] { return Noise(0, 30); }, CAUSE_DARK, 29, 3},
        {"all light", [] { return Noise(225, 255); }, CAUSE_BRIGHT, 225, 3},
        {"a wall", [] { return Noise(100, 115); }, CAUSE_FLAT, 14, 2},
        {"noise", [] { return Noise(0, 256); }, CAUSE_NOT_LOCATED, 245, 8},
        {"out of focus", [] { return Blurred(Code(6), 2.0 * 6); }, CAUSE_BLURRED_VIEW, 8, 6},
    };
    for (const Fault& fault : faults) {
        SCOPED_TRACE(fault.name);
        const LikelyCauses found = Causes_Find(fault.draw());
        ASSERT_GT(found.count, 0);
        EXPECT_STREQ(Causes_Name(fault.first), Causes_Name(found.causes[0].kind))
            << found.causes[0].sentence;
        EXPECT_NEAR(fault.value, found.causes[0].value, fault.tolerance)
            << found.causes[0].sentence;
        EXPECT_STRNE("", found.causes[0].sentence);
    }
}

TEST_F(LikelyCausesTest, OneCornerSquareAloneIsMeasuredToo)
{
    const LikelyCauses found = Causes_Find(~Code(6, 0, {190, 190}));
    const LikelyCause* const end = found.causes + found.count;
    const LikelyCause* const inverted = std::find_if(
        found.causes, end, [](const LikelyCause& cause) { return cause.kind == CAUSE_INVERTED; });
    ASSERT_NE(end, inverted);
    EXPECT_NEAR(210, inverted->value, 6);
}

// A long outline with thousands of dots in it, inside two frames, took more than a minute.
TEST_F(LikelyCausesTest, HostilePicturesTakeNoTime)
{
    cv::Mat view(400, 400, CV_8UC1, cv::Scalar(0));
    cv::rectangle(view, cv::Rect(3, 3, 394, 394), cv::Scalar(255), cv::FILLED);
    cv::rectangle(view, cv::Rect(6, 6, 388, 388), cv::Scalar(0), cv::FILLED);
    for (int y = 10; y < 390; y += 4) {
        for (int x = 10; x < 198; x += 4) {
            cv::rectangle(view, cv::Rect(x, y, 2, 2), cv::Scalar(255), cv::FILLED);
        }
        cv::rectangle(view, cv::Rect(202, y, 192, 2), cv::Scalar(255), cv::FILLED);
    }
    const std::clock_t start = std::clock();
    Causes_Find(view);
    EXPECT_LT(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, 20.0);
    // Stripes of a pixel are sharp.
    for (int x = 0; x < 400; ++x) {
        view.col(x).setTo(x % 2 == 0 ? 0 : 255);
    }
    EXPECT_NE(CAUSE_BLURRED_VIEW, Causes_Find(view).causes[0].kind);
}

TEST_F(LikelyCausesTest, EveryPlaceThatIsNamedIsAHeadingOfTheGuide)
{
    std::ifstream guide(GUIDE);
    std::set<std::string> anchors;
    for (std::string line; std::getline(guide, line);) {
        if (line.compare(0, 2, "##") != 0) {
            continue;
        }
        std::string anchor;
        for (const char letter : line.substr(line.find(' ') + 1)) {
            if (std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '-') {
                anchor += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
            } else if (letter == ' ') {
                anchor += '-';
            }
        }
        anchors.insert(anchor);
    }
    for (int kind = 0; kind < CAUSE_KINDS; ++kind) {
        const char* const anchor = Causes_Anchor(static_cast<CauseKind>(kind));
        EXPECT_EQ(1U, anchors.count(anchor)) << anchor;
    }
}

// The outline lies on the code's corners, also where the picture is turned.
TEST_F(LikelyCausesTest, TheOutlineLiesOnTheCode)
{
    for (const double degrees : {0.0, 30.0, 120.0}) {
        const LocatedCode code = Locate_Code(Code(6, degrees));
        ASSERT_EQ(CODE_SQUARE, code.shape);
        EXPECT_EQ(3, code.cornerSquares);
        EXPECT_EQ(CODE_MODULES, code.modulesASide);
        const double radius = CODE_MODULES * 6 / std::sqrt(2.0);
        for (const cv::Point2d& corner : code.outline) {
            EXPECT_NEAR(radius, std::hypot(corner.x - 199.5, corner.y - 199.5), 2.0) << degrees;
        }
    }
}

} // namespace
