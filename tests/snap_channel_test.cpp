// The snapshot channel over the simulated platform: the calls and records of a good snapshot, and
// every fault of the platform through one table.
#include "snap_channel.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <numeric>

#include "capture_decode.h"
#include "message.h"
#include "sim_platform.h"
#include "snap_size.h"

namespace
{
bool memoryIsShort = false;
void* lastAllocated = nullptr;
bool lastWasFreed = false;
} // namespace

extern "C" {
void* __real_calloc(size_t count, size_t size);
void* __wrap_calloc(size_t count, size_t size);
void __real_free(void* memory);
void __wrap_free(void* memory);

void* __wrap_calloc(size_t count, size_t size)
{
    lastAllocated = memoryIsShort ? nullptr : __real_calloc(count, size);
    lastWasFreed = false;
    return lastAllocated;
}

void __wrap_free(void* memory)
{
    lastWasFreed = lastWasFreed || memory == lastAllocated;
    __real_free(memory);
}
}

namespace
{

struct Outcome {
    int result;
    std::string text;
    std::string out;
    std::string err;
};

// One reading of the service's own, under a script.
Outcome Read(const std::string& script)
{
    SimScript parsed;
    std::string error;
    EXPECT_TRUE(Sim_ParseScript(script, parsed, error)) << error;
    Sim_SetScript(parsed);
    Sim_KeepCalls(true);
    char text[QRCODE_TEXT_SIZE] = {0};
    int unused = 7;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int result = Qrcode_CaptureAndDecode(&unused, text);
    std::fflush(stdout);
    EXPECT_EQ(7, unused);
    Outcome outcome = {result, text, testing::internal::GetCapturedStdout(), ""};
    outcome.err = testing::internal::GetCapturedStderr();
    return outcome;
}

// The calls that the platform saw, without what all names begin with.
std::string Calls()
{
    std::string names;
    for (const SimCall& call : Sim_Calls()) {
        names += std::string(names.empty() ? "" : " ") + (Sim_OperationName(call.op) + 7);
    }
    return names;
}

std::vector<const SimCall*> CallsOf(SimOp op)
{
    std::vector<const SimCall*> calls;
    for (const SimCall& call : Sim_Calls()) {
        if (call.op == op) {
            calls.push_back(&call);
        }
    }
    return calls;
}

std::vector<uint32_t> Words(const std::vector<uint8_t>& bytes)
{
    std::vector<uint32_t> words(bytes.size() / 4);
    std::memcpy(words.data(), bytes.data(), words.size() * 4);
    return words;
}

const std::string SET_UP = "VPSS_GetChnAttr VENC_CreateChn VENC_GetJpegParam VENC_SetJpegParam "
                           "SYS_Bind VENC_StartRecvFrame";
const std::string WAIT = " VENC_GetFd";
const std::string FETCH = " VENC_QueryStatus VENC_GetStream";
const std::string RELEASE = " VENC_ReleaseStream";
const std::string TEAR_DOWN = " SYS_UnBind VENC_StopRecvFrame VENC_DestroyChn";

const std::string NO_PICTURE = "src.data is NULL\n";
const std::string TIMED_OUT = "venc chn 4 get stream time out!\n";

class SnapChannelTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string error;
        ASSERT_TRUE(Sim_OpenScene(SAMPLES_DIR "/plain.png", SIM_VIEW_MS, "", error)) << error;
        nSnapWidth = 0;
        nSnapHeight = 0;
    }
    void TearDown() override { Sim_Reset(); }
};

TEST_F(SnapChannelTest, GoodSnapshotMakesTheseCallsWithTheseRecords)
{
    const Outcome outcome = Read("");
    EXPECT_GT(outcome.result, 0);
    EXPECT_EQ("", outcome.out + outcome.err);
    EXPECT_FALSE(lastWasFreed) << "the pack array of a good snapshot stays, by design";
    EXPECT_EQ(400U, nSnapWidth);
    EXPECT_EQ(400U, nSnapHeight);
    ASSERT_EQ(SET_UP + WAIT + FETCH + RELEASE + TEAR_DOWN, Calls());
    for (const SimCall& call : Sim_Calls()) {
        if (call.op != SIM_VPSS_GETCHNATTR && !call.numbers.empty()) {
            EXPECT_EQ(4, call.numbers[0]) << Sim_OperationName(call.op);
        }
    }
    EXPECT_EQ((std::vector<int>{1, 0}), CallsOf(SIM_VPSS_GETCHNATTR)[0]->numbers);

    std::vector<uint32_t> attr(29, 0); // 116 bytes
    const std::vector<uint32_t> encoder = {26, 400, 400, 320000, 1, 1, 400, 400};
    std::copy(encoder.begin(), encoder.end(), attr.begin());
    EXPECT_EQ(attr, Words(CallsOf(SIM_VENC_CREATECHN)[0]->record));

    const std::vector<uint8_t>& jpeg = CallsOf(SIM_VENC_SETJPEGPARAM)[0]->record;
    ASSERT_EQ(200U, jpeg.size());
    EXPECT_EQ(99U, Words(jpeg)[0]);
    MediaJpegParam asItCame{};
    std::fill(&asItCame.aQuantTable[0][0], &asItCame.aQuantTable[0][0] + 3 * 64, uint8_t{16});
    asItCame.nQuality = 99;
    asItCame.nMcuPerEcs = 50;
    EXPECT_EQ(0, std::memcmp(jpeg.data(), &asItCame, sizeof(asItCame))) << "but for the quality";

    const std::vector<uint32_t> ends = {7, 1, 0, 8, 0, 4};
    EXPECT_EQ(ends, Words(CallsOf(SIM_SYS_BIND)[0]->record));
    EXPECT_EQ(ends, Words(CallsOf(SIM_SYS_UNBIND)[0]->record));
    EXPECT_EQ((std::vector<uint32_t>{1}), Words(CallsOf(SIM_VENC_STARTRECVFRAME)[0]->record));
    EXPECT_EQ((std::vector<int>{4, -1}), CallsOf(SIM_VENC_GETSTREAM)[0]->numbers);

    MediaStream stream;
    ASSERT_EQ(sizeof(stream), CallsOf(SIM_VENC_GETSTREAM)[0]->record.size());
    std::memcpy(&stream, CallsOf(SIM_VENC_GETSTREAM)[0]->record.data(), sizeof(stream));
    EXPECT_NE(nullptr, stream.pPack);
    EXPECT_EQ(1U, stream.nPacks);
}

TEST_F(SnapChannelTest, SeveralPacksWithLeadingBytesGiveTheSameText)
{
    const std::string text = Read("").text;
    for (const char* const packs :
         {"packs 0:*", "packs 16:1 0:2 7:600 4096:*", "packs 1:100000 5:*"}) {
        const Outcome outcome = Read(packs);
        EXPECT_EQ(text, outcome.text) << packs;
        EXPECT_EQ("", outcome.out + outcome.err);
    }
}

struct Fault {
    const char* name;
    std::string script;
    bool reads; // the reading still gives its text
    std::string out;
    std::string err;
    std::string calls;
};

void PrintTo(const Fault& fault, std::ostream* os)
{
    *os << fault.script;
}

const std::string RELEASE_ABSENT = "HI_MPI_VENC_ReleaseStream is error a0000903\n";
const std::string RELEASE_NONE = "HI_MPI_VENC_ReleaseStream is error a0000904\n";
const std::string UNBIND_ABSENT = "HI_MPI_SYS_Bind failed with 0xa0000a03!\n";
const std::string STOP_ABSENT = "HI_MPI_VENC_StopRecvFrame [4] failed with 0xa0000b03!\n";
const std::string FD_ABSENT = "VencChn 4 GetFd faild with0xa0000603!\n";
const std::string ALL_ABSENT = RELEASE_ABSENT + UNBIND_ABSENT + STOP_ABSENT + NO_PICTURE;
const std::string GIVEN_UP = " SYS_UnBind VENC_StopRecvFrame"; // a tear-down that does not stop

const Fault FAULTS[] = {
    {"VpssAttributes", "HI_MPI_VPSS_GetChnAttr 0xa0070003", true, "", "",
     SET_UP + WAIT + FETCH + RELEASE + TEAR_DOWN},
    {"Create", "HI_MPI_VENC_CreateChn 0xa0080004", false,
     "HI_MPI_VENC_CreateChn [4] faild with 0xa0080004! ===\n"
     " FaceVenc_CreateChn [4] failed with 0xa0080004!   width1920  height1080 \n" +
         ALL_ABSENT,
     FD_ABSENT, "VPSS_GetChnAttr VENC_CreateChn" + WAIT + RELEASE + GIVEN_UP},
    {"CreateWithoutVpss", "HI_MPI_VPSS_GetChnAttr 1\nHI_MPI_VENC_CreateChn 0x7", false,
     "HI_MPI_VENC_CreateChn [4] faild with 0x7! ===\n"
     " FaceVenc_CreateChn [4] failed with 0x7!   width0  height0 \n" +
         ALL_ABSENT,
     FD_ABSENT, "VPSS_GetChnAttr VENC_CreateChn" + WAIT + RELEASE + GIVEN_UP},
    {"GetJpegParam", "HI_MPI_VENC_GetJpegParam 0xa0080005", false,
     "HI_MPI_VENC_GetJpegParam err 0xa0080005\n"
     " FaceVenc_SetJpegParam [4] failed with 0xffffffff!\n" +
         RELEASE_NONE + UNBIND_ABSENT + NO_PICTURE,
     TIMED_OUT, "VPSS_GetChnAttr VENC_CreateChn VENC_GetJpegParam" + WAIT + RELEASE + TEAR_DOWN},
    {"SetJpegParam", "HI_MPI_VENC_SetJpegParam 0xa0080006", false,
     "HI_MPI_VENC_SetJpegParam err 0xa0080006\n"
     " FaceVenc_SetJpegParam [4] failed with 0xffffffff!\n" +
         RELEASE_NONE + UNBIND_ABSENT + NO_PICTURE,
     TIMED_OUT,
     "VPSS_GetChnAttr VENC_CreateChn VENC_GetJpegParam VENC_SetJpegParam" + WAIT + RELEASE +
         TEAR_DOWN},
    {"Bind", "HI_MPI_SYS_Bind 0xa0020007", false,
     "HI_MPI_SYS_Bind failed with 0xa0020007!\nHI_MPI_SYS_Bind failed with 0xffffffff!\n" +
         RELEASE_NONE + UNBIND_ABSENT + NO_PICTURE,
     TIMED_OUT,
     "VPSS_GetChnAttr VENC_CreateChn VENC_GetJpegParam VENC_SetJpegParam SYS_Bind" + WAIT +
         RELEASE + TEAR_DOWN},
    {"Start", "HI_MPI_VENC_StartRecvFrame 0xa0080008", false,
     " HI_MPI_VENC_StartRecvPicEx [4] failed with 0xa0080008!\n" + ALL_ABSENT, FD_ABSENT,
     SET_UP + TEAR_DOWN + WAIT + RELEASE + GIVEN_UP},
    {"GetFd", "HI_MPI_VENC_GetFd 0xa0080009", false, RELEASE_NONE + NO_PICTURE,
     "VencChn 4 GetFd faild with0xa0080009!\n", SET_UP + WAIT + RELEASE + TEAR_DOWN},
    {"DescriptorZeroIsOne", "HI_MPI_VENC_GetFd 0\nHI_MPI_VENC_QueryStatus 0xa0080010", false,
     RELEASE_NONE + NO_PICTURE, "VencChn 4 Query failed with 0xa0080010!\n",
     SET_UP + WAIT + " VENC_QueryStatus" + RELEASE + TEAR_DOWN},
    {"DescriptorNotOpen", "HI_MPI_VENC_GetFd 31", false, RELEASE_NONE + NO_PICTURE,
     "snap jepg select failed!\n", SET_UP + WAIT + RELEASE + TEAR_DOWN},
    {"DescriptorBeyondTheSet", "HI_MPI_VENC_GetFd 1024", false, RELEASE_NONE + NO_PICTURE,
     "FD_ISSET is error\n", SET_UP + WAIT + RELEASE + TEAR_DOWN},
    {"PictureNever", "picture never", false, RELEASE_NONE + NO_PICTURE, TIMED_OUT,
     SET_UP + WAIT + RELEASE + TEAR_DOWN},
    {"Query", "HI_MPI_VENC_QueryStatus 0xa008000a", false, RELEASE_NONE + NO_PICTURE,
     "VencChn 4 Query failed with 0xa008000a!\n",
     SET_UP + WAIT + " VENC_QueryStatus" + RELEASE + TEAR_DOWN},
    {"ZeroPacks", "picture none", false, RELEASE_NONE + NO_PICTURE,
     "NOTE: Current  frame is NULL!\n", SET_UP + WAIT + " VENC_QueryStatus" + RELEASE + TEAR_DOWN},
    {"GetStream", "HI_MPI_VENC_GetStream 0xa008000b", false, RELEASE_NONE + NO_PICTURE,
     "Venc GetStream failed with 0xa008000b!\n", SET_UP + WAIT + FETCH + RELEASE + TEAR_DOWN},
    {"Release", "HI_MPI_VENC_ReleaseStream 0xa008000c", true,
     "HI_MPI_VENC_ReleaseStream is error a008000c\n", "",
     SET_UP + WAIT + FETCH + RELEASE + TEAR_DOWN},
    {"UnBind", "HI_MPI_SYS_UnBind 0xa002000d", true,
     "HI_MPI_SYS_Bind failed with 0xa002000d!\nVENC DestroyChn [4] failed with 0xa0000c04!\n", "",
     SET_UP + WAIT + FETCH + RELEASE + TEAR_DOWN},
    {"Stop", "HI_MPI_VENC_StopRecvFrame 0xa008000e", true,
     "HI_MPI_VENC_StopRecvFrame [4] failed with 0xa008000e!\n", "",
     SET_UP + WAIT + FETCH + RELEASE + GIVEN_UP},
    {"Destroy", "HI_MPI_VENC_DestroyChn 0xa008000f", true,
     "VENC DestroyChn [4] failed with 0xa008000f!\n", "",
     SET_UP + WAIT + FETCH + RELEASE + TEAR_DOWN},
    {"NoJpegInTheStream", "picture jpeg /dev/null", false, NO_PICTURE, "",
     SET_UP + WAIT + FETCH + RELEASE + TEAR_DOWN},
    {"StreamTooLong", "packs 2073601:*", false, "", "",
     SET_UP + WAIT + FETCH + RELEASE + TEAR_DOWN},
};

class SnapFaultTest : public SnapChannelTest, public testing::WithParamInterface<Fault>
{
};

TEST_P(SnapFaultTest, SaysSoAndCarriesOnToTheEnd)
{
    const Fault& fault = GetParam();
    const int input = open("/dev/null", O_RDONLY); // always readable
    dup2(input, STDIN_FILENO);
    close(input);
    const auto start = std::chrono::steady_clock::now();
    const Outcome outcome = Read(fault.script);
    if (fault.err == TIMED_OUT) {
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
    }
    if (CallsOf(SIM_VENC_GETSTREAM).empty()) {
        EXPECT_EQ(std::vector<uint8_t>(sizeof(MediaStream), 0),
                  CallsOf(SIM_VENC_RELEASESTREAM)[0]->record)
            << "as it was zeroed";
    }
    std::string out = fault.out;
    if (fault.name == std::string("StreamTooLong")) { // the sum depends on the scene's JPEG
        EXPECT_EQ(0U, outcome.out.find("func:QrcodeVenc_CopyStreamData line:319 nStreamLen=2"));
        out = outcome.out.substr(0, outcome.out.find('\n') + 1) + NO_PICTURE;
        EXPECT_NE(std::string::npos, out.find(", MAXFRAMERINBUF=2073600\n"));
    }
    EXPECT_EQ(out, outcome.out);
    EXPECT_EQ(fault.err, outcome.err);
    EXPECT_EQ(fault.calls, Calls());
    EXPECT_EQ(fault.reads, outcome.result > 0);
    if (!fault.reads) {
        EXPECT_EQ(-1, outcome.result);
        EXPECT_EQ("", outcome.text);
    }

    // Whatever was left behind: two readings later at most a picture is read again.
    Read("");
    EXPECT_GT(Read("").result, 0);
}

INSTANTIATE_TEST_SUITE_P(All, SnapFaultTest, testing::ValuesIn(FAULTS),
                         [](const auto& fault) { return std::string(fault.param.name); });

TEST_F(SnapChannelTest, FailedFetchFreesThePacksButKeepsTheirNumber)
{
    Read("packs 0:1 0:2 0:*\nHI_MPI_VENC_GetStream 0xa0080001");
    MediaStream stream;
    std::memcpy(&stream, CallsOf(SIM_VENC_RELEASESTREAM)[0]->record.data(), sizeof(stream));
    EXPECT_EQ(nullptr, stream.pPack);
    EXPECT_EQ(3U, stream.nPacks);
    EXPECT_TRUE(lastWasFreed);
}

TEST_F(SnapChannelTest, MemoryThatRunsOutIsSaidAndSurvived)
{
    ASSERT_EQ(0, FaceVenc_StartSnap());
    MediaStream stream = {};
    testing::internal::CaptureStderr();
    memoryIsShort = true;
    const int result = FaceVenc_GetStream(4, &stream, 1000);
    memoryIsShort = false;
    EXPECT_EQ("malloc memory failed!\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ(-1, result);
    EXPECT_EQ(nullptr, stream.pPack);
    EXPECT_EQ(0U, stream.nPacks);
    FaceVenc_DestroyChn(4);
}

TEST_F(SnapChannelTest, WaitIsInMilliseconds)
{
    SimScript script;
    script.pictureNever = true;
    Sim_SetScript(script);
    ASSERT_EQ(0, FaceVenc_StartSnap());
    MediaStream stream = {};
    testing::internal::CaptureStderr();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(-1, FaceVenc_GetStream(4, &stream, 150));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
    EXPECT_EQ(TIMED_OUT, testing::internal::GetCapturedStderr());
    FaceVenc_DestroyChn(4);
}

TEST_F(SnapChannelTest, StepsPassThePlatformsCodesOnOrNotAsTheySay)
{
    SimScript script;
    std::string error;
    ASSERT_TRUE(Sim_ParseScript("HI_MPI_VENC_CreateChn 11\nHI_MPI_SYS_Bind 12\n"
                                "HI_MPI_SYS_UnBind 13\nHI_MPI_VENC_ReleaseStream 14\n"
                                "HI_MPI_VENC_StopRecvFrame 15\nHI_MPI_VENC_QueryStatus 16\n",
                                script, error));
    ASSERT_EQ(0, FaceVenc_StartSnap());
    MediaStream stream = {};
    Sim_SetScript(script);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(-1, FaceVenc_StartSnap());
    EXPECT_EQ(11, FaceVenc_CreateChn(5, 100, 50));
    EXPECT_EQ(-1, FaceVenc_BindVpss(1, 0, 4));
    EXPECT_EQ(-1, FaceVenc_UnBindVpss(1, 0, 4));
    EXPECT_EQ(14, FaceVenc_ReleaseStream(4, &stream));
    EXPECT_EQ(15, FaceVenc_DestroyChn(4));
    EXPECT_EQ(16, FaceVenc_GetStream(4, &stream, 1000));
    script.faults = {{"HI_MPI_VENC_GetStream", {18, -1}}};
    Sim_SetScript(script);
    EXPECT_EQ(18, FaceVenc_GetStream(4, &stream, 1000));
    script.faults = {{"HI_MPI_VENC_DestroyChn", {17, -1}}};
    Sim_SetScript(script);
    EXPECT_EQ(17, FaceVenc_DestroyChn(4));
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
}

// --- the copy ---

// A stream of packs over one array of bytes.
struct HandMade {
    std::vector<uint8_t> bytes;
    std::vector<MediaPack> packs;
    MediaStream stream{};
    std::vector<uint8_t> copied;

    // {length, offset} of each pack.
    explicit HandMade(const std::vector<std::pair<uint32_t, uint32_t>>& layout)
    {
        size_t total = 0;
        for (const auto& pack : layout) {
            total += pack.first;
        }
        bytes.resize(total);
        for (size_t i = 0; i < total; ++i) {
            bytes[i] = static_cast<uint8_t>(i % 251 + 1);
        }
        uint8_t* next = bytes.data();
        for (const auto& pack : layout) {
            MediaPack record{};
            record.pAddr = next;
            record.nLen = pack.first;
            record.nOffset = pack.second;
            packs.push_back(record);
            next += pack.first;
        }
        stream.pPack = packs.data();
        stream.nPacks = static_cast<uint32_t>(packs.size());
    }

    int Copy(std::string& out)
    {
        copied.assign(MAXFRAMERINBUF, 0);
        testing::internal::CaptureStdout();
        const int result = QrcodeVenc_CopyStreamData(&stream, copied.data());
        out = testing::internal::GetCapturedStdout();
        return result;
    }
};

TEST(CopyStreamTest, LaysTheValidBytesEndToEnd)
{
    std::string out;
    HandMade packs({{5, 2}, {3, 0}, {4, 4}, {2, 3}, {6, 5}}); // one all skipped, one beyond its end
    EXPECT_EQ(3 + 3 + 0 + 0 + 1, packs.Copy(out));
    EXPECT_EQ((std::vector<uint8_t>{3, 4, 5, 6, 7, 8, 20, 0}),
              std::vector<uint8_t>(packs.copied.begin(), packs.copied.begin() + 8));
    EXPECT_EQ("", out);
}

TEST(CopyStreamTest, LimitIsOnTheFullLengths)
{
    std::string out;
    EXPECT_EQ(2073600, HandMade({{2073600, 0}}).Copy(out));
    EXPECT_EQ("", out);
    EXPECT_EQ(2073500, HandMade({{1000000, 100}, {1073600, 0}}).Copy(out));

    HandMade over({{1000000, 1000000}, {1073601, 5}}); // few valid bytes, but one too many in all
    EXPECT_EQ(-1, over.Copy(out));
    EXPECT_EQ(
        "func:QrcodeVenc_CopyStreamData line:319 nStreamLen=2073601, MAXFRAMERINBUF=2073600\n",
        out);
    EXPECT_EQ(std::vector<uint8_t>(MAXFRAMERINBUF, 0), over.copied);
}

TEST(CopyStreamTest, NoPacksAreNothingAndNullArgumentsAnError)
{
    std::string out;
    HandMade packs({{5, 0}});
    packs.stream.pPack = nullptr;
    EXPECT_EQ(0, packs.Copy(out));
    packs.stream = MediaStream{};
    EXPECT_EQ(0, packs.Copy(out));
    EXPECT_EQ("", out);

    testing::internal::CaptureStdout();
    EXPECT_EQ(-1, QrcodeVenc_CopyStreamData(nullptr, packs.copied.data()));
    EXPECT_EQ(-1, QrcodeVenc_CopyStreamData(&packs.stream, nullptr));
    EXPECT_EQ("FaceVenc_CopyStreamData error \nFaceVenc_CopyStreamData error \n",
              testing::internal::GetCapturedStdout());
}

} // namespace
