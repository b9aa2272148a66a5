// What ends the cascade, and that the grey picture stays as it was; the scan of an attempt stands
// in.
#include "cascade.h"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <vector>

#include "symbol_scan.h"

namespace
{
std::vector<int> results; // of the attempts
size_t attempts = 0;
cv::Mat grey(40, 60, CV_8UC1);
char text[1] = {};
} // namespace

int Qrcode_ScanWithOpening(cv::Mat picture, char* buffer)
{
    EXPECT_EQ(text, buffer);
    EXPECT_EQ(attempts == 0, picture.data == grey.data) << "the others have their own pixels";
    EXPECT_TRUE(picture.isContinuous());
    return results.at(attempts++);
}

TEST(AttemptsTest, OnlyAResultAboveZeroEndsThem)
{
    cv::randu(grey, 0, 256);
    const cv::Mat before = grey.clone();
    const std::vector<int> all[] = {
        {1}, {-1, 1023}, {0, -1, 7}, {-1, 0, -1, 0, -1, 0, 0, -1}, {0, -1, -1, 0, 0, 0, 0, 0}};
    for (const std::vector<int>& given : all) {
        results = given;
        attempts = 0;
        EXPECT_EQ(given.back(), Qrcode_ScanCascade(grey, text));
        EXPECT_EQ(given.size(), attempts);
        EXPECT_EQ(0, cv::countNonZero(before != grey));
    }
}
