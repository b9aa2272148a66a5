// qrcode-inspect: its readings against the service's own, its worker, and the tool as it is called.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>

#include "allowances.h"
#include "capture_decode.h"
#include "files.h"
#include "inspect_report.h"
#include "inspect_worker.h"
#include "pictures.h"
#include "programs.h"
#include "scan_watch.h"
#include "sim_platform.h"
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
        EXPECT_EQ(!reads              ? READING_NO_CODE
                  : strlen(text) < 11 ? READING_SHORT
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
    EXPECT_EQ(LIMITS_MEMORY, broken[2] != "well");
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

// ---- The tool itself.

class InspectToolTest : public testing::Test
{
protected:
    // Runs it to its end and returns its status.
    int Run(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), INSPECT);
        tool = RunProgram(Emulated(arguments));
        return tool.status;
    }

    int Lines(const std::string& part) const { return tool.Lines(part); }

    TempFolder folder;
    Ended tool;
};

TEST_F(InspectToolTest, SamplesAreAllAsTheyShouldBe)
{
    EXPECT_EQ(0, Run({"--truth", SAMPLES_DIR}));
    EXPECT_EQ(1, Lines("wrong: 0, missed: 0, none as expected: 2"));
    EXPECT_EQ(1, Lines("too short      right       10  QR-Code"));
    EXPECT_EQ(0, Lines("expected \""));
    EXPECT_EQ(1, Lines("Pictures: 28, read: 25, too short: 1, unread: 2"));
    EXPECT_EQ(1, Lines("  Otsu inverted        2         1       2       0"));
    EXPECT_EQ(1, Lines("  level 252            1         0       1       0"));
    EXPECT_EQ(1, Run({SAMPLES_DIR "/plain.png", SAMPLES_DIR "/no-code-wall.png"}));
    EXPECT_EQ(1, Lines("Pictures: 2, read: 1, too short: 0, unread: 1"));
    EXPECT_EQ(1, Run({SAMPLES_DIR "/ten-characters.png"}));
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
    EXPECT_EQ(1, Lines("Pictures: 5, read: 1, too short: 0, unread: 4 (of them not decodable: 0, "
                       "no picture: 4)"));
    EXPECT_EQ(1, Lines("Texts right: 0, wrong: 1, missed: 0, none as expected: 0, without an "
                       "expected text: 4"));
    EXPECT_EQ(1, Run({"--snapshot", folder / "good.txt"}));
    EXPECT_EQ(1, Lines("good.txt: the decoder finds no picture in it"));

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
    EXPECT_EQ(0, Run({sample, "--sheet", sheet, "--attempts", "2"}));
    const cv::Mat winner = cv::imread(sheet);
    EXPECT_EQ(0, Run({sample, "--sheet", sheet, "--attempts", "3"}));
    const cv::Mat dimmed = cv::imread(sheet);
    ASSERT_FALSE(all.empty() || winner.empty() || dimmed.empty());
    EXPECT_GT(all.cols, 3 * winner.cols);
    // The two tiles below the heading, the opened twin as the second.
    const int half = (winner.rows - 60) / 2;
    const cv::Rect first(0, 60, winner.cols, half - 30);
    const cv::Rect second(0, 60 + half + 30, winner.cols, half - 30);
    EXPECT_EQ(0, GreenPixels(winner, first));
    EXPECT_GT(GreenPixels(winner, second), 4 * 250 * 3) << "the frame";
    EXPECT_GT(GreenPixels(winner, cv::Rect(30, second.y + 20, 50, 60)), 20) << "a corner";
    EXPECT_EQ(0, GreenPixels(dimmed, first) + GreenPixels(dimmed, second));
    cv::Mat black;
    cv::inRange(dimmed(second), cv::Scalar::all(0), cv::Scalar::all(30), black);
    EXPECT_EQ(0, cv::countNonZero(black));

    EXPECT_EQ(1, Run({sample, "--sheet", folder / "nowhere" / "sheet.png"}));
    EXPECT_EQ(1, Lines("no sheet: No such file or directory"));
    std::filesystem::copy(sample, folder / "itself.png");
    EXPECT_EQ(2, Run({folder / "itself.png", "--sheet", folder / "itself.png"}));
    EXPECT_EQ(ReadAll(sample), ReadAll(folder / "itself.png"));
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
    if (std::string(EMULATOR).empty()) {
        EXPECT_EQ(1, RunProgram({"/bin/sh", "-c", command + "> /dev/full"}).status);
        EXPECT_EQ(1, RunProgram({"/bin/sh", "-c", command + ">&-"}).status);
        EXPECT_EQ(0, RunProgram({"/bin/sh", "-c", command + "<&- > /dev/null"}).status);
    }
}

} // namespace
