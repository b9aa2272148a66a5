// The snapshot channel over the simulated platform: the calls and records of a good snapshot, and
// every fault of the platform through one table.
#include "snap_channel.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <regex>
#include <sys/select.h>

#include "capture_decode.h"
#include "dirty_stack.h"
#include "files.h"
#include "message.h"
#include "sim_platform.h"
#include "snap_size.h"

namespace
{
bool memoryIsShort = false;
void* lastPacks = nullptr; // pack array; others' memory comes this way too, where they are archives
bool lastWasFreed = false;

std::vector<int64_t> waits; // for pictures, us
enum { AS_IT_IS, INTERRUPTED, NOT_IN_THE_SET } waitOutcome = AS_IT_IS;
const int64_t SECOND_US = 1000000; // a reading's wait; where it is in vain, 50 ms will do
} // namespace

extern "C" {
void* __real_calloc(size_t count, size_t size);
void __real_free(void* memory);
int __real_select(int n, fd_set* in, fd_set* out, fd_set* except, timeval* wait);

int __wrap_select(int n, fd_set* in, fd_set* out, fd_set* except, timeval* wait)
{
    EXPECT_TRUE(out == nullptr && except == nullptr);
    for (int fd = 0; fd < FD_SETSIZE; ++fd) { // a stack full of ones is not waited for
        EXPECT_EQ(fd == n - 1, FD_ISSET(fd, in) != 0) << fd;
    }
    waits.push_back(wait != nullptr ? wait->tv_sec * SECOND_US + wait->tv_usec : -1);
    if (waitOutcome != AS_IT_IS) {
        FD_ZERO(in);
        errno = EINTR;
        return waitOutcome == INTERRUPTED ? -1 : 1;
    }
    timeval brief = {0, 50000};
    return __real_select(n, in, out, except, waits.back() == SECOND_US ? &brief : wait);
}

void* __wrap_calloc(size_t count, size_t size)
{
    void* const memory = memoryIsShort ? nullptr : __real_calloc(count, size);
    if (size == sizeof(MediaPack)) {
        lastPacks = memory;
        lastWasFreed = false;
    }
    return memory;
}

void __wrap_free(void* memory)
{
    lastWasFreed = lastWasFreed || memory == lastPacks;
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
Outcome Read(const std::string& script, bool dirtyStack = false)
{
    SimScript parsed;
    std::string error;
    EXPECT_TRUE(Sim_ParseScript(script, parsed, error)) << error;
    parsed.frameMs = 0; // a picture is there at once, or never
    Sim_SetScript(parsed);
    Sim_KeepCalls(true);
    waits.clear();
    char text[QRCODE_TEXT_SIZE] = {0};
    int unused = 7;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    if (dirtyStack) {
        DirtyStack<MAXFRAMERINBUF + 65536>();
    }
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

const std::string TIMED_OUT = "venc chn 4 get stream time out!\n";

class SnapChannelTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string error;
        const int viewMs = 3600000; // whatever a loaded machine needs
        ASSERT_TRUE(Sim_OpenScene(Sample("plain.png"), viewMs, "", error)) << error;
        nSnapWidth = 0;
        nSnapHeight = 0;
    }
    void TearDown() override { Sim_Reset(); }
};

TEST_F(SnapChannelTest, EveryGoodSnapshotMakesTheseCallsWithTheseRecords)
{
    for (int reading = 1; reading <= 2; ++reading) {
        SCOPED_TRACE(reading);
        const Outcome outcome = Read("", true);
        EXPECT_GT(outcome.result, 0);
        EXPECT_EQ("", outcome.out + outcome.err);
        EXPECT_FALSE(lastWasFreed) << "the pack array of a good snapshot stays, by design";
        EXPECT_EQ(400U, nSnapWidth);
        EXPECT_EQ(400U, nSnapHeight);
        EXPECT_EQ((std::vector<int64_t>{SECOND_US}), waits);
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
        for (auto& table : asItCame.aQuantTable) {
            std::fill(std::begin(table), std::end(table), uint8_t{16});
        }
        asItCame.nQuality = 99;
        asItCame.nMcuPerEcs = 50;
        EXPECT_EQ(0, std::memcmp(jpeg.data(), &asItCame, sizeof(asItCame)))
            << "but for the quality";

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
        EXPECT_EQ(0, std::count_if(std::begin(stream.aReserved), std::end(stream.aReserved),
                                   [](uint32_t word) { return word != 0; }));
    }
}

TEST_F(SnapChannelTest, SeveralPacksWithLeadingBytesGiveTheSameTextAndLeaveNothing)
{
    const std::string text = Read("").text;
    for (const char* const packs :
         {"packs 0:*", "packs 16:1 0:2 7:600 4096:*", "packs 1:100000 5:*"}) {
        const Outcome outcome = Read(packs);
        EXPECT_EQ(text, outcome.text) << packs;
        EXPECT_EQ("", outcome.out + outcome.err);
    }
    EXPECT_EQ(-1, Read("picture never").result) << "nothing of the one before is seen again";
}

const std::string RELEASE_ABSENT = "HI_MPI_VENC_ReleaseStream is error a0000903\n";
const std::string RELEASE_NONE = "HI_MPI_VENC_ReleaseStream is error a0000904\n";
const std::string UNBIND_ABSENT = "HI_MPI_SYS_Bind failed with 0xa0000a03!\n";
const std::string STOP_ABSENT = "HI_MPI_VENC_StopRecvFrame [4] failed with 0xa0000b03!\n";
const std::string FD_ABSENT = "VencChn 4 GetFd faild with0xa0000603!\n";
const std::string NO_PICTURE = "src.data is NULL\n";
const std::string ALL_ABSENT = RELEASE_ABSENT + UNBIND_ABSENT + STOP_ABSENT + NO_PICTURE;
const std::string NONE_BOUND = RELEASE_NONE + UNBIND_ABSENT + NO_PICTURE;
const std::string NONE_TAKEN = RELEASE_NONE + NO_PICTURE;

const std::string CREATE = "VPSS_GetChnAttr VENC_CreateChn";
const std::string GIVEN_UP = " SYS_UnBind VENC_StopRecvFrame"; // a tear-down that does not stop
const std::string END = RELEASE + TEAR_DOWN;
const std::string UNREADY = SET_UP + WAIT + END;
const std::string UNFETCHED = SET_UP + WAIT + " VENC_QueryStatus" + END;
const std::string ALL = SET_UP + WAIT + FETCH + END;

struct Fault {
    std::string script;
    std::string out;
    std::string err;
    std::string calls;
};

const Fault FAULTS[] = {
    {"HI_MPI_VPSS_GetChnAttr 0xa0070003", "", "", ALL},
    {"HI_MPI_VENC_CreateChn 0xa0080004",
     "HI_MPI_VENC_CreateChn [4] faild with 0xa0080004! ===\n"
     " FaceVenc_CreateChn [4] failed with 0xa0080004!   width1920  height1080 \n" +
         ALL_ABSENT,
     FD_ABSENT, CREATE + WAIT + RELEASE + GIVEN_UP},
    {"HI_MPI_VPSS_GetChnAttr 1\nHI_MPI_VENC_CreateChn 0xa0080007",
     "HI_MPI_VENC_CreateChn [4] faild with 0xa0080007! ===\n"
     " FaceVenc_CreateChn [4] failed with 0xa0080007!   width0  height0 \n" +
         ALL_ABSENT,
     FD_ABSENT, CREATE + WAIT + RELEASE + GIVEN_UP},
    {"HI_MPI_VENC_GetJpegParam 0xa0080005",
     "HI_MPI_VENC_GetJpegParam err 0xa0080005\n"
     " FaceVenc_SetJpegParam [4] failed with 0xffffffff!\n" +
         NONE_BOUND,
     TIMED_OUT, CREATE + " VENC_GetJpegParam" + WAIT + END},
    {"HI_MPI_VENC_SetJpegParam 0xa0080006",
     "HI_MPI_VENC_SetJpegParam err 0xa0080006\n"
     " FaceVenc_SetJpegParam [4] failed with 0xffffffff!\n" +
         NONE_BOUND,
     TIMED_OUT, CREATE + " VENC_GetJpegParam VENC_SetJpegParam" + WAIT + END},
    {"HI_MPI_SYS_Bind 0xa0020007",
     "HI_MPI_SYS_Bind failed with 0xa0020007!\nHI_MPI_SYS_Bind failed with 0xffffffff!\n" +
         NONE_BOUND,
     TIMED_OUT, CREATE + " VENC_GetJpegParam VENC_SetJpegParam SYS_Bind" + WAIT + END},
    {"HI_MPI_VENC_StartRecvFrame 0xa0080008",
     " HI_MPI_VENC_StartRecvPicEx [4] failed with 0xa0080008!\n" + ALL_ABSENT, FD_ABSENT,
     SET_UP + TEAR_DOWN + WAIT + RELEASE + GIVEN_UP},
    {"HI_MPI_VENC_GetFd 0x80000009", NONE_TAKEN, "VencChn 4 GetFd faild with0x80000009!\n",
     UNREADY},
    {"HI_MPI_VENC_GetFd 0\nHI_MPI_VENC_QueryStatus 0xa0080010", NONE_TAKEN, // 0 is a descriptor
     "VencChn 4 Query failed with 0xa0080010!\n", UNFETCHED},
    {"HI_MPI_VENC_GetFd 31 # not open", NONE_TAKEN, "snap jepg select failed!\n", UNREADY},
    {"HI_MPI_VENC_GetFd 1024 # no set holds it", NONE_TAKEN, "FD_ISSET is error\n", UNREADY},
    {"picture never", NONE_TAKEN, TIMED_OUT, UNREADY},
    {"HI_MPI_VENC_QueryStatus 0xa008000a", NONE_TAKEN, "VencChn 4 Query failed with 0xa008000a!\n",
     UNFETCHED},
    {"HI_MPI_VENC_QueryStatus 0 # says nothing", NONE_TAKEN, "NOTE: Current  frame is NULL!\n",
     UNFETCHED},
    {"picture none", NONE_TAKEN, "NOTE: Current  frame is NULL!\n", UNFETCHED},
    {"HI_MPI_VENC_GetStream 0xa008000b", NONE_TAKEN, "Venc GetStream failed with 0xa008000b!\n",
     ALL},
    {"HI_MPI_VENC_ReleaseStream 0xa008000c", "HI_MPI_VENC_ReleaseStream is error a008000c\n", "",
     ALL},
    {"HI_MPI_SYS_UnBind 0xa002000d",
     "HI_MPI_SYS_Bind failed with 0xa002000d!\nVENC DestroyChn [4] failed with 0xa0000c04!\n", "",
     ALL},
    {"HI_MPI_VENC_StopRecvFrame 0xa008000e",
     "HI_MPI_VENC_StopRecvFrame [4] failed with 0xa008000e!\n", "",
     SET_UP + WAIT + FETCH + RELEASE + GIVEN_UP},
    {"HI_MPI_VENC_DestroyChn 0xa008000f", "VENC DestroyChn [4] failed with 0xa008000f!\n", "", ALL},
    {"picture jpeg /dev/null", NO_PICTURE, "", ALL},
    {"packs 2073601:0",
     "func:QrcodeVenc_CopyStreamData line:319 nStreamLen=2073601, MAXFRAMERINBUF=2073600\n" +
         NO_PICTURE,
     "", ALL},
};

// The platform's codes are negative, but any other than 0 is a failure.
Fault WithPositiveCodes(const Fault& fault)
{
    const auto positive = [](const std::string& text) {
        return std::regex_replace(text, std::regex("a00([278])"), "$1");
    };
    return {positive(fault.script), positive(fault.out), positive(fault.err), fault.calls};
}

TEST_F(SnapChannelTest, EveryFaultIsSaidAndTheReadingCarriesOnToItsEnd)
{
    const int input = open("/dev/null", O_RDONLY); // always readable
    dup2(input, STDIN_FILENO);
    close(input);
    std::vector<Fault> faults(std::begin(FAULTS), std::end(FAULTS));
    std::transform(std::begin(FAULTS), std::end(FAULTS), std::back_inserter(faults),
                   WithPositiveCodes);
    for (const Fault& fault : faults) {
        SCOPED_TRACE(fault.script);
        // Whatever was left behind: two readings later at most a picture is read again.
        EXPECT_TRUE(Read("").result > 0 || Read("").result > 0);

        const Outcome outcome = Read(fault.script, true);
        EXPECT_EQ(fault.out, outcome.out);
        EXPECT_EQ(fault.err, outcome.err);
        EXPECT_EQ(fault.calls, Calls());
        const bool reads = fault.out.find(NO_PICTURE) == std::string::npos;
        EXPECT_TRUE(reads ? outcome.result > 0 : outcome.result == -1);
        EXPECT_EQ(reads, !outcome.text.empty());
        EXPECT_EQ(std::vector<int64_t>(waits.size(), SECOND_US), waits);
        if (CallsOf(SIM_VENC_GETSTREAM).empty()) {
            EXPECT_EQ(std::vector<uint8_t>(sizeof(MediaStream), 0),
                      CallsOf(SIM_VENC_RELEASESTREAM)[0]->record)
                << "as it was zeroed";
        }
    }
}

TEST_F(SnapChannelTest, FailedFetchFreesThePacksButKeepsTheirNumber)
{
    Read("packs 0:1 0:2 0:*\nHI_MPI_VENC_GetStream 0xa0080001");
    MediaStream stream;
    std::memcpy(&stream, CallsOf(SIM_VENC_RELEASESTREAM)[0]->record.data(), sizeof(stream));
    EXPECT_EQ(nullptr, stream.pPack);
    EXPECT_EQ(3U, stream.nPacks);
    EXPECT_TRUE(lastWasFreed);
}

TEST_F(SnapChannelTest, WaitIsOneInMilliseconds)
{
    SimScript script;
    script.pictureNever = true;
    Sim_SetScript(script);
    ASSERT_EQ(0, FaceVenc_StartSnap());
    MediaStream stream = {};
    waits.clear();
    testing::internal::CaptureStderr();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(-1, FaceVenc_GetStream(4, &stream, 150)); // a real one
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(150));
    EXPECT_LT(took, std::chrono::seconds(20));
    waitOutcome = INTERRUPTED;
    EXPECT_EQ(-1, FaceVenc_GetStream(4, &stream, 2345));
    waitOutcome = NOT_IN_THE_SET;
    EXPECT_EQ(-1, FaceVenc_GetStream(4, &stream, 999));
    waitOutcome = AS_IT_IS;
    EXPECT_EQ(TIMED_OUT + "snap jepg select failed!\nFD_ISSET is error\n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ((std::vector<int64_t>{150000, 2345000, 999000}), waits) << "none is made again";
    FaceVenc_DestroyChn(4);
}

TEST_F(SnapChannelTest, StepsUseTheirArgumentsAndPassCodesOnOrNotAsTheySay)
{
    SimScript script;
    script.frameMs = 0;
    Sim_KeepCalls(true);
    // A step fails once for each operation, then it goes well.
    const auto step = [&](std::initializer_list<const char*> operations, int failed, auto run) {
        for (const char* const operation : operations) {
            script.faults = {{operation, {0x17, 1}}};
            Sim_SetScript(script);
            EXPECT_EQ(failed, run()) << operation;
        }
        EXPECT_EQ(0, run()) << *operations.begin();
    };
    const MediaRecvParam one = {1};
    MediaStream stream = {};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    step({"HI_MPI_VENC_CreateChn"}, 0x17, [] { return FaceVenc_CreateChn(5, 100, 50); });
    step({"HI_MPI_VENC_GetJpegParam", "HI_MPI_VENC_SetJpegParam"}, -1,
         [] { return FaceVenc_SetJpegParam(5, 42); });
    EXPECT_EQ(-1, FaceVenc_BindVpss(2, 3, 5)) << "there is no such source";
    EXPECT_EQ(-1, FaceVenc_UnBindVpss(2, 3, 5));
    EXPECT_EQ(0, FaceVenc_BindVpss(1, 0, 5));
    EXPECT_EQ(0, FaceVenc_UnBindVpss(1, 0, 5));
    EXPECT_EQ(0, FaceVenc_BindVpss(1, 0, 5));
    EXPECT_EQ(0, HI_MPI_VENC_StartRecvFrame(5, &one));
    script.faults = {{"HI_MPI_VENC_QueryStatus", {0, 1}}}; // says nothing
    Sim_SetScript(script);
    EXPECT_EQ(-1, FaceVenc_GetStream(5, &stream, 10000));
    memoryIsShort = true;
    EXPECT_EQ(-1, FaceVenc_GetStream(5, &stream, 10000));
    memoryIsShort = false;
    EXPECT_TRUE(stream.pPack == nullptr && stream.nPacks == 0);
    step({"HI_MPI_VENC_QueryStatus", "HI_MPI_VENC_GetStream"}, 0x17,
         [&] { return FaceVenc_GetStream(5, &stream, 10000); });
    step({"HI_MPI_VENC_ReleaseStream"}, 0x17, [&] { return FaceVenc_ReleaseStream(5, &stream); });
    step({"HI_MPI_VENC_StopRecvFrame", "HI_MPI_VENC_DestroyChn"}, 0x17,
         [] { return FaceVenc_DestroyChn(5); });
    EXPECT_EQ("NOTE: Current  frame is NULL!\nmalloc memory failed!\nVencChn 5 Query failed with "
              "0x17!\nVenc GetStream failed "
              "with 0x17!\n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ("HI_MPI_VENC_CreateChn [5] faild with 0x17! ===\n"
              "HI_MPI_VENC_GetJpegParam err 0x17\nHI_MPI_VENC_SetJpegParam err 0x17\n"
              "HI_MPI_SYS_Bind failed with 0xa0000401!\nHI_MPI_SYS_Bind failed with 0xa0000a01!\n"
              "HI_MPI_VENC_ReleaseStream is error 17\n"
              "HI_MPI_VENC_StopRecvFrame [5] failed with 0x17!\n" +
                  UNBIND_ABSENT + "VENC DestroyChn [5] failed with 0x17!\n" + UNBIND_ABSENT,
              testing::internal::GetCapturedStdout());
    for (const SimCall& call : Sim_Calls()) {
        EXPECT_TRUE(call.numbers.empty() || call.numbers[0] == 5) << Sim_OperationName(call.op);
    }
    const std::vector<uint32_t> attr = Words(CallsOf(SIM_VENC_CREATECHN)[0]->record);
    EXPECT_EQ((std::vector<uint32_t>{26, 100, 50, 10000, 1, 1, 100, 50}),
              std::vector<uint32_t>(attr.begin(), attr.begin() + 8));
    EXPECT_EQ(42U, Words(CallsOf(SIM_VENC_SETJPEGPARAM)[0]->record)[0]);
    const std::vector<uint32_t> ends = {7, 2, 3, 8, 0, 5};
    EXPECT_EQ(ends, Words(CallsOf(SIM_SYS_BIND)[0]->record));
    EXPECT_EQ(ends, Words(CallsOf(SIM_SYS_UNBIND)[0]->record));

    // The set-up as a whole: -1 whatever fails in it.
    testing::internal::CaptureStdout();
    for (const char* const operation :
         {"HI_MPI_VENC_CreateChn", "HI_MPI_VENC_GetJpegParam", "HI_MPI_VENC_SetJpegParam",
          "HI_MPI_SYS_Bind", "HI_MPI_VENC_StartRecvFrame"}) {
        script.faults = {{operation, {0x17, 1}}};
        Sim_SetScript(script);
        EXPECT_EQ(-1, FaceVenc_StartSnap()) << operation;
        FaceVenc_DestroyChn(4);
    }
    EXPECT_EQ(0, FaceVenc_StartSnap());
    FaceVenc_DestroyChn(4);
    testing::internal::GetCapturedStdout();
}

TEST(CopyStreamTest, LaysTheValidBytesEndToEndAndLimitsTheFullLengths)
{
    const std::string tooLarge =
        "func:QrcodeVenc_CopyStreamData line:319 nStreamLen=2073601, MAXFRAMERINBUF=2073600\n";
    std::vector<uint8_t> bytes(MAXFRAMERINBUF + 1); // of the packs, one behind the other
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(i % 251 + 1);
    }
    const struct {
        std::vector<std::pair<uint32_t, uint32_t>> packs; // length and leading bytes
        int result;
        std::string out;
    } copies[] = {
        {{}, 0, ""},
        {{{5, 2}, {3, 0}, {4, 4}, {2, 3}, {6, 5}}, 7, ""}, // one all skipped, one beyond its end
        {{{2073600, 0}}, 2073600, ""},
        {{{1000000, 100}, {1073600, 0}}, 2073500, ""},
        {{{1000000, 1000000}, {1073601, 5}}, -1, tooLarge}, // few valid bytes, one too many in all
    };
    for (const auto& copy : copies) {
        std::vector<MediaPack> packs;
        std::vector<uint8_t> expected;
        size_t next = 0;
        for (const auto& [length, offset] : copy.packs) {
            packs.emplace_back();
            packs.back().pAddr = &bytes[next];
            packs.back().nLen = length;
            packs.back().nOffset = offset;
            expected.insert(expected.end(), bytes.data() + next + std::min(length, offset),
                            bytes.data() + next + length);
            next += length;
        }
        expected.resize(copy.result < 0 ? 0 : expected.size());
        expected.resize(MAXFRAMERINBUF);
        MediaStream stream{};
        stream.pPack = packs.data();
        stream.nPacks = static_cast<uint32_t>(packs.size());
        std::vector<uint8_t> copied(MAXFRAMERINBUF, 0);
        testing::internal::CaptureStdout();
        EXPECT_EQ(copy.result, QrcodeVenc_CopyStreamData(&stream, copied.data()));
        EXPECT_EQ(copy.out, testing::internal::GetCapturedStdout());
        EXPECT_TRUE(expected == copied) << copy.result;
    }
}

TEST(CopyStreamTest, NullPacksAreNothingAndNullArgumentsAnError)
{
    uint8_t buffer[1];
    MediaStream stream{};
    stream.nPacks = 1;
    testing::internal::CaptureStdout();
    EXPECT_EQ(0, QrcodeVenc_CopyStreamData(&stream, buffer));
    EXPECT_EQ(-1, QrcodeVenc_CopyStreamData(nullptr, buffer));
    EXPECT_EQ(-1, QrcodeVenc_CopyStreamData(&stream, nullptr));
    EXPECT_EQ("FaceVenc_CopyStreamData error \nFaceVenc_CopyStreamData error \n",
              testing::internal::GetCapturedStdout());
}

} // namespace
