// qrcode-inspect: its readings against the service's own, its worker, and the tool as it is called.
#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <sys/resource.h>

#include "allowances.h"
#include "capture_decode.h"
#include "files.h"
#include "inspect_report.h"
#include "inspect_worker.h"
#include "program.h"
#include "scan_watch.h"
#include "scene_files.h"
#include "sim_platform.h"
#include "watched_reading.h"

namespace
{

// The tool's reading of a picture equals a whole reading of the service, from the camera on.
void ExpectSameReading(const std::string& path)
{
    SCOPED_TRACE(path);
    std::string error;
    Sim_Reset();
    ASSERT_TRUE(Sim_OpenScene(path, SIM_VIEW_MS, "", error)) << error;
    Watch_Begin();
    char text[QRCODE_TEXT_SIZE] = {};
    const int result = Qrcode_CaptureAndDecode(nullptr, text);
    const size_t scans = Watch_Scans().size();
    Sim_Reset();

    std::vector<uint8_t> jpeg;
    cv::Mat grey;
    ASSERT_TRUE(Reading_CameraJpeg(path, jpeg, error)) << error;
    const WatchedReading reading = Reading_Take(jpeg, grey);
    EXPECT_STREQ(text, reading.szText);
    EXPECT_EQ(scans, static_cast<size_t>(reading.nScans));
    EXPECT_EQ(result > 0, reading.nAttempt > 0);
    if (result > 0) {
        EXPECT_EQ((scans + 1) / 2, static_cast<size_t>(reading.nAttempt));
        EXPECT_EQ(scans % 2 == 0, reading.bOpened);
        EXPECT_EQ(reading.outcome, strlen(text) < 11 ? READING_SHORT : READING_TEXT);
    }
}

TEST(WatchedReadingTest, EqualsTheServicesOwn)
{
    std::vector<std::string> pictures;
    std::string error;
    ASSERT_TRUE(Sim_ListPictures(SAMPLES_DIR, pictures, error)) << error;
    std::vector<std::string> others; // QRCODE_TEST_PICTURES names a folder of one's own
    const char* const folder = std::getenv("QRCODE_TEST_PICTURES");
    ASSERT_TRUE(folder == nullptr || Sim_ListPictures(folder, others, error)) << error;
    pictures.insert(pictures.end(), others.begin(), others.end());
    for (const std::string& picture : pictures) {
        ExpectSameReading(picture);
    }
    std::printf("%zu pictures compared\n", pictures.size());
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

TEST(InspectWorkerTest, ABrokenReaderTakesNothingElseAlong)
{
    const auto work = [](size_t n) {
        InspectRecord record;
        record.reading.nScans = static_cast<int>(n) + 100;
        if (n == 1 || n == 4) {
            std::abort();
        }
        if (n == 2) { // more than it may have
            static std::vector<char> much;
            much.assign(2UL * 1024 * 1024 * WORKER_MEMORY_MB, 'x');
        }
        return record;
    };
    std::vector<int> scans;
    std::vector<std::string> deaths;
    const auto done = [&](size_t n, const InspectRecord& record, const std::string& death) {
        EXPECT_EQ(scans.size(), n);
        scans.push_back(record.reading.nScans);
        deaths.push_back(death);
    };
    std::string error;
    EXPECT_TRUE(Worker_ForEach(5, work, done, WORKER_SECONDS, error));
    EXPECT_EQ((std::vector<int>{100, 0, LIMITS_MEMORY ? 0 : 102, 103, 0}), scans);
    EXPECT_EQ("its reader was killed by signal 6 (Aborted)", deaths.at(1));
    EXPECT_EQ(LIMITS_MEMORY, !deaths.at(2).empty());
    EXPECT_EQ("", deaths.at(3));
    EXPECT_NE("", deaths.at(4));
}

TEST(InspectWorkerTest, AReaderThatHangsIsEnded)
{
    const auto work = [](size_t n) {
        while (n == 0) {
            pause();
        }
        return InspectRecord();
    };
    std::vector<std::string> deaths;
    std::string error;
    EXPECT_TRUE(Worker_ForEach(
        2, work,
        [&](size_t, const InspectRecord&, const std::string& death) { deaths.push_back(death); }, 1,
        error));
    EXPECT_EQ((std::vector<std::string>{"takes too long", ""}), deaths);
}

TEST(InspectReportTest, VerdictsAndPercentiles)
{
    InspectedPicture picture;
    picture.bTruth = true;
    picture.expected = {true, "expected text", false};
    picture.reading.outcome = READING_NO_CODE;
    EXPECT_EQ(VERDICT_MISSED, Report_Verdict(picture));
    picture.expected.text.clear();
    EXPECT_EQ(VERDICT_AS_EMPTY, Report_Verdict(picture));
    EXPECT_TRUE(Report_IsWell(picture));
    picture.reading.outcome = READING_NO_PICTURE;
    EXPECT_FALSE(Report_IsWell(picture)) << "nothing was looked at";
    picture.reading.outcome = READING_TEXT;
    strcpy(picture.reading.szText, "expected text\n");
    EXPECT_EQ(VERDICT_WRONG, Report_Verdict(picture)) << "none was expected";
    picture.expected.text = "expected text";
    EXPECT_EQ(VERDICT_WRONG, Report_Verdict(picture)) << "the line end is not in the file";
    picture.expected.bLineEnd = true;
    EXPECT_EQ(VERDICT_RIGHT, Report_Verdict(picture));

    InspectTally tally;
    picture.reading.nAttempt = 3;
    for (int ms = 1; ms <= 100; ++ms) {
        picture.reading.ms = ms;
        Report_Count(tally, picture);
    }
    std::istringstream table(Report_Table(tally));
    std::string line;
    while (std::getline(table, line) && line.find("with a text") == std::string::npos) {
    }
    EXPECT_EQ("  with a text        100      50.0      95.0", line);
}

// ---- The tool itself.

class InspectToolTest : public testing::Test
{
protected:
    // Runs it to its end. Standard output and error come as one.
    int Run(std::vector<std::string> arguments)
    {
        std::vector<std::string> command;
        std::istringstream emulator(EMULATOR);
        for (std::string word; std::getline(emulator, word, '|');) {
            command.push_back(word);
        }
        command.push_back(INSPECT);
        command.insert(command.end(), arguments.begin(), arguments.end());
        Program tool(command);
        output.clear();
        for (std::string line; tool.Line(line);) {
            output.push_back(line);
        }
        return tool.Wait();
    }

    int Lines(const std::string& part) const
    {
        return static_cast<int>(
            std::count_if(output.begin(), output.end(), [&part](const std::string& line) {
                return line.find(part) != std::string::npos;
            }));
    }

    TempFolder folder;
    std::vector<std::string> output;
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
    std::filesystem::copy(SAMPLES_DIR "/plain.png", folder / "good.png");
    WriteAll(folder / "good.txt", "another text\n");
    EXPECT_EQ(1, Run({"--truth", folder.Path(), folder / "missing.png"}));
    EXPECT_EQ(1, Lines("broken.png: not a picture that can be read, or too large a one"));
    EXPECT_EQ(1, Lines("empty.jpg: empty file"));
    EXPECT_EQ(1, Lines("missing.png: no such file"));
    EXPECT_EQ(1, Lines("\"VISITOR PASS 2024-0117\", expected \"another text\""));
    EXPECT_EQ(1, Lines("Pictures: 4, read: 1, too short: 0, unread: 3 (of them not decodable: 0, "
                       "no picture: 3)"));
    EXPECT_EQ(1, Lines("Texts right: 0, wrong: 1, missed: 0, none as expected: 0, without an "
                       "expected text: 3"));
    EXPECT_EQ(1, Run({"--snapshot", folder / "good.txt"}));
    EXPECT_EQ(1, Lines("good.txt: the decoder finds no picture in it"));

    for (const std::vector<std::string>& wrong :
         std::vector<std::vector<std::string>>{{},
                                               {"--no-such-option", "x"},
                                               {folder / "good.png", "--attempts", "1"},
                                               {folder / "good.png", "--sheet", "x.jpg"},
                                               {SAMPLES_DIR, "--sheet", folder / "x.png"}}) {
        EXPECT_EQ(2, Run(wrong));
        EXPECT_FALSE(output.empty());
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
    ASSERT_EQ(1U, output.size());
    const nlohmann::json json = nlohmann::json::parse(output[0]);
    EXPECT_EQ("read", json["outcome"]);
    EXPECT_EQ("phone-pass:b84e60d2", json["text"]);
    EXPECT_EQ("70686f6e652d706173733a6238346536306432", json["hex"]);
    EXPECT_EQ(19, json["bytes"]);
    EXPECT_EQ("Otsu inverted", json["attempt"]);
    EXPECT_EQ(true, json["opened"]);
    EXPECT_EQ(4, json["scans"]);
    EXPECT_EQ(nlohmann::json({"QR-Code"}), json["symbologies"]);
    EXPECT_EQ("right", json["verdict"]);
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

    const std::string tool = std::string(INSPECT) + " " SAMPLES_DIR "/plain.png ";
    if (std::string(EMULATOR).empty()) {
        EXPECT_EQ(1, Program({"/bin/sh", "-c", tool + "> /dev/full"}).Wait());
        EXPECT_EQ(0, Program({"/bin/sh", "-c", tool + "<&- >&-"}).Wait()) << "to nowhere";
    }
}

} // namespace
