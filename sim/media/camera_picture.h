// What the simulated camera makes of a picture file: the frame that the encoder gets, and its JPEG.
#ifndef SIM_CAMERA_PICTURE_H
#define SIM_CAMERA_PICTURE_H

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

// Grey value of the wall behind and beside every picture.
enum { SIM_WALL_GREY = 128 };

// Memory for reading a picture: enough for one of 100 megapixels, and what takes longer to read
// than anybody waits is refused.
enum { SIM_PICTURE_MEMORY_MB = 400 };

// Returns false, with the reason in `error`, when the file is missing, empty, no regular file or
// not readable.
bool Sim_CheckPictureFile(const std::string& path, std::string& error);

// Reads a picture in any format that OpenCV reads as 8-bit blue-green-red, the way up that its
// orientation tag says; one with an alpha channel as stored, with white where it is transparent.
// Returns false, with the reason in `error`, when the file is missing, empty, no picture, or too
// large for SIM_PICTURE_MEMORY_MB.
bool Sim_LoadPicture(const std::string& path, cv::Mat& picture, std::string& error);

// The frame of `width` x `height` pixels that a camera at a door sees of the picture: fitted into
// it (scaled down only), centred on the wall, and mirrored left to right.
cv::Mat Sim_CameraFrame(const cv::Mat& picture, int width, int height);

// A frame without a code: the wall alone.
cv::Mat Sim_EmptyFrame(int width, int height);

// The frame as a baseline JPEG, quality 1..100.
std::vector<uint8_t> Sim_EncodeFrame(const cv::Mat& frame, int quality);

#endif
