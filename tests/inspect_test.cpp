// qrcode-inspect: its readings against the service's own, its worker, and the tool as it is called.
#include <cerrno>
#include <gtest/gtest.h>
#include <iconv.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>

#include "allowances.h"
#include "capture_decode.h"
#include "card_view.h"
#include "charsets.h"
#include "files.h"
#include "inspect_picture.h"
#include "inspect_report.h"
#include "inspect_worker.h"
#include "letters.h"
#include "pictures.h"
#include "programs.h"
#include "scan_watch.h"
#include "sim_platform.h"
#include "text.h"
#include "watched_reading.h"

namespace
{

TEST(WatchedReadingTest, EqualsAWholeReadingOfTheServiceFromTheCameraOn)
{
    for (const std::string& path : TestPictures()) {
        SCOPED_TRACE(path);
        std::string error;
        Sim_Reset();
        ASSERT_TRUE(Sim_OpenScene(path, SIM_VIEW_MS, "", error)) << error;
        Watch_Begin();
        char text[QRCODE_TEXT_SIZE] = {};
        const bool reads = Qrcode_CaptureAndDecode(nullptr, text) > 0;
        const int scans = static_cast<int>(Watch_Scans().size());
        Sim_Reset();

        std::vector<uint8_t> jpeg;
        cv::Mat grey;
        ASSERT_TRUE(Reading_CameraJpeg(path, jpeg, error)) << error;
        const WatchedReading reading = Reading_Take(jpeg, grey);
        EXPECT_STREQ(text, reading.text);
        EXPECT_EQ(scans, reading.scans);
        EXPECT_EQ(reads ? (scans + 1) / 2 : 0, reading.attempt);
        EXPECT_EQ(reads && scans % 2 == 0, reading.opened);
        EXPECT_EQ(!reads               ? READING_NO_CODE
                  : strlen(text) < 11  ? READING_SHORT
                  : reading.flaws != 0 ? READING_ALTERED
                                       : READING_TEXT,
                  reading.outcome);
    }
}

TEST(WatchedReadingTest, StreamsOfASavedSnapshotHaveTheServicesLimits)
{
    std::vector<uint8_t> jpeg;
    std::string error;
    cv::Mat grey;
    ASSERT_TRUE(Reading_CameraJpeg(SAMPLES_DIR "/plain.png", jpeg, error));
    jpeg.resize(2073600);
    EXPECT_EQ(READING_TEXT, Reading_Take(jpeg, grey).outcome);
    jpeg.resize(2073601);
    EXPECT_EQ(READING_NOT_DECODABLE, Reading_Take(jpeg, grey).outcome);
    EXPECT_TRUE(grey.empty());
    jpeg.insert(jpeg.begin(), 480000, 0); // the picture begins where the decoder sees no more
    jpeg.resize(2073600);
    EXPECT_EQ(READING_NOT_DECODABLE, Reading_Take(jpeg, grey).outcome);
}

// What became of each number: "well", or how its reader ended.
std::vector<std::string> Outcomes(size_t count, int seconds, void (*work)(size_t n),
                                  size_t children = 1)
{
    const auto record = [work](size_t n) {
        work(n);
        InspectRecord filled;
        filled.reading.scans = static_cast<int>(n) + 100;
        return filled;
    };
    std::vector<std::string> outcomes;
    const auto done = [&](size_t n, const InspectRecord& filled, const std::string& death) {
        EXPECT_EQ(outcomes.size(), n);
        EXPECT_EQ(death.empty() ? static_cast<int>(n) + 100 : 0, filled.reading.scans);
        outcomes.push_back(death.empty() ? "well" : death);
    };
    std::string error;
    EXPECT_TRUE(Worker_ForEach<InspectRecord>(count, record, done, seconds, error, children))
        << error;
    return outcomes;
}

TEST(InspectWorkerTest, AReaderThatBreaksOrHangsTakesNothingElseAlong)
{
    const std::string aborted = "its reader was killed by signal 6 (Aborted)";
    const std::vector<std::string> broken = Outcomes(5, WORKER_SECONDS, [](size_t n) {
        if (n == 1 || n == 4) {
            std::abort();
        }
        if (n == 2) { // more than it may have
            static std::vector<char> much;
            much.assign(2UL * 1024 * 1024 * WORKER_MEMORY_MB, 'x');
        }
    });
    ASSERT_EQ(5U, broken.size());
    EXPECT_NE("well", broken[2]);
    EXPECT_EQ((std::vector<std::string>{"well", aborted, broken[2], "well", aborted}), broken);
    EXPECT_EQ((std::vector<std::string>{"well", aborted, "well", "well", aborted, "well", "well"}),
              Outcomes(
                  7, WORKER_SECONDS,
                  [](size_t n) {
                      if (n == 1 || n == 4) {
                          std::abort();
                      }
                  },
                  3))
        << "both are of the same child";
    const auto hang = [](size_t n) {
        while (n == 0) {
            pause();
        }
    };
    EXPECT_EQ((std::vector<std::string>{"takes too long", "well"}), Outcomes(2, 1, hang));
}

TEST(InspectReportTest, VerdictsAndPercentiles)
{
    InspectedPicture picture;
    picture.truth = true;
    picture.expected = {true, "expected text", false};
    picture.reading.outcome = READING_NO_CODE;
    EXPECT_EQ(VERDICT_MISSED, Report_Verdict(picture));
    picture.expected.text.clear();
    EXPECT_EQ(VERDICT_NONE_AS_EXPECTED, Report_Verdict(picture));
    EXPECT_TRUE(Report_IsWell(picture));
    picture.reading.outcome = READING_NO_PICTURE;
    EXPECT_FALSE(Report_IsWell(picture)) << "nothing was looked at";
    picture.reading.outcome = READING_TEXT;
    strcpy(picture.reading.text, "expected text\n");
    EXPECT_EQ(VERDICT_WRONG, Report_Verdict(picture)) << "none was expected";
    picture.expected.text = "expected text";
    EXPECT_EQ(VERDICT_WRONG, Report_Verdict(picture)) << "the line end is not in the file";
    picture.expected.lineEnd = true;
    EXPECT_EQ(VERDICT_RIGHT, Report_Verdict(picture));

    InspectTally tally;
    picture.reading.attempt = 3;
    for (int ms = 1; ms <= 100; ++ms) {
        picture.reading.ms = ms;
        Report_Count(tally, picture);
    }
    EXPECT_NE(std::string::npos,
              Report_Table(tally).find("\n  with a text        100      50.0      95.0\n"))
        << Report_Table(tally);
}

// Scans with these texts, as a reading meets them: one scan for each list.
WatchedReading Met(const std::vector<std::vector<std::string>>& scans, const std::string& reported)
{
    std::vector<WatchedScan> met;
    for (const std::vector<std::string>& texts : scans) {
        met.emplace_back();
        for (const std::string& text : texts) {
            met.back().symbols.push_back({"QR-Code", text, {}});
        }
    }
    WatchedReading reading;
    reading.outcome = READING_NO_CODE;
    snprintf(reading.text, sizeof(reading.text), "%s", reported.c_str());
    Reading_Judge(met, !reported.empty(), reading);
    return reading;
}

TEST(WatchedReadingTest, OnlyTheExactTextOfTheOneCodeIsToldExactly)
{
    using namespace std::string_literals;
    const std::string a = "VISITOR-PASS-1";
    const struct {
        std::vector<std::vector<std::string>> scans;
        std::string reported;
        ReadingOutcome outcome;
        int flaws;
        ReportGrade grade;
        const char* remark;
    } cases[] = {
        {{{a}}, a, READING_TEXT, 0, GRADE_TOLD, ""},
        {{{}, {a, a}}, a, READING_TEXT, 0, GRADE_TOLD, ""},
        {{{"SHORT-7"}},
         "SHORT-7",
         READING_SHORT,
         0,
         GRADE_TOLD_OTHERWISE,
         "read, never reported: 7 of 11 bytes"},
        {{{a, "DOOR"}},
         "DOORTOR-PASS-1",
         READING_ALTERED,
         FLAW_OVERLAID,
         GRADE_TOLD_OTHERWISE,
         "2 texts over each other, the last one on top"},
        // Of the same length: nothing of the first is left, and nobody is told.
        {{{"VISITOR-PASS-0", a}},
         a,
         READING_ALTERED,
         FLAW_OVERLAID,
         GRADE_TOLD_OTHERWISE,
         "2 texts over each other, the last one on top"},
        // Left by a scan that counted as none, for its last text was empty.
        {{{a, ""}, {"DOOR"}},
         "DOORTOR-PASS-1",
         READING_ALTERED,
         FLAW_OVERLAID,
         GRADE_TOLD_OTHERWISE,
         "3 texts over each other, the last one on top"},
        {{{"VISITOR-PASS\0REST"s}},
         "VISITOR-PASS",
         READING_ALTERED,
         FLAW_ZERO,
         GRADE_TOLD_OTHERWISE,
         "a zero byte in the text: what stands behind it is lost, of 17 bytes"},
        {{{std::string(1100, '7')}},
         std::string(1023, '7'),
         READING_ALTERED,
         FLAW_LONG,
         GRADE_TOLD_OTHERWISE,
         "too long: the first 1023 of 1100 bytes"},
        {{{std::string(1023, '7')}}, std::string(1023, '7'), READING_TEXT, 0, GRADE_TOLD, ""},
        {{{"\0VISITOR"s}, {}},
         "",
         READING_NO_CODE,
         0,
         GRADE_TOLD_OTHERWISE,
         "read, never reported: the text is empty or begins with a zero byte"},
        {{{a, "\0X"s}, {}},
         "",
         READING_NO_CODE,
         0,
         GRADE_TOLD_OTHERWISE,
         "read, never reported: the last code's text is empty or begins with a zero byte"},
        {{{}, {}}, "", READING_NO_CODE, 0, GRADE_NOTHING, ""},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.remark);
        const WatchedReading reading = Met(one.scans, one.reported);
        EXPECT_EQ(one.outcome, reading.outcome);
        EXPECT_EQ(one.flaws, reading.flaws);
        EXPECT_EQ(one.grade, Report_Grade(reading));
        EXPECT_EQ(one.remark, Report_Remark(reading));
    }
    EXPECT_EQ(2U, Report_Details(Met({{a, "DOOR"}}, "DOORTOR-PASS-1"), LikelyCauses()).size());
    std::vector<std::string> many(20);
    for (size_t n = 0; n < many.size(); ++n) {
        many[n] = "VISITOR-PASS-" + std::to_string(n);
    }
    const WatchedReading crowd = Met({many}, many.back());
    EXPECT_EQ(20, crowd.textCount);
    EXPECT_STREQ("VISITOR-PASS-19", crowd.texts[READING_TEXTS - 1].text);
}

TEST(TextTest, ColumnsHoldWithWideHiddenAndLongTexts)
{
    EXPECT_EQ(5U, Text_Columns("Z\u00fcric"));
    EXPECT_EQ(7U, Text_Columns("\u6771\u4eac\uff76\u0301\u30fc"));
    const std::string override = std::string("\xe2\x80") + "\xae"; // turns the direction
    EXPECT_EQ("abc\\xe2\\x80\\xaedef\\xef\\xbb\\xbf",
              Text_Escape("abc" + override + "def\xef\xbb\xbf"));
    EXPECT_EQ("Z\u7fb9", Text_Escape("Z\u7fb9"));
    EXPECT_EQ("short  ", Text_Fitted("short", 7));
    EXPECT_EQ("/a/...png", Text_Fitted("/a/very/long/way/to/card.png", 9));
    for (const char* const text :
         {"/a/very/long/way/to/card.png", "\u6771\u4eac\u6771\u4eac\u6771"}) {
        for (size_t columns = 3; columns < 30; ++columns) {
            EXPECT_EQ(columns, Text_Columns(Text_Fitted(text, columns))) << text;
        }
    }
}

// ---- The tool itself.

// The bytes of a snapshot of the sample.
std::string CameraJpegText(int width, int height)
{
    const std::vector<uint8_t> jpeg = CameraJpeg(SAMPLES_DIR "/plain.png", width, height);
    return {jpeg.begin(), jpeg.end()};
}

class InspectToolTest : public testing::Test
{
protected:
    // Runs it to its end and returns its status.
    int Run(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), INSPECT);
        tool = RunProgram(arguments);
        return tool.status;
    }

    int Lines(const std::string& part) const { return tool.Lines(part); }

    TempFolder folder;
    Ended tool;
};

TEST_F(InspectToolTest, SamplesAreAllAsTheyShouldBe)
{
    EXPECT_EQ(0, Run({"--truth", SAMPLES_DIR})); // the texts of two are expected to be altered
    EXPECT_EQ(1, Lines("wrong: 0, missed: 0, none as expected: 2"));
    EXPECT_EQ(1, Lines("too short      right       10  QR-Code"));
    EXPECT_EQ(0, Lines("expected \""));
    EXPECT_EQ(1, Lines("Pictures: 28, read: 23, altered: 2, too short: 1, unread: 2"));
    EXPECT_EQ(1, Lines("  Otsu inverted        2         1       2       0"));
    EXPECT_EQ(1, Lines("  level 252            1         0       1       0"));
    EXPECT_EQ(1, Run({SAMPLES_DIR "/plain.png", SAMPLES_DIR "/no-code-wall.png"}));
    EXPECT_EQ(1, Lines("Pictures: 2, read: 1, altered: 0, too short: 0, unread: 1"));
    EXPECT_EQ(1, Run({SAMPLES_DIR "/ten-characters.png"}));
    EXPECT_EQ(1, Lines("    read, never reported: 10 of 11 bytes"));
    EXPECT_EQ(1, Run({SAMPLES_DIR "/badge.png"}));
    EXPECT_EQ(1, Lines("altered           22  QR-Code, CODE-128"));
    EXPECT_EQ(1, Lines("    2 texts over each other, the last one on top"));
    EXPECT_EQ(1, Lines("    code 1: QR-Code \"BADGE 00482 JOHN SMITH\""));
    EXPECT_EQ(1, Lines("    code 2: CODE-128 \"LNR-00482-S\""));
    EXPECT_EQ(1, Run({SHEETS_DIR "/too-far-view.png"}));
    EXPECT_EQ(1, Lines("    why: too small: 1.5 pixels a module"));
}

TEST_F(InspectToolTest, WhatIsNoPictureIsNamedCountedAndStopsNothing)
{
    WriteAll(folder / "broken.png", ReadAll(SAMPLES_DIR "/plain.png").substr(0, 300));
    WriteAll(folder / "empty.jpg", "");
    WriteAll(folder / "huge.pgm", "P5 30000 30000 255\n");
    std::filesystem::copy(SAMPLES_DIR "/plain.png", folder / "good.png");
    WriteAll(folder / "good.txt", "another text\n");
    EXPECT_EQ(1, Run({"--truth", folder.Path(), folder / "missing.png"}));
    EXPECT_EQ(1, Lines("broken.png: not a picture that can be read, or too large a one"));
    EXPECT_EQ(1, Lines("empty.jpg: empty file"));
    EXPECT_EQ(1, Lines(EMULATED_OR_SANITIZED
                           ? "inspect: " + (folder / "huge.pgm").string()
                           : "huge.pgm: too large a picture for the memory there is"));
    EXPECT_EQ(1, Lines("missing.png: no such file"));
    EXPECT_EQ(1, Lines("\"VISITOR PASS 2024-0117\", expected \"another text\""));
    EXPECT_EQ(1, Lines("Pictures: 5, read: 1, altered: 0, too short: 0, unread: 4 (of them not "
                       "decodable: 0, no picture: 4)"));
    EXPECT_EQ(1, Lines("Texts right: 0, wrong: 1, missed: 0, none as expected: 0, without an "
                       "expected text: 4"));
    EXPECT_EQ(1, Run({"--snapshot", folder / "good.txt"}));
    EXPECT_EQ(1, Lines("good.txt: no snapshot: not a JPEG"));

    for (const std::vector<std::string>& wrong :
         std::vector<std::vector<std::string>>{{},
                                               {"--no-such-option", "x"},
                                               {folder / "good.png", "--attempts", "1"},
                                               {folder / "good.png", "--sheet", "x.jpg"},
                                               {SAMPLES_DIR, "--sheet", folder / "x.png"}}) {
        EXPECT_EQ(2, Run(wrong));
        EXPECT_FALSE(tool.lines.empty());
    }
}

TEST_F(InspectToolTest, ASnapshotIsAJpegOfItsSizeAndWhatFollowsIt)
{
    const std::string good(CameraJpegText(400, 400));
    const std::string other(CameraJpegText(400, 300));
    const struct {
        const char* name;
        std::string bytes;
        int status;
        const char* line;
    } files[] = {
        {"good.jpg", good, 0, "  read  "},
        {"dump.jpg", good + std::string(480000 - good.size(), '\0'), 0, "  read  "},
        {"other.jpg", other, 1, "no snapshot: 400 x 300 pixels, not 400 x 400"},
        {"cut.jpg", good.substr(0, 100), 1, "  not decodable"},
        {"two.jpg", good.substr(0, 2), 1, "no snapshot: not a JPEG"},
        {"text.jpg", "VISITOR", 1, "  no picture"},
    };
    for (const auto& file : files) {
        SCOPED_TRACE(file.name);
        WriteAll(folder / file.name, file.bytes);
        EXPECT_EQ(file.status, Run({"--snapshot", folder / file.name}));
        EXPECT_GT(Lines(file.line), 0);
    }
}

TEST_F(InspectToolTest, JsonTellsWhatIsWrongWithATextOrAView)
{
    Run({"--json", SAMPLES_DIR "/badge.png", SHEETS_DIR "/too-far-view.png"});
    ASSERT_GE(tool.lines.size(), 2U);
    const nlohmann::json badge = nlohmann::json::parse(tool.lines[0]);
    EXPECT_EQ("altered", badge["outcome"]);
    EXPECT_EQ("LNR-00482-S JOHN SMITH", badge["text"]);
    EXPECT_EQ("2 texts over each other, the last one on top", badge["remark"]);
    ASSERT_EQ(2U, badge["texts"].size());
    EXPECT_EQ("BADGE 00482 JOHN SMITH", badge["texts"][0]["text"]);
    EXPECT_EQ("LNR-00482-S", badge["texts"][1]["text"]);
    const nlohmann::json far = nlohmann::json::parse(tool.lines[1]);
    EXPECT_TRUE(far["remark"].is_null());
    EXPECT_EQ("too small", far["causes"][0]["cause"]);
    EXPECT_NEAR(1.5, far["causes"][0]["value"], 0.1);
    EXPECT_EQ("docs/reading-a-sheet.md#too-small", far["causes"][0]["more"]);
    EXPECT_EQ("QR", far["located"]["shape"]);
    EXPECT_EQ(4U, far["located"]["outline"].size());
}

TEST_F(InspectToolTest, JsonOfASavedSnapshot)
{
    std::vector<uint8_t> jpeg;
    std::string error;
    ASSERT_TRUE(Reading_CameraJpeg(SAMPLES_DIR "/dusty-screen.png", jpeg, error));
    WriteAll(folder / "snap.jpg", {jpeg.begin(), jpeg.end()});
    WriteAll(folder / "snap.txt", "phone-pass:b84e60d2");
    EXPECT_EQ(0, Run({"--snapshot", "--json", "--truth", folder / "snap.jpg"}));
    ASSERT_EQ(1U, tool.lines.size());
    nlohmann::json json = nlohmann::json::parse(tool.lines[0]);
    const nlohmann::json expected = nlohmann::json::parse(R"({
        "outcome": "read", "text": "phone-pass:b84e60d2", "bytes": 19, "scans": 4,
        "hex": "70686f6e652d706173733a6238346536306432", "attempt": "Otsu inverted",
        "opened": true, "symbologies": ["QR-Code"], "verdict": "right"})");
    for (const auto& [name, value] : expected.items()) {
        EXPECT_EQ(value, json[name]) << name;
    }
}

// Whether the C library that we and the tool run with has this module.
bool HasModule(const char* name)
{
    iconv_t opened = iconv_open("UTF-8", name);
    const bool has = opened != reinterpret_cast<iconv_t>(-1);
    if (has) {
        iconv_close(opened);
    }
    return has;
}

TEST(CharsetsTest, IconvKnowsTheListAloneAndAWrongListChangesNothing)
{
    std::string error;
    for (const char* const wrong :
         {"", "latin2", "sjis,", ",sjis", "none,sjis", "all,sjis", "SJIS"}) {
        EXPECT_FALSE(Charsets_Use(wrong, error)) << wrong;
        EXPECT_NE(std::string::npos, error.find("no character set")) << wrong;
    }
    EXPECT_EQ("all", Charsets_Used());
    ASSERT_TRUE(HasModule("SJIS") && HasModule("BIG-5")) << "of the C library's own";
    ASSERT_TRUE(Charsets_Use("none", error)) << error;
    for (const char* const name : {"SJIS", "ISO8859-1", "BIG-5", "CP437"}) {
        errno = 0;
        EXPECT_FALSE(HasModule(name)) << name;
        EXPECT_EQ(EINVAL, errno) << name;
    }
    EXPECT_TRUE(HasModule("UTF-8"));
    EXPECT_TRUE(Charsets_Use("big5,sjis,big5", error)) << error;
    EXPECT_EQ("sjis,big5", Charsets_Used());
    EXPECT_TRUE(HasModule("SJIS"));
    EXPECT_FALSE(HasModule("ISO8859-1"));
    EXPECT_TRUE(Charsets_Use("all", error)) << error;
    EXPECT_TRUE(HasModule("SJIS"));
}

TEST_F(InspectToolTest, CharsetsDecideWhatAnUnmarkedTextIsReadAs)
{
    const std::string text = "M\u00fcller T\u00fcrschild 12345";
    const auto draw = [&](const char* name, int eci) {
        Card card;
        std::string error;
        EXPECT_TRUE(Card_FromBytes({text, eci, false}, text, 'M', 4, card, error)) << error;
        EXPECT_TRUE(cv::imwrite(folder / name, View_Draw(card, 2, 0)));
    };
    draw("unmarked.png", 0);
    draw("marked.png", 26);
    WriteAll(folder / "texts", text + "\n");
    const auto json = [&](size_t line) { return nlohmann::json::parse(tool.lines.at(line)); };

    EXPECT_EQ(0, Run({"--charsets", "none", "--json", folder / "unmarked.png"}));
    EXPECT_EQ(text, json(0)["text"]);
    EXPECT_EQ("none", json(0)["charsets"]);
    EXPECT_EQ(0, Run({"--cards", "--straight", "--charsets=none", folder / "texts"}));
    EXPECT_EQ(2, Run({"--charsets", "latin2", folder / "unmarked.png"}));
    EXPECT_EQ(1, Lines("--charsets: no character set \"latin2\""));
    Run({"--charsets", "big5", "--json", folder / "unmarked.png", folder / "marked.png"});
    EXPECT_EQ("M\u7fb9ller T\u7fb9rschild 12345", json(0)["text"]);
    EXPECT_EQ("big5", json(0)["charsets"]);
    EXPECT_EQ(text, json(1)["text"]);
    EXPECT_EQ(1, Run({"--cards", "--straight", "--json", "--charsets", "big5", folder / "texts"}));
    EXPECT_EQ("wrong", json(0)["worst"]["verdict"]);
    EXPECT_EQ("big5", json(0)["charsets"]);
    EXPECT_EQ(0, json(0)["right"]);
}

// Pixels of the winner's green, in a part of the sheet.
int GreenPixels(const cv::Mat& sheet, const cv::Rect& part)
{
    cv::Mat green;
    cv::inRange(sheet(part), cv::Scalar(30, 140, 10), cv::Scalar(50, 160, 30), green);
    return cv::countNonZero(green);
}

TEST_F(InspectToolTest, SheetFramesTheWinnerAndDimsWhatWasNotMade)
{
    const std::filesystem::path sheet = folder / "sheet.png";
    const std::string sample = SAMPLES_DIR "/dusty-screen.png"; // won by 2, opened
    EXPECT_EQ(0, Run({sample, "--sheet", sheet}));
    const cv::Mat all = cv::imread(sheet);
    ASSERT_FALSE(all.empty());
    EXPECT_EQ(0, Run({sample, "--sheet", sheet, "--attempts", "2"}));
    EXPECT_LT(cv::imread(sheet).cols, all.cols / 3);
    // Two lines of heading, then tiles of 260 x 260 with 40 above each and 14 between.
    const auto tile = [](int column, int row) {
        return cv::Rect(14 + column * 274, 58 + row * 314 + 40, 260, 260);
    };
    EXPECT_GT(GreenPixels(all, cv::Rect(0, 0, all.cols, 58)), 100) << "the heading";
    EXPECT_EQ(0, GreenPixels(all, tile(1, 0)));
    const cv::Rect winner = tile(1, 1);
    EXPECT_GT(GreenPixels(all, winner + cv::Point(-4, -4) + cv::Size(8, 8)), 4 * 250 * 3)
        << "frame";
    EXPECT_GT(GreenPixels(all, cv::Rect(winner.x + 15, winner.y + 15, 50, 60)), 20) << "a corner";
    EXPECT_EQ(0, GreenPixels(all, tile(2, 1)));
    cv::Mat black;
    cv::inRange(all(tile(2, 1)), cv::Scalar::all(0), cv::Scalar::all(30), black);
    EXPECT_EQ(0, cv::countNonZero(black));

    EXPECT_EQ(1, Run({sample, "--sheet", folder / "nowhere" / "sheet.png"}));
    EXPECT_EQ(1, Lines("no sheet: No such file or directory"));
    std::filesystem::copy(sample, folder / "itself.png");
    EXPECT_EQ(2, Run({folder / "itself.png", "--sheet", folder / "itself.png"}));
    EXPECT_EQ(ReadAll(sample), ReadAll(folder / "itself.png"));
}

TEST_F(InspectToolTest, OnlyATextThatIsToldExactlyIsGreen)
{
    const std::filesystem::path sheet = folder / "sheet.png";
    const cv::Scalar amber(0, 125, 215);
    const cv::Scalar red(40, 40, 200);
    const struct {
        const char* picture;
        cv::Scalar colour;
        bool framed;
    } cases[] = {{SAMPLES_DIR "/badge.png", amber, true},
                 {SAMPLES_DIR "/ten-characters.png", amber, true},
                 {SHEETS_DIR "/too-far-view.png", red, false}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.picture);
        EXPECT_EQ(1, Run({one.picture, "--sheet", sheet}));
        const cv::Mat drawn = cv::imread(sheet);
        ASSERT_FALSE(drawn.empty());
        cv::Mat coloured;
        cv::inRange(drawn, one.colour - cv::Scalar::all(3), one.colour + cv::Scalar::all(3),
                    coloured);
        EXPECT_EQ(one.framed, cv::countNonZero(coloured) > 4 * 250 * 3);
        EXPECT_GT(cv::countNonZero(coloured), 100) << "the heading";
        EXPECT_EQ(0, GreenPixels(drawn, cv::Rect(0, 0, drawn.cols, drawn.rows)));
    }
}

// Two texts of one length differ on the sheet only where their letters do.
TEST_F(InspectToolTest, LettersAreDrawnAsTheyAre)
{
    Letters letters;
    std::string error;
    ASSERT_TRUE(letters.Open(error)) << error;
    const auto drawn = [&](const std::string& text) {
        cv::Mat picture(40, 300, CV_8UC3, cv::Scalar::all(255));
        letters.Draw(picture, text, cv::Point(10, 30), 20, cv::Scalar::all(0));
        cv::Mat ink;
        cv::inRange(picture, cv::Scalar::all(0), cv::Scalar::all(200), ink);
        return ink;
    };
    const auto differ = [&](const std::string& a, const std::string& b) {
        return cv::countNonZero(drawn(a) != drawn(b)) > 0;
    };
    // Letters of each script, and such that only real ones differ in.
    for (const char* const pair : {"\u00fc\u00f6", "\u03a9\u03a0", "\u041f\u0416", "\u6771\u4eac",
                                   "\u30ab\u30ad", "\uff76\uff77", "\uac00\ub098"}) {
        const std::string text = pair;
        const std::string first = text.substr(0, text.size() / 2);
        EXPECT_TRUE(differ(first, text.substr(text.size() / 2))) << pair;
        EXPECT_LT(letters.Width(first, 20), letters.Width("[U+6771]", 20)) << pair;
    }
    EXPECT_FALSE(differ("\U00013000", "[U+13000]")); // a hieroglyph
    EXPECT_EQ(letters.Width("\xff", 20), letters.Width("\ufffd", 20));
    cv::Mat narrow(10, 10, CV_8UC3, cv::Scalar::all(255));
    letters.Draw(narrow, "wider than that", cv::Point(-5, 3), 30, cv::Scalar::all(0));
}

TEST_F(InspectToolTest, OddTextFilesAndALostOutputAreNoSilentSuccess)
{
    std::filesystem::copy(SAMPLES_DIR "/worn.png", folder / "a.png");
    std::filesystem::create_directory(folder / "a.txt");
    std::filesystem::copy(SAMPLES_DIR "/no-code-wall.png", folder / "b.png");
    WriteAll(folder / "b.txt", "there should be one\n");
    std::filesystem::copy(SAMPLES_DIR "/no-code-text.png", folder / "c.png");
    WriteAll(folder / "c.txt", "");
    EXPECT_EQ(1, Run({"--truth", "--json", folder.Path()}));
    EXPECT_EQ(1, Lines("\"attempt\":\"level 180\",\"opened\":false,\"scans\":7"));
    EXPECT_EQ(1, Lines("\"verdict\":\"missed\",\"expected\":\"there should be one\""));
    EXPECT_EQ(1, Lines("\"verdict\":\"none as expected\""));
    EXPECT_EQ(2, Lines("\"verdict\""));

    const std::string command = std::string(INSPECT) + " " SAMPLES_DIR "/plain.png ";
    EXPECT_EQ(1, RunProgram({"/bin/sh", "-c", command + "> /dev/full"}).status);
    EXPECT_EQ(1, RunProgram({"/bin/sh", "-c", command + ">&-"}).status);
    EXPECT_EQ(0, RunProgram({"/bin/sh", "-c", command + "<&- > /dev/null"}).status);
}

} // namespace
