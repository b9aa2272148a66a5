// Other readers on the same pictures as the service, as its simulated camera shows them:
// peers [--rows FILE] PICTURE_OR_FOLDER... Each reader gets the JPEG of a snapshot, decodes it,
// turns the mirrored picture the right way round and gives back the one text that it reads. Every
// reading is made in a child process that may break. Prints a table; the rows behind it go to FILE,
// tab-separated: folder, picture, reader, verdict, ms, text in hexadecimal digits, how the child
// broke.
#define ZX_USE_UTF8
#include <ZXing/ReadBarcode.h>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/objdetect.hpp>
#include <opencv2/wechat_qrcode.hpp>
#include <string>
#include <vector>

#include "capture_decode.h"
#include "cascade.h"
#include "command_line.h"
#include "expected_text.h"
#include "inspect_picture.h"
#include "inspect_worker.h"
#include "message.h"
#include "process_setup.h"
#include "quantile.h"
#include "scene_files.h"
#include "snap_channel.h"
#include "stopwatch.h"
#include "symbol_scan.h"
#include "text.h"
#include "watched_reading.h"

namespace
{

enum { TIMED_RUNS = 3 }; // of each reading, of which the median counts; behind one not timed

using Jpeg = std::vector<uint8_t>;

template <auto Scan> std::string ServiceText(const Jpeg& jpeg)
{
    std::vector<uint8_t> buffer(jpeg);
    buffer.resize(MAXFRAMERINBUF);
    cv::Mat grey;
    char text[QRCODE_TEXT_SIZE] = {};
    const bool read = Qrcode_DecodeMirrorGrey(buffer.data(), SNAP_WIDTH, SNAP_HEIGHT, grey) &&
                      Scan(grey, text) > 0;
    return read ? text : "";
}

cv::Mat RightWayRound(const Jpeg& jpeg)
{
    cv::Mat turned;
    cv::flip(cv::imdecode(jpeg, cv::IMREAD_GRAYSCALE | cv::IMREAD_IGNORE_ORIENTATION), turned, 1);
    return turned;
}

std::string ZxingCpp(const Jpeg& jpeg)
{
    const cv::Mat grey = RightWayRound(jpeg);
    // By default every format, the harder search, and turned pictures.
    const ZXing::Result result = ZXing::ReadBarcode(
        {grey.data, grey.cols, grey.rows, ZXing::ImageFormat::Lum, static_cast<int>(grey.step)});
    return result.isValid() ? result.text() : "";
}

// OpenCV has two readers of QR codes. The newer one, without the trained models that it can be
// given.
std::string OpencvWechat(const Jpeg& jpeg)
{
    static cv::wechat_qrcode::WeChatQRCode reader;
    const std::vector<std::string> texts = reader.detectAndDecode(RightWayRound(jpeg));
    return texts.empty() ? "" : texts.front();
}

// The older one's decoder is left out of Debian's build: it finds codes and cannot read them.
std::string OpencvFinder(const Jpeg& jpeg)
{
    cv::Mat corners;
    return cv::QRCodeDetector().detect(RightWayRound(jpeg), corners) ? "found" : "";
}

const struct Reader {
    const char* name;
    std::string (*read)(const Jpeg& jpeg); // bytes; empty for none
    bool onlyFinds;                        // tells by any text that there is a code, and not which
} READERS[] = {
    {"service", ServiceText<Qrcode_ScanCascade>, false},
    {"zbar once", ServiceText<Qrcode_ScanImage>, false}, // the service's first scan alone
    {"ZXing-C++", ZxingCpp, false},
    {"OpenCV WeChat", OpencvWechat, false},
    {"OpenCV finder", OpencvFinder, true}};
const size_t READER_COUNT = sizeof(READERS) / sizeof(READERS[0]);

// "found" is by a reader that only finds; "quiet" and "false" are of pictures without a code.
const char* const OUTCOMES[] = {"right", "found", "wrong", "missed", "quiet", "false", "crashed"};

const char* Judge(const Reader& reader, const ExpectedText& expected, const std::string& text)
{
    switch (Expected_Judge(expected, !text.empty(), text)) {
    case VERDICT_RIGHT:
        return "right";
    case VERDICT_WRONG:
        return expected.text.empty() ? "false" : reader.onlyFinds ? "found" : "wrong";
    case VERDICT_MISSED:
        return "missed";
    default:
        return "quiet";
    }
}

// One reader on one picture, in the child. Of the record the time and the beginning of the text are
// used as they are named; the remark is our outcome, judged by the whole text, and empty when the
// picture cannot be read.
InspectRecord ReadOne(const std::string& picture, const Reader& reader)
{
    InspectRecord record;
    Jpeg jpeg;
    std::string text;
    if (!Reading_CameraJpeg(picture, jpeg, text)) {
        return record;
    }
    text = reader.read(jpeg);
    std::vector<double> us(TIMED_RUNS);
    for (double& run : us) {
        run = Stopwatch_Us([&] { text = reader.read(jpeg); });
    }
    record.reading.ms = Quantile(us, 0.5) / 1e3;
    std::snprintf(record.reading.remark, sizeof(record.reading.remark), "%s",
                  Judge(reader, Expected_Read(picture), text));
    std::snprintf(record.reading.text, sizeof(record.reading.text), "%s", text.c_str());
    return record;
}

// Pictures with a known text, of all places.
bool List(const std::vector<std::string>& places, std::vector<std::string>& pictures,
          std::string& error)
{
    for (const std::string& place : places) {
        std::vector<std::string> found;
        if (!Sim_ListPictures(place, found, error)) {
            return false;
        }
        std::copy_if(found.begin(), found.end(), std::back_inserter(pictures),
                     [](const std::string& picture) { return Expected_Read(picture).known; });
    }
    error = "no picture with its text beside it";
    return !pictures.empty();
}

bool Measure(const std::vector<std::string>& pictures, std::ofstream& rows, std::string& error)
{
    std::map<std::string, int> counts[READER_COUNT];
    std::vector<double> ms[READER_COUNT];
    const auto work = [&](size_t n) {
        return ReadOne(pictures[n / READER_COUNT], READERS[n % READER_COUNT]);
    };
    const auto done = [&](size_t n, const InspectRecord& record, const std::string& death) {
        const WatchedReading& reading = record.reading;
        const std::filesystem::path path(pictures[n / READER_COUNT]);
        const std::string outcome = death.empty() ? reading.remark : "crashed";
        if (outcome.empty()) {
            if (n % READER_COUNT == 0) {
                std::fprintf(stderr, "peers: skipped %s: cannot be read\n", path.c_str());
            }
            return;
        }
        ++counts[n % READER_COUNT][outcome];
        if (death.empty()) {
            ms[n % READER_COUNT].push_back(reading.ms);
        }
        rows << path.parent_path().filename().string() << '\t' << path.filename().string() << '\t'
             << READERS[n % READER_COUNT].name << '\t' << outcome << '\t' << reading.ms << '\t'
             << Text_Hex(reading.text) << '\t' << death << '\n';
    };
    if (!Worker_ForEach<InspectRecord>(pictures.size() * READER_COUNT, work, done, WORKER_SECONDS,
                                       error)) {
        return false;
    }
    std::printf("%-14s", "reader");
    for (const char* outcome : OUTCOMES) {
        std::printf(" %8s", outcome);
    }
    std::printf(" %10s %10s\n", "median ms", "95 % ms");
    for (size_t i = 0; i < READER_COUNT; ++i) {
        std::printf("%-14s", READERS[i].name);
        for (const char* outcome : OUTCOMES) {
            std::printf(" %8d", counts[i][outcome]);
        }
        std::printf(" %10.2f %10.2f\n", Quantile(ms[i], 0.5), Quantile(ms[i], 0.95));
    }
    return true;
}

int Run(int argc, char** argv)
{
    std::vector<std::string> places;
    std::string rowsPath = "/dev/null";
    CLI::App app{"Reads pictures with the service's reading and with others, and compares.\n"
                 "Only pictures with their text NAME.txt beside them count.",
                 "peers"};
    app.add_option("PLACE", places, "Pictures or folders of pictures")->required();
    app.add_option("--rows", rowsPath, "File for one line a picture and reader");
    int exitStatus = 0;
    if (!CommandLine_Parse(app, argc, argv, exitStatus)) {
        return exitStatus;
    }
    Qrcode_SetUpProcess(); // for the service as it runs, and one core for everybody
    std::vector<std::string> pictures;
    std::ofstream rows(rowsPath);
    std::string error = "cannot write " + rowsPath;
    if (!rows || !List(places, pictures, error) || !Measure(pictures, rows, error)) {
        std::fprintf(stderr, "peers: %s\n", error.c_str());
        return EXIT_FAILED;
    }
    return rows.flush() ? 0 : EXIT_FAILED;
}

} // namespace

int main(int argc, char** argv)
{
    return CommandLine_Guard("peers", [&] { return Run(argc, argv); });
}
