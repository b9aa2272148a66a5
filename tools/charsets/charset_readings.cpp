// charset_readings: what the service makes of codes in several character sets.
#include <cmath>
#include <iostream>
#include <sstream>
#include <vector>

#include "card_drawing.h"
#include "charsets.h"
#include "command_line.h"
#include "message.h"
#include "process_setup.h"
#include "scan_watch.h"
#include "symbol_scan.h"
#include "text.h"

namespace
{

const char ABOUT[] =
    "Reads charset_codes' codes on standard input with the service's own scan and prints, a line "
    "for each kind,\nhow many texts were right, wrong and not read: KIND<TAB>RIGHT<TAB>WRONG<TAB>"
    "NOT READ.\nEnds with 1 when the input is none of those, 2 on wrong usage.";

enum { VIEW_SIDE = 400 }; // pixels, as the terminal's camera has

struct Count {
    std::string kind;
    int right = 0;
    int wrong = 0;
    int unread = 0;
};

// The code of these modules as large as it gets in the middle of a view.
cv::Mat View(const std::string& modules)
{
    const int side = cvRound(std::sqrt(static_cast<double>(modules.size())));
    if (side == 0 || static_cast<size_t>(side) * static_cast<size_t>(side) != modules.size()) {
        return {};
    }
    cv::Mat raw(side, side, CV_8U);
    for (int i = 0; i < side * side; ++i) {
        raw.at<uint8_t>(i / side, i % side) = modules[static_cast<size_t>(i)] == '1' ? 0 : 255;
    }
    const cv::Mat print =
        Draw_Print(raw, VIEW_SIDE / (side + 2 * DRAW_QUIET), DRAW_INK, DRAW_PAPER);
    const int margin = (VIEW_SIDE - print.cols) / 2;
    cv::Mat view(VIEW_SIDE, VIEW_SIDE, CV_8U, cv::Scalar(DRAW_PAPER));
    print.copyTo(view(cv::Rect(margin, margin, print.cols, print.rows)));
    return view;
}

// The QR code's own text: what bars are taken for beside it, false digits, is another matter.
// Returns false when there is none.
bool ReadCode(const cv::Mat& view, std::string& text)
{
    char ignored[QRCODE_TEXT_SIZE] = {};
    Watch_Begin();
    Qrcode_ScanWithOpening(view, ignored);
    for (const WatchedScan& scan : Watch_Scans()) {
        for (const WatchedSymbol& symbol : scan.symbols) {
            if (symbol.symbology == "QR-Code") {
                text = symbol.text;
                return true;
            }
        }
    }
    return false;
}

// Counts the code of a line. Returns false when it is none.
bool ReadOne(const std::string& line, bool shows, std::vector<Count>& counts)
{
    std::istringstream in(line);
    std::string kind;
    std::string hex;
    std::string modules;
    std::getline(in, kind, '\t');
    std::getline(in, hex, '\t');
    std::getline(in, modules);
    const cv::Mat view = View(modules);
    if (view.empty()) {
        return false;
    }
    if (counts.empty() || counts.back().kind != kind) {
        counts.push_back({kind});
    }
    std::string text;
    const bool read = ReadCode(view, text);
    const bool right = read && Text_Hex(text) == hex;
    counts.back().unread += !read;
    counts.back().right += right;
    counts.back().wrong += read && !right;
    if (read && !right && shows) {
        std::fprintf(stderr, "%s: %s came as %s\n", kind.c_str(), hex.c_str(),
                     Text_Shown(text).c_str());
    }
    return true;
}

int Run(int argc, char** argv)
{
    std::string list = CHARSETS_ALL;
    bool shows = false;
    CLI::App app(ABOUT, "charset_readings");
    app.add_option("--charsets", list, "The character sets that the C library has (all)")
        ->type_name("LIST")
        ->check(Charsets_Check);
    app.add_flag("--show", shows, "Print every wrong text on standard error");
    int exitStatus = 0;
    if (!CommandLine_Parse(app, argc, argv, exitStatus)) {
        return exitStatus;
    }
    std::string error;
    if (!Charsets_Use(list, error)) {
        std::fprintf(stderr, "charset_readings: %s\n", error.c_str());
        return EXIT_FAILED;
    }
    Qrcode_SetUpProcess();
    std::vector<Count> counts;
    for (std::string line; std::getline(std::cin, line);) {
        if (!ReadOne(line, shows, counts)) {
            std::fputs("charset_readings: standard input is not charset_codes' output\n", stderr);
            return EXIT_FAILED;
        }
    }
    for (const Count& count : counts) {
        std::printf("%s\t%d\t%d\t%d\n", count.kind.c_str(), count.right, count.wrong, count.unread);
    }
    return counts.empty() ? EXIT_FAILED : 0;
}

} // namespace

int main(int argc, char** argv)
{
    return CommandLine_Guard("charset_readings", [&] { return Run(argc, argv); });
}
