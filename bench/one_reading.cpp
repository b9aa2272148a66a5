// Takes readings with the service's own code over the simulated platform, for instruction counts
// and CPU times. Prints the last one's result and text.
// one_reading PICTURE: one, of a picture before the simulated camera.
// one_reading frame JPEG READINGS: as many, of a camera's finished frame.
// one_reading turns JPEG: for each line on standard input two of that frame, which prints the
//   second one's CPU time in us, its page faults and its result. The first brings back what
//   another program has driven out of the caches.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <string>
#include <sys/resource.h>

#include "capture_decode.h"
#include "message.h"
#include "process_setup.h"
#include "sim_platform.h"

namespace
{

const int LONG_VIEW_MS = 3600000;

bool ShowFrame(const std::string& path, std::string& error)
{
    SimScript script;
    script.hasJpeg = true;
    script.frameMs = 0;
    error = path + ": cannot be read";
    const bool read = Sim_ReadFile(path, script.jpeg);
    Sim_SetScript(script);
    return read;
}

int Read(char (&text)[QRCODE_TEXT_SIZE])
{
    std::fill(std::begin(text), std::end(text), '\0');
    return Qrcode_CaptureAndDecode(nullptr, text);
}

double CpuUs()
{
    struct timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

long Faults()
{
    struct rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

int TakeTurns(char (&text)[QRCODE_TEXT_SIZE])
{
    int result = 0;
    for (int byte = std::getchar(); byte != EOF; byte = std::getchar()) {
        if (byte == '\n') {
            Read(text);
            const long faults = Faults();
            const double us = CpuUs();
            result = Read(text);
            std::printf("%.1f %ld %d\n", CpuUs() - us, Faults() - faults, result);
        }
    }
    return result;
}

} // namespace

int main(int argc, char** argv)
{
    Qrcode_SetUpProcess();
    const std::string first = argc > 1 ? argv[1] : "";
    const bool frame = argc == 4 && first == "frame";
    const bool turns = argc == 3 && first == "turns";
    const long readings = frame ? std::strtol(argv[3], nullptr, 10) : 1;
    std::string error = "usage: one_reading PICTURE\n"
                        "       one_reading frame JPEG READINGS\n"
                        "       one_reading turns JPEG";
    if ((argc != 2 && !frame && !turns) || readings < 1 ||
        !(argc > 2 ? ShowFrame(argv[2], error) : Sim_OpenScene(first, LONG_VIEW_MS, "", error))) {
        std::fprintf(stderr, "one_reading: %s\n", error.c_str());
        return 2;
    }
    char text[QRCODE_TEXT_SIZE] = {};
    int result = turns ? TakeTurns(text) : 0;
    for (long i = 0; !turns && i < readings; ++i) {
        result = Read(text);
    }
    std::printf("%d %s\n", result, text);
    return 0;
}
