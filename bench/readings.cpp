#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstring>
#include <functional>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "camera_picture.h"
#include "capture_decode.h"
#include "cascade.h"
#include "floor.h"
#include "message.h"
#include "quantile.h"
#include "service_cost.h"
#include "sim_platform.h"
#include "snap_channel.h"
#include "snap_size.h"
#include "symbol_scan.h"

namespace
{

enum { PAIRS = 301 };

struct Shot {
    std::string name; // of its measurements
    std::string file;
    std::vector<uint8_t> jpeg;
    std::vector<uint8_t> buffer; // as a reading's picture buffer
    cv::Mat grey;
};

std::array<Shot, 3> g_shots = {Shot{"attempt-1", "plain.png", {}, {}, {}},
                               Shot{"attempt-8", "overexposed.png", {}, {}, {}},
                               Shot{"empty", "no-code-wall.png", {}, {}, {}}};

// The simulated camera gives this JPEG, and is never waited for.
void Show(const Shot& shot)
{
    SimScript script;
    script.frameMs = 0;
    script.hasJpeg = true;
    script.jpeg = shot.jpeg;
    Sim_SetScript(script);
}

int ServiceReading(char* szText)
{
    return Qrcode_CaptureAndDecode(nullptr, szText);
}

double MsOf(const std::function<int(char*)>& reading)
{
    char szText[QRCODE_TEXT_SIZE] = {};
    const auto begin = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(reading(szText));
    const std::chrono::duration<double, std::milli> taken =
        std::chrono::steady_clock::now() - begin;
    return taken.count();
}

// A reading and its floor in turn, so that both see the same machine; every other pair begins with
// the floor. Then the floor's steps, watched, which are in neither figure.
void Pair(benchmark::State& state, const Shot& shot)
{
    Show(shot);
    std::vector<double> readings;
    std::vector<double> floors;
    std::vector<double> ratios;
    std::array<std::vector<double>, FLOOR_STEPS> steps;
    const auto floor = [](char* szText) { return Floor_Reading(szText, nullptr); };
    bool bFloorFirst = false;
    while (state.KeepRunning()) {
        const double firstFloor = bFloorFirst ? MsOf(floor) : 0.0;
        const double readingMs = MsOf(ServiceReading);
        const double floorMs = bFloorFirst ? firstFloor : MsOf(floor);
        bFloorFirst = !bFloorFirst;
        FloorTimes times;
        MsOf([&times](char* szText) { return Floor_Reading(szText, &times); });

        readings.push_back(readingMs);
        floors.push_back(floorMs);
        ratios.push_back(readingMs / floorMs);
        for (size_t i = 0; i < FLOOR_STEPS; ++i) {
            steps[i].push_back(times.aUs[i] / 1e3);
        }
        state.SetIterationTime(readingMs / 1e3);
    }
    state.counters["reading"] = Quantile(readings, 0.5);
    state.counters["reading_p95"] = Quantile(readings, 0.95);
    state.counters["floor"] = Quantile(floors, 0.5);
    state.counters["ratio"] = Quantile(ratios, 0.5);
    state.counters["ratio_q1"] = Quantile(ratios, 0.25);
    state.counters["ratio_q3"] = Quantile(ratios, 0.75);
    for (size_t i = 0; i < FLOOR_STEPS; ++i) {
        const std::string name = Floor_StepName(static_cast<FloorStep>(i));
        state.counters["step_" + name] = Quantile(steps[i], 0.5);
    }
}

void Step(const std::string& name, const std::function<void()>& act)
{
    benchmark::RegisterBenchmark(("step/" + name).c_str(), [act](benchmark::State& state) {
        while (state.KeepRunning()) {
            act();
        }
    })->Unit(benchmark::kMicrosecond);
}

cv::Mat Decode(const Shot& shot)
{
    const cv::Mat encoded(1, SNAP_WIDTH * SNAP_HEIGHT * 3, CV_8UC1,
                          const_cast<uint8_t*>(shot.buffer.data()));
    return cv::imdecode(encoded, cv::IMREAD_COLOR | cv::IMREAD_IGNORE_ORIENTATION);
}

// The tables that a reading makes for its mirror, where there is memory for them already.
void FillTables(cv::Mat& mapX, cv::Mat& mapY)
{
    for (int i = 0; i < mapX.rows; ++i) {
        float* pX = mapX.ptr<float>(i);
        float* pY = mapY.ptr<float>(i);
        for (int j = 0; j < mapX.cols; ++j) {
            pX[j] = static_cast<float>(mapX.cols - j);
            pY[j] = static_cast<float>(i);
        }
    }
}

void RegisterBeginning(Shot& shot)
{
    Step("snapshot", [&shot] {
        Show(shot);
        static uint8_t aPicture[MAXFRAMERINBUF];
        std::memset(aPicture, 0, sizeof(aPicture));
        FaceVenc_StartSnap();
        MediaStream stream = {};
        FaceVenc_GetStream(SNAP_VENC_CHN, &stream, SNAP_WAIT_MS);
        QrcodeVenc_CopyStreamData(&stream, aPicture);
        FaceVenc_ReleaseStream(SNAP_VENC_CHN, &stream);
        FaceVenc_DestroyChn(SNAP_VENC_CHN);
    });
    Step("decode", [&shot] { benchmark::DoNotOptimize(Decode(shot)); });
    const cv::Mat src = Decode(shot);
    cv::Mat mapX(src.size(), CV_32FC1);
    cv::Mat mapY(src.size(), CV_32FC1);
    Step("mirror-tables", [mapX, mapY]() mutable {
        FillTables(mapX, mapY);
        benchmark::ClobberMemory();
    });
    FillTables(mapX, mapY);
    Step("mirror", [src, mapX, mapY] {
        cv::Mat mirrored(src.size(), src.type());
        cv::remap(src, mirrored, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar());
        benchmark::DoNotOptimize(mirrored.data);
    });
    Step("grey", [src] {
        cv::Mat grey;
        cv::cvtColor(src, grey, cv::COLOR_RGB2GRAY, 0);
        benchmark::DoNotOptimize(grey.data);
    });
    Step("decode-mirror-grey", [&shot] {
        cv::Mat grey;
        benchmark::DoNotOptimize(Qrcode_DecodeMirrorGrey(shot.buffer.data(), grey));
    });
}

void RegisterScan(const std::string& name, const cv::Mat& picture)
{
    Step("scan-" + name, [picture] {
        char szText[QRCODE_TEXT_SIZE] = {};
        benchmark::DoNotOptimize(Qrcode_ScanImage(picture, szText));
    });
}

void RegisterCascade()
{
    const cv::Mat grey = g_shots[2].grey;
    for (int n = ATTEMPT_OTSU_INVERTED; n <= ATTEMPT_COUNT; ++n) {
        Step("prepare-" + std::to_string(n), [grey, n] {
            static cv::Mat work;
            benchmark::DoNotOptimize(Qrcode_PrepareAttempt(n, grey, work).data);
        });
    }
    Step("open", [grey] { benchmark::DoNotOptimize(Qrcode_OpenPicture(grey).data); });

    cv::Mat otsu;
    Qrcode_PrepareAttempt(ATTEMPT_OTSU_INVERTED, grey, otsu);
    cv::Mat adaptive;
    Qrcode_PrepareAttempt(ATTEMPT_ADAPTIVE, grey, adaptive);
    RegisterScan("found", g_shots[0].grey);
    RegisterScan("wall-plain", grey);
    RegisterScan("wall-plain-opened", Qrcode_OpenPicture(grey));
    RegisterScan("wall-otsu", otsu);
    RegisterScan("wall-adaptive", adaptive);
}

bool Load(Shot& shot, const std::string& samples, std::string& error)
{
    cv::Mat picture;
    if (!Sim_LoadPicture(samples + "/" + shot.file, picture, error)) {
        error = samples + "/" + shot.file + ": " + error;
        return false;
    }
    shot.jpeg = Sim_EncodeFrame(Sim_CameraFrame(picture, SNAP_WIDTH, SNAP_HEIGHT), SNAP_QUALITY);
    shot.buffer.assign(MAXFRAMERINBUF, 0);
    std::copy(shot.jpeg.begin(), shot.jpeg.end(), shot.buffer.begin());

    Show(shot);
    char szReading[QRCODE_TEXT_SIZE] = {};
    char szFloor[QRCODE_TEXT_SIZE] = {};
    const int nReading = ServiceReading(szReading);
    if (nReading < 0 || nReading != Floor_Reading(szFloor, nullptr) ||
        std::memcmp(szReading, szFloor, sizeof(szReading)) != 0) {
        error = shot.file + ": the reading and the bare calls do not find the same";
        return false;
    }
    Qrcode_DecodeMirrorGrey(shot.buffer.data(), shot.grey); // a reading has set the size by now
    int nAttempt = ATTEMPT_PLAIN;
    cv::Mat work;
    while (nAttempt <= ATTEMPT_COUNT &&
           Qrcode_ScanWithOpening(Qrcode_PrepareAttempt(nAttempt, shot.grey, work), szReading) <
               1) {
        ++nAttempt;
    }
    const std::string won =
        nAttempt > ATTEMPT_COUNT ? "empty" : "attempt-" + std::to_string(nAttempt);
    error = shot.file + ": is " + won + ", not " + shot.name;
    return won == shot.name;
}

} // namespace

bool Readings_Register(const std::string& samples, std::string& error)
{
    for (Shot& shot : g_shots) {
        if (!Load(shot, samples, error)) {
            return false;
        }
        benchmark::RegisterBenchmark(("pair/" + shot.name).c_str(),
                                     [&shot](benchmark::State& state) { Pair(state, shot); })
            ->Iterations(PAIRS)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    }
    RegisterBeginning(g_shots[0]);
    RegisterCascade();
    return true;
}
