// The scan loop's rules over sequences of readings; the reading, the send and the pause stand in.
#include "scan_loop.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "message.h"
#include "messaging.h"
#include "run_flags.h"

namespace
{

struct Reading {
    std::string text;
    int result;
};

std::vector<Reading> readings;
size_t nextReading;
bool bufferWasClear;
int* readingArgument;
std::vector<std::string> sent; // whole payloads
std::vector<useconds_t> pauses;

} // namespace

int Qrcode_CaptureAndDecode(int* pUnused, char* szText)
{
    readingArgument = pUnused;
    bufferWasClear = std::string(szText, QRCODE_TEXT_SIZE) == std::string(QRCODE_TEXT_SIZE, '\0');
    const Reading& reading = readings.at(nextReading++);
    std::memcpy(szText, reading.text.data(), reading.text.size());
    return reading.result;
}

int API_Socket_SendMsg(const void* pData, unsigned int nLength, int nCommand, int nParam)
{
    EXPECT_EQ(0x904, nCommand);
    EXPECT_EQ(0, nParam);
    sent.emplace_back(static_cast<const char*>(pData), nLength);
    return 0;
}

extern "C" int __wrap_usleep(useconds_t us);
extern "C" int __wrap_usleep(useconds_t us)
{
    pauses.push_back(us);
    return 0;
}

namespace
{

std::string Padded(const std::string& text)
{
    return text + std::string(1024 - text.size(), '\0');
}

class ScanLoopTest : public testing::Test
{
protected:
    void SetUp() override
    {
        nextReading = 0;
        sent.clear();
        pauses.clear();
        Qrcode_SetScanEnable(1);
    }

    // Runs a pass for each reading; a text with result 0 stands for a failed one. Returns the
    // texts that were sent.
    std::vector<std::string> Run(const std::vector<Reading>& given)
    {
        readings = given;
        for (size_t i = 0; i < given.size(); ++i) {
            Qrcode_ScanPass(&loop);
            EXPECT_TRUE(bufferWasClear) << "reading " << i;
        }
        EXPECT_EQ(given.size(), nextReading);
        std::vector<std::string> texts;
        for (const std::string& payload : sent) {
            const std::string text = payload.c_str();
            EXPECT_EQ(Padded(text), payload);
            texts.push_back(text);
        }
        return texts;
    }

    ScanLoop loop{};
};

const Reading NOTHING = {"", 0};
const Reading UNDECODABLE = {"", -1};
const Reading A = {"AAAAAAAAAAAAAAA", 15};
const Reading B = {"BBBBBBBBBBB", 11};
const Reading SHORT = {"0123456789", 10};

using Texts = std::vector<std::string>;

TEST_F(ScanLoopTest, SendsEachNewTextOnce)
{
    EXPECT_EQ((Texts{A.text}), Run({A, A, A}));
}

TEST_F(ScanLoopTest, ForgetsTheTextOnlyAfterAReadingWithoutOne)
{
    EXPECT_EQ((Texts{A.text, A.text, A.text}), Run({A, NOTHING, A, A, UNDECODABLE, A}));
}

TEST_F(ScanLoopTest, ResultBelowOneIsAFailureWhateverTheBufferHolds)
{
    EXPECT_EQ((Texts{A.text, A.text}), Run({A, {B.text, 0}, A, {B.text, -1}}));
}

TEST_F(ScanLoopTest, SendsTextsThatTakeTurns)
{
    EXPECT_EQ((Texts{A.text, B.text, A.text}), Run({A, B, B, A}));
}

TEST_F(ScanLoopTest, SendsElevenCharactersButNotTen)
{
    EXPECT_EQ((Texts{"0123456789a"}), Run({SHORT, {"0123456789a", 11}}));
}

TEST_F(ScanLoopTest, ShortTextStillBecomesTheLastResult)
{
    EXPECT_EQ((Texts{A.text, A.text}), Run({A, SHORT, A}));
}

TEST_F(ScanLoopTest, LengthIsTheTextsOwnNotTheReadings)
{
    // The result counts the last symbol's text only; the buffer may hold the tail of a longer one.
    EXPECT_EQ((Texts{"abcLONGERTEXT"}), Run({{"abcLONGERTEXT", 3}, {"abc", 11}}));
}

TEST_F(ScanLoopTest, EmptyTextWithAResultReplacesTheLastOne)
{
    EXPECT_EQ((Texts{}), Run({{"", 1}}));
    nextReading = 0;
    EXPECT_EQ((Texts{A.text, A.text}), Run({A, {"", 1}, A}));
}

TEST_F(ScanLoopTest, ComparesTheWholeBuffer)
{
    const std::string tail("AAAAAAAAAAAAAAA\0x", 17);
    readings = {A, {tail, 15}};
    Qrcode_ScanPass(&loop);
    Qrcode_ScanPass(&loop);
    ASSERT_EQ(2U, sent.size());
    EXPECT_EQ(Padded(tail), sent[1]);
}

TEST_F(ScanLoopTest, LongestTextFillsThePayload)
{
    EXPECT_EQ((Texts{std::string(1023, 'x')}), Run({{std::string(1023, 'x'), 1023}}));
}

TEST_F(ScanLoopTest, IdlesASecondUnlessEnabledIsExactlyOne)
{
    readings = {A};
    for (const int32_t enable : {0, 2, -1}) {
        Qrcode_SetScanEnable(enable);
        Qrcode_ScanPass(&loop);
    }
    EXPECT_EQ(0U, nextReading);
    EXPECT_EQ((std::vector<useconds_t>{1000000, 1000000, 1000000}), pauses);
    pauses.clear();
    Qrcode_SetScanEnable(1);
    Qrcode_ScanPass(&loop);
    EXPECT_EQ(1U, nextReading);
    EXPECT_TRUE(pauses.empty()) << "no pause between readings";
    EXPECT_EQ(&loop.nReserved, readingArgument);
    EXPECT_EQ(0, loop.nReserved);
}

} // namespace
