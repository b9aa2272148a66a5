// Makes the sample pictures and their expected texts from raw codes.
//
// Usage: make_samples RAW_FOLDER OUT_FOLDER (called by make-samples.sh, which makes the raw codes).
// RAW_FOLDER holds NAME.png, a QR code of one pixel a module or a barcode, and NAME.txt, its text.
// Ends with 1 when one cannot be made.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <iterator>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "card_drawing.h"

namespace
{

enum {
    SIDE = 400, // pixels, of the camera's frame and of most samples
    WHITE = 255,
    PNG_COMPRESSION = 9,
    JPEG_QUALITY = 85
};

std::string rawFolder; // folder of the raw codes

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (!in) {
        throw std::runtime_error(path + ": cannot be read");
    }
    return bytes;
}

void WriteFile(const std::string& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
    out.close();
    if (!out) {
        throw std::runtime_error(path + ": cannot be written");
    }
}

// ---- Codes and cards. Grey pictures are 8-bit, one channel.

cv::Mat Raw(const std::string& name)
{
    const std::string path = rawFolder + "/" + name + ".png";
    cv::Mat code = cv::imread(path, cv::IMREAD_GRAYSCALE);
    if (code.empty()) {
        throw std::runtime_error(path + ": not a picture that can be read");
    }
    return code;
}

// The code in the middle of a card that fills `side` x `side` pixels.
cv::Mat Card(const cv::Mat& code, int paper, int side = SIDE)
{
    cv::Mat card(side, side, CV_8U, cv::Scalar(paper));
    code.copyTo(
        card(cv::Rect((side - code.cols) / 2, (side - code.rows) / 2, code.cols, code.rows)));
    return card;
}

cv::Mat QrCard(const std::string& name, int ink = DRAW_INK, int paper = DRAW_PAPER, int side = SIDE)
{
    const cv::Mat raw = Raw(name);
    return Card(Draw_Print(raw, side / (raw.cols + 2 * DRAW_QUIET), ink, paper), paper, side);
}

// A hallway wall, darker towards its lower edge.
cv::Mat Wall(int width, int height)
{
    cv::Mat wall(height, width, CV_8U);
    for (int y = 0; y < height; ++y) {
        const int grey = 150 - 60 * y / height;
        wall.row(y).setTo(cv::Scalar(grey));
    }
    return wall;
}

std::vector<cv::Point2f> Turned(cv::Point2f centre, float side, float degrees)
{
    std::vector<cv::Point2f> corners;
    const double diagonal = side / std::sqrt(2.0);
    for (int i = 0; i < 4; ++i) {
        const double angle = (degrees - 135.0 + 90.0 * i) * CV_PI / 180.0;
        corners.emplace_back(centre.x + static_cast<float>(diagonal * std::cos(angle)),
                             centre.y + static_cast<float>(diagonal * std::sin(angle)));
    }
    return corners;
}

// ---- Troubles.

// Light on the scene: every pixel times the value of `light` (float, 1.0 leaves it as it is).
cv::Mat Lit(const cv::Mat& grey, const cv::Mat& light)
{
    cv::Mat scene;
    grey.convertTo(scene, CV_32F);
    cv::multiply(scene, light, scene);
    cv::Mat lit;
    scene.convertTo(lit, CV_8U);
    return lit;
}

// Print whose ink has worn off in patches of half a module, in the worst of them down to the grey
// value `gone`.
cv::Mat WornCard(const std::string& name, int gone, int paper, uint64_t seed)
{
    const double hardness = 6.0; // of the patches' edges
    const double share = 0.55;   // of the print that has worn off
    const cv::Mat card = QrCard(name, 0, WHITE);
    const cv::Mat raw = Raw(name);
    const int patch = SIDE / (raw.cols + 2 * DRAW_QUIET) / 2;
    cv::Mat wear(SIDE / patch, SIDE / patch, CV_32F);
    cv::RNG random(seed);
    random.fill(wear, cv::RNG::UNIFORM, 0.0, 1.0);
    cv::resize(wear, wear, card.size(), 0, 0, cv::INTER_CUBIC);
    cv::Mat worn(card.size(), CV_8U, cv::Scalar(paper));
    for (int y = 0; y < card.rows; ++y) {
        for (int x = 0; x < card.cols; ++x) {
            if (card.at<uint8_t>(y, x) == 0) {
                const double off = (wear.at<float>(y, x) - 1.0 + share) * hardness + 0.5;
                worn.at<uint8_t>(y, x) = static_cast<uint8_t>(
                    cvRound(DRAW_INK + (gone - DRAW_INK) * std::min(1.0, std::max(0.0, off))));
            }
        }
    }
    return worn;
}

// Bright or dark dots of 2 x 2 pixels, one for each `spacing` x `spacing` pixels, scattered.
void Sprinkle(cv::Mat& grey, int value, int spacing, uint64_t seed)
{
    cv::RNG random(seed);
    for (int y = 0; y + spacing <= grey.rows; y += spacing) {
        for (int x = 0; x + spacing <= grey.cols; x += spacing) {
            const int dotX = x + random.uniform(0, spacing - 1);
            const int dotY = y + random.uniform(0, spacing - 1);
            grey(cv::Rect(dotX, dotY, 2, 2)).setTo(cv::Scalar(value));
        }
    }
}

// ---- The pictures.

cv::Mat Rotated()
{
    cv::Mat scene = Wall(SIDE, SIDE);
    Draw_Hold(scene, QrCard("rotated", DRAW_INK, DRAW_PAPER, 296), Turned({200, 200}, 296, 29));
    return scene;
}

cv::Mat Tilted()
{
    cv::Mat scene = Wall(640, 480);
    Draw_Hold(scene, QrCard("tilted", DRAW_INK, 225, 444),
              {{140, 40}, {500, 100}, {520, 385}, {100, 455}});
    return scene;
}

// A paper cup from a little above its rim, the code around its front, the light from the upper
// left. Lengths are in radii of the cup, heights count down from the camera, which looks level.
cv::Mat Curved()
{
    enum { MODULE = 20, FINE = 2, PAPER = 240 }; // FINE: drawn so much larger, for smooth edges
    const double distance = 9.0;                 // from the camera to the cup's axis
    const double rim = 0.3;
    const double codeMiddle = 1.25;
    const double codeWidth = 1.4;       // around the cup, so in radians too
    const double focal = 1520.0 * FINE; // pixels
    const double top = 30.0 * FINE;     // pixels, from the camera's height down to the picture
    const double lamp = -0.45;          // radians, to the left

    const cv::Mat raw = Raw("curved");
    const cv::Mat card =
        Card(Draw_Print(raw, MODULE, DRAW_INK, PAPER), PAPER, (raw.cols + 2 * DRAW_QUIET) * MODULE);
    const double scale = raw.cols * MODULE / codeWidth;
    cv::Mat scene = Wall(SIDE * FINE, SIDE * FINE);
    cv::Mat cardX(scene.size(), CV_32F, cv::Scalar(0)); // inside the cup it is the card's corner
    cv::Mat cardY(scene.size(), CV_32F, cv::Scalar(0));
    cv::Mat light(scene.size(), CV_32F, cv::Scalar(0));
    cv::Mat isCup(scene.size(), CV_8U, cv::Scalar(0));
    for (int y = 0; y < scene.rows; ++y) {
        for (int x = 0; x < scene.cols; ++x) {
            // The line of sight meets the cylinder at two depths, or passes it.
            const double right = (x + 0.5 - scene.cols / 2.0) / focal;
            const double down = (y + 0.5 + top) / focal;
            const double slope = 1.0 + right * right;
            const double root = distance * distance - slope * (distance * distance - 1.0);
            if (root < 0.0) {
                continue;
            }
            const double front = (distance - std::sqrt(root)) / slope;
            const double back = (distance + std::sqrt(root)) / slope;
            if (down * front >= rim) {
                const double angle = std::atan2(right * front, distance - front);
                cardX.at<float>(y, x) = static_cast<float>(card.cols / 2.0 + angle * scale);
                cardY.at<float>(y, x) =
                    static_cast<float>(card.rows / 2.0 + (down * front - codeMiddle) * scale);
                light.at<float>(y, x) =
                    static_cast<float>(0.4 + 0.6 * std::max(0.0, std::cos(angle - lamp)));
                isCup.at<uint8_t>(y, x) = WHITE;
            } else if (down * back >= rim) {
                const double angle = std::atan2(right * back, distance - back);
                light.at<float>(y, x) =
                    static_cast<float>(0.3 + 0.3 * std::max(0.0, -std::cos(angle - lamp)));
                isCup.at<uint8_t>(y, x) = WHITE;
            }
        }
    }
    cv::Mat cup;
    cv::remap(card, cup, cardX, cardY, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    Lit(cup, light).copyTo(scene, isCup);
    cv::Mat picture;
    cv::resize(scene, picture, cv::Size(SIDE, SIDE), 0, 0, cv::INTER_AREA);
    return picture;
}

cv::Mat Blurred()
{
    cv::Mat blurred;
    cv::GaussianBlur(QrCard("blurred"), blurred, cv::Size(), 4.5);
    return blurred;
}

// A lamp mirrored on the card's foil.
cv::Mat Glare()
{
    const cv::Mat card = QrCard("glare");
    cv::Mat lamp(card.size(), CV_8U, cv::Scalar(0));
    cv::ellipse(lamp, cv::Point(262, 250), cv::Size(46, 18), -35.0, 0.0, 360.0, cv::Scalar(WHITE),
                cv::FILLED);
    cv::GaussianBlur(lamp, lamp, cv::Size(), 9.0);
    cv::Mat glaring;
    cv::add(card, lamp, glaring);
    return glaring;
}

// The sun through a window blind: bright and dark bands across the card, the dark ones with a
// quarter of the light.
cv::Mat UnevenLight()
{
    const cv::Mat card = QrCard("uneven-light", 30, 250);
    const double period = 100.0; // pixels from band to band, straight down
    cv::Mat light(card.size(), CV_32F);
    for (int y = 0; y < light.rows; ++y) {
        for (int x = 0; x < light.cols; ++x) {
            const double wave = std::sin((y + x) * 2.0 * CV_PI / period);
            light.at<float>(y, x) = static_cast<float>(0.625 + 0.375 * wave);
        }
    }
    return Lit(card, light);
}

cv::Mat DustyScreen()
{
    cv::Mat screen = QrCard("dusty-screen", 225, 20);
    Sprinkle(screen, 20, 6, 602);
    return screen;
}

cv::Mat Speckled()
{
    cv::Mat card = QrCard("speckled");
    Sprinkle(card, 235, 6, 731);
    return card;
}

// Red print on yellow paper.
cv::Mat Coloured()
{
    const cv::Mat code = QrCard("coloured", 0, WHITE);
    cv::Mat card(code.size(), CV_8UC3, cv::Scalar(40, 215, 250));
    card.setTo(cv::Scalar(40, 20, 190), code == 0);
    return card;
}

// A pass in each hand.
cv::Mat SeveralCodes()
{
    cv::Mat scene = Wall(800, 480);
    Draw_Hold(scene, QrCard("several-codes-1", DRAW_INK, DRAW_PAPER, 370),
              Turned({205, 245}, 370, 2));
    Draw_Hold(scene, QrCard("several-codes-2", DRAW_INK, DRAW_PAPER, 348),
              Turned({600, 225}, 348, 4));
    return scene;
}

// A QR code and a barcode on one card.
cv::Mat Badge()
{
    enum { PAPER = 240 };
    const cv::Mat qr = Draw_Print(Raw("badge-qr"), 8, DRAW_INK, PAPER);
    const cv::Mat bar = Draw_Print(Raw("badge-bar"), 1, DRAW_INK, PAPER);
    cv::Mat card(SIDE, SIDE, CV_8U, cv::Scalar(PAPER));
    qr.copyTo(card(cv::Rect((SIDE - qr.cols) / 2, 40, qr.cols, qr.rows)));
    bar.copyTo(card(cv::Rect((SIDE - bar.cols) / 2, 270, bar.cols, bar.rows)));
    return card;
}

cv::Mat Barcode(const std::string& name)
{
    enum { MARGIN = 30, PAPER = 235 };
    const cv::Mat code = Draw_Print(Raw(name), 2, DRAW_INK, PAPER);
    cv::Mat label;
    cv::copyMakeBorder(code, label, MARGIN, MARGIN, MARGIN, MARGIN, cv::BORDER_CONSTANT,
                       cv::Scalar(PAPER));
    return label;
}

cv::Mat FarAway()
{
    cv::Mat scene = Wall(1200, 900);
    Draw_Hold(scene, QrCard("far-away", DRAW_INK, DRAW_PAPER, 370), Turned({640, 430}, 370, 11));
    return scene;
}

// Brickwork.
cv::Mat NoCodeWall()
{
    enum { BRICK_WIDTH = 80, BRICK_HEIGHT = 32, JOINT = 5 };
    cv::Mat wall(SIDE, SIDE, CV_8UC3, cv::Scalar(165, 175, 180));
    cv::RNG random(80);
    for (int row = 0; row * BRICK_HEIGHT < SIDE; ++row) {
        for (int x = row % 2 == 0 ? 0 : -BRICK_WIDTH / 2; x < SIDE; x += BRICK_WIDTH) {
            const int shade = random.uniform(-25, 25);
            cv::rectangle(wall, cv::Point(x, row * BRICK_HEIGHT),
                          cv::Point(x + BRICK_WIDTH - JOINT, (row + 1) * BRICK_HEIGHT - JOINT),
                          cv::Scalar(55 + shade, 65 + shade, 145 + shade), cv::FILLED);
        }
    }
    return wall;
}

// A notice without a code.
cv::Mat NoCodeText()
{
    enum { LINE_HEIGHT = 38 };
    cv::Mat notice(SIDE, SIDE, CV_8UC3, cv::Scalar(225, 235, 235));
    const char* const lines[] = {"VISITORS please",  "report to the",    "front desk, show",
                                 "an identity card", "and wear a badge", "at all times. No",
                                 "entry without a",  "host. Open from",  "07:30 to 18:00.",
                                 "Thank you."};
    int y = LINE_HEIGHT - 6;
    for (const char* line : lines) {
        cv::putText(notice, line, cv::Point(16, y), cv::FONT_HERSHEY_DUPLEX, 1.15,
                    cv::Scalar(60, 30, 30), 2, cv::LINE_AA);
        y += LINE_HEIGHT;
    }
    return notice;
}

// ---- The table.

struct Sample {
    const char* name;      // without its extension
    const char* extension; // .png, or .jpg for noise that .png cannot pack
    std::function<cv::Mat()> make;
    std::vector<std::string> codes; // in the order in which their texts are written
};

const std::vector<Sample> SAMPLES = {
    {"plain", ".png", [] { return QrCard("plain"); }, {"plain"}},
    {"rotated", ".png", Rotated, {"rotated"}},
    {"tilted", ".png", Tilted, {"tilted"}},
    {"curved", ".png", Curved, {"curved"}},
    {"far-away", ".png", FarAway, {"far-away"}},
    {"blurred", ".png", Blurred, {"blurred"}},
    {"noisy", ".jpg", [] { return Draw_Noise(QrCard("noisy", 60, 200), 16.0, 4512); }, {"noisy"}},
    {"glare", ".png", Glare, {"glare"}},
    {"faint", ".png", [] { return QrCard("faint", 150, 172); }, {"faint"}},
    {"coloured", ".png", Coloured, {"coloured"}},
    {"speckled", ".png", Speckled, {"speckled"}},
    {"inverted", ".png", [] { return QrCard("inverted", 225, 20); }, {"inverted"}},
    {"dusty-screen", ".png", DustyScreen, {"dusty-screen"}},
    {"uneven-light", ".png", UnevenLight, {"uneven-light"}},
    {"worn", ".png", [] { return WornCard("worn", 165, 205, 226); }, {"worn"}},
    {"faded", ".png", [] { return WornCard("faded", 189, 225, 118); }, {"faded"}},
    {"bleached", ".png", [] { return WornCard("bleached", 207, 240, 917); }, {"bleached"}},
    {"washed-out", ".png", [] { return WornCard("washed-out", 225, 250, 209); }, {"washed-out"}},
    {"overexposed",
     ".png",
     [] { return WornCard("overexposed", 242, WHITE, 661); },
     {"overexposed"}},
    {"several-codes", ".png", SeveralCodes, {"several-codes-1", "several-codes-2"}},
    {"badge", ".png", Badge, {"badge-qr", "badge-bar"}},
    {"umlaut", ".png", [] { return QrCard("umlaut"); }, {"umlaut"}},
    {"ten-characters", ".png", [] { return QrCard("ten-characters"); }, {"ten-characters"}},
    {"eleven-characters",
     ".png",
     [] { return QrCard("eleven-characters"); },
     {"eleven-characters"}},
    {"code128", ".png", [] { return Barcode("code128"); }, {"code128"}},
    {"ean13", ".png", [] { return Barcode("ean13"); }, {"ean13"}},
    {"no-code-wall", ".png", NoCodeWall, {}},
    {"no-code-text", ".png", NoCodeText, {}},
};

// What is reported of the sample: its texts, each written over the start of the one before.
std::string ExpectedText(const Sample& sample)
{
    std::string expected;
    for (const std::string& code : sample.codes) {
        const std::string text = ReadFile(rawFolder + "/" + code + ".txt");
        expected.replace(0, std::min(text.size(), expected.size()), text);
    }
    return expected;
}

void MakeSample(const Sample& sample, const std::string& outFolder)
{
    const std::string path = outFolder + "/" + sample.name;
    const std::string expected = ExpectedText(sample);
    if (!cv::imwrite(path + sample.extension, sample.make(),
                     {cv::IMWRITE_PNG_COMPRESSION, PNG_COMPRESSION, cv::IMWRITE_JPEG_QUALITY,
                      JPEG_QUALITY})) {
        throw std::runtime_error(path + sample.extension + ": cannot be written");
    }
    WriteFile(path + ".txt", expected.empty() ? "" : expected + "\n");
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: make_samples RAW_FOLDER OUT_FOLDER\n");
        return 1;
    }
    rawFolder = argv[1];
    try {
        for (const Sample& sample : SAMPLES) {
            MakeSample(sample, argv[2]);
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "make_samples: %s\n", e.what());
        return 1;
    }
    return 0;
}
