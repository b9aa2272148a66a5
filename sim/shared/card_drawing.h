// Printed codes held before a camera. Pictures are 8-bit.
#ifndef SIM_CARD_DRAWING_H
#define SIM_CARD_DRAWING_H

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

enum {
    DRAW_INK = 25,    // grey value of fresh print
    DRAW_PAPER = 235, // ... and of the paper below it
    DRAW_QUIET = 4    // modules, width of the light margin that a QR code needs
};

// A code of black (0) and white (255) enlarged, in the grey values of its print and its paper.
cv::Mat Draw_Print(const cv::Mat& raw, int scale, int ink, int paper);

// Holds the card in front of the background, which has as many channels, its corners (clockwise
// from the upper left) at `corners`, in pixels of the background.
void Draw_Hold(cv::Mat& background, const cv::Mat& card, const std::vector<cv::Point2f>& corners);

// The picture with normal noise of this standard deviation (grey values) on every channel. The same
// seed gives the same noise.
cv::Mat Draw_Noise(const cv::Mat& picture, double sigma, uint64_t seed);

#endif
