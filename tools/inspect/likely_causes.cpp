#include "likely_causes.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace
{

using Point = cv::Point2d;

// What is usually still read; docs/reading-a-sheet.md has the measurements.
const double MODULE_LEAST = 2.5;        // pixels of a QR code
const double BAR_LEAST = 1.6;           // pixels of a narrow bar
const double BLUR_MOST = 0.65;          // sigma in modules
const double BAR_BLUR_MOST = 1.1;       // sigma in pixels
const double CONTRAST_LEAST = 40.0;     // grey values, in the noise of a camera
const double GLARE_MOST = 3.0;          // radius in modules
const double BAR_GLARE_MOST = 8.0;      // in narrow bars
const double BAR_EDGE = 2.0;            // pixels from the picture's edge
const double CUT_MOST = 0.5;            // modules
const double BENT_MOST = 1.5;           // modules
const double TIMING_LEAST = 0.8;        // share in place
const double TIMING_MODULE_LEAST = 3.0; // pixels; of smaller modules it says nothing
const double VIEW_BLUR_MOST = 2.5;      // sigma in pixels of a view's sharper edges
const double SHARPER = 0.2;             // the quantile that these are
const size_t VIEW_TILES_LEAST = 20;
const int VIEW_TILE = 24;              // pixels
const double GLARE_MOST_ON_GREY = 1.5; // modules or narrow bars, where paper is no white itself
const double GLARE_UNFIT = 1.7;        // times more, where white paper may be inside the outline
const double PAPER_MOST = 235.0;       // grey values of such paper
const double SATURATED = 250.0;        // grey values of glare
const double DARK = 40.0;
const double BRIGHT = 220.0;
const double FLAT = 25.0;

// Weight of what has no limit to be beyond: before the light excesses, or before most, or all.
const double WEIGHT_SLIGHT = 1.2;
const double WEIGHT_HEAVY = 2.0;
const double WEIGHT_SPOILT = 10.0;

const double TILE_MODULES = 8.0;
const int TILE_LEAST = 12; // pixels

const double DEGREES = 180.0 / CV_PI;

double Length(Point vector)
{
    return std::hypot(vector.x, vector.y);
}

struct CauseEntry {
    const char* name;
    const char* unit;
    const char* anchor;
};

const char TABLE[] = "nothing-is-read-symptom-cause-remedy";

// By CauseKind.
const CauseEntry ENTRIES[] = {
    {"cut off", "modules", "cut-off"},
    {"glare", "modules", "glare"},
    {"too small", "pixels a module", "too-small"},
    {"blur", "modules", "blurred"},
    {"faint", "grey values", "faint"},
    {"light on dark", "grey values", "inverted"},
    {"aslant or bent", "modules", "curved"},
    {"turned", "degrees", "a-barcode-turned"},
    {"off the grid", "percent", "curved"},
    {"corner square missing", "corner squares", TABLE},
    {"dark", "grey value", TABLE},
    {"bright", "grey value", TABLE},
    {"blurred view", "pixels", "blurred"},
    {"one grey", "grey values", TABLE},
    {"no code located", "grey values", TABLE},
    {"not explained", "pixels a module", TABLE},
};
static_assert(sizeof(ENTRIES) / sizeof(ENTRIES[0]) == CAUSE_KINDS, "one entry for each kind");

struct Weighed {
    LikelyCause cause;
    double weight; // how far beyond what is read, 1 at the limit
};

__attribute__((format(printf, 5, 6))) void Add(std::vector<Weighed>& all, CauseKind kind,
                                               double value, double weight, const char* format, ...)
{
    if (weight < 1.0) {
        return;
    }
    Weighed weighed;
    weighed.cause.kind = kind;
    weighed.cause.value = value;
    weighed.weight = weight;
    va_list args;
    va_start(args, format);
    std::vsnprintf(weighed.cause.sentence, sizeof(weighed.cause.sentence), format, args);
    va_end(args);
    all.push_back(weighed);
}

// Grey value below which this share of the pixels is.
double Quantile(const cv::Mat& grey, double share)
{
    std::vector<uchar> pixels(grey.begin<uchar>(), grey.end<uchar>());
    if (pixels.empty()) {
        return 0.0;
    }
    const auto at =
        pixels.begin() + static_cast<long>(share * static_cast<double>(pixels.size() - 1));
    std::nth_element(pixels.begin(), at, pixels.end());
    return *at;
}

struct Measures {
    double contrast = 0.0; // grey values between dark and light, where the code has both
    double sigma = 0.0;    // of the blur, pixels
    double glare = 0.0;    // radius of the largest white disc on the code, pixels
    double dark = 0.0;     // grey values
    double light = 0.0;
};

cv::Mat MaskOf(const LocatedCode& code, cv::Size size)
{
    cv::Mat mask = cv::Mat::zeros(size, CV_8UC1);
    std::vector<cv::Point> corners;
    for (const Point& corner : code.outline) {
        corners.emplace_back(cvRound(corner.x), cvRound(corner.y));
    }
    cv::fillConvexPoly(mask, corners, cv::Scalar(255));
    return mask;
}

// In tiles, so that uneven light does not count as contrast.
struct Tile {
    double dark; // grey values
    double light;
    double sigma; // of the blur, pixels
};

// Those wholly inside the mask.
std::vector<Tile> TilesOf(const cv::Mat& grey, const cv::Mat& mask, int side)
{
    const cv::Matx13f difference(-0.5F, 0.0F, 0.5F);
    cv::Mat gx;
    cv::Mat gy;
    cv::Mat slope; // grey values a pixel
    cv::filter2D(grey, gx, CV_32F, difference);
    cv::filter2D(grey, gy, CV_32F, difference.t());
    cv::magnitude(gx, gy, slope);
    std::vector<Tile> tiles;
    for (int y = 0; y + side <= grey.rows; y += side / 2) {
        for (int x = 0; x + side <= grey.cols; x += side / 2) {
            const cv::Rect place(x, y, side, side);
            if (cv::countNonZero(mask(place)) < side * side) {
                continue;
            }
            double steepest = 0.0;
            cv::minMaxLoc(slope(place), nullptr, &steepest);
            Tile tile = {Quantile(grey(place), 0.05), Quantile(grey(place), 0.95), 0.0};
            // A step blurred by sigma is steepest in its middle; the pixels, and the difference of
            // two that are two apart, blur it a little more.
            const double spread = (Quantile(grey(place), 0.98) - Quantile(grey(place), 0.02)) /
                                  (steepest * std::sqrt(2.0 * CV_PI));
            // Stripes of a pixel have no such step, and are not blurred.
            tile.sigma =
                steepest < 1.0 ? 0.0 : std::sqrt(std::max(0.0, spread * spread - 5.0 / 12.0));
            tiles.push_back(tile);
        }
    }
    return tiles;
}

template <typename Field>
double QuantileOf(const std::vector<Tile>& tiles, Field field, double share = 0.5)
{
    std::vector<double> values(tiles.size());
    std::transform(tiles.begin(), tiles.end(), values.begin(), field);
    if (values.empty()) {
        return 0.0;
    }
    const auto at =
        values.begin() + static_cast<long>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

// All that the mask shows as one tile, of no measured blur.
Tile TileOf(const cv::Mat& grey, const cv::Mat& mask)
{
    std::vector<uchar> values;
    for (int y = 0; y < grey.rows; ++y) {
        for (int x = 0; x < grey.cols; ++x) {
            if (mask.at<uchar>(y, x) != 0) {
                values.push_back(grey.at<uchar>(y, x));
            }
        }
    }
    if (values.empty()) {
        return {};
    }
    const cv::Mat pixels(1, static_cast<int>(values.size()), CV_8UC1, values.data());
    return {Quantile(pixels, 0.05), Quantile(pixels, 0.95), 0.0};
}

Measures Measure(const cv::Mat& grey, const LocatedCode& code)
{
    const cv::Mat mask = MaskOf(code, grey.size());
    std::vector<Tile> tiles =
        TilesOf(grey, mask, std::max(TILE_LEAST, cvRound(TILE_MODULES * code.modulePixels)));
    if (tiles.empty()) { // as of one corner square alone
        tiles.push_back(TileOf(grey, mask));
    }
    Measures measures;
    measures.dark = QuantileOf(tiles, [](const Tile& tile) { return tile.dark; });
    measures.light = QuantileOf(tiles, [](const Tile& tile) { return tile.light; });
    measures.contrast = QuantileOf(tiles, [](const Tile& tile) { return tile.light - tile.dark; });
    measures.sigma = QuantileOf(tiles, [](const Tile& tile) { return tile.sigma; });
    cv::Mat distance;
    cv::distanceTransform((grey >= SATURATED) & mask, distance, cv::DIST_L2, cv::DIST_MASK_PRECISE);
    cv::minMaxLoc(distance, nullptr, &measures.glare);
    return measures;
}

// The blur of a QR code, sigma in modules, from how little the light ring in a corner square stands
// out from the dark one around it, against the dark middle; 0 when they are as in a sharp picture.
double SquareBlurOf(const cv::Mat& grey, const LocatedCode& code)
{
    const Point along = (code.outline[1] - code.outline[0]) / code.modulesASide;
    const Point inward = (code.outline[3] - code.outline[0]) / code.modulesASide;
    const double far = code.modulesASide - 3.5;
    const struct {
        Point centre;
        Point outwards[2]; // to the sides where nothing is printed
    } squares[] = {{(along + inward) * 3.5, {-along, -inward}},
                   {along * far + inward * 3.5, {along, -inward}},
                   {along * 3.5 + inward * far, {-along, inward}}};
    double light = 0.0; // sums of light ring, dark ring and middle
    double ring = 0.0;
    double middle = 0.0;
    const auto greyAt = [&](Point at) {
        cv::Mat pixel;
        cv::getRectSubPix(grey, cv::Size(1, 1), at, pixel);
        return static_cast<double>(pixel.at<uchar>(0, 0));
    };
    for (int n = 0; n < code.cornerSquares; ++n) {
        const Point centre = code.outline[0] + squares[n].centre - Point(0.5, 0.5);
        for (const Point& outward : squares[n].outwards) {
            // The extremes near their places: the square may be held aslant.
            const double sign = code.lightOnDark ? -1.0 : 1.0;
            double crest = sign * greyAt(centre + outward);
            double trough = crest;
            for (int tenths = 10, crestAt = 10; tenths < crestAt + 16 && tenths < 45; ++tenths) {
                const double value = sign * greyAt(centre + outward * (tenths / 10.0));
                if (value > crest && tenths < 30) {
                    crest = value;
                    crestAt = tenths;
                    trough = crest;
                }
                trough = std::min(trough, value);
            }
            light += crest;
            ring += trough;
            middle += sign * greyAt(centre);
        }
    }
    const double measured = (light - ring) / (light - middle);
    // The same of a blurred drawing: squares of 7, 5 and 3 modules in one another.
    const auto darkness = [](double x, double sigma) {
        double dark = 0.0;
        for (const double side : {7.0, -5.0, 3.0}) {
            const auto half = [&](double at) {
                return (std::erf((std::abs(side) / 2.0 - at) / (sigma * std::sqrt(2.0))) +
                        std::erf((std::abs(side) / 2.0 + at) / (sigma * std::sqrt(2.0)))) /
                       2.0;
            };
            dark += std::copysign(half(x) * half(0.0), side);
        }
        return dark;
    };
    double sigma = 0.0;
    for (int hundredths = 20; hundredths < 120; hundredths += 2) {
        const double tried = hundredths / 100.0;
        const double gap = darkness(2.0, tried);
        if ((darkness(3.0, tried) - gap) / (darkness(0.0, tried) - gap) < measured) {
            break;
        }
        sigma = tried;
    }
    return sigma;
}

struct Cut {
    bool is = false;
    double modules = 0.0; // at least so many are outside the picture, as far as it can be told
};

// Of a code with one corner square: print runs up to a side of the picture.
Cut CutBesideOne(const cv::Mat& grey, const LocatedCode& code)
{
    const double least = 17.5; // modules from a corner square's centre to the code's far end
    const double most = 40.0;  // that are looked for
    const double share = 0.15; // of the strip along that side, dark and light
    const double module = code.modulePixels;
    const Point centre = (code.outline[0] + code.outline[2]) / 2.0;
    const cv::Rect all(0, 0, grey.cols, grey.rows);
    const cv::Rect own = cv::Rect2d(code.outline[0], code.outline[2]);
    const double level = cv::mean(grey(own & all))[0];
    const int deep = std::max(2, cvRound(2.0 * module));
    const int reach = cvRound(least * module);
    const int x = cvRound(centre.x);
    const int y = cvRound(centre.y);
    const int first = 2; // the mirrored picture's first column is black
    const struct {
        double distance;
        cv::Rect strip;
    } sides[] = {{centre.x, {first, y - reach, deep, 2 * reach}},
                 {grey.cols - centre.x, {grey.cols - deep, y - reach, deep, 2 * reach}},
                 {centre.y, {x - reach, 0, 2 * reach, deep}},
                 {grey.rows - centre.y, {x - reach, grey.rows - deep, 2 * reach, deep}}};
    Cut cut;
    for (const auto& side : sides) {
        const cv::Mat strip = grey(side.strip & all);
        const double dark = cv::countNonZero(strip < level) / static_cast<double>(strip.total());
        if (side.distance < most * module && dark > share && dark < 1.0 - share) {
            cut.is = true;
            cut.modules = std::max(cut.modules, least - side.distance / module);
        }
    }
    return cut;
}

Cut CutOf(const cv::Mat& grey, const LocatedCode& code)
{
    if (code.cornerSquares == 1) {
        return CutBesideOne(grey, code);
    }
    Point points[4];
    std::copy(code.outline, code.outline + 4, points);
    if (code.shape == CODE_BARS) { // its height does not matter
        points[0] = points[3] = (code.outline[0] + code.outline[3]) / 2;
        points[1] = points[2] = (code.outline[1] + code.outline[2]) / 2;
    }
    double most = -1e9; // pixels
    for (const Point& point : points) {
        most = std::max({most, -point.x, -point.y, point.x - grey.cols, point.y - grey.rows});
    }
    Cut cut;
    cut.modules = std::max(0.0, most / code.modulePixels);
    // Bars are located as far as they are in the picture.
    cut.is = code.shape == CODE_BARS ? most > -BAR_EDGE : cut.modules > CUT_MOST;
    return cut;
}

// Modules between the place of the last corner's small square, by the three corner squares, and
// where the picture looks most like one; negative when there is none, or nothing like it.
double BendOf(const cv::Mat& grey, const LocatedCode& code)
{
    const int scale = 4;         // pixels a module of the straightened corner
    const double middle = 6.5;   // modules from the code's end to the small square's centre
    const int around = 5;        // modules, searched and drawn
    const double likeness = 0.8; // correlation
    if (code.cornerSquares < 3 || code.modulesASide < 25) { // smaller ones have none
        return -1.0;
    }
    cv::Mat small(5 * scale, 5 * scale, CV_8UC1, cv::Scalar(0));
    cv::rectangle(small, cv::Rect(scale, scale, 3 * scale, 3 * scale), cv::Scalar(255), cv::FILLED);
    small(cv::Rect(2 * scale, 2 * scale, scale, scale)) = 0;
    if (code.lightOnDark) {
        small = ~small;
    }
    const int side = (2 * around + 5) * scale;
    const Point along = (code.outline[1] - code.outline[0]) / code.modulesASide;
    const Point inward = (code.outline[3] - code.outline[0]) / code.modulesASide;
    const Point start =
        code.outline[0] + (along + inward) * (code.modulesASide - middle - around - 2.5);
    const cv::Matx23d toPicture(along.x / scale, inward.x / scale, start.x, along.y / scale,
                                inward.y / scale, start.y);
    cv::Mat corner;
    cv::warpAffine(grey, corner, toPicture, cv::Size(side, side),
                   cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_REPLICATE);
    cv::Mat alike;
    cv::matchTemplate(corner, small, alike, cv::TM_CCOEFF_NORMED);
    double best = 0.0;
    cv::Point at;
    cv::minMaxLoc(alike, nullptr, &best, nullptr, &at);
    return best < likeness ? -1.0 : Length(static_cast<Point>(at) / scale - Point(around, around));
}

void WeighCode(const cv::Mat& grey, const LocatedCode& code, std::vector<Weighed>& all)
{
    const bool square = code.shape == CODE_SQUARE;
    const Measures found = Measure(grey, code);
    const double module = code.modulePixels;
    const Cut cut = CutOf(grey, code);
    if (cut.is && square && cut.modules > 0.0) {
        Add(all, CAUSE_CUT, cut.modules, WEIGHT_SPOILT,
            "cut off: %.1f modules of the code or more are outside the picture", cut.modules);
    } else if (cut.is) {
        Add(all, CAUSE_CUT, 0.0, square ? WEIGHT_SPOILT : WEIGHT_SLIGHT,
            "cut off: the code runs up to the edge of the picture");
    }
    const double least = square ? MODULE_LEAST : BAR_LEAST;
    Add(all, CAUSE_SMALL, module, least / module,
        square ? "too small: %.1f pixels a module, below %.1f it is chance"
               : "too small: narrow bars of %.1f pixels, below %.1f it is chance",
        module, least);
    const double blur = square ? SquareBlurOf(grey, code) : found.sigma;
    Add(all, CAUSE_BLUR, blur, blur / (square ? BLUR_MOST : BAR_BLUR_MOST),
        square ? "blurred: by %.2f module (sigma), more than %.2f is not read"
               : "blurred: by %.1f pixels (sigma), more than %.1f is not read",
        blur, square ? BLUR_MOST : BAR_BLUR_MOST);
    Add(all, CAUSE_FAINT, found.contrast,
        found.contrast > 0.0 ? CONTRAST_LEAST / found.contrast : 0.0, // 0: too small to measure
        "faint: print and ground differ by %.0f grey values of 255", found.contrast);
    const double glare = found.glare / module;
    const bool fits = !square || code.timing >= TIMING_LEAST;
    const double glareMost = found.light < PAPER_MOST ? GLARE_MOST_ON_GREY
                             : square                 ? GLARE_MOST
                                                      : BAR_GLARE_MOST;
    Add(all, CAUSE_GLARE, glare, glare / (fits ? glareMost : GLARE_UNFIT * glareMost),
        "glare: a white blot of radius %.1f modules on the code", glare);
    if (!square) {
        // The scanner looks along rows and columns only: one must cross all bars.
        const Point over = code.outline[1] - code.outline[0];
        const double height = Length(code.outline[3] - code.outline[0]);
        const double lean = std::atan2(std::min(std::abs(over.x), std::abs(over.y)),
                                       std::max(std::abs(over.x), std::abs(over.y)));
        Add(all, CAUSE_TURNED, lean * DEGREES, Length(over) * std::tan(lean) / height,
            "turned: by %.0f degrees no row or column crosses all bars, up to %.0f one does",
            lean * DEGREES, std::atan2(height, Length(over)) * DEGREES);
    }
    if (code.lightOnDark) {
        Add(all, CAUSE_INVERTED, found.light - found.dark, WEIGHT_SLIGHT,
            "light code on dark (%.0f on %.0f): only attempt 2 can read it", found.light,
            found.dark);
    }
    if (square && code.cornerSquares < 3) {
        Add(all, CAUSE_CORNER, code.cornerSquares, WEIGHT_HEAVY,
            "corner squares are missing: %d of 3 are located", code.cornerSquares);
    }
    const double bend = BendOf(grey, code);
    Add(all, CAUSE_BENT, bend, bend / BENT_MOST,
        "aslant or bent: the last corner is %.1f modules off its place", bend);
    if (code.cornerSquares == 3 && bend < 0.0 && module > TIMING_MODULE_LEAST &&
        blur < BLUR_MOST) { // else it tells nothing
        Add(all, CAUSE_OFF_GRID, 100.0 * code.timing, TIMING_LEAST / code.timing,
            "aslant or bent: only %.0f %% of the timing patterns' modules are in their places",
            100.0 * code.timing);
    }
    if (all.empty()) {
        Add(all, CAUSE_UNEXPLAINED, module, 1.0,
            "a code is located (%.1f pixels a module, contrast %.0f), and nothing measured "
            "explains it",
            module, found.contrast);
    }
}

void WeighView(const cv::Mat& grey, std::vector<Weighed>& all)
{
    const double low = Quantile(grey, 0.02);
    const double high = Quantile(grey, 0.98);
    Add(all, CAUSE_FLAT, high - low, high - low < FLAT ? WEIGHT_SPOILT : 0.0,
        "no code located: all of the view is one grey (%.0f to %.0f)", low, high);
    Add(all, CAUSE_DARK, high, high < DARK ? WEIGHT_SPOILT : 0.0,
        "no code located: the view is dark (grey values up to %.0f)", high);
    Add(all, CAUSE_BRIGHT, low, low > BRIGHT ? WEIGHT_SPOILT : 0.0,
        "no code located: the view is too bright (grey values from %.0f)", low);
    std::vector<Tile> tiles =
        TilesOf(grey, cv::Mat(grey.size(), CV_8UC1, cv::Scalar(255)), VIEW_TILE);
    tiles.erase(
        std::remove_if(tiles.begin(), tiles.end(),
                       [](const Tile& tile) { return tile.light - tile.dark < CONTRAST_LEAST; }),
        tiles.end());
    const double sigma = QuantileOf(
        tiles, [](const Tile& tile) { return tile.sigma; }, SHARPER);
    Add(all, CAUSE_BLURRED_VIEW, sigma,
        tiles.size() < VIEW_TILES_LEAST ? 0.0 : sigma / VIEW_BLUR_MOST,
        "no code located: the whole view is blurred, by %.1f pixels (sigma) or more", sigma);
    if (all.empty()) {
        Add(all, CAUSE_NOT_LOCATED, high - low, 1.0,
            "no code located: neither corner squares nor bars (grey values %.0f to %.0f)", low,
            high);
    }
}

} // namespace

LikelyCauses Causes_Find(const cv::Mat& grey)
{
    LikelyCauses result;
    result.code = Locate_Code(grey);
    std::vector<Weighed> all;
    if (result.code.shape == CODE_NONE) {
        WeighView(grey, all);
    } else {
        WeighCode(grey, result.code, all);
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const Weighed& a, const Weighed& b) { return a.weight > b.weight; });
    for (const Weighed& weighed : all) {
        if (result.count < CAUSES_MOST) {
            result.causes[result.count++] = weighed.cause;
        }
    }
    return result;
}

const char* Causes_Name(CauseKind kind)
{
    return ENTRIES[kind].name;
}

const char* Causes_Unit(CauseKind kind, CodeShape shape)
{
    return kind == CAUSE_BLUR && shape == CODE_BARS ? "pixels" : ENTRIES[kind].unit;
}

const char* Causes_Anchor(CauseKind kind)
{
    return ENTRIES[kind].anchor;
}
