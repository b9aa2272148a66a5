// The check of cards before they are printed: its views, its judgement, and the tool as it is
// called.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "allowances.h"
#include "card_check.h"
#include "card_report.h"
#include "files.h"
#include "programs.h"

namespace
{

// Found among random texts: straight, at level Q and 7 pixels a module or more, zbar takes a part
// of the code for an EAN-2 of "18".
const char WRONG_TEXT[] = "g3UFsFsDEIEu207LTzuPDOL";
const char WRONG_CAME[] = "18UFsFsDEIEu207LTzuPDOL";
const char GOOD_TEXT[] = "VISITOR PASS 2024-0117";

enum { SMALL = 5 }; // size number of 5 pixels a module

Card Drawn(const std::string& text, char level, int margin = 4)
{
    Card card;
    std::string error;
    EXPECT_TRUE(Card_FromText(text, level, margin, card, error)) << error;
    return card;
}

bool SameViews(const cv::Mat& a, const cv::Mat& b)
{
    return a.size() == b.size() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

TEST(CardViewTest, GridIsReadOfAGoodCardAndNoTwoViewsAreAlike)
{
    const Card card = Drawn(GOOD_TEXT, 'M');
    EXPECT_EQ(2, card.version);
    EXPECT_EQ(5, View_Size(card, SMALL));
    const CardRecord record = Card_Check(card, false);
    ASSERT_LE(View_Kinds(), static_cast<int>(CARD_KINDS_MAX));
    for (int kind = 0; kind < View_Kinds(); ++kind) {
        SCOPED_TRACE(View_Name(card, SMALL, kind));
        EXPECT_EQ(CARD_RIGHT, record.verdicts[SMALL][kind]);
        const cv::Mat view = View_Draw(card, SMALL, kind);
        EXPECT_EQ(cv::Size(400, 400), view.size());
        EXPECT_TRUE(SameViews(view, View_Draw(card, SMALL, kind)));
        for (int other = 0; other < kind; ++other) {
            EXPECT_FALSE(SameViews(view, View_Draw(card, SMALL, other))) << View_KindName(other);
        }
    }
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(View_Draw(card, SMALL, View_Kinds() - 1)(cv::Rect(0, 0, 100, 100)), mean,
                   deviation);
    EXPECT_NEAR(16.0, deviation[0], 0.5) << "of the wall, when it is noisy";
}

TEST(CardViewTest, ModulesAreDrawnAsAskedAndACodeThatIsTooLargeIsNot)
{
    // 25 modules and a margin of 4: 10 pixels each leave 35 pixels of the wall on both sides.
    const cv::Mat view = View_Draw(Drawn(GOOD_TEXT, 'M'), 0, 0);
    const cv::Mat row = view.row(35 + 45);
    EXPECT_EQ(128, row.at<uint8_t>(34));
    EXPECT_EQ(235, row.at<uint8_t>(35));
    EXPECT_EQ(235, row.at<uint8_t>(74));
    EXPECT_EQ(25, row.at<uint8_t>(75)) << "a corner square, 7 modules wide";
    EXPECT_EQ(25, row.at<uint8_t>(144));
    EXPECT_EQ(235, row.at<uint8_t>(145));

    // 49 modules: 8 pixels each fit without the whole margin, 9 do not.
    const Card large = Drawn(std::string(150, 'x'), 'M');
    EXPECT_EQ(8, large.version);
    EXPECT_TRUE(View_Draw(large, 1, 0).empty());
    EXPECT_FALSE(View_Draw(large, 2, 0).empty());
    EXPECT_TRUE(View_Draw(large, 2, 4).empty()) << "turned its corners stick out";
    const Card huge = Drawn(std::string(2900, 'x'), 'L', 0);
    EXPECT_FALSE(View_Draw(huge, VIEW_SIZES - 1, 0).empty());
    EXPECT_TRUE(View_Draw(huge, VIEW_SIZES - 2, 0).empty());
}

TEST(CardCheckTest, JudgesWhatTheMainApplicationIsSent)
{
    struct Case {
        const char* expected;
        const char* came;
        ReadingOutcome outcome;
        CardVerdict verdict;
    };
    const Case cases[] = {
        {"PASS-000731", "PASS-000731", READING_TEXT, CARD_RIGHT},
        {"PASS-000731", "23SS-000731", READING_ALTERED, CARD_WRONG},
        {"PASS-000731", "PASS-000731", READING_ALTERED, CARD_RIGHT}, // overlaid by its own bytes
        {"PASS-000731", "PASS-0007310", READING_TEXT, CARD_WRONG},
        {"PASS-000731", "23", READING_SHORT, CARD_SHORT},
        {"PASS-000731", "", READING_NO_CODE, CARD_UNREAD},
        {"PASS-00073", "PASS-00073", READING_SHORT, CARD_SHORT}, // its own text is too short
        {"PASS-00073", "PASS-0007323", READING_TEXT, CARD_WRONG},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.came);
        WatchedReading reading;
        reading.outcome = one.outcome;
        std::snprintf(reading.text, sizeof(reading.text), "%s", one.came);
        EXPECT_EQ(one.verdict, Card_Judge({true, one.expected, false}, reading));
    }
    CardRecord record;
    EXPECT_FALSE(CardReport_IsWell(record)) << "never right";
    record.verdicts[0][0] = CARD_RIGHT;
    record.verdicts[0][1] = CARD_UNREAD;
    EXPECT_TRUE(CardReport_IsWell(record));
    record.verdicts[8][11] = CARD_WRONG;
    EXPECT_FALSE(CardReport_IsWell(record));
}

// ---- The tool itself.

class CardsToolTest : public testing::Test
{
protected:
    // Runs it to its end and returns its status.
    int Run(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {INSPECT, "--cards"});
        tool = RunProgram(arguments);
        return tool.status;
    }

    std::string File(const std::string& name, const std::string& bytes)
    {
        WriteAll(folder / name, bytes);
        return folder / name;
    }

    std::string Folder(const std::string& name)
    {
        std::filesystem::create_directory(folder / name);
        return folder / name;
    }

    int Lines(const std::string& part) const { return tool.Lines(part); }

    TempFolder folder;
    Ended tool;
};

TEST_F(CardsToolTest, AWrongCardIsNamedWithItsWorstViewWhichInspectShows)
{
    const std::string texts = File("cards", std::string(GOOD_TEXT) + "\r\n" + WRONG_TEXT);
    const std::string worst = folder / "worst";
    EXPECT_EQ(1, Run({texts, "--level", "Q", "--straight", "--worst", worst}));
    EXPECT_EQ(1, Lines("     1      9      9      0      0         0  -      "));
    EXPECT_EQ(1, Lines("  \"VISITOR PASS 2024-0117\"")) << "the line end is not the text's";
    EXPECT_EQ(1, Lines("     2      9      5      4      0         0  WRONG: 10 px, straight "));
    EXPECT_EQ(
        1, Lines(std::string(WRONG_TEXT) + "\" came as \"" + WRONG_CAME + "\" (QR-Code, EAN-2)"));
    EXPECT_EQ(1, Lines("Cards: 2, ever wrong: 1, never right: 0, not checked: 0"));
    EXPECT_EQ(1, Lines("  10 pixels a module                 2          1          1 "));
    const std::vector<std::string> lines = tool.lines;

    // Only the second was not right everywhere.
    const std::vector<std::string> kept = {INSPECT, "--truth", worst};
    tool = RunProgram(kept);
    EXPECT_EQ(1, tool.status);
    EXPECT_EQ(1, Lines("card-2-wrong.png  altered        WRONG       23  QR-Code, EAN-2"));
    EXPECT_EQ(1, Lines("Pictures: 1, read: 0, altered: 1"));

    EXPECT_EQ(1, Run({texts, "--level", "Q", "--straight"}));
    ASSERT_EQ(lines.size(), tool.lines.size());
    for (size_t n = 0; n < lines.size(); ++n) { // all but the line with the speed
        EXPECT_TRUE(lines[n] == tool.lines[n] || lines[n].find(" a second") != std::string::npos);
    }
    EXPECT_EQ(0, Run({texts, "--level", "M", "--straight"})) << "another level helps";
}

TEST_F(CardsToolTest, JsonOfTextsAndPictures)
{
    std::filesystem::copy(SAMPLES_DIR "/code128.png", folder / "bar.png");
    std::filesystem::copy(SAMPLES_DIR "/code128.txt", folder / "bar.txt");
    const std::string texts = File("cards.txt", std::string(WRONG_TEXT) + "\nSHORT\n");
    EXPECT_EQ(1, Run({"--json", "--straight", "--level=Q", texts, folder / "bar.png"}));
    std::vector<nlohmann::json> cards;
    for (const std::string& line : tool.lines) {
        if (line[0] == '{') {
            cards.push_back(nlohmann::json::parse(line));
        }
    }
    ASSERT_EQ(3U, cards.size());
    const nlohmann::json wrong = nlohmann::json::parse(R"({
        "card": 1, "level": "Q", "version": 3, "mask": 1, "views": 9, "right": 5, "wrong": 4,
        "tooShort": 0, "notRead": 0, "picture": null, "error": null})");
    for (const auto& [name, value] : wrong.items()) {
        EXPECT_EQ(value, cards[0][name]) << name;
    }
    EXPECT_EQ(texts + ":1", cards[0]["source"]);
    ASSERT_EQ(4U, cards[0]["wrongViews"].size());
    EXPECT_EQ(cards[0]["worst"], cards[0]["wrongViews"][0]);
    EXPECT_EQ(WRONG_CAME, cards[0]["worst"]["text"]);
    EXPECT_EQ("10 px, straight", cards[0]["worst"]["view"]);
    EXPECT_EQ(nlohmann::json::parse(R"({"size": 7, "right": 0, "wrong": 1, "tooShort": 0,
                                        "notRead": 0})"),
              cards[0]["sizes"][3]);
    EXPECT_EQ(9, cards[1]["tooShort"]);
    EXPECT_EQ("too short", cards[1]["worst"]["verdict"]);
    EXPECT_EQ(nullptr, cards[2]["level"]);
    EXPECT_EQ("EMP-0048-2217", cards[2]["text"]);
    EXPECT_EQ(100, cards[2]["sizes"][0]["size"]);
    EXPECT_EQ(1, cards[2]["sizes"][0]["right"]);
    EXPECT_EQ(1, Lines("Cards: 3, ever wrong: 1, never right: 1, not checked: 0"));
}

TEST_F(CardsToolTest, WhatIsNoCardIsNamedCountedAndStopsNothing)
{
    // More than are held at a time, so that numbers go on from batch to batch.
    std::string texts(300, '\n');
    texts += std::string(GOOD_TEXT) + "\n" + std::string(2000, 'x') + "\n" +
             std::string(100000, 'x') + "\n" + std::string(1, '\0') + "zero";
    EXPECT_EQ(1, Run({"--straight", "--level", "H", File("cards", texts)}));
    EXPECT_EQ(1, Lines("cards:300: empty"));
    EXPECT_EQ(1, Lines("   301      9      9      0 "));
    EXPECT_EQ(1, Lines("cards:302: too long for a QR code of level H"));
    EXPECT_EQ(1, Lines("cards:303: too long for a QR code of level H"));
    EXPECT_EQ(1, Lines("cards:304: holds a zero byte"));
    EXPECT_EQ(1, Lines("Cards: 304, ever wrong: 0, never right: 0, not checked: 303"));

    std::filesystem::copy(SAMPLES_DIR "/plain.png", folder / "no-text.png");
    EXPECT_EQ(1,
              Run({"--straight", folder / "no-text.png", File("broken.png", "broken"),
                   folder / "missing.png", folder / "missing", File("none", ""), Folder("empty")}));
    EXPECT_EQ(1, Lines("no-text.png: no text beside it"));
    EXPECT_EQ(1, Lines("broken.png: not a picture that can be read"));
    EXPECT_EQ(1, Lines("missing.png: no such file"));
    EXPECT_EQ(1, Lines("missing: no such file, or it cannot be read"));
    EXPECT_EQ(1, Lines("none: no cards in it"));
    EXPECT_EQ(1, Lines("empty: no cards in it"));

    const std::string good = File("good", GOOD_TEXT);
    EXPECT_EQ(0, Run({"--straight", good}));
    EXPECT_EQ(1, Run({"--straight", good, folder / "none"}));
    EXPECT_EQ(1, Run({"--straight", good, "--worst", good})) << "a file in its place";
    for (const std::vector<std::string>& wrong :
         std::vector<std::vector<std::string>>{{},
                                               {good, "--level", "X"},
                                               {good, "--margin", "-1"},
                                               {good, "--truth"},
                                               {good, "--sheet", folder / "x.png"}}) {
        EXPECT_EQ(2, Run(wrong));
        EXPECT_FALSE(tool.lines.empty());
    }
    EXPECT_EQ(2, RunProgram({INSPECT, good, "--level", "Q"}).status);
    const std::string command = std::string(INSPECT) + " --cards --straight ";
    EXPECT_EQ(1, RunProgram({"/bin/sh", "-c", command + good + " > /dev/full"}).status);
    EXPECT_EQ(0, RunProgram({"/bin/sh", "-c", command + "- < " + good}).status);
}

} // namespace
