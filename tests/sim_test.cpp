// The simulated platform itself: what the encoder channel refuses, what the camera sees, and how
// the scene goes on.
#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <poll.h>

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

bool Readable(int fd, int waitMs)
{
    pollfd ready = {fd, POLLIN, 0};
    return poll(&ready, 1, waitMs) == 1;
}

class SimTest : public testing::Test
{
protected:
    void TearDown() override { Sim_Reset(); }

    // Takes one snapshot from start to end; returns the decoded picture.
    cv::Mat Snap()
    {
        const MediaVencChnAttr attr = Attributes();
        EXPECT_EQ(0, HI_MPI_VENC_CreateChn(CHN, &attr));
        EXPECT_EQ(0, HI_MPI_SYS_Bind(&CAMERA, &ENCODER));
        EXPECT_EQ(0, HI_MPI_VENC_StartRecvFrame(CHN, &ONE));
        MediaPack pack{};
        MediaStream stream{};
        stream.pPack = &pack;
        stream.nPacks = 1;
        EXPECT_EQ(0, HI_MPI_VENC_GetStream(CHN, &stream, -1));
        const cv::Mat bytes(1, static_cast<int>(pack.nLen), CV_8UC1, pack.pAddr);
        const cv::Mat picture = cv::imdecode(bytes, cv::IMREAD_COLOR);
        EXPECT_EQ(0, HI_MPI_VENC_ReleaseStream(CHN, &stream));
        EXPECT_EQ(0, HI_MPI_SYS_UnBind(&CAMERA, &ENCODER));
        EXPECT_EQ(0, HI_MPI_VENC_StopRecvFrame(CHN));
        EXPECT_EQ(0, HI_MPI_VENC_DestroyChn(CHN));
        return picture;
    }

    // Writes a picture of one grey value.
    void Paint(const std::string& name, int grey)
    {
        cv::imwrite((folder / name).string(), cv::Mat(50, 50, CV_8UC1, cv::Scalar(grey)));
    }

    // The grey value in the middle of the next snapshot.
    int Seen() { return cvRound(cv::mean(Snap()(cv::Rect(190, 190, 20, 20)))[0]); }

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
};

TEST_F(SimTest, ChannelRefusesTheWrongOrder)
{
    const auto absent = [](SimOp op) { return Sim_Error(op, SIM_ABSENT); };
    MediaVencChnAttr attr = Attributes();
    MediaJpegParam jpeg{};
    MediaVencStatus status{};
    MediaPack pack{};
    MediaStream stream{};
    stream.pPack = &pack;
    stream.nPacks = 1;

    EXPECT_EQ(absent(SIM_VENC_GETJPEGPARAM), HI_MPI_VENC_GetJpegParam(CHN, &jpeg));
    EXPECT_EQ(absent(SIM_SYS_BIND), HI_MPI_SYS_Bind(&CAMERA, &ENCODER));
    EXPECT_EQ(absent(SIM_VENC_STARTRECVFRAME), HI_MPI_VENC_StartRecvFrame(CHN, &ONE));
    EXPECT_EQ(absent(SIM_VENC_GETFD), HI_MPI_VENC_GetFd(CHN));
    EXPECT_LT(HI_MPI_VENC_GetFd(CHN), 0);
    EXPECT_EQ(absent(SIM_VENC_STOPRECVFRAME), HI_MPI_VENC_StopRecvFrame(CHN));
    EXPECT_EQ(absent(SIM_VENC_DESTROYCHN), HI_MPI_VENC_DestroyChn(CHN));

    attr.Encode.nPayloadType = 96;
    EXPECT_EQ(Sim_Error(SIM_VENC_CREATECHN, SIM_BAD_ARGUMENT), HI_MPI_VENC_CreateChn(CHN, &attr));
    attr = Attributes();
    ASSERT_EQ(0, HI_MPI_VENC_CreateChn(CHN, &attr));
    EXPECT_EQ(Sim_Error(SIM_VENC_CREATECHN, SIM_EXISTS), HI_MPI_VENC_CreateChn(CHN, &attr));
    EXPECT_EQ(Sim_Error(SIM_VENC_STARTRECVFRAME, SIM_WRONG_ORDER),
              HI_MPI_VENC_StartRecvFrame(CHN, &ONE));
    EXPECT_EQ(Sim_Error(SIM_VENC_GETSTREAM, SIM_WRONG_ORDER),
              HI_MPI_VENC_GetStream(CHN, &stream, -1));

    ASSERT_EQ(0, HI_MPI_SYS_Bind(&CAMERA, &ENCODER));
    EXPECT_EQ(Sim_Error(SIM_SYS_BIND, SIM_EXISTS), HI_MPI_SYS_Bind(&CAMERA, &ENCODER));
    EXPECT_FALSE(Readable(HI_MPI_VENC_GetFd(CHN), 0));
    ASSERT_EQ(0, HI_MPI_VENC_StartRecvFrame(CHN, &ONE));
    EXPECT_EQ(Sim_Error(SIM_VENC_STARTRECVFRAME, SIM_WRONG_ORDER),
              HI_MPI_VENC_StartRecvFrame(CHN, &ONE));
    EXPECT_TRUE(Readable(HI_MPI_VENC_GetFd(CHN), 10000));
    EXPECT_EQ(0, HI_MPI_VENC_QueryStatus(CHN, &status));
    EXPECT_EQ(1U, status.nCurPacks);
    EXPECT_EQ(Sim_Error(SIM_VENC_RELEASESTREAM, SIM_WRONG_ORDER),
              HI_MPI_VENC_ReleaseStream(CHN, &stream));
    EXPECT_EQ(0, HI_MPI_VENC_GetStream(CHN, &stream, 0));
    EXPECT_FALSE(Readable(HI_MPI_VENC_GetFd(CHN), 0));
    EXPECT_EQ(Sim_Error(SIM_VENC_GETSTREAM, SIM_WRONG_ORDER),
              HI_MPI_VENC_GetStream(CHN, &stream, 0));
    MediaStream another{};
    EXPECT_EQ(Sim_Error(SIM_VENC_RELEASESTREAM, SIM_BAD_ARGUMENT),
              HI_MPI_VENC_ReleaseStream(CHN, &another));
    EXPECT_EQ(0, HI_MPI_VENC_ReleaseStream(CHN, &stream));
    EXPECT_EQ(Sim_Error(SIM_VENC_GETSTREAM, SIM_NO_PICTURE), HI_MPI_VENC_GetStream(CHN, &stream, 1))
        << "one picture was asked for";

    EXPECT_EQ(Sim_Error(SIM_VENC_DESTROYCHN, SIM_WRONG_ORDER), HI_MPI_VENC_DestroyChn(CHN));
    EXPECT_EQ(0, HI_MPI_VENC_StopRecvFrame(CHN));
    EXPECT_EQ(Sim_Error(SIM_VENC_DESTROYCHN, SIM_WRONG_ORDER), HI_MPI_VENC_DestroyChn(CHN));
    EXPECT_EQ(0, HI_MPI_SYS_UnBind(&CAMERA, &ENCODER));
    EXPECT_EQ(absent(SIM_SYS_UNBIND), HI_MPI_SYS_UnBind(&CAMERA, &ENCODER));
    EXPECT_EQ(0, HI_MPI_VENC_DestroyChn(CHN));
}

TEST_F(SimTest, NoPictureGetsReadyOnceItsSourceIsUnbound)
{
    const MediaVencChnAttr attr = Attributes();
    MediaVencStatus status{};
    Snap(); // so that the next frame is due only in a while
    ASSERT_EQ(0, HI_MPI_VENC_CreateChn(CHN, &attr));
    ASSERT_EQ(0, HI_MPI_SYS_Bind(&CAMERA, &ENCODER));
    ASSERT_EQ(0, HI_MPI_VENC_StartRecvFrame(CHN, &ONE));
    ASSERT_EQ(0, HI_MPI_SYS_UnBind(&CAMERA, &ENCODER));
    EXPECT_FALSE(Readable(HI_MPI_VENC_GetFd(CHN), 2 * SIM_FRAME_MS));
    EXPECT_EQ(0, HI_MPI_VENC_QueryStatus(CHN, &status));
    EXPECT_EQ(0U, status.nCurPacks);
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
    const auto start = std::chrono::steady_clock::now();
    Snap();
    EXPECT_LT(std::chrono::steady_clock::now() - start,
              std::chrono::milliseconds(SIM_FRAME_MS / 2));
    ASSERT_TRUE(Sim_ParseScript("frame-ms 200", script, error));
    Sim_SetScript(script);
    Snap();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
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

TEST_F(SimTest, TransparentPixelsAreSeenAsWhite)
{
    cv::Mat picture(4, 4, CV_8UC4, cv::Scalar(0, 0, 0, 0));
    picture.at<cv::Vec4b>(0, 0) = {10, 20, 30, 255};
    cv::imwrite((folder / "a.png").string(), picture);
    cv::Mat loaded;
    std::string error;
    ASSERT_TRUE(Sim_LoadPicture((folder / "a.png").string(), loaded, error)) << error;
    EXPECT_EQ(cv::Vec3b(10, 20, 30), loaded.at<cv::Vec3b>(0, 0));
    EXPECT_EQ(cv::Vec3b(255, 255, 255), loaded.at<cv::Vec3b>(3, 3));
}

TEST_F(SimTest, PicturesTakeTurnsWithAFrameBetweenThem)
{
    Paint("a.png", 10);
    Paint("b.png", 250);
    WriteAll(folder / "a.txt", "expected text\n");
    Open(1); // each is over by its next frame
    EXPECT_EQ(10, Seen());
    EXPECT_EQ(128, Seen());
    EXPECT_EQ(250, Seen());
    EXPECT_EQ(128, Seen());
    EXPECT_EQ(10, Seen());
    EXPECT_EQ((std::vector<std::string>{"view1", "blank1", "view1", "blank1", "view2"}), Events());
}

TEST_F(SimTest, PictureStaysOnViewForItsTime)
{
    Paint("a.png", 10);
    Paint("b.png", 250);
    Open(200);
    const auto start = std::chrono::steady_clock::now();
    int frames = 0;
    while (Seen() == 10) {
        ++frames;
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
    EXPECT_GE(frames, 1);
}

TEST_F(SimTest, FilesThatComeAndGoShowUp)
{
    Open(1);
    EXPECT_EQ(128, Seen()) << "an empty folder is a wall";
    EXPECT_EQ(128, Seen());
    Paint("b.png", 20);
    EXPECT_EQ(20, Seen());
    Paint("a.png", 40);
    Paint("c.png", 60);
    EXPECT_EQ(128, Seen());
    EXPECT_EQ(60, Seen());
    EXPECT_EQ(128, Seen());
    EXPECT_EQ(40, Seen());
    std::filesystem::remove(folder / "b.png");
    EXPECT_EQ(128, Seen());
    EXPECT_EQ(60, Seen());
    std::filesystem::remove(folder / "a.png");
    std::filesystem::remove(folder / "c.png");
    EXPECT_EQ(128, Seen());
    EXPECT_EQ(128, Seen());
    EXPECT_EQ((std::vector<std::string>{"empty0", "view1", "blank1", "view1", "blank1", "view2",
                                        "blank2", "view2", "blank2", "empty2"}),
              Events());
}

TEST_F(SimTest, UnreadablePictureCostsOneLineUntilItChanges)
{
    WriteAll(folder / "a.png", "no picture");
    WriteAll(folder / "b.jpg", "");
    Paint("c.png", 20);
    Open(1);
    testing::internal::CaptureStderr();
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(i % 2 == 0 ? 20 : 128, Seen());
    }
    EXPECT_EQ("sim: skipped " + (folder / "a.png").string() +
                  ": not a picture that can be read, or too large a one\n" + "sim: skipped " +
                  (folder / "b.jpg").string() + ": empty file\n",
              testing::internal::GetCapturedStderr());
    Paint("a.png", 90);
    EXPECT_EQ(90, Seen());
}

TEST_F(SimTest, SceneThatDoesNotExistIsRefused)
{
    std::string error;
    EXPECT_FALSE(Sim_OpenScene((folder / "absent").string(), 1, "", error));
    EXPECT_EQ("no such picture or folder: " + (folder / "absent").string(), error);
    EXPECT_FALSE(Sim_OpenScene("/dev/null", 1, "", error));
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
