// Thousands of readings under random faults of the platform: storm_test [SEED [READINGS]]. Each
// fault is told exactly as often as it happens, nothing is lost but what the design leaves, and
// afterwards the service reads and reports.
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <sstream>
#include <sys/select.h>
#include <unistd.h>

#include "allowances.h"
#include "camera_picture.h"
#include "files.h"
#include "message.h"
#include "run_flags.h"
#include "scan_loop.h"
#include "sim_platform.h"
#include "socket_server.h"
#include "udp_peer.h"

extern "C" int __real_select(int n, fd_set* in, fd_set* out, fd_set* except, timeval* wait);
extern "C" int __wrap_select(int n, fd_set* in, fd_set* out, fd_set* except, timeval* wait);

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
int readings = EMULATED_OR_SANITIZED ? 200 : 1000;

using Lines = std::map<std::string, int>;

// Sends standard output and error to a file while it lives.
class Captured
{
public:
    explicit Captured(const std::filesystem::path& path) : path_(path)
    {
        Flush();
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
        for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
            saved_[fd - 1] = dup(fd);
            dup2(file, fd);
        }
        close(file);
    }
    Captured(const Captured&) = delete;
    Captured& operator=(const Captured&) = delete;
    ~Captured()
    {
        Flush();
        for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
            dup2(saved_[fd - 1], fd);
            close(saved_[fd - 1]);
        }
    }
    // zbar's own warnings aside, which go on in a line that begins with a tab.
    Lines Take() const
    {
        Flush();
        Lines lines;
        std::istringstream all(ReadAll(path_));
        for (std::string line; std::getline(all, line);) {
            if (line.rfind("WARNING: ", 0) != 0 && line.rfind('\t', 0) != 0) {
                ++lines[line];
            }
        }
        return lines;
    }

private:
    static void Flush()
    {
        std::fflush(stdout);
        std::fflush(stderr);
    }
    std::filesystem::path path_;
    int saved_[2] = {};
};

// One pack whose leading bytes alone are the most that is copied.
const SimPackLayout TOO_LARGE = {2073600, 1, false};
const char TOO_LARGE_LINE[] =
    "func:QrcodeVenc_CopyStreamData line:319 nStreamLen=2073601, MAXFRAMERINBUF=2073600";

std::string Line(const char* format, int code)
{
    char line[200];
    std::snprintf(line, sizeof(line), format, static_cast<unsigned>(code));
    return line;
}

// What must be said of one reading, by the platform's answers to it.
void Expect(const std::vector<SimCall>& calls, bool decodes, bool fits, Lines& lines)
{
    const auto say = [&lines](const char* format, int code) { ++lines[Line(format, code)]; };
    bool fetched = false;
    for (size_t i = 0; i < calls.size(); ++i) {
        const int code = calls[i].result;
        const SimOp next = i + 1 < calls.size() ? calls[i + 1].op : SIM_OPS;
        if (calls[i].op == SIM_VENC_GETFD && code >= 0 && next != SIM_VENC_QUERYSTATUS) {
            say("venc chn 4 get stream time out!", 0);
        }
        if (calls[i].op == SIM_VENC_QUERYSTATUS && code == 0 && next != SIM_VENC_GETSTREAM) {
            say("NOTE: Current  frame is NULL!", 0);
        }
        fetched = fetched || (calls[i].op == SIM_VENC_GETSTREAM && code == 0);
        if (code == 0 || (calls[i].op == SIM_VENC_GETFD && code > 0)) {
            continue;
        }
        switch (calls[i].op) {
        case SIM_VENC_CREATECHN:
            say("HI_MPI_VENC_CreateChn [4] faild with %#x! ===", code);
            lines[Line(" FaceVenc_CreateChn [4] failed with %#x!   ", code) +
                  (calls[0].result == 0 ? "width1920  height1080 " : "width0  height0 ")]++;
            break;
        case SIM_VENC_GETJPEGPARAM:
        case SIM_VENC_SETJPEGPARAM:
            say(calls[i].op == SIM_VENC_GETJPEGPARAM ? "HI_MPI_VENC_GetJpegParam err 0x%x"
                                                     : "HI_MPI_VENC_SetJpegParam err 0x%x",
                code);
            say(" FaceVenc_SetJpegParam [4] failed with %#x!", -1);
            break;
        case SIM_SYS_BIND:
            say("HI_MPI_SYS_Bind failed with %#x!", -1);
            say("HI_MPI_SYS_Bind failed with %#x!", code);
            break;
        case SIM_SYS_UNBIND:
            say("HI_MPI_SYS_Bind failed with %#x!", code);
            break;
        case SIM_VENC_STARTRECVFRAME:
            say(" HI_MPI_VENC_StartRecvPicEx [4] failed with %#x!", code);
            break;
        case SIM_VENC_GETFD:
            say("VencChn 4 GetFd faild with%#x!", code);
            break;
        case SIM_VENC_QUERYSTATUS:
            say("VencChn 4 Query failed with %#x!", code);
            break;
        case SIM_VENC_GETSTREAM:
            say("Venc GetStream failed with %#x!", code);
            break;
        case SIM_VENC_RELEASESTREAM:
            say("HI_MPI_VENC_ReleaseStream is error %x", code);
            break;
        case SIM_VENC_STOPRECVFRAME:
            say("HI_MPI_VENC_StopRecvFrame [4] failed with %#x!", code);
            break;
        case SIM_VENC_DESTROYCHN:
            say("VENC DestroyChn [4] failed with %#x!", code);
            break;
        default:
            break; // the size of the video processing channel is asked for and not looked at
        }
    }
    if (fetched && !fits) {
        ++lines[TOO_LARGE_LINE];
    }
    if (!fetched || !decodes || !fits) {
        say("src.data is NULL", 0);
    }
}

int OpenDescriptors()
{
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        static_cast<void>(entry);
        ++count;
    }
    return count;
}

class Storm
{
public:
    Storm()
    {
        cv::Mat picture;
        std::string error;
        EXPECT_TRUE(Sim_LoadPicture(SAMPLES_DIR "/plain.png", picture, error));
        jpeg_ = Sim_EncodeFrame(Sim_CameraFrame(picture, 400, 400), 99);
    }

    // A script for one reading: now and then a fault of each operation, no picture, one that does
    // not decode, one in several packs, one too large.
    SimScript Next(bool& decodes, bool& fits)
    {
        SimScript script;
        script.frameMs = 0;
        for (int op = 0; op < SIM_OPS; ++op) {
            if (One(12)) {
                SimFault fault;
                fault.code = static_cast<int>(0xA0000000U | (random_() & 0xFFFFFF));
                script.faults[Sim_OperationName(static_cast<SimOp>(op))] = fault;
            }
        }
        script.pictureNever = One(40);
        script.pictureNone = One(20);
        script.hasJpeg = true;
        decodes = !One(4);
        script.jpeg = decodes ? jpeg_ : std::vector<uint8_t>(1 + Below(5000), 'j');
        if (One(3)) {
            fits = !One(10);
            script.packs = {{Below(100), Below(5000), false}, {Below(100), 0, true}};
            if (!fits) {
                script.packs = {TOO_LARGE};
            }
        }
        return script;
    }

private:
    uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(random_() % limit); }
    bool One(uint32_t in) { return Below(in) == 0; }
    std::mt19937 random_{seed};
    std::vector<uint8_t> jpeg_;
};

TEST(StormTest, EveryFaultIsToldOnceAndTheServiceReadsOn)
{
    std::printf("seed %u, %d readings\n", seed, readings);
    TempFolder folder;
    const UdpPeer panel(QRCODE_PEER_PORT);
    ASSERT_EQ(0, NET_Socket_Server_Start());
    Qrcode_SetScanEnable(1);
    ScanLoop loop{};
    Storm storm;
    std::string datagram;
    Sim_Reset();
    const int descriptors = OpenDescriptors();
    int reported = 0; // or known from before
    bool before = false;
    // What pictures an old channel may hold: of the readings since it was not cleared away.
    std::vector<std::pair<bool, bool>> held;
    for (int i = 0; i < readings && !testing::Test::HasFailure(); ++i) {
        SCOPED_TRACE("reading " + std::to_string(i) + " of seed " + std::to_string(seed));
        bool decodes = false;
        bool fits = true;
        const SimScript script = storm.Next(decodes, fits);
        Sim_SetScript(script);
        Sim_KeepCalls(true);
        Lines said;
        {
            const Captured output(folder / "output");
            Qrcode_ScanPass(&loop);
            said = output.Take();
        }
        Lines expected;
        Expect(Sim_Calls(), decodes, fits, expected);
        for (size_t k = 0; k < held.size() && expected != said; ++k) {
            expected.clear();
            Expect(Sim_Calls(), held[k].first, held[k].second, expected);
        }
        EXPECT_EQ(expected, said);
        const bool left = Sim_Calls().back().result != 0;
        if (!left) {
            held.clear();
        } else {
            held.emplace_back(decodes, fits);
        }
        // A channel that was not stopped or destroyed is the one thing that may be left.
        EXPECT_LE(OpenDescriptors(), descriptors + (left ? 1 : 0));
        // A text is reported unless it was there in the reading before.
        const bool reads = expected.count("src.data is NULL") == 0;
        EXPECT_EQ(reads && !before, panel.Receive(datagram, reads && !before ? 10000 : 1));
        EXPECT_TRUE(!reads || before ||
                    SampleText(SAMPLES_DIR "/plain.png") == datagram.c_str() + MSG_HEAD_SIZE);
        before = reads;
        reported += reads;
    }
    EXPECT_GT(reported, readings / 20);

    // The weather is fine again. At most one reading finds an old channel and clears it away.
    SimScript fine;
    fine.frameMs = 0;
    Sim_SetScript(fine);
    Qrcode_ScanPass(&loop);
    EXPECT_EQ(descriptors, OpenDescriptors());
    std::string error;
    ASSERT_TRUE(Sim_OpenScene(SAMPLES_DIR "/worn.png", SIM_VIEW_MS, "", error)) << error;
    Qrcode_ScanPass(&loop);
    ASSERT_TRUE(panel.Receive(datagram));
    EXPECT_EQ(SampleText(SAMPLES_DIR "/worn.png"), datagram.c_str() + MSG_HEAD_SIZE);
    Sim_Reset();
}

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (argc > 1) {
        seed = static_cast<unsigned>(std::strtoul(argv[1], nullptr, 10));
    }
    if (argc > 2) {
        readings = std::atoi(argv[2]);
    }
    return RUN_ALL_TESTS();
}
