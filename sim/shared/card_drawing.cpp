#include "card_drawing.h"

#include <opencv2/imgproc.hpp>

namespace
{

enum { WHITE = 255 };

} // namespace

cv::Mat Draw_Print(const cv::Mat& raw, int scale, int ink, int paper)
{
    cv::Mat code;
    cv::resize(raw, code, cv::Size(), scale, scale, cv::INTER_NEAREST);
    code.convertTo(code, CV_8U, (paper - ink) / static_cast<double>(WHITE), ink);
    return code;
}

void Draw_Hold(cv::Mat& background, const cv::Mat& card, const std::vector<cv::Point2f>& corners)
{
    const float right = static_cast<float>(card.cols);
    const float bottom = static_cast<float>(card.rows);
    const std::vector<cv::Point2f> from = {{0, 0}, {right, 0}, {right, bottom}, {0, bottom}};
    const cv::Mat transform = cv::getPerspectiveTransform(from, corners);
    cv::Mat held;
    cv::Mat mask;
    cv::warpPerspective(card, held, transform, background.size(), cv::INTER_LINEAR,
                        cv::BORDER_REPLICATE);
    cv::warpPerspective(cv::Mat(card.size(), CV_8U, cv::Scalar(WHITE)), mask, transform,
                        background.size(), cv::INTER_NEAREST);
    held.copyTo(background, mask);
}

cv::Mat Draw_Noise(const cv::Mat& picture, double sigma, uint64_t seed)
{
    cv::RNG random(seed);
    cv::Mat noise(picture.size(), CV_16SC(picture.channels()));
    random.fill(noise, cv::RNG::NORMAL, 0.0, sigma);
    cv::Mat noisy;
    cv::add(picture, noise, noisy, cv::noArray(), picture.type());
    return noisy;
}
