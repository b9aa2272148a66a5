// Text on a picture, in the letters that it is written in.
#ifndef TOOLS_LETTERS_H
#define TOOLS_LETTERS_H

#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

struct FT_LibraryRec_;
struct FT_FaceRec_;

// The fonts of Debian's packages fonts-dejavu-core and fonts-wqy-microhei, drawn with FreeType:
// Latin, Greek, Cyrillic, Chinese, Japanese, Korean. Code points stand one after the other from
// left to right, as they are stored. What no font has is drawn as "[U+1F600]".
class Letters
{
public:
    // False, with the reason in `error`, when none of the fonts is there.
    bool Open(std::string& error);

    Letters() = default;
    ~Letters();
    Letters(const Letters&) = delete;
    Letters& operator=(const Letters&) = delete;

    // Pixels. `size` is the height of the font.
    int Width(const std::string& text, int size) const;

    // Draws on a blue-green-red picture, from a point on the base line; what lies outside the
    // picture is left out.
    void Draw(cv::Mat& picture, const std::string& text, cv::Point at, int size,
              const cv::Scalar& colour) const;

private:
    int Set(cv::Mat* picture, const std::string& text, cv::Point at, int size,
            const cv::Scalar& colour) const;

    FT_LibraryRec_* library_ = nullptr;
    std::vector<FT_FaceRec_*> faces_; // the first that has a letter draws it
};

#endif
