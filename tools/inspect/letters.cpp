#include "letters.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <ft2build.h>
#include FT_FREETYPE_H

#include "text.h"

namespace
{

const char* const FONTS[] = {"/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
                             "/usr/share/fonts/truetype/wqy/wqy-microhei.ttc"};

enum { PARTS = 64, OPAQUE = 255 }; // FreeType's lengths are 64ths of a pixel

void Blend(cv::Mat& picture, const FT_Bitmap& letter, cv::Point at, const cv::Scalar& colour)
{
    const cv::Rect whole(at.x, at.y, static_cast<int>(letter.width), static_cast<int>(letter.rows));
    const cv::Rect seen = whole & cv::Rect(0, 0, picture.cols, picture.rows);
    for (int y = seen.y; y < seen.y + seen.height; ++y) {
        const unsigned char* const row =
            letter.buffer + static_cast<ptrdiff_t>(y - at.y) * letter.pitch;
        for (int x = seen.x; x < seen.x + seen.width; ++x) {
            const int ink = row[x - at.x];
            cv::Vec3b& pixel = picture.at<cv::Vec3b>(y, x);
            for (int i = 0; i < 3; ++i) {
                const int wanted = static_cast<int>(colour[i]);
                pixel[i] = static_cast<uchar>(pixel[i] + (wanted - pixel[i]) * ink / OPAQUE);
            }
        }
    }
}

} // namespace

bool Letters::Open(std::string& error)
{
    if (library_ == nullptr && FT_Init_FreeType(&library_) != 0) {
        error = "no letters: FreeType cannot be started";
        return false;
    }
    for (const char* const font : FONTS) {
        FT_Face face = nullptr;
        if (FT_New_Face(library_, font, 0, &face) == 0) {
            faces_.push_back(face);
        }
    }
    error = "no letters: neither of Debian's packages fonts-dejavu-core and fonts-wqy-microhei is "
            "installed";
    return !faces_.empty();
}

Letters::~Letters()
{
    for (FT_FaceRec_* const face : faces_) {
        FT_Done_Face(face);
    }
    FT_Done_FreeType(library_);
}

int Letters::Set(cv::Mat* picture, const std::string& text, cv::Point at, int size,
                 const cv::Scalar& colour) const
{
    long pen = 0; // 64ths of a pixel
    const auto set = [&](FT_Face face, char32_t code) {
        FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(size));
        const FT_Int32 flags = FT_LOAD_NO_BITMAP | FT_LOAD_TARGET_LIGHT;
        if (FT_Load_Char(face, code, picture != nullptr ? flags | FT_LOAD_RENDER : flags) != 0) {
            return;
        }
        FT_GlyphSlotRec_* const glyph = face->glyph;
        if (picture != nullptr) {
            const cv::Point corner(static_cast<int>(pen / PARTS) + glyph->bitmap_left,
                                   -glyph->bitmap_top);
            Blend(*picture, glyph->bitmap, at + corner, colour);
        }
        pen += glyph->advance.x;
    };
    for (const char32_t code : Text_CodePoints(text)) {
        const auto face = std::find_if(faces_.begin(), faces_.end(), [code](FT_Face candidate) {
            return FT_Get_Char_Index(candidate, code) != 0;
        });
        if (face != faces_.end()) {
            set(*face, code);
            continue;
        }
        char number[16];
        std::snprintf(number, sizeof(number), "[U+%04X]", static_cast<unsigned>(code));
        for (const char letter : std::string(number)) {
            set(faces_.front(), static_cast<unsigned char>(letter));
        }
    }
    return static_cast<int>((pen + PARTS - 1) / PARTS);
}

int Letters::Width(const std::string& text, int size) const
{
    return Set(nullptr, text, {}, size, {});
}

void Letters::Draw(cv::Mat& picture, const std::string& text, cv::Point at, int size,
                   const cv::Scalar& colour) const
{
    Set(&picture, text, at, size, colour);
}
