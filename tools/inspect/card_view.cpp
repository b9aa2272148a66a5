#include "card_view.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <qrencode.h>
#include <vector>

#include "camera_picture.h"
#include "card_drawing.h"
#include "snap_channel.h"

namespace
{

const double WHITE = 255.0;

enum {
    SIZE_LARGEST = 10, // pixels a module
    PERCENT_STEP = 10, // of a picture's sizes
    NOISE_SEED = 4512,
    MASK_ROW = 8, // of the modules that tell the mask
    MASK_COLUMN = 2,
    MASK_BITS = 3,
    MASK_FLIPPED = 5 // these bits are stored with this pattern over them
};

const double PICTURE_BLUR = 1.0; // pixels; what a picture's modules are is not known

// A card tilted by 20 degrees, three times its width away: its far edge looks so much shorter than
// the near one, and the card so much narrower (shares).
const float TILT_SHORTER = 0.11F;
const float TILT_NARROWER = 0.06F;

// From the clearest to the hardest.
struct Kind {
    const char* name;
    float right = 0.0F; // of the middle, in shares of the room beside the card
    float down = 0.0F;
    float pixelsOff = 0.0F; // right and down of where pixels and modules fall together
    float degrees = 0.0F;   // turned clockwise
    int farEdge = -1;       // tilted: 0 upper, 1 right, 2 lower, 3 left; -1 for none
    double blur = 0.0;      // sigma in modules
    double noise = 0.0;     // sigma in grey values
    int ink = DRAW_INK;
    int paper = DRAW_PAPER;
};

Kind Turned(const char* name, float degrees)
{
    Kind kind{name};
    kind.degrees = degrees;
    return kind;
}

Kind Tilted(const char* name, int farEdge)
{
    Kind kind{name};
    kind.farEdge = farEdge;
    return kind;
}

// Blur and noise are those of samples/blurred.png and noisy.jpg.
const std::vector<Kind> KINDS = {
    {"straight"},
    {"upper left", -1.0F, -1.0F},
    {"half a pixel off", 0.0F, 0.0F, 0.5F},
    Turned("turned 2 degrees", 2.0F),
    Turned("turned -5 degrees", -5.0F),
    Turned("upside down", 180.0F),
    Tilted("tilted up", 0),
    Tilted("tilted to the right", 1),
    Tilted("tilted down", 2),
    Tilted("tilted to the left", 3),
    {"blurred", 0.0F, 0.0F, 0.0F, 0.0F, -1, 0.375},
    {"noisy", 0.0F, 0.0F, 0.0F, 0.0F, -1, 0.0, 16.0, 60, 200},
};

using CodePtr = std::unique_ptr<QRcode, void (*)(QRcode*)>;

// In the smallest version that holds it; none, with the reason in errno, when there is no such.
CodePtr Encoded(const CardBytes& content, QRecLevel level)
{
    if (content.eci == 0) {
        return {QRcode_encodeString(content.bytes.c_str(), 0, level,
                                    content.kanji ? QR_MODE_KANJI : QR_MODE_8, 1),
                QRcode_free};
    }
    const std::unique_ptr<QRinput, void (*)(QRinput*)> input(QRinput_new2(0, level), QRinput_free);
    const bool held =
        input != nullptr &&
        QRinput_appendECIheader(input.get(), static_cast<unsigned>(content.eci)) == 0 &&
        QRinput_append(input.get(), QR_MODE_8, static_cast<int>(content.bytes.size()),
                       reinterpret_cast<const unsigned char*>(content.bytes.data())) == 0;
    return {held ? QRcode_encodeInput(input.get()) : nullptr, QRcode_free};
}

// The mask pattern, from the code's own format modules.
int MaskOf(const QRcode& code)
{
    int mask = 0;
    for (int i = 0; i < MASK_BITS; ++i) {
        mask = mask << 1 | (code.data[MASK_ROW * code.width + MASK_COLUMN + i] & 1);
    }
    return mask ^ MASK_FLIPPED;
}

// The card at its size, in the colours of its print.
cv::Mat Printed(const Card& card, int size, const Kind& kind)
{
    if (card.version > 0) {
        return Draw_Print(card.face, size, kind.ink, kind.paper);
    }
    const double scale = size / 100.0 * SNAP_WIDTH / std::max(card.face.cols, card.face.rows);
    cv::Mat print;
    const cv::Size fitted(std::max(1, cvRound(card.face.cols * scale)),
                          std::max(1, cvRound(card.face.rows * scale)));
    cv::resize(card.face, print, fitted, 0, 0, cv::INTER_AREA);
    print.convertTo(print, -1, (kind.paper - kind.ink) / WHITE, kind.ink);
    return print;
}

// Where its corners come to lie, clockwise from the upper left.
std::vector<cv::Point2f> Corners(const cv::Size& card, const Kind& kind)
{
    const auto width = static_cast<float>(card.width);
    const auto height = static_cast<float>(card.height);
    std::vector<cv::Point2f> corners = {{0, 0}, {width, 0}, {width, height}, {0, height}};
    if (kind.farEdge >= 0) {
        cv::Point2f& from = corners[static_cast<size_t>(kind.farEdge)];
        cv::Point2f& to = corners[static_cast<size_t>(kind.farEdge + 1) % corners.size()];
        const cv::Point2f along = (to - from) * (TILT_SHORTER / 2);
        const cv::Point2f middle(width / 2, height / 2);
        const cv::Point2f inward = (middle - (from + to) / 2) * (2 * TILT_NARROWER);
        from += along + inward;
        to += inward - along;
    }
    const int left = (SNAP_WIDTH - card.width) / 2; // whole pixels; below 0 the margin is cut off
    const int top = (SNAP_HEIGHT - card.height) / 2;
    const cv::Point2f middle(static_cast<float>(left) + width / 2 + kind.pixelsOff +
                                 kind.right * static_cast<float>(std::max(left, 0)),
                             static_cast<float>(top) + height / 2 + kind.pixelsOff +
                                 kind.down * static_cast<float>(std::max(top, 0)));
    const auto radians = static_cast<float>(kind.degrees * CV_PI / 180.0);
    for (cv::Point2f& corner : corners) {
        const cv::Point2f arm = corner - cv::Point2f(width / 2, height / 2);
        corner = middle + cv::Point2f(arm.x * std::cos(radians) - arm.y * std::sin(radians),
                                      arm.x * std::sin(radians) + arm.y * std::cos(radians));
    }
    return corners;
}

const float SLACK = 0.5F; // pixels that a code may reach out of the view

// True when the code, whose margin may be cut off, is whole in the view.
bool IsInView(const std::vector<cv::Point2f>& corners, const Card& card)
{
    const float inset = static_cast<float>(card.margin) / static_cast<float>(card.face.cols);
    for (size_t n = 0; n < corners.size(); ++n) {
        const cv::Point2f& opposite = corners[(n + 2) % corners.size()];
        const cv::Point2f corner = corners[n] + (opposite - corners[n]) * inset;
        if (corner.x < -SLACK || corner.y < -SLACK || corner.x > SNAP_WIDTH + SLACK ||
            corner.y > SNAP_HEIGHT + SLACK) {
            return false;
        }
    }
    return true;
}

} // namespace

bool Card_FromText(const std::string& text, char level, int margin, Card& card, std::string& error)
{
    return Card_FromBytes({text, 0, false}, text, level, margin, card, error);
}

bool Card_FromBytes(const CardBytes& content, const std::string& text, char level, int margin,
                    Card& card, std::string& error)
{
    const std::string& bytes = content.bytes;
    if (bytes.empty() || bytes.find('\0') != std::string::npos) {
        error = bytes.empty() ? "empty" : "holds a zero byte";
        return false;
    }
    const CodePtr code = Encoded(content, static_cast<QRecLevel>(std::string("LMQH").find(level)));
    if (code == nullptr) {
        error = errno == ERANGE ? std::string("too long for a QR code of level ") + level
                                : std::strerror(errno);
        return false;
    }
    const int side = code->width + 2 * margin;
    card.expected = {true, text, false};
    card.margin = margin;
    card.version = code->version;
    card.mask = MaskOf(*code);
    card.face = cv::Mat(side, side, CV_8U, cv::Scalar(WHITE));
    for (int i = 0; i < code->width * code->width; ++i) {
        if ((code->data[i] & 1) != 0) {
            card.face.at<uint8_t>(margin + i / code->width, margin + i % code->width) = 0;
        }
    }
    return true;
}

bool Card_FromPicture(const std::string& path, Card& card, std::string& error)
{
    if (!Sim_LoadPicture(path, card.face, error)) {
        return false;
    }
    card.expected = Expected_Read(path);
    card.margin = 0;
    card.version = 0;
    error = "no text beside it (NAME.txt beside NAME.png), so nothing to compare with";
    return !card.expected.text.empty();
}

int View_Kinds()
{
    return static_cast<int>(KINDS.size());
}

const char* View_KindName(int kind)
{
    return KINDS[static_cast<size_t>(kind)].name;
}

int View_Size(const Card& card, int sizeNumber)
{
    return card.version > 0 ? SIZE_LARGEST - sizeNumber : 100 - sizeNumber * PERCENT_STEP;
}

std::string View_Name(const Card& card, int sizeNumber, int kind)
{
    return std::to_string(View_Size(card, sizeNumber)) + (card.version > 0 ? " px, " : " %, ") +
           View_KindName(kind);
}

cv::Mat View_Draw(const Card& card, int sizeNumber, int kind)
{
    const Kind& held = KINDS[static_cast<size_t>(kind)];
    const int size = View_Size(card, sizeNumber);
    const cv::Mat print = Printed(card, size, held);
    const std::vector<cv::Point2f> corners = Corners(print.size(), held);
    if (!IsInView(corners, card)) {
        return {};
    }
    cv::Mat view(SNAP_HEIGHT, SNAP_WIDTH, print.type(), cv::Scalar::all(SIM_WALL_GREY));
    Draw_Hold(view, print, corners);
    if (held.blur > 0.0) {
        cv::GaussianBlur(view, view, cv::Size(),
                         card.version > 0 ? held.blur * size : PICTURE_BLUR);
    }
    return held.noise > 0.0 ? Draw_Noise(view, held.noise, NOISE_SEED) : view;
}
