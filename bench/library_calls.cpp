#include "library_calls.h"

#include <chrono>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <zbar.h>

#include "media_platform.h"

using In = cv::InputArray;
using Out = cv::OutputArray;
using Scanner = zbar::zbar_image_scanner_t;

namespace
{

std::vector<LibraryCall>* record = nullptr; // while recording
const CallWatch* shown = nullptr;           // while watching
CallTimes times;

using Clock = std::chrono::steady_clock;

// Adds its own life to `us`.
struct Lap {
    double& us;
    Clock::time_point begin = Clock::now();
    ~Lap() { us += std::chrono::duration<double, std::micro>(Clock::now() - begin).count(); }
};

// How the service configures a scanner: symbology, setting, value.
zbar::zbar_symbol_type_t configuredSymbology;
zbar::zbar_config_t configuredSetting;
int configuredValue = 0;

// A matrix among a call's arguments, copied for a recorded call.
cv::Mat Kept(In matrix)
{
    return record != nullptr ? matrix.getMat().clone() : matrix.getMat();
}

void Show(CallKind kind, const cv::Mat& picture)
{
    if (shown != nullptr) {
        (*shown)(kind, picture);
    }
}

// Makes a call that turns one picture into another: now, and again from a copy of the picture.
template <typename Call> auto Make(CallKind kind, In in, Out out, Call call)
{
    if (record != nullptr) {
        record->push_back({kind, 0, [call, from = Kept(in), to = cv::Mat()]() mutable {
                               call(from, to);
                               return 0;
                           }});
    }
    const Lap lap{times[kind]};
    return call(in, out);
}

} // namespace

// The linker brings the service's calls to __wrap_ and the library's own name, and keeps the
// library's function at __real_ and that name.
#define WRAP(result, name, parameters, symbol)                                                     \
    result Real##name parameters asm("__real_" symbol);                                            \
    result Wrapped##name parameters asm("__wrap_" symbol);                                         \
    result Wrapped##name parameters

WRAP(cv::Mat, Decode, (In bytes, int flags), "_ZN2cv8imdecodeERKNS_11_InputArrayEi")
{
    cv::Mat picture = Make(CALL_DECODE, bytes, cv::noArray(),
                           [=](In from, Out /*to*/) { return RealDecode(from, flags); });
    Show(CALL_DECODE, picture);
    return picture;
}

WRAP(void, Remap,
     (In in, Out out, In mapX, In mapY, int method, int border, const cv::Scalar& value),
     "_ZN2cv5remapERKNS_11_InputArrayERKNS_12_OutputArrayES2_S2_iiRKNS_7Scalar_IdEE")
{
    Make(CALL_MIRROR, in, out, [=, x = Kept(mapX), y = Kept(mapY)](In from, Out to) {
        RealRemap(from, to, x, y, method, border, value);
    });
    Show(CALL_MIRROR, out.getMat());
}

WRAP(void, Convert, (In in, Out out, int code, int channels),
     "_ZN2cv8cvtColorERKNS_11_InputArrayERKNS_12_OutputArrayEii")
{
    Make(CALL_GREY, in, out, [=](In from, Out to) { RealConvert(from, to, code, channels); });
    Show(CALL_GREY, out.getMat());
}

WRAP(double, Threshold, (In in, Out out, double level, double most, int type),
     "_ZN2cv9thresholdERKNS_11_InputArrayERKNS_12_OutputArrayEddi")
{
    const double used = Make(CALL_PREPARE, in, out, [=](In from, Out to) {
        return RealThreshold(from, to, level, most, type);
    });
    Show(CALL_PREPARE, out.getMat());
    return used;
}

WRAP(void, Adaptive, (In in, Out out, double most, int method, int type, int block, double minus),
     "_ZN2cv17adaptiveThresholdERKNS_11_InputArrayERKNS_12_OutputArrayEdiiid")
{
    Make(CALL_PREPARE, in, out,
         [=](In from, Out to) { RealAdaptive(from, to, most, method, type, block, minus); });
    Show(CALL_PREPARE, out.getMat());
}

WRAP(void, Morphology,
     (In in, Out out, int operation, In kernel, cv::Point anchor, int rounds, int border,
      const cv::Scalar& value),
     "_ZN2cv12morphologyExERKNS_11_InputArrayERKNS_12_OutputArrayEiS2_NS_6Point_IiEEiiRKNS_"
     "7Scalar_IdEE")
{
    Make(CALL_OPEN, in, out, [=, own = Kept(kernel)](In from, Out to) {
        RealMorphology(from, to, operation, own, anchor, rounds, border, value);
    });
    Show(CALL_OPEN, out.getMat());
}

WRAP(int, Configure,
     (Scanner * scanner, zbar::zbar_symbol_type_t symbology, zbar::zbar_config_t config, int value),
     "zbar_image_scanner_set_config")
{
    configuredSymbology = symbology;
    configuredSetting = config;
    configuredValue = value;
    return RealConfigure(scanner, symbology, config, value);
}

WRAP(int, Scan, (Scanner * scanner, zbar::zbar_image_t* image), "zbar_scan_image")
{
    // Made again with a new scanner each time: one that is used again scans 5 % slower.
    const auto scan = [](zbar::zbar_image_t* picture) {
        Scanner* const own = zbar::zbar_image_scanner_create();
        RealConfigure(own, configuredSymbology, configuredSetting, configuredValue);
        const int found = RealScan(own, picture);
        zbar::zbar_image_scanner_destroy(own);
        return found;
    };
    const auto rows = static_cast<int>(zbar_image_get_height(image));
    const auto cols = static_cast<int>(zbar_image_get_width(image));
    const cv::Mat handed(rows, cols, CV_8UC1, const_cast<void*>(zbar_image_get_data(image)));
    Show(CALL_SCAN, handed);
    const Lap lap{times[CALL_SCAN]};
    const int symbols = RealScan(scanner, image);
    if (record != nullptr) {
        const unsigned long size = zbar_image_get_data_length(image);
        const cv::Mat pixels = Kept(handed);
        const auto own = std::make_shared<zbar::Image>(
            zbar_image_get_width(image), zbar_image_get_height(image), "Y800", pixels.data, size);
        record->push_back({CALL_SCAN, symbols, [scan, pixels, own] { return scan(*own); }});
    }
    return symbols;
}

#define WRAP_PLATFORM(name, parameters, arguments)                                                 \
    WRAP(int, name, parameters, #name)                                                             \
    {                                                                                              \
        const Lap lap{times[CALL_PLATFORM]};                                                       \
        return Real##name arguments;                                                               \
    }
using Endpoint = MediaEndpoint;
WRAP_PLATFORM(HI_MPI_VPSS_GetChnAttr, (int g, int n, MediaVpssChnAttr* a), (g, n, a))
WRAP_PLATFORM(HI_MPI_VENC_CreateChn, (int n, const MediaVencChnAttr* a), (n, a))
WRAP_PLATFORM(HI_MPI_VENC_DestroyChn, (int n), (n))
WRAP_PLATFORM(HI_MPI_VENC_GetJpegParam, (int n, MediaJpegParam* a), (n, a))
WRAP_PLATFORM(HI_MPI_VENC_SetJpegParam, (int n, const MediaJpegParam* a), (n, a))
WRAP_PLATFORM(HI_MPI_SYS_Bind, (const Endpoint* from, const Endpoint* to), (from, to))
WRAP_PLATFORM(HI_MPI_SYS_UnBind, (const Endpoint* from, const Endpoint* to), (from, to))
WRAP_PLATFORM(HI_MPI_VENC_StartRecvFrame, (int n, const MediaRecvParam* a), (n, a))
WRAP_PLATFORM(HI_MPI_VENC_StopRecvFrame, (int n), (n))
WRAP_PLATFORM(HI_MPI_VENC_GetFd, (int n), (n))
WRAP_PLATFORM(HI_MPI_VENC_QueryStatus, (int n, MediaVencStatus* a), (n, a))
WRAP_PLATFORM(HI_MPI_VENC_GetStream, (int n, MediaStream* a, int ms), (n, a, ms))
WRAP_PLATFORM(HI_MPI_VENC_ReleaseStream, (int n, MediaStream* a), (n, a))

std::vector<LibraryCall> Calls_Record(const std::function<void()>& reading)
{
    std::vector<LibraryCall> calls;
    record = &calls;
    reading();
    record = nullptr;
    return calls;
}

void Calls_Watch(const std::function<void()>& reading, const CallWatch& watch)
{
    shown = &watch;
    reading();
    shown = nullptr;
}

const char* Calls_KindName(CallKind kind)
{
    static const char* const NAMES[CALL_KINDS] = {
        "decode", "mirror", "grey", "prepare", "open", "scan", "simulated platform"};
    return NAMES[kind];
}

CallTimes Calls_Time(const std::function<void()>& reading)
{
    times = {};
    reading();
    return times;
}
