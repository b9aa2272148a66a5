// Readings under random faults of the platform: storm_test [SEED [READINGS]]. Nothing is lost but
// what the design leaves, and afterwards the service reads and reports.
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <sys/select.h>

#include "allowances.h"
#include "files.h"
#include "message.h"
#include "pictures.h"
#include "run_flags.h"
#include "scan_loop.h"
#include "sim_platform.h"
#include "socket_server.h"
#include "udp_peer.h"

extern "C" int __real_select(int n, fd_set* in, fd_set* out, fd_set* except, timeval* wait);

// A reading waits a second for a picture; here 5 ms, so that many can be missing.
extern "C" int __wrap_select(int n, fd_set* in, fd_set* out, fd_set* except, timeval* wait)
{
    timeval brief = {0, 5000};
    const bool reading = wait != nullptr && wait->tv_sec == 1 && wait->tv_usec == 0;
    return __real_select(n, in, out, except, reading ? &brief : wait);
}

namespace
{

unsigned seed = std::random_device()();
int readings = EMULATED_OR_SANITIZED ? 150 : 400;

long OpenDescriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

// Scripts for one reading each: now and then a fault of each operation, no picture, one that does
// not decode, one in several packs, one too large.
class Storm
{
public:
    SimScript Next()
    {
        SimScript script;
        script.frameMs = 0;
        for (int op = 0; op < SIM_OPS; ++op) {
            if (One(12)) {
                const auto code = static_cast<int>(0xA0000000U | (random_() & 0xFFFFFF));
                script.faults[Sim_OperationName(static_cast<SimOp>(op))].code = code;
            }
        }
        script.pictureNever = One(40);
        script.pictureNone = One(20);
        script.hasJpeg = true;
        script.jpeg = One(4) ? std::vector<uint8_t>(1 + Below(5000), 'j') : jpeg_;
        if (One(3)) {
            script.packs = {{Below(100), Below(5000), false}, {Below(100), 0, true}};
        } else if (One(20)) { // one pack whose leading bytes alone are the most that is copied
            script.packs = {{2073600, 1, false}};
        }
        return script;
    }

private:
    uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(random_() % limit); }
    bool One(uint32_t in) { return Below(in) == 0; }
    std::mt19937 random_{seed};
    const std::vector<uint8_t> jpeg_ = CameraJpeg(Sample("plain.png"));
};

class StormTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::printf("seed %u, %d readings\n", seed, readings);
        ASSERT_TRUE(panel.bound);
        ASSERT_EQ(0, NET_Socket_Server_Start());
        Qrcode_SetScanEnable(1);
        Sim_Reset();
        descriptors = OpenDescriptors();
    }
    void TearDown() override { Sim_Reset(); }

    // One reading under a script; what it prints is for other tests.
    void Pass(const SimScript& script)
    {
        Sim_SetScript(script);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        Qrcode_ScanPass(&loop);
        std::fflush(stdout);
        testing::internal::GetCapturedStdout();
        testing::internal::GetCapturedStderr();
    }

    // The text of the result that came, or nothing. (A datagram over the loopback is there at
    // once.)
    std::string Result() const
    {
        std::string datagram;
        panel.Receive(datagram, 1);
        return datagram.size() > MSG_HEAD_SIZE ? datagram.c_str() + MSG_HEAD_SIZE : "";
    }

    const UdpPeer panel{QRCODE_PEER_PORT};
    ScanLoop loop{};
    long descriptors = 0;
};

TEST_F(StormTest, NothingIsLostAndTheServiceReadsOn)
{
    const std::string text = SampleText(Sample("plain.png"));
    Storm storm;
    int reads = 0;
    bool before = false;
    for (int i = 0; i < readings && !HasFailure(); ++i) {
        SCOPED_TRACE("reading " + std::to_string(i) + " of seed " + std::to_string(seed));
        Pass(storm.Next());
        const bool read = loop.szCurrent[0] != '\0';
        EXPECT_STREQ(read ? text.c_str() : "", loop.szCurrent);
        EXPECT_EQ(read && !before ? text : "", Result());
        EXPECT_LE(OpenDescriptors(), descriptors + 1) << "but for one channel";
        before = read;
        reads += read;
    }
    EXPECT_GT(reads, readings / 20);

    // The weather is fine again. At most one reading finds an old channel and clears it away.
    SimScript fine;
    fine.frameMs = 0;
    Pass(fine);
    EXPECT_EQ(descriptors, OpenDescriptors());
    Result(); // of the picture in an old channel
    std::string error;
    ASSERT_TRUE(Sim_OpenScene(Sample("worn.png"), SIM_VIEW_MS, "", error)) << error;
    Pass(fine);
    EXPECT_EQ(SampleText(Sample("worn.png")), Result());
}

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (argc > 1) {
        seed = static_cast<unsigned>(std::strtoul(argv[1], nullptr, 10));
    }
    if (argc > 2) {
        readings = static_cast<int>(std::strtol(argv[2], nullptr, 10));
    }
    return RUN_ALL_TESTS();
}
