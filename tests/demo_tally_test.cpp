// Which picture a text is charged to, and what the demo's summary makes of it.
#include "demo_tally.h"

#include <gtest/gtest.h>

#include "files.h"

namespace
{

class DemoTallyTest : public testing::Test
{
protected:
    // A picture (its file is not needed) with an expected text.
    std::string Picture(const std::string& name, const std::string& expected)
    {
        WriteAll(folder / (name + ".txt"), expected + "\n");
        return (folder / (name + ".png")).string();
    }

    std::string Outcomes() const
    {
        const char* const names[] = {"ok",   "wrong",    "missed",     "silent",
                                     "read", "not read", "unreadable", "stray"};
        std::string all;
        for (const DemoNews& one : news) {
            all += (all.empty() ? "" : ", ") + std::string(names[one.outcome]);
        }
        return all;
    }

    TempFolder folder;
    DemoTally tally;
    std::vector<DemoNews> news;
};

TEST_F(DemoTallyTest, TextBelongsToTheLastViewAtOrBeforeItsTime)
{
    const std::string a = Picture("a", "AAAAAAAAAAA");
    const std::string b = Picture("b", "BBBBBBBBBBB");
    const std::string c = Picture("c", "CCCCCCCCCCC");
    Tally_View(tally, 1.0, a);
    Tally_View(tally, 2.0, b);
    Tally_View(tally, 3.0, c);
    Tally_Result(tally, 1.9, "AAAAAAAAAAA", news); // told late
    Tally_Result(tally, 3.0, "CCCCCCCCCCC", news);
    Tally_Result(tally, 3.5, "CCCCCCCCCCC", news); // again: no news
    Tally_Close(tally, 9.0, news);
    EXPECT_EQ("ok, missed, ok", Outcomes());
    const DemoSummary summary = Tally_Summary(tally, {a, b, c});
    EXPECT_EQ(3, summary.nReportable);
    EXPECT_EQ(2, summary.nReported);
    EXPECT_EQ(1, summary.nMissed);
    EXPECT_EQ(0, summary.nWrong);
}

TEST_F(DemoTallyTest, WrongTextIsNotAMissedOne)
{
    const std::string a = Picture("a", "AAAAAAAAAAA");
    const std::string shortText = Picture("b", "0123456789");
    const std::string none = Picture("c", "");
    const std::string unseen = Picture("d", "DDDDDDDDDDD");
    Tally_View(tally, 1.0, a);
    Tally_Result(tally, 1.1, "something else", news);
    Tally_View(tally, 2.0, shortText);
    Tally_Result(tally, 2.1, "0123456789", news); // never reported, so wrong when it is
    Tally_View(tally, 3.0, none);
    Tally_View(tally, 4.0, (folder / "free.png").string());
    Tally_Result(tally, 4.1, "whatever", news);
    Tally_Unreadable(tally, 5.0, (folder / "broken.png").string(), "empty file");
    Tally_Close(tally, 9.0, news);
    EXPECT_EQ("wrong, wrong, silent, read, unreadable", Outcomes());
    const DemoSummary summary = Tally_Summary(tally, {a, shortText, none, unseen});
    EXPECT_EQ(2, summary.nReportable);
    EXPECT_EQ(0, summary.nReported);
    EXPECT_EQ(1, summary.nMissed) << "the one that never came up";
    EXPECT_EQ(2, summary.nWrong);
    EXPECT_EQ(2, summary.nNothing);
    EXPECT_EQ(1, summary.nFreeRead);
    EXPECT_EQ(1, summary.nUnreadable);
}

TEST_F(DemoTallyTest, LatestViewOfAPictureCounts)
{
    const std::string a = Picture("a", "AAAAAAAAAAA");
    Tally_View(tally, 1.0, a);
    Tally_Close(tally, 2.0, news);
    Tally_View(tally, 3.0, a);
    Tally_Result(tally, 3.1, "AAAAAAAAAAA", news);
    Tally_Close(tally, 9.0, news);
    EXPECT_EQ("missed, ok", Outcomes());
    EXPECT_EQ(1, Tally_Summary(tally, {a}).nReported);
    EXPECT_EQ(0, Tally_Summary(tally, {a}).nMissed);
}

TEST_F(DemoTallyTest, TextBeforeAnyPictureIsStray)
{
    Tally_Result(tally, 1.0, "AAAAAAAAAAA", news);
    EXPECT_EQ("stray", Outcomes());
    EXPECT_EQ(1, Tally_Summary(tally, {}).nWrong);
}

} // namespace
