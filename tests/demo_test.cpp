// The demo: which picture a text is charged to, and the program as a person starts it.
#include <csignal>
#include <gtest/gtest.h>

#include "allowances.h"
#include "demo_tally.h"
#include "files.h"
#include "message.h"
#include "programs.h"
#include "udp_peer.h"

namespace
{

std::string Outcomes(const std::vector<DemoNews>& news)
{
    const char* const names[] = {"ok",   "wrong",    "missed",     "silent",
                                 "read", "not read", "unreadable", "stray"};
    std::string all;
    for (const DemoNews& one : news) {
        all += (all.empty() ? "" : ", ") + std::string(names[one.outcome]);
    }
    return all;
}

TEST(DemoTallyTest, TextBelongsToTheLastViewAtOrBeforeItsTimeAndTheLatestViewOfAPictureCounts)
{
    const TempFolder folder;
    const std::string a = folder / "a.png"; // the pictures themselves are not needed
    const std::string b = folder / "b.png";
    const std::string shortText = folder / "short.png";
    const std::string none = folder / "none.png";
    const std::string free = folder / "free.png";
    WriteAll(folder / "a.txt", "AAAAAAAAAAA\n");
    WriteAll(folder / "b.txt", "BBBBBBBBBBB\n");
    WriteAll(folder / "short.txt", "0123456789\n");
    WriteAll(folder / "none.txt", "\n");
    struct Event {
        double time;
        DemoEventKind kind;
        std::string content; // the picture, or the text of a result
    };
    const struct {
        const char* what;
        std::vector<Event> events;
        std::string outcomes;
        std::string summary; // reportable, reported, missed, wrong, nothing, read, unreadable
    } runs[] = {
        {"told late, and told twice",
         {{1.0, DEMO_VIEW, a},
          {2.0, DEMO_VIEW, none},
          {3.0, DEMO_VIEW, b},
          {1.9, DEMO_RESULT, "AAAAAAAAAAA"},
          {3.0, DEMO_RESULT, "BBBBBBBBBBB"},
          {3.5, DEMO_RESULT, "BBBBBBBBBBB"}},
         "ok, silent, ok",
         "2 2 0 0 1 0 0"},
        {"a wrong text is no missed one; the picture that never came up is",
         {{1.0, DEMO_VIEW, a},
          {1.1, DEMO_RESULT, "something else"},
          {2.0, DEMO_VIEW, shortText},
          {2.1, DEMO_RESULT, "0123456789"}, // never reported, so wrong when it is
          {4.0, DEMO_VIEW, free},
          {4.1, DEMO_RESULT, "whatever"},
          {5.0, DEMO_UNREADABLE, folder / "broken.png"}},
         "wrong, wrong, read, unreadable",
         "2 0 1 2 1 1 1"},
        {"in view twice",
         {{1.0, DEMO_VIEW, a},
          {2.0, DEMO_VIEW, b},
          {2.1, DEMO_RESULT, "BBBBBBBBBBB"},
          {3.0, DEMO_VIEW, a},
          {3.1, DEMO_RESULT, "AAAAAAAAAAA"}},
         "missed, ok, ok",
         "2 2 0 0 0 0 0"},
        {"before any picture", {{1.0, DEMO_RESULT, "AAAAAAAAAAA"}}, "stray", "2 0 2 1 0 0 0"},
    };
    for (const auto& run : runs) {
        SCOPED_TRACE(run.what);
        DemoTally tally;
        std::vector<std::string> listed = {a, b};
        for (const Event& event : run.events) {
            const bool result = event.kind == DEMO_RESULT;
            Tally_Add(tally, event.time,
                      {event.kind, result ? "" : event.content, result ? event.content : ""});
            if (event.kind == DEMO_VIEW && event.content != a && event.content != b) {
                listed.push_back(event.content);
            }
        }
        Tally_Add(tally, 8.0, {DEMO_BLANK, "", ""});
        EXPECT_EQ("", Outcomes(Tally_Judge(tally, 1.0))) << "not before its time";
        EXPECT_EQ(run.outcomes, Outcomes(Tally_Judge(tally, 9.0)));
        const DemoSummary sum = Tally_Summary(tally, listed);
        std::ostringstream summary;
        summary << sum.reportable << ' ' << sum.reported << ' ' << sum.missed << ' ' << sum.wrong
                << ' ' << sum.nothing << ' ' << sum.withoutTextRead << ' ' << sum.unreadable;
        EXPECT_EQ(run.summary, summary.str());
    }
}

// --- The program.

class DemoTest : public testing::Test
{
protected:
    DemoTest()
    {
        std::filesystem::create_directory(scene);
        UseService(std::string("exec '") + SERVICE + "'");
    }

    // The demo gets a shell script as its service.
    void UseService(const std::string& command) const
    {
        WriteAll(service, "#!/bin/sh\n" + command + "\n");
        std::filesystem::permissions(service, std::filesystem::perms::owner_all);
    }

    // Puts a sample into the scene under another name, with the text that is expected of it.
    void Put(const std::string& sample, const std::string& name, const std::string& text) const
    {
        std::filesystem::copy(std::string(SAMPLES_DIR "/") + sample, scene / (name + ".png"));
        WriteAll(scene / (name + ".txt"), text + "\n");
    }

    std::vector<std::string> Command(const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> command = {DEMO, "--service", service, "--scene", scene};
        command.insert(command.end(), more.begin(), more.end());
        return command;
    }

    // Each picture is one frame long: the camera shows it once at least.
    Ended Run(std::vector<std::string> more = {}) const
    {
        more.insert(more.end(), {"--view-ms", "1"});
        return RunProgram(Command(more));
    }

    TempFolder folder;
    const std::filesystem::path scene = folder / "scene";
    const std::filesystem::path service = folder / "service";
};

const char TOO_LARGE[] = "too large a picture for the memory there is";
const std::string PLAIN_TEXT = SampleText(SAMPLES_DIR "/plain.png");

TEST_F(DemoTest, SaysOfEachPictureWhatBecameOfIt)
{
    Put("plain.png", "right", PLAIN_TEXT);
    Put("plain.png", "wrong", "another text");
    Put("plain.png", "unknown", "");
    std::filesystem::remove(scene / "unknown.txt");
    Put("ten-characters.png", "short", SampleText(SAMPLES_DIR "/ten-characters.png"));
    Put("no-code-wall.png", "missing", "there should be one");
    WriteAll(scene / "broken.png", ReadAll(SAMPLES_DIR "/plain.png").substr(0, 300));
    if (!EMULATED_OR_SANITIZED) { // under these, memory that runs out ends the service
        WriteAll(scene / "huge.pgm", "P5 30000 30000 255\n");
    }
    const Ended demo = Run();
    EXPECT_EQ(1, demo.Lines("right.png     ok                 \"" + PLAIN_TEXT + "\""));
    EXPECT_EQ(1, demo.Lines("wrong.png     WRONG              \"" + PLAIN_TEXT +
                            "\", expected \"another text\""));
    EXPECT_EQ(1, demo.Lines("unknown.png   read               \"" + PLAIN_TEXT + "\""));
    EXPECT_EQ(1, demo.Lines("short.png     nothing to report  \"DOOR-KEY-1\" is too short"));
    EXPECT_EQ(1, demo.Lines("missing.png   MISSED             expected \"there should be one\""));
    EXPECT_EQ(1, demo.Lines("broken.png    skipped            not a picture that can be read, or "
                            "too large a one"));
    const int huge = EMULATED_OR_SANITIZED ? 0 : 1;
    EXPECT_EQ(huge, demo.Lines(std::string("huge.pgm      skipped            ") + TOO_LARGE))
        << "the same as qrcode-inspect says";
    EXPECT_EQ(1,
              demo.Lines("Pictures with a reportable code: 3, reported: 1, missed: 1, wrong: 1"));
    EXPECT_EQ(1, demo.Lines("Pictures with nothing to report: 1"));
    EXPECT_EQ(1, demo.Lines("Pictures without an expected text: 1, read: 1, not read: 0"));
    EXPECT_EQ(1, demo.Lines("Files that are no pictures: " + std::to_string(1 + huge)));
    EXPECT_EQ(0, demo.status) << "one's own pictures are no test";
    EXPECT_EQ(1, Run({"--strict"}).status);
}

TEST_F(DemoTest, EndsWithTheStatusOfItsOutcome)
{
    const Ended empty = Run();
    EXPECT_EQ(1, empty.Lines("demo: no picture in " + scene.string()));
    EXPECT_EQ(2, empty.status);
    WriteAll(scene / "empty.png", "");
    EXPECT_EQ(1, Run().Lines("demo: no picture that can be read: " + scene.string()));
    EXPECT_EQ(2, Run().status);
    EXPECT_EQ(2, Run({"--scene", "/absent"}).status);
    EXPECT_EQ(2, Run({"--nonsense"}).status);

    Put("plain.png", "right", PLAIN_TEXT);
    EXPECT_EQ(0, Run({"--strict"}).status);
    for (const char* const output : {"> /dev/full", ">&-"}) {
        std::vector<std::string> shell = {"/bin/sh", "-c", std::string("exec \"$@\" ") + output,
                                          "sh"};
        UseService("echo started");
        const std::vector<std::string> command = Command({"--once"});
        shell.insert(shell.end(), command.begin(), command.end());
        const Ended full = RunProgram(shell);
        EXPECT_EQ(1, full.Lines("demo: the output cannot be written")) << output;
        EXPECT_EQ(0, full.Lines("service: started")) << output;
        EXPECT_EQ(1, full.status) << output;
    }
}

TEST_F(DemoTest, LongNamesKeepTheColumnAndTakenPortsAreSaid)
{
    const std::string longName = "a-" + std::string(50, 'x') + "-z";
    Put("plain.png", "short", PLAIN_TEXT);
    Put("plain.png", longName, PLAIN_TEXT);
    const Ended demo = Run();
    EXPECT_EQ(
        1, demo.Lines("a-" + std::string(16, 'x') + "..." + std::string(13, 'x') + "-z.png  ok "));
    EXPECT_EQ(1, demo.Lines("short.png" + std::string(40 - 9, ' ') + "  ok "));
    for (const int port : {QRCODE_SERVER_PORT, QRCODE_PEER_PORT}) {
        const UdpPeer taker(port);
        const Ended refused = Run();
        EXPECT_EQ(1, refused.Lines("has UDP port " + std::to_string(port)));
        EXPECT_EQ(1, refused.status);
    }
}

TEST_F(DemoTest, TellsHowTheServiceDied)
{
    Put("plain.png", "right", PLAIN_TEXT);
    for (const auto& [command, said] : std::vector<std::pair<std::string, std::string>>{
             {"exit 3", "demo: the service ended with status 3"},
             {"kill -SEGV $$", "demo: the service was killed by signal 11 (Segmentation fault)"}}) {
        UseService("echo last words\n" + command);
        const Ended demo = Run();
        EXPECT_EQ(1, demo.Lines("service: last words"));
        EXPECT_EQ(1, demo.Lines(said));
        EXPECT_EQ(1, demo.status);
    }
}

TEST_F(DemoTest, InterruptEndsItWithTheSummary)
{
    Put("plain.png", "right", PLAIN_TEXT);
    Program demo;
    StartProgram(demo, Command({"--view-ms", "3600000"}));
    std::string line;
    ASSERT_TRUE(demo.AwaitLine("right.png", line));
    kill(demo.Pid(), SIGINT);
    const Ended ended = EndOf(demo);
    EXPECT_EQ(1, ended.Lines("Pictures with a reportable code: 1, reported: 1, missed: 0"));
    EXPECT_EQ(130, ended.status);
}

} // namespace
