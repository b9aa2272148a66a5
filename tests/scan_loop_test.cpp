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

int Qrcode_CaptureAndDecode(int* unused, char* text)
{
    readingArgument = unused;
    bufferWasClear = std::string(text, QRCODE_TEXT_SIZE) == std::string(QRCODE_TEXT_SIZE, '\0');
    const Reading& reading = readings.at(nextReading++);
    reading.text.copy(text, reading.text.size());
    return reading.result;
}

int API_Socket_SendMsg(const void* data, unsigned int length, int command, int param)
{
    EXPECT_EQ(0x904, command);
    EXPECT_EQ(0, param);
    sent.emplace_back(static_cast<const char*>(data), length);
    return 0;
}

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
        loop = {};
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
            std::memset(loop.szCurrent, 'x', sizeof(loop.szCurrent));
            Qrcode_ScanPass(&loop);
            EXPECT_TRUE(bufferWasClear) << "reading " << i;
        }
        EXPECT_EQ(given.size(), nextReading);
        std::vector<std::string> texts;
        for (const std::string& payload : sent) {
            const std::string text(payload, 0, payload.find('\0'));
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
    const Reading eleven = {"0123456789a", 11};
    const Reading empty = {"", 1};
    // The result counts the last symbol's text only; the tail of a longer one is behind it.
    const Reading overlapped = {"abcLONGERTEXT", 3};
    const struct {
        const char* rule;
        std::vector<Reading> given;
        Texts sent;
    } rules[] = {
        {"each once", {A, A, A}, {A.text}},
        {"again only after a reading without a text",
         {A, NOTHING, A, A, UNDECODABLE, A},
         {A.text, A.text, A.text}},
        {"a result below one is a failure, whatever the buffer holds",
         {A, {B.text, 0}, A, {B.text, -1}},
         {A.text, A.text}},
        {"texts may take turns", {A, B, B, A}, {A.text, B.text, A.text}},
        {"eleven characters but not ten", {SHORT, eleven}, {eleven.text}},
        {"a short text still becomes the last result", {A, SHORT, A}, {A.text, A.text}},
        {"the length is the text's own", {overlapped, {"abc", 11}}, {overlapped.text}},
        {"an empty text with a result replaces the last one",
         {empty, A, empty, A},
         {A.text, A.text}},
        {"the longest", {{std::string(1023, 'x'), 1023}}, {std::string(1023, 'x')}},
    };
    for (const auto& rule : rules) {
        SCOPED_TRACE(rule.rule);
        SetUp();
        EXPECT_EQ(rule.sent, Run(rule.given));
    }
}

TEST_F(ScanLoopTest, ComparesTakesOverAndForgetsTheWholeBuffer)
{
    for (const size_t place : {0, 3, 4, 7, 8, 16, 99, 100, 1022, 1023}) {
        std::string other = Padded(A.text);
        other[place] = 'x';
        SetUp();
        readings = {A, {other, 15}, {other, 15}, NOTHING};
        for (size_t i = 0; i < readings.size(); ++i) {
            Qrcode_ScanPass(&loop);
        }
        EXPECT_EQ((Texts{Padded(A.text), other}), sent) << "differs at " << place;
        EXPECT_EQ(Padded(""), std::string(loop.szLast, sizeof(loop.szLast))) << place;
    }
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
