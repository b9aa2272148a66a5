// What is said of a datagram that does not do what its sender hopes.
#include <gtest/gtest.h>

#include "link_advice.h"

namespace
{

enum Kind { IN, OUT, LOST_IN, LOST_OUT, TIME, PICTURE };

struct Step {
    int ms; // since the hello
    Kind kind;
    PanelBytes datagram;
    std::vector<std::string> said; // part of each note, in their order
};

const int64_t HELLO_US = 1700000000000000;

PanelBytes Command(int32_t command)
{
    return Panel_CommandFrame(command);
}

PanelBytes Mode(uint8_t mode)
{
    return Panel_ModeFrame(mode);
}

// The frame's first bytes.
PanelBytes Cut(PanelBytes frame, size_t bytes)
{
    frame.resize(bytes);
    return frame;
}

PanelBytes Resynced(PanelBytes frame)
{
    frame[0] ^= 1;
    return frame;
}

const PanelBytes HELLO = [] {
    PanelBytes frame = Command(MSG_CMD_QRCODE_START);
    frame[8] = MSG_SOURCE_QRCODE;
    return frame;
}();
const PanelBytes ENABLE = Command(MSG_CMD_QRCODE_ENABLE);
const PanelBytes DISABLE = Command(MSG_CMD_QRCODE_DISABLE);
const PanelBytes STOP = Command(MSG_CMD_QRCODE_STOP);
const PanelBytes RESULT = Command(MSG_CMD_QRCODE_RESULT);
const size_t WHOLE_MODE = MSG_PARAM_MODE_OFFSET + 1;

const char PARKED[] = "parked for good";
const char PARKED_STILL[] = "the service stays parked";

LinkNotes Tell(LinkAdvice& advice, const Step& step)
{
    const int64_t timeUs = HELLO_US + step.ms * int64_t{1000};
    LinkNotes notes = Advice_Time(advice, timeUs);
    const bool out = step.kind == OUT || step.kind == LOST_OUT;
    const PanelEvent event = {timeUs, out, step.datagram};
    const LinkNotes more = step.kind == IN || step.kind == OUT ? Advice_Datagram(advice, event)
                           : step.kind == LOST_IN || step.kind == LOST_OUT
                               ? Advice_Lost(advice, event)
                           : step.kind == PICTURE ? Advice_Picture(advice)
                                                  : LinkNotes();
    notes.insert(notes.end(), more.begin(), more.end());
    return notes;
}

TEST(LinkAdviceTest, SaysWhatADatagramDoesNotDo)
{
    const struct {
        const char* what;
        std::vector<Step> steps;
    } runs[] = {
        {"all is well",
         {{-5, OUT, Mode(1), {}},
          {0, IN, HELLO, {}},
          {1, OUT, Mode(1), {}},
          {1, OUT, ENABLE, {}},
          {400, PICTURE, {}, {}},
          {450, IN, RESULT, {}},
          {500, OUT, DISABLE, {}},
          {600, OUT, STOP, {}},
          {9000, TIME, {}, {}}}},
        {"one byte short of the mode; the next one is in time",
         {{0, IN, HELLO, {}},
          {1, OUT, Cut(Mode(1), WHOLE_MODE - 1), {"too short to hold the mode", "mode 0: the"}},
          {2, OUT, ENABLE, {"ignored, because the mode is 0; reading stays off"}},
          {299, OUT, Mode(1), {}},
          {301, TIME, {}, {}},
          {302, OUT, ENABLE, {}}}},
        {"the mode a little late; flags still change",
         {{0, IN, HELLO, {}},
          {299, TIME, {}, {}},
          {319, TIME, {}, {}},
          {320, OUT, Mode(1), {PARKED, "mode 1 came 0.320 s after 0x602, later than 0.3 s"}},
          {321, OUT, ENABLE, {PARKED}},
          {322, OUT, STOP, {}},
          {323, OUT, ENABLE, {PARKED}},
          {324, OUT, Mode(3), {PARKED_STILL}},
          {325, OUT, STOP, {"because the mode is 3; reading stays off"}},
          {900, TIME, {}, {}},
          {950, PICTURE, {}, {"pictures all the same"}},
          {960, OUT, Mode(2), {}},
          {970, OUT, ENABLE, {}}}},
        {"between the answer's time and the look",
         {{0, IN, HELLO, {}},
          {300, OUT, Mode(1), {"mode 1 came 0.300 s after 0x602, too late to be sure"}},
          {301, OUT, Mode(2), {}}, // as good as 1
          {302, OUT, ENABLE, {}},
          {320, TIME, {}, {}},
          {3301, TIME, {}, {}},
          {3302, TIME, {}, {"no picture is taken although 0x903 came"}},
          {9000, TIME, {}, {}}}},
        {"frozen before the look",
         {{0, IN, HELLO, {}},
          {1, OUT, Mode(1), {}},
          {2, OUT, ENABLE, {}},
          {3, OUT, Mode(0), {"mode 0: the service parks"}},
          {4, OUT, DISABLE, {"because the mode is 0; the enable flag stays on"}},
          {320, TIME, {}, {"no mode but 0"}}}},
        {"enabled again after a while",
         {{0, IN, HELLO, {}},
          {1, OUT, Mode(1), {}},
          {2, OUT, ENABLE, {}},
          {3, OUT, DISABLE, {}},
          {5000, OUT, ENABLE, {}},
          {7999, TIME, {}, {}},
          {8000, TIME, {}, {"no picture is taken"}}}},
        {"frozen when the enable comes",
         {{0, IN, HELLO, {}},
          {1, OUT, Mode(3), {"mode 3: reading stays off"}},
          {2, OUT, ENABLE, {"ignored"}},
          {500, OUT, Mode(1), {}},
          {3000, TIME, {}, {"no 0x903 was obeyed"}}}},
        {"never a mode, or mode 0 only",
         {{0, IN, HELLO, {}},
          {250, OUT, ENABLE, {"no 0x604 has come"}},
          {320, TIME, {}, {"no 0x604 came"}},
          {330, TIME, {}, {}}}},
        {"a hello of somebody else's",
         {{0, IN, HELLO, {}},
          {1, OUT, Mode(1), {}},
          {2, OUT, ENABLE, {}},
          {400, PICTURE, {}, {}},
          {500, IN, HELLO, {"not this service's"}},
          {600, IN, Cut(HELLO, 6), {"not this service's"}},
          {700, OUT, DISABLE, {}}, // still scanning
          {9000, TIME, {}, {}}}},
        {"frozen off, then on",
         {{0, IN, HELLO, {}},
          {1, OUT, Mode(3), {"mode 3: reading stays off"}},
          {2, OUT, ENABLE, {"because the mode is 3; reading stays off"}},
          {400, OUT, Mode(255), {}},
          {500, OUT, ENABLE, {}},
          {600, OUT, Mode(0), {"mode 0: reading stays on"}},
          {700, OUT, DISABLE, {"because the mode is 0; reading stays on"}},
          {700, OUT, STOP, {"because the mode is 0; reading stays on"}},
          {800, OUT, Mode(2), {}},
          {900, OUT, STOP, {}},
          {910, OUT, Mode(3), {"mode 3: reading stays off"}}}},
        {"never an enable",
         {{0, IN, HELLO, {}},
          {1, OUT, Mode(1), {}},
          {2999, TIME, {}, {}},
          {3000, TIME, {}, {"no 0x903 was obeyed"}},
          {4000, TIME, {}, {}}}},
        {"odd frames",
         {{0, IN, HELLO, {}},
          {1, OUT, Resynced(Mode(1)), {"sync word is 0x3457, not 0x3456"}},
          {2, OUT, Resynced(ENABLE), {}}, // said once
          {3, OUT, {}, {"empty"}},
          {4, OUT, Cut(STOP, 6), {"shorter than a header"}},
          {5, OUT, Cut(STOP, 4), {"shorter than a header", "0x0 is no command"}},
          {6, OUT, Command(0x1234), {"0x1234 is no command"}},
          {7, OUT, Command(0x03090000), {"are these the bytes of 0x903 in the wrong order?"}},
          {8, OUT, RESULT, {"0x904 is no command"}},
          {9, IN, ENABLE, {"0x903 went to the main application's own port"}}}},
        {"nobody is there",
         {{-9, OUT, Mode(1), {}},
          {-9, LOST_OUT, Mode(1), {"127.0.0.1:10010, the service is not up"}},
          {0, IN, HELLO, {}},
          {0, LOST_IN, HELLO, {"127.0.0.1:10000; 0x602 is sent once only"}},
          {5, OUT, ENABLE, {"no 0x604 has come"}}, // the lost mode does not count
          {6, OUT, Mode(1), {}},
          {7, OUT, ENABLE, {}},
          {400, PICTURE, {}, {}},
          {400, IN, RESULT, {}},
          {400, LOST_IN, ENABLE, {"nothing is bound to 127.0.0.1:10000"}},
          {400, LOST_IN, RESULT, {"127.0.0.1:10000; it does not come again"}},
          {500, LOST_OUT, STOP, {"the service is not up"}},
          {5000, TIME, {}, {}}}},
    };
    for (const auto& run : runs) {
        SCOPED_TRACE(run.what);
        LinkAdvice advice;
        for (const Step& step : run.steps) {
            const LinkNotes notes = Tell(advice, step);
            ASSERT_EQ(step.said.size(), notes.size())
                << "at " << step.ms << " ms: " << (notes.empty() ? "nothing" : notes.back());
            for (size_t i = 0; i < notes.size(); ++i) {
                EXPECT_NE(std::string::npos, notes[i].find(step.said[i])) << notes[i];
            }
        }
    }
}

} // namespace
