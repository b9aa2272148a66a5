// The 32-bit service over a platform that lays its records out by byte offsets alone.
#include <gtest/gtest.h>

#include "pictures.h"
#include "service.h"

namespace
{

TEST(BytePlatformTest, ServiceReadsAStreamOfSeveralPacks)
{
    const std::vector<uint8_t> jpeg = CameraJpeg(PLAIN);
    const TempFolder folder;
    WriteAll(folder / "snap.jpg", {jpeg.begin(), jpeg.end()});

    TerminalOptions options = PlainService();
    options.environment = {"BYTE_PLATFORM_JPEG=" + (folder / "snap.jpg").string()};
    Terminal service(options);
    std::string error;
    ASSERT_TRUE(service.Start(error)) << error;
    EXPECT_EQ(SampleText(PLAIN), service.AwaitResult());
    EXPECT_TRUE(service.Service().Lines().empty())
        << "a record was refused: " << service.Service().Lines().front();
}

} // namespace
