// Pictures for tests: the samples, and what the simulated camera makes of them.
#ifndef TESTS_PICTURES_H
#define TESTS_PICTURES_H

#include <cstdlib>
#include <gtest/gtest.h>

#include "camera_picture.h"
#include "scene_files.h"

// The JPEG of a picture before the camera, as the encoder is asked for it or otherwise.
inline std::vector<uint8_t> CameraJpeg(const std::string& path, int width = 400, int height = 400,
                                       int quality = 99)
{
    cv::Mat picture;
    std::string error;
    EXPECT_TRUE(Sim_LoadPicture(path, picture, error)) << path << ": " << error;
    return Sim_EncodeFrame(Sim_CameraFrame(picture, width, height), quality);
}

// The samples, and those of a folder of one's own that QRCODE_TEST_PICTURES names.
inline std::vector<std::string> TestPictures()
{
    const char* const folder = std::getenv("QRCODE_TEST_PICTURES");
    std::vector<std::string> pictures;
    std::vector<std::string> others;
    std::string error;
    EXPECT_TRUE(Sim_ListPictures(SAMPLES_DIR, pictures, error)) << error;
    EXPECT_TRUE(folder == nullptr || Sim_ListPictures(folder, others, error)) << error;
    pictures.insert(pictures.end(), others.begin(), others.end());
    std::printf("%zu pictures, %zu of them from %s\n", pictures.size(), others.size(),
                folder != nullptr ? folder : "a folder of one's own");
    return pictures;
}

#endif
