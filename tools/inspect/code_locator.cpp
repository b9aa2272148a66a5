#include "code_locator.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace
{

using Point = cv::Point2d;

// ---- QR codes. A corner square is a square of 3 modules in a ring of 5 in a ring of 7, seen as
// nested contours: their areas keep their ratios however the code is turned or held.

enum {
    ENLARGED = 2, // the search's picture: modules of a pixel and a half keep their gaps
    WIDE_WINDOW = 101,
    NARROW_WINDOW = 35, // pixels of it, for levels that follow the light
    WINDOW_OFFSET = 4,  // grey values below the window's mean
    MODULES_LEAST = 21, // a side of a QR code
    MODULES_MOST = 177,
    MODULES_STEP = 4,
    SQUARE_MODULES = 7,
    SQUARES_MOST = 80 // that are compared, the largest: three in three, all with all
};

const double TIMING_LEAST = 0.8;       // share of the timing pattern that makes a code of squares
const double TIMING_LEAST_LARGE = 0.7; // of three large ones, which may be bent
const double SCORE_STEP = 0.05;        // of timing, for each size further away
const double MISFIT_MOST = 0.2;        // of three large ones so blurred that there is no timing
const double MODULE_LARGE = 3.0;       // pixels
const double MODULE_ALONE = 2.0;       // pixels, of a square without others

struct CornerSquare {
    Point centre;
    double module;
    bool light;
    bool ringed; // the ring around it has its width, too: hardly anything else
};

double Length(Point vector)
{
    return std::hypot(vector.x, vector.y);
}

double Ratio(double a, double b)
{
    return a > b ? a / b : b / a;
}

// Side of the square that the contour goes around, or 0 if it is no rough square.
double SideOf(const std::vector<cv::Point>& contour, bool hole)
{
    const double leastFill = 0.85; // of its hull
    const double area = cv::contourArea(contour);
    const cv::Size2f box = cv::minAreaRect(contour).size;
    std::vector<cv::Point> hull;
    cv::convexHull(contour, hull);
    if (area < 4.0 || area < leastFill * cv::contourArea(hull) ||
        Ratio(box.width, box.height) > 3.0) {
        return 0.0;
    }
    // A contour goes through pixel centres: of the region itself, or of those around a hole.
    return std::sqrt(area) + (hole ? -1.0 : 1.0);
}

Point CentreOf(const std::vector<cv::Point>& contour)
{
    const cv::Moments moments = cv::moments(contour);
    return {moments.m10 / moments.m00, moments.m01 / moments.m00};
}

// Adds those of one black-and-white picture.
void AddCornerSquares(const cv::Mat& binary, std::vector<CornerSquare>& found)
{
    std::vector<std::vector<cv::Point>> contours;
    std::vector<cv::Vec4i> tree; // next, previous, first child, parent
    cv::findContours(binary, contours, tree, cv::RETR_TREE, cv::CHAIN_APPROX_NONE);
    const auto isHole = [&](int n) {
        bool hole = false;
        for (int up = tree[static_cast<size_t>(n)][3]; up >= 0;
             up = tree[static_cast<size_t>(up)][3]) {
            hole = !hole;
        }
        return hole;
    };
    // Once each: a ring may hold thousands of others.
    std::vector<double> areas(contours.size());
    std::vector<double> sides(contours.size(), -1.0);
    std::transform(contours.begin(), contours.end(), areas.begin(),
                   [](const std::vector<cv::Point>& contour) { return cv::contourArea(contour); });
    const auto sideOf = [&](size_t n, bool hole) {
        sides[n] = sides[n] < 0.0 ? SideOf(contours[n], hole) : sides[n];
        return sides[n];
    };
    for (size_t n = 0; n < contours.size(); ++n) {
        const int ring = tree[n][3];
        const int around = ring < 0 ? -1 : tree[static_cast<size_t>(ring)][3];
        if (around < 0) {
            continue;
        }
        const bool hole = isHole(static_cast<int>(n));
        bool solid = true; // or `n` is the ring of a square one size smaller
        for (int in = tree[n][2]; in >= 0; in = tree[static_cast<size_t>(in)][0]) {
            solid = solid && areas[static_cast<size_t>(in)] < 0.15 * areas[n];
        }
        if (!solid) {
            continue;
        }
        const double inner = sideOf(n, hole);
        const double middle = inner > 0.0 ? sideOf(static_cast<size_t>(ring), !hole) : 0.0;
        if (middle <= 0.0 || middle / inner < 1.25 || middle / inner > 2.4) {
            continue;
        }
        // Blur or a wrong level makes one side grow at the other's cost; their sum stays.
        const double module = (inner + middle) / 8.0;
        const Point centre = CentreOf(contours[n]);
        const double outer = std::sqrt(areas[static_cast<size_t>(around)]) + (hole ? -1.0 : 1.0);
        if (Length(centre - CentreOf(contours[static_cast<size_t>(ring)])) < 0.8 * module &&
            outer > middle + 0.6 * module) {
            found.push_back({centre / ENLARGED, module / ENLARGED, hole,
                             std::abs(outer / middle - 7.0 / 5.0) < 0.2});
        }
    }
}

std::vector<CornerSquare> FindCornerSquares(const cv::Mat& grey)
{
    cv::Mat enlarged;
    cv::resize(grey, enlarged, cv::Size(), ENLARGED, ENLARGED, cv::INTER_CUBIC);
    std::vector<CornerSquare> all;
    cv::Mat binary;
    cv::threshold(enlarged, binary, 0, 255, cv::THRESH_BINARY_INV | cv::THRESH_OTSU);
    AddCornerSquares(binary, all);
    for (const int window : {WIDE_WINDOW, NARROW_WINDOW}) {
        for (const int offset : {+WINDOW_OFFSET, -WINDOW_OFFSET}) {
            cv::adaptiveThreshold(enlarged, binary, 255, cv::ADAPTIVE_THRESH_MEAN_C,
                                  cv::THRESH_BINARY_INV, window, offset);
            AddCornerSquares(binary, all);
        }
    }
    std::vector<CornerSquare> distinct;
    for (const CornerSquare& square : all) {
        const auto known = [&](const CornerSquare& other) {
            return Length(square.centre - other.centre) < 3.0 * other.module &&
                   Ratio(square.module, other.module) < 1.5 && square.light == other.light;
        };
        if (std::none_of(distinct.begin(), distinct.end(), known)) {
            distinct.push_back(square);
        }
    }
    std::sort(distinct.begin(), distinct.end(),
              [](const CornerSquare& a, const CornerSquare& b) { return a.module > b.module; });
    if (distinct.size() > SQUARES_MOST) {
        distinct.resize(SQUARES_MOST);
    }
    return distinct;
}

double GreyAt(const cv::Mat& grey, Point at)
{
    const int x = std::clamp(cvRound(at.x), 0, grey.cols - 1);
    const int y = std::clamp(cvRound(at.y), 0, grey.rows - 1);
    return grey.at<uchar>(y, x);
}

// Share of the modules of the timing pattern between two corner squares that differ in the right
// sense from the mean of their neighbours. `along`, `inward`: vectors of a module.
double TimingOf(const cv::Mat& grey, Point centre, Point along, Point inward, int modules,
                bool light)
{
    int right = 0;
    int count = 0;
    for (int n = 5; n <= modules - 12; ++n) { // from the first square's centre, in its row 6
        const Point at = centre + along * n + inward * 3;
        const double around = (GreyAt(grey, at - along) + GreyAt(grey, at + along)) / 2.0;
        const bool dark = GreyAt(grey, at) < around;
        right += dark == ((n % 2 == 1) != light);
        ++count;
    }
    return static_cast<double>(right) / std::max(count, 1);
}

void SetOutline(LocatedCode& code, Point centre, Point along, Point inward)
{
    const double near = -SQUARE_MODULES / 2.0;
    const double far = code.modulesASide + near;
    code.outline[0] = centre + along * near + inward * near;
    code.outline[1] = centre + along * far + inward * near;
    code.outline[2] = centre + along * far + inward * far;
    code.outline[3] = centre + along * near + inward * far;
}

int NearestModules(double modules)
{
    const int steps = cvRound((modules - MODULES_LEAST) / MODULES_STEP);
    return std::clamp(MODULES_LEAST + MODULES_STEP * steps, static_cast<int>(MODULES_LEAST),
                      static_cast<int>(MODULES_MOST));
}

// How ill three squares suit as `corner` and its two neighbours; negative when they do not at all.
double MisfitOf(const CornerSquare& corner, const CornerSquare& a, const CornerSquare& b)
{
    const Point toA = a.centre - corner.centre;
    const Point toB = b.centre - corner.centre;
    const double module = (corner.module + a.module + b.module) / 3.0;
    const double cosine = std::abs(toA.dot(toB)) / (Length(toA) * Length(toB));
    const double legs = Ratio(Length(toA), Length(toB));
    const double sizes = std::max({corner.module, a.module, b.module}) /
                         std::min({corner.module, a.module, b.module});
    const double shortLeg = std::min(Length(toA), Length(toB));
    const double longLeg = std::max(Length(toA), Length(toB));
    if (a.light != corner.light || b.light != corner.light || cosine > 0.7 || legs > 2.4 ||
        sizes > 2.2 || shortLeg < 9.0 * module || longLeg > 200.0 * module) {
        return -1.0;
    }
    return cosine + std::log(legs) + std::log(sizes);
}

bool LocateByThree(const cv::Mat& grey, const std::vector<CornerSquare>& squares, LocatedCode& code)
{
    const CornerSquare* best[3] = {};
    double least = 0.0;
    for (const CornerSquare& corner : squares) {
        for (const CornerSquare& a : squares) {
            for (const CornerSquare& b : squares) {
                if (&a >= &b || &a == &corner || &b == &corner) {
                    continue;
                }
                const double misfit = MisfitOf(corner, a, b);
                if (misfit >= 0.0 && (best[0] == nullptr || misfit < least)) {
                    least = misfit;
                    best[0] = &corner;
                    best[1] = &a;
                    best[2] = &b;
                }
            }
        }
    }
    if (best[0] == nullptr) {
        return false;
    }
    const Point centre = best[0]->centre;
    const Point legs[2] = {best[1]->centre - centre, best[2]->centre - centre};
    const double meanLeg = (Length(legs[0]) + Length(legs[1])) / 2.0;
    const double meanModule = (best[0]->module + best[1]->module + best[2]->module) / 3.0;
    const int nearest = NearestModules(meanLeg / meanModule + SQUARE_MODULES);
    code.shape = CODE_SQUARE;
    code.cornerSquares = 3;
    code.lightOnDark = best[0]->light;
    double bestScore = -1.0;
    const int range = 2 * MODULES_STEP;
    for (int modules = nearest - range; modules <= nearest + range; modules += MODULES_STEP) {
        if (modules < MODULES_LEAST || modules > MODULES_MOST) {
            continue;
        }
        const Point along = legs[0] / (modules - SQUARE_MODULES);
        const Point inward = legs[1] / (modules - SQUARE_MODULES);
        const double timing = (TimingOf(grey, centre, along, inward, modules, code.lightOnDark) +
                               TimingOf(grey, centre, inward, along, modules, code.lightOnDark)) /
                              2.0;
        // The squares' own size tells the number, too: others must fit clearly better.
        const double score = timing - SCORE_STEP * std::abs(modules - nearest) / MODULES_STEP;
        if (score > bestScore) {
            bestScore = score;
            code.timing = timing;
            code.modulesASide = modules;
            code.modulePixels = meanLeg / (modules - SQUARE_MODULES);
            SetOutline(code, centre, along, inward);
        }
    }
    // Round letters of a text are corner squares too, with any picture between them.
    const bool ringed = best[0]->ringed && best[1]->ringed && best[2]->ringed;
    const bool regular = least < MISFIT_MOST && meanModule > MODULE_LARGE;
    if (!ringed && !regular &&
        code.timing < (code.modulePixels < MODULE_LARGE ? TIMING_LEAST : TIMING_LEAST_LARGE)) {
        code = LocatedCode();
    }
    return code.shape != CODE_NONE;
}

// Mean difference of neighbouring pixels in the part of the square that is in the picture.
double DetailIn(const cv::Mat& grey, const LocatedCode& code)
{
    double sum = 0.0;
    int count = 0;
    const Point start = code.outline[0];
    const Point along = (code.outline[1] - start) / code.modulesASide;
    const Point inward = (code.outline[3] - start) / code.modulesASide;
    const cv::Rect2d inside(1, 1, grey.cols - 2, grey.rows - 2);
    for (int v = 8; v < code.modulesASide; ++v) { // behind the row of the two squares
        for (int u = 0; u < code.modulesASide; ++u) {
            const Point at = start + along * (u + 0.5) + inward * (v + 0.5);
            if (inside.contains(at)) {
                sum += std::abs(GreyAt(grey, at) - GreyAt(grey, at + along));
                ++count;
            }
        }
    }
    return count > 0 ? sum / count : 0.0;
}

// Two squares of a row or a column: the code is on the side with more detail.
bool LocateByTwo(const cv::Mat& grey, const std::vector<CornerSquare>& squares, LocatedCode& code)
{
    double mostDetail = 0.0;
    for (const CornerSquare& a : squares) {
        for (const CornerSquare& b : squares) {
            const Point leg = b.centre - a.centre;
            const double module = (a.module + b.module) / 2.0;
            if (&a == &b || a.light != b.light || Ratio(a.module, b.module) > 1.35 ||
                Length(leg) < 12.0 * module || Length(leg) > 100.0 * module) {
                continue;
            }
            // With `a` and `b` exchanged the code is on the other side.
            LocatedCode tried;
            tried.shape = CODE_SQUARE;
            tried.cornerSquares = 2;
            tried.lightOnDark = a.light;
            tried.modulesASide = NearestModules(Length(leg) / module + SQUARE_MODULES);
            const Point along = leg / (tried.modulesASide - SQUARE_MODULES);
            const Point inward(-along.y, along.x);
            tried.modulePixels = Length(along);
            SetOutline(tried, a.centre, along, inward);
            tried.timing = TimingOf(grey, a.centre, along, inward, tried.modulesASide, a.light);
            const double detail = DetailIn(grey, tried);
            if (tried.timing >= TIMING_LEAST && detail > mostDetail) {
                mostDetail = detail;
                code = tried;
            }
        }
    }
    return mostDetail > 0.0;
}

// One square alone, the largest.
bool LocateByOne(const std::vector<CornerSquare>& squares, LocatedCode& code)
{
    for (const CornerSquare& square : squares) {
        if (square.ringed && square.module > std::max(code.modulePixels, MODULE_ALONE)) {
            code.shape = CODE_SQUARE;
            code.cornerSquares = 1;
            code.lightOnDark = square.light;
            code.modulesASide = SQUARE_MODULES;
            code.modulePixels = square.module;
            const Point along(square.module, 0.0);
            const Point inward(0.0, square.module);
            SetOutline(code, square.centre, along, inward);
        }
    }
    return code.shape != CODE_NONE;
}

// ---- Barcodes: a region whose edges all run the same way, with the same bars along its height.

enum {
    BARS_WINDOW = 21,      // pixels, in which edges are compared
    BARS_BRIDGE = 9,       // pixels; between bars and what lies beside them
    BARS_REGIONS = 8,      // that are looked at, the strongest first
    BARS_EDGES_LEAST = 18, // of any barcode worth the name
    BARS_PROFILES = 3,     // in the middle of its height
    BARS_SAMPLES_A_PIXEL = 8
};

const double BARS_COHERENCE = 0.88; // 0: edges of all directions, 1: of one
const double BARS_EDGE_LEAST = 3.0; // grey values a pixel, mean of the window
const double BARS_ALIKE = 0.7;      // correlation of profiles
const double BARS_CONTRAST = 0.10;  // of the whole, that an edge must have
const double NARROW_SHARE = 0.25;   // the narrow bars are this quantile of all bars and gaps

// Grey values along a line, the mean of three lines a pixel apart.
std::vector<float> ProfileOf(const cv::Mat& grey, Point from, Point direction, double length)
{
    const Point aside(-direction.y, direction.x);
    const int count = cvRound(length * BARS_SAMPLES_A_PIXEL);
    cv::Mat xs(3, count, CV_32FC1);
    cv::Mat ys(3, count, CV_32FC1);
    for (int row = 0; row < 3; ++row) {
        for (int i = 0; i < count; ++i) {
            const Point at = from + direction * (static_cast<double>(i) / BARS_SAMPLES_A_PIXEL) +
                             aside * (row - 1);
            xs.at<float>(row, i) = static_cast<float>(at.x);
            ys.at<float>(row, i) = static_cast<float>(at.y);
        }
    }
    cv::Mat lines;
    cv::remap(grey, lines, xs, ys, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    cv::Mat mean;
    cv::reduce(lines, mean, 0, cv::REDUCE_AVG, CV_32F);
    return {mean.begin<float>(), mean.end<float>()};
}

double Correlation(const std::vector<float>& a, const std::vector<float>& b, int shift)
{
    const int count = static_cast<int>(std::min(a.size(), b.size())) - std::abs(shift);
    const cv::Mat left(1, count, CV_32FC1, const_cast<float*>(a.data()) + std::max(shift, 0));
    const cv::Mat right(1, count, CV_32FC1, const_cast<float*>(b.data()) + std::max(-shift, 0));
    cv::Mat result;
    cv::matchTemplate(left, right, result, cv::TM_CCOEFF_NORMED);
    return result.at<float>(0, 0);
}

// Pixels between the edges of a profile, each edge half-way between a crest and a trough.
std::vector<double> EdgeGaps(const std::vector<float>& profile)
{
    const auto ends = std::minmax_element(profile.begin(), profile.end());
    const double step = BARS_CONTRAST * (*ends.second - *ends.first);
    std::vector<double> gaps;
    double lastEdge = -1.0;
    size_t extreme = 0; // of the present run
    size_t before = 0;  // of the run before
    bool rising = false;
    for (size_t i = 1; i < profile.size(); ++i) {
        const float change = profile[i] - profile[extreme];
        if (rising ? change >= 0 : change <= 0) {
            extreme = i;
        } else if (std::abs(change) > step) {
            const double middle = (profile[before] + profile[extreme]) / 2.0;
            size_t at = before;
            while (at < extreme && (profile[at] < middle) == (profile[before] < middle)) {
                ++at;
            }
            if (lastEdge >= 0.0) {
                gaps.push_back((static_cast<double>(at) - lastEdge) / BARS_SAMPLES_A_PIXEL);
            }
            lastEdge = static_cast<double>(at);
            before = extreme;
            extreme = i;
            rising = !rising;
        }
    }
    return gaps;
}

// Whether the region is a barcode; `code` and its number of edges then.
bool MeasureBars(const cv::Mat& grey, const cv::Mat& region, const cv::Mat tensor[3],
                 LocatedCode& code, size_t& edges)
{
    const double xx = cv::mean(tensor[0], region)[0];
    const double yy = cv::mean(tensor[1], region)[0];
    const double xy = cv::mean(tensor[2], region)[0];
    const double angle = std::atan2(2.0 * xy, xx - yy) / 2.0;
    const Point across(std::cos(angle), std::sin(angle)); // over the bars
    const Point along(-across.y, across.x);
    std::vector<cv::Point> pixels;
    cv::findNonZero(region, pixels);
    std::vector<double> us;
    std::vector<double> vs;
    for (const cv::Point& pixel : pixels) {
        us.push_back(across.dot(static_cast<Point>(pixel)));
        vs.push_back(along.dot(static_cast<Point>(pixel)));
    }
    const auto quantile = [](std::vector<double>& values, double share) {
        const auto at =
            values.begin() + static_cast<long>(share * static_cast<double>(values.size() - 1));
        std::nth_element(values.begin(), at, values.end());
        return *at;
    };
    const double uFirst = quantile(us, 0.01) - 3.0;
    const double uLast = quantile(us, 0.99) + 3.0;
    const double vFirst = quantile(vs, 0.02);
    const double vLast = quantile(vs, 0.98);
    if (uLast - uFirst < 30.0 || vLast - vFirst < 8.0) {
        return false;
    }
    std::vector<float> profiles[BARS_PROFILES];
    for (int i = 0; i < BARS_PROFILES; ++i) {
        const double v = vFirst + (vLast - vFirst) * (0.4 + 0.1 * i);
        profiles[i] = ProfileOf(grey, across * uFirst + along * v, across, uLast - uFirst);
    }
    double alike = 1.0;
    for (int i = 1; i < BARS_PROFILES; ++i) {
        double best = -1.0;
        for (int shift = -40; shift <= 40; ++shift) { // bars that lean a little
            best = std::max(best, Correlation(profiles[i - 1], profiles[i], shift));
        }
        alike = std::min(alike, best);
    }
    std::vector<double> gaps = EdgeGaps(profiles[BARS_PROFILES / 2]);
    edges = gaps.size() + 1;
    if (edges < BARS_EDGES_LEAST) {
        return false;
    }
    if (alike < BARS_ALIKE ||
        quantile(gaps, 0.9) < 1.5 * quantile(gaps, NARROW_SHARE)) { // stripes are all alike
        return false;
    }
    code = LocatedCode();
    code.shape = CODE_BARS;
    code.modulePixels = quantile(gaps, NARROW_SHARE);
    code.outline[0] = across * uFirst + along * vFirst;
    code.outline[1] = across * uLast + along * vFirst;
    code.outline[2] = across * uLast + along * vLast;
    code.outline[3] = across * uFirst + along * vLast;
    return true;
}

bool LocateBars(const cv::Mat& grey, LocatedCode& code)
{
    cv::Mat gx;
    cv::Mat gy;
    cv::Sobel(grey, gx, CV_32F, 1, 0, 3, 1.0 / 8.0);
    cv::Sobel(grey, gy, CV_32F, 0, 1, 3, 1.0 / 8.0);
    cv::Mat tensor[3] = {gx.mul(gx), gy.mul(gy), gx.mul(gy)};
    for (cv::Mat& part : tensor) {
        cv::boxFilter(part, part, -1, cv::Size(BARS_WINDOW, BARS_WINDOW));
    }
    const cv::Mat energy = tensor[0] + tensor[1];
    const cv::Mat difference = tensor[0] - tensor[1];
    cv::Mat oriented;
    cv::magnitude(difference, 2.0 * tensor[2], oriented);
    cv::Mat mask =
        (oriented > BARS_COHERENCE * energy) & (energy > BARS_EDGE_LEAST * BARS_EDGE_LEAST);
    cv::morphologyEx(mask, mask, cv::MORPH_OPEN, cv::Mat::ones(BARS_BRIDGE, BARS_BRIDGE, CV_8UC1));
    cv::Mat labels;
    cv::Mat stats;
    cv::Mat centres;
    const int count = cv::connectedComponentsWithStats(mask, labels, stats, centres);
    std::vector<int> order;
    for (int n = 1; n < count; ++n) {
        order.push_back(n);
    }
    const auto area = [&](int n) { return stats.at<int>(n, cv::CC_STAT_AREA); };
    std::sort(order.begin(), order.end(), [&](int a, int b) { return area(a) > area(b); });
    order.resize(std::min<size_t>(order.size(), BARS_REGIONS));
    size_t most = 0;
    for (const int n : order) {
        LocatedCode tried;
        size_t edges = 0;
        if (area(n) > BARS_WINDOW * BARS_WINDOW &&
            MeasureBars(grey, labels == n, tensor, tried, edges) && edges > most) {
            most = edges;
            code = tried;
        }
    }
    return most > 0;
}

} // namespace

LocatedCode Locate_Code(const cv::Mat& grey)
{
    LocatedCode code;
    const std::vector<CornerSquare> squares = FindCornerSquares(grey);
    if (!LocateByThree(grey, squares, code) && !LocateBars(grey, code) &&
        !LocateByTwo(grey, squares, code)) {
        LocateByOne(squares, code);
    }
    return code;
}
