// What the process's settings are for, measured on readings.
#include "process_setup.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "allowances.h"
#include "capture_decode.h"
#include "files.h"
#include "message.h"
#include "sim_platform.h"

namespace
{

enum { READINGS = 10 };

long PageFaults()
{
    struct rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

void TakeReadings()
{
    for (int i = 0; i < READINGS; ++i) {
        char text[QRCODE_TEXT_SIZE] = {};
        EXPECT_EQ(0, Qrcode_CaptureAndDecode(nullptr, text));
    }
}

TEST(ProcessSetupTest, SteadyReadingFaultsInNoPages)
{
    std::string error;
    ASSERT_TRUE(Sim_OpenScene(Sample("no-code-wall.png"), 3600000, "", error)) << error;
    Qrcode_SetUpProcess();
    TakeReadings();
    const long before = PageFaults();
    TakeReadings();
    if (!EMULATED_OR_SANITIZED) { // else the faults are mostly the tool's
        EXPECT_LT(PageFaults() - before, 10 * READINGS)
            << "some 280 a reading when all is given back";
    }
    Sim_Reset();
}

} // namespace
