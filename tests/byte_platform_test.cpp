// The 32-bit service over a platform that lays its records out by byte offsets alone.
#include <gtest/gtest.h>

#include "camera_picture.h"
#include "files.h"
#include "program.h"
#include "service_peer.h"
#include "udp_peer.h"

namespace
{

TEST(BytePlatformTest, ServiceReadsAStreamOfSeveralPacks)
{
    cv::Mat picture;
    std::string error;
    ASSERT_TRUE(Sim_LoadPicture(SAMPLES_DIR "/plain.png", picture, error)) << error;
    const std::vector<uint8_t> jpeg = Sim_EncodeFrame(Sim_CameraFrame(picture, 400, 400), 99);
    const TempFolder folder;
    WriteAll(folder / "snap.jpg", {jpeg.begin(), jpeg.end()});

    const UdpPeer peer(QRCODE_PEER_PORT);
    Program service(Emulated({SERVICE}), {"BYTE_PLATFORM_JPEG=" + (folder / "snap.jpg").string()});
    std::string frame;
    ASSERT_TRUE(peer.Receive(frame)) << "hello";
    peer.SendTo(ServiceAddress(), Mode(1));
    peer.SendTo(ServiceAddress(), Command(MSG_CMD_QRCODE_ENABLE));
    ASSERT_TRUE(peer.Receive(frame));
    EXPECT_EQ(SampleText(SAMPLES_DIR "/plain.png"), frame.c_str() + MSG_HEAD_SIZE);
    std::string line;
    EXPECT_FALSE(service.Line(line, 500)) << "no record was refused: " << line;
}

} // namespace
