// The simulated platform itself: what the encoder channel refuses, what the camera sees, and how
// the scene goes on.
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "camera_picture.h"
#include "files.h"
#include "media_platform.h"
#include "sim_platform.h"

namespace
{

const int CHN = 4;
const MediaEndpoint CAMERA = {MEDIA_MOD_VPSS, 1, 0};
const MediaEndpoint ENCODER = {MEDIA_MOD_VENC, 0, CHN};
const MediaRecvParam ONE = {1};

MediaVencChnAttr Attributes()
{
    MediaVencChnAttr attr{};
    attr.Encode.nPayloadType = MEDIA_PAYLOAD_JPEG;
    attr.Encode.nMaxWidth = attr.Encode.nPicWidth = 400;
    attr.Encode.nMaxHeight = attr.Encode.nPicHeight = 400;
    attr.Encode.nBufSize = 400 * 400 * 2;
    return attr;
}

using Greys = std::vector<int>;

bool Readable(int fd, int waitMs)
{
    pollfd ready = {fd, POLLIN, 0};
    return poll(&ready, 1, waitMs) == 1;
}

class SimTest : public testing::Test
{
protected:
    void SetUp() override
    {
        stream.pPack = &pack;
        stream.nPacks = 1;
    }
    void TearDown() override { Sim_Reset(); }

    // A channel that has been asked for one picture.
    static void Start()
    {
        const MediaVencChnAttr attr = Attributes();
        EXPECT_EQ(0, HI_MPI_VENC_CreateChn(CHN, &attr));
        EXPECT_EQ(0, HI_MPI_SYS_Bind(&CAMERA, &ENCODER));
        EXPECT_EQ(0, HI_MPI_VENC_StartRecvFrame(CHN, &ONE));
    }

    // Gives the picture back and takes the channel down.
    void Finish()
    {
        EXPECT_EQ(0, HI_MPI_VENC_ReleaseStream(CHN, &stream));
        EXPECT_EQ(0, HI_MPI_SYS_UnBind(&CAMERA, &ENCODER));
        EXPECT_EQ(0, HI_MPI_VENC_StopRecvFrame(CHN));
        EXPECT_EQ(0, HI_MPI_VENC_DestroyChn(CHN));
    }

    // Takes one snapshot from start to end; returns the decoded picture.
    cv::Mat Snap()
    {
        Start();
        EXPECT_EQ(0, HI_MPI_VENC_GetStream(CHN, &stream, -1));
        const cv::Mat bytes(1, static_cast<int>(pack.nLen), CV_8UC1, pack.pAddr);
        cv::Mat picture = cv::imdecode(bytes, cv::IMREAD_COLOR);
        Finish();
        return picture;
    }

    // Writes a picture of one grey value.
    void Paint(const std::string& name, int grey)
    {
        cv::imwrite((folder / name).string(), cv::Mat(50, 50, CV_8UC1, cv::Scalar(grey)));
    }

    // The grey values in the middle of the next snapshots.
    Greys Seen(int snapshots)
    {
        Greys greys;
        for (int i = 0; i < snapshots; ++i) {
            greys.push_back(cvRound(cv::mean(Snap()(cv::Rect(190, 190, 20, 20)))[0]));
        }
        return greys;
    }

    void Open(int viewMs)
    {
        std::string error;
        ASSERT_TRUE(
            Sim_OpenScene(folder.Path().string(), viewMs, (folder / ".events").string(), error))
            << error;
    }

    std::vector<std::string> Events() const
    {
        std::vector<std::string> events;
        std::istringstream lines(ReadAll(folder / ".events"));
        for (std::string line; std::getline(lines, line);) {
            const nlohmann::json event = nlohmann::json::parse(line);
            events.push_back(event["event"].get<std::string>() +
                             std::to_string(event["round"].get<int>()));
        }
        return events;
    }

    TempFolder folder;
    MediaPack pack{};
    MediaStream stream{};
};

// Most refusals are seen in the readings of the service; these never come up there.
TEST_F(SimTest, ChannelRefusesTheWrongOrder)
{
    const auto error = [](SimReason reason, SimOp op) { return Sim_Error(op, reason); };
    const auto create = [](const MediaVencChnAttr& attr) {
        return HI_MPI_VENC_CreateChn(CHN, &attr);
    };
    const auto ask = [] { return HI_MPI_VENC_StartRecvFrame(CHN, &ONE); };
    const auto get = [this](int waitMs) { return HI_MPI_VENC_GetStream(CHN, &stream, waitMs); };
    MediaVencChnAttr wrong = Attributes();
    MediaJpegParam jpeg{};
    MediaVencStatus status{};
    MediaStream another{};

    EXPECT_EQ(error(SIM_ABSENT, SIM_VENC_GETJPEGPARAM), HI_MPI_VENC_GetJpegParam(CHN, &jpeg));
    EXPECT_EQ(error(SIM_ABSENT, SIM_SYS_BIND), HI_MPI_SYS_Bind(&CAMERA, &ENCODER));
    EXPECT_EQ(error(SIM_ABSENT, SIM_VENC_STARTRECVFRAME), ask());
    EXPECT_EQ(error(SIM_ABSENT, SIM_VENC_DESTROYCHN), HI_MPI_VENC_DestroyChn(CHN));
    wrong.Encode.nPayloadType = 96;
    EXPECT_EQ(error(SIM_BAD_ARGUMENT, SIM_VENC_CREATECHN), create(wrong));
    ASSERT_EQ(0, create(Attributes()));
    EXPECT_EQ(error(SIM_EXISTS, SIM_VENC_CREATECHN), create(Attributes()));
    EXPECT_EQ(error(SIM_WRONG_ORDER, SIM_VENC_STARTRECVFRAME), ask());
    EXPECT_EQ(error(SIM_WRONG_ORDER, SIM_VENC_GETSTREAM), get(-1));
    ASSERT_EQ(0, HI_MPI_SYS_Bind(&CAMERA, &ENCODER));
    EXPECT_EQ(error(SIM_EXISTS, SIM_SYS_BIND), HI_MPI_SYS_Bind(&CAMERA, &ENCODER));
    EXPECT_FALSE(Readable(HI_MPI_VENC_GetFd(CHN), 0));
    ASSERT_EQ(0, ask());
    EXPECT_EQ(error(SIM_WRONG_ORDER, SIM_VENC_STARTRECVFRAME), ask());
    EXPECT_TRUE(Readable(HI_MPI_VENC_GetFd(CHN), 10000));
    EXPECT_EQ(0, HI_MPI_VENC_QueryStatus(CHN, &status));
    EXPECT_EQ(1U, status.nCurPacks);
    EXPECT_EQ(0, get(0));
    EXPECT_FALSE(Readable(HI_MPI_VENC_GetFd(CHN), 0));
    EXPECT_EQ(error(SIM_WRONG_ORDER, SIM_VENC_GETSTREAM), get(0));
    EXPECT_EQ(error(SIM_BAD_ARGUMENT, SIM_VENC_RELEASESTREAM),
              HI_MPI_VENC_ReleaseStream(CHN, &another));
    EXPECT_EQ(0, HI_MPI_VENC_ReleaseStream(CHN, &stream));
    EXPECT_EQ(error(SIM_NO_PICTURE, SIM_VENC_GETSTREAM), get(1)) << "one was asked for";
    EXPECT_EQ(0, HI_MPI_VENC_StopRecvFrame(CHN));
    EXPECT_EQ(error(SIM_WRONG_ORDER, SIM_VENC_DESTROYCHN), HI_MPI_VENC_DestroyChn(CHN)) << "bound";
}

TEST_F(SimTest, TakesTwentyFiveFramesASecondAtMost)
{
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 6; ++i) {
        Snap();
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5 * 40));
}

TEST_F(SimTest, ScriptedFrameTimeHoldsInsteadOfTheRate)
{
    SimScript script;
    std::string error;
    ASSERT_TRUE(Sim_ParseScript("frame-ms 0", script, error));
    Sim_SetScript(script);
    Snap();
    Start();
    EXPECT_EQ(0, HI_MPI_VENC_GetStream(CHN, &stream, 0)) << "ready without a wait";
    Finish();
    ASSERT_TRUE(Sim_ParseScript("frame-ms 60000", script, error));
    Sim_SetScript(script);
    Start();
    EXPECT_EQ(Sim_Error(SIM_VENC_GETSTREAM, SIM_NO_PICTURE),
              HI_MPI_VENC_GetStream(CHN, &stream, 2 * SIM_FRAME_MS));
}

TEST_F(SimTest, PictureThatNobodyLooksAtCountsForTheRate)
{
    SimScript script;
    std::string error;
    ASSERT_TRUE(Sim_ParseScript("frame-ms 500", script, error));
    Sim_SetScript(script);
    Snap();
    Start();
    ASSERT_TRUE(Readable(HI_MPI_VENC_GetFd(CHN), -1));
    EXPECT_EQ(0, HI_MPI_SYS_UnBind(&CAMERA, &ENCODER));
    EXPECT_EQ(0, HI_MPI_VENC_StopRecvFrame(CHN));
    EXPECT_EQ(0, HI_MPI_VENC_DestroyChn(CHN));
    Start();
    EXPECT_FALSE(Readable(HI_MPI_VENC_GetFd(CHN), SIM_FRAME_MS));
}

TEST_F(SimTest, CameraSeesThePictureFittedCentredAndMirrored)
{
    cv::Mat picture(100, 800, CV_8UC3, cv::Scalar(0, 0, 255)); // red, its left half blue
    picture(cv::Rect(0, 0, 400, 100)) = cv::Scalar(255, 0, 0);
    const cv::Mat frame = Sim_CameraFrame(picture, 400, 400);
    EXPECT_EQ(cv::Vec3b(128, 128, 128), frame.at<cv::Vec3b>(174, 200));
    EXPECT_EQ(cv::Vec3b(0, 0, 255), frame.at<cv::Vec3b>(175, 100)) << "right is left";
    EXPECT_EQ(cv::Vec3b(255, 0, 0), frame.at<cv::Vec3b>(224, 300));
    EXPECT_EQ(cv::Vec3b(128, 128, 128), frame.at<cv::Vec3b>(225, 200));

    const cv::Mat small(10, 10, CV_8UC3, cv::Scalar::all(255)); // never scaled up
    EXPECT_EQ(100, cv::countNonZero(Sim_CameraFrame(small, 400, 400).reshape(1) == 255) / 3);
    const cv::Mat line(1, 4000, CV_8UC3, cv::Scalar::all(255));
    EXPECT_EQ(cv::Size(400, 400), Sim_CameraFrame(line, 400, 400).size());
}

// A square BMP with an alpha channel, which OpenCV reads but does not write. Pixels from below,
// each 0xAARRGGBB.
std::string BmpWithAlpha(uint32_t side, const std::vector<uint32_t>& pixels)
{
    enum : uint32_t { FILE_HEADER = 14, HEADER = 56, ONE_PLANE = 1, BITS = 32, MASKED = 3 };
    std::vector<uint32_t> words = {FILE_HEADER + HEADER,
                                   HEADER,
                                   side,
                                   side,
                                   ONE_PLANE | BITS << 16,
                                   MASKED,
                                   0,
                                   0,
                                   0,
                                   0,
                                   0,
                                   0xFF0000,
                                   0x00FF00,
                                   0x0000FF,
                                   0xFF000000};
    words.insert(words.end(), pixels.begin(), pixels.end());
    return std::string("BM\0\0\0\0\0\0\0\0", 10) + // no file's length, which nobody looks at
           std::string(reinterpret_cast<const char*>(words.data()), words.size() * 4);
}

TEST_F(SimTest, TransparentPixelsAreSeenAsWhite)
{
    WriteAll(folder / "a.bmp", BmpWithAlpha(2, {0xFF1E140A, 0x80000000, 0, 0}));
    cv::Mat loaded;
    std::string error;
    ASSERT_TRUE(Sim_LoadPicture((folder / "a.bmp").string(), loaded, error)) << error;
    EXPECT_EQ(cv::Vec3b(10, 20, 30), loaded.at<cv::Vec3b>(1, 0));
    EXPECT_EQ(cv::Vec3b(127, 127, 127), loaded.at<cv::Vec3b>(1, 1));
    EXPECT_EQ(cv::Vec3b(255, 255, 255), loaded.at<cv::Vec3b>(0, 1));
}

TEST_F(SimTest, PictureStaysOnViewForItsTime)
{
    Paint("a.bmp", 10);
    Paint("b.bmp", 250);
    Open(200);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(10, Seen(1)[0]);
    while (Seen(1)[0] == 10) {
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
}

TEST_F(SimTest, PicturesTakeTurnsWithAFrameBetweenThemAlsoThoseThatComeAndGo)
{
    WriteAll(folder / "a.txt", "expected text\n");
    Open(1); // each is over by its next frame
    EXPECT_EQ((Greys{128, 128}), Seen(2)) << "an empty folder is a wall";
    Paint("b.bmp", 20);
    EXPECT_EQ((Greys{20}), Seen(1));
    Paint("a.bmp", 40);
    Paint("c.bmp", 60);
    EXPECT_EQ((Greys{128, 60, 128, 40}), Seen(4));
    std::filesystem::remove(folder / "b.bmp");
    EXPECT_EQ((Greys{128, 60}), Seen(2));
    std::filesystem::remove(folder / "a.bmp");
    std::filesystem::remove(folder / "c.bmp");
    EXPECT_EQ((Greys{128, 128}), Seen(2));
    EXPECT_EQ((std::vector<std::string>{"empty0", "view1", "blank1", "view1", "blank1", "view2",
                                        "blank2", "view2", "blank2", "empty2"}),
              Events());
}

TEST_F(SimTest, UnreadablePictureCostsOneLineUntilItChanges)
{
    WriteAll(folder / "a.bmp", "no picture");
    WriteAll(folder / "b.jpg", "");
    Paint("c.bmp", 20);
    Open(1);
    testing::internal::CaptureStderr();
    EXPECT_EQ((Greys{20, 128, 20, 128, 20, 128}), Seen(6));
    EXPECT_EQ("sim: skipped " + (folder / "a.bmp").string() +
                  ": not a picture that can be read, or too large a one\n" + "sim: skipped " +
                  (folder / "b.jpg").string() + ": empty file\n",
              testing::internal::GetCapturedStderr());
    Paint("a.bmp", 90);
    EXPECT_EQ((Greys{90}), Seen(1));
}

TEST_F(SimTest, NewestPictureStaysOnViewUntilAnotherIsRenamedOverIt)
{
    const std::filesystem::path newest = folder / "newest";
    std::string error;
    ASSERT_TRUE(Sim_OpenNewest(newest.string(), (folder / ".events").string(), error)) << error;
    const auto hand = [&] { std::filesystem::rename(folder / "next.bmp", newest); };
    EXPECT_EQ((Greys{128}), Seen(1));
    Paint("next.bmp", 20);
    hand();
    EXPECT_EQ((Greys{20, 20}), Seen(2)) << "without a frame in between";
    Paint("next.bmp", 60);
    hand();
    EXPECT_EQ((Greys{60}), Seen(1));
    WriteAll(folder / "next.bmp", "no picture");
    hand();
    testing::internal::CaptureStderr();
    EXPECT_EQ((Greys{60, 60}), Seen(2)) << "it changes nothing";
    EXPECT_EQ("sim: skipped " + newest.string() +
                  ": not a picture that can be read, or too large a one\n",
              testing::internal::GetCapturedStderr());
    std::filesystem::remove(newest);
    EXPECT_EQ((Greys{128}), Seen(1));
    EXPECT_EQ((std::vector<std::string>{"blank1", "view1", "view1", "view1", "unreadable1", "view1",
                                        "view1", "blank1"}),
              Events());
}

TEST_F(SimTest, ScriptIsReadAgainBeforeASnapshotWhenItWasReplaced)
{
    const std::filesystem::path script = folder / "script";
    MediaVpssChnAttr attr;
    std::string error;
    const auto ask = [&](const std::string& statement) {
        WriteAll(folder / "next", statement);
        std::filesystem::rename(folder / "next", script);
        return HI_MPI_VPSS_GetChnAttr(1, 0, &attr);
    };
    EXPECT_FALSE(Sim_FollowScript(script.string(), error));
    EXPECT_EQ("script " + script.string() + ": cannot be read", error);
    WriteAll(script, "HI_MPI_VPSS_GetChnAttr 7 2");
    ASSERT_TRUE(Sim_FollowScript(script.string(), error)) << error;
    EXPECT_EQ(7, HI_MPI_VPSS_GetChnAttr(1, 0, &attr));
    EXPECT_EQ(7, HI_MPI_VPSS_GetChnAttr(1, 0, &attr));
    EXPECT_EQ(0, HI_MPI_VPSS_GetChnAttr(1, 0, &attr)) << "the same script is not begun again";
    EXPECT_EQ(9, ask("HI_MPI_VPSS_GetChnAttr 9"));
    testing::internal::CaptureStderr();
    EXPECT_EQ(9, ask("nonsense"));
    EXPECT_EQ(9, HI_MPI_VPSS_GetChnAttr(1, 0, &attr)) << "said once";
    EXPECT_EQ("sim: script " + script.string() + ": line 1: cannot make sense of \"nonsense\"\n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ(0, ask("# none"));
}

TEST_F(SimTest, SceneGoesOnWhenNobodyReadsItsEvents)
{
    Paint("a.bmp", 10);
    const std::string fifo = (folder / ".events").string();
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    Open(1);
    close(reader);
    testing::internal::CaptureStderr();
    EXPECT_EQ((Greys{10, 128}), Seen(2));
    EXPECT_EQ("sim: events: Broken pipe\n", testing::internal::GetCapturedStderr());
}

TEST(FaultScriptTest, SaysWhichLineMakesNoSense)
{
    SimScript script;
    std::string error;
    for (const char* const line :
         {"HI_MPI_VENC_Create 1", "HI_MPI_SYS_Bind", "HI_MPI_SYS_Bind x", "HI_MPI_SYS_Bind 1 -1",
          "HI_MPI_SYS_Bind 0x100000000", "HI_MPI_SYS_Bind 1 2 3", "picture", "picture maybe",
          "picture jpeg /absent", "packs", "packs 1", "packs *:1", "packs 0:* 0:1", "frame-ms",
          "frame-ms 60001", "nonsense"}) {
        EXPECT_FALSE(Sim_ParseScript(std::string("# fine\n\n") + line, script, error));
        EXPECT_EQ(std::string("line 3: cannot make sense of \"") + line + "\"", error);
    }
    EXPECT_TRUE(
        Sim_ParseScript("HI_MPI_SYS_Bind 0xFFFFFFFF 2 # twice\npicture never", script, error));
    EXPECT_EQ(-1, script.faults["HI_MPI_SYS_Bind"].code);
    EXPECT_EQ(2, script.faults["HI_MPI_SYS_Bind"].calls);
    EXPECT_TRUE(script.pictureNever);
}

} // namespace
