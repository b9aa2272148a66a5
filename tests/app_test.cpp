// The demo with a main application of one's own: the manual's two, and those that make mistakes.
#include <csignal>
#include <gtest/gtest.h>
#include <regex>
#include <set>

#include "files.h"
#include "programs.h"
#include "wait.h"

namespace
{

const char PYTHON_APPLICATION[] = "python3 " SOURCE_DIR "/docs/protocol/application.py";

class AppTest : public testing::Test
{
protected:
    std::vector<std::string> Command(const std::string& app, const std::string& service = SERVICE,
                                     const std::string& scene = SAMPLES_DIR) const
    {
        return {DEMO,
                "--service",
                service,
                "--scene",
                scene,
                "--view-ms",
                "1",
                "--app",
                app,
                "--record",
                folder / "screen.txt"};
    }

    // The application in Python, from its statements.
    std::string Python(const std::string& statements) const
    {
        WriteAll(folder / "app.py", R"(
import socket, struct, time
service = ("127.0.0.1", 10010)
link = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
def bind():
    link.bind(("127.0.0.1", 10000))
def frame(command, payload=b"", sync=0x3456):
    return struct.pack("<IiIII", sync, command, 1, 0, len(payload)) + payload
def mode(byte):
    return frame(0x604, bytes(1139) + bytes([byte]))
def send(*frames):
    for one in frames:
        link.sendto(one, service)
def receive(command):
    while struct.unpack_from("<i", link.recv(65536), 4)[0] != command:
        pass
)" + statements);
        return "exec python3 " + (folder / "app.py").string();
    }

    TempFolder folder;
};

TEST_F(AppTest, ShowsTheManualsApplicationsAtWork)
{
    for (const std::string& app : {std::string(C_APPLICATION), std::string(PYTHON_APPLICATION)}) {
        SCOPED_TRACE(app);
        // The second is restarted while the service runs, and hears no hello.
        const Ended demo = RunProgram(Command(app + " CANTEEN 1; exec " + app + " GUEST 1"));
        EXPECT_EQ(1, demo.Lines(" in  MSG_CMD_QRCODE_START 0x602, 20 bytes"));
        EXPECT_EQ(3, demo.Lines(" out MSG_CMD_QRCODE_PARAM 0x604, 1160 bytes: mode 1"));
        EXPECT_EQ(3, demo.Lines(" out MSG_CMD_QRCODE_ENABLE 0x903, 20 bytes"));
        EXPECT_EQ(2, demo.Lines("note: lost: nothing is bound to 127.0.0.1:10010"))
            << "before the service is up";
        EXPECT_LE(1, demo.Lines(" cam bleached.png"));
        EXPECT_LE(1, demo.Lines(" in  MSG_CMD_QRCODE_RESULT 0x904, 1044 bytes: \"CANTEEN-CARD-55"));
        EXPECT_LE(1, demo.Lines(" app refused 22 bytes")) << "badge.png is not its own";
        EXPECT_EQ(1, demo.Lines(" app accepted CANTEEN-CARD-55-0917"));
        EXPECT_EQ(1, demo.Lines(" app accepted GUEST-ANNA-LINDQVIST-1400"));
        EXPECT_EQ(0, demo.status);
        const std::string record = ReadAll(folder / "screen.txt");
        EXPECT_NE(std::string::npos, record.find(" app accepted CANTEEN-CARD-55-0917\n"));
    }
}

TEST_F(AppTest, TellsWhatAMistakeDoesAndTheServiceAgrees)
{
    const struct {
        std::string statements;
        std::vector<std::string> notes; // in their order
        bool pictures;                  // the service takes some
    } mistakes[] = {
        {"bind(); receive(0x602); send(frame(0x604, b'\\1'), frame(0x903)); time.sleep(1)",
         {"too short to hold the mode byte", "mode 0: the service parks",
          "ignored, because the mode is 0", "parked for good"},
         false},
        {"bind(); receive(0x602); time.sleep(1.5); send(mode(1), frame(0x903)); time.sleep(1)",
         {"no 0x604 came within 0.3 s of 0x602", "later than 0.3 s: the service stays parked",
          "without effect: the service is parked"},
         false},
        {"bind(); receive(0x602); send(mode(3), frame(0x903)); time.sleep(1.5)",
         {"mode 3: reading stays off", "ignored, because the mode is 3; reading stays off"},
         false},
        {"bind(); receive(0x602); send(mode(1), frame(0x999), frame(0x903)); receive(0x904)",
         {"0x999 is no command to the service"},
         true},
        {"bind(); receive(0x602)\n"
         "send(b'', mode(1), frame(0x903, sync=1)[:6]); receive(0x904)\n"
         "send(mode(0), frame(0x905)); receive(0x904); receive(0x904); receive(0x904)\n"
         "send(frame(0x604, bytes(1139) + b'\\1', sync=2))",
         {"empty: the service logs", "shorter than a header: what is missing counts as zero",
          "mode 0: reading stays on", "because the mode is 0; reading stays on",
          "the sync word is 0x2, not 0x3456"},
         true},
        {"bind(); hello, sender = link.recvfrom(65536); link.sendto(mode(1), sender)\n"
         "link.sendto(frame(0x903), ('127.0.0.1', 10000)); receive(0x903); time.sleep(1)",
         {"not sent to 127.0.0.1:10010: the service reads nothing at the port",
          "0x903 went to the main application's own port", "no 0x604 came"},
         false},
        {"link.connect(service); up = 0\n" // refused while the service is not up
         "while up < 100:\n"
         "    time.sleep(0.02)\n"
         "    try: link.send(mode(1)); link.send(frame(0x903)); up += 1\n"
         "    except ConnectionRefusedError: up = 0\n",
         {"lost: nothing is bound to 127.0.0.1:10010", "127.0.0.1:10000 after 5 s",
          "127.0.0.1:10000; 0x602 is sent once only",
          "127.0.0.1:10000; it does not come again while the code stays"},
         true},
    };
    for (const auto& mistake : mistakes) {
        SCOPED_TRACE(mistake.statements);
        const Ended demo = RunProgram(Command(Python(mistake.statements)));
        EXPECT_EQ(0, demo.status);
        EXPECT_EQ(mistake.pictures, demo.Lines(" cam ") > 0);
        size_t at = 0;
        for (const std::string& note : mistake.notes) {
            while (at < demo.lines.size() && demo.lines[at].find(note) == std::string::npos) {
                ++at;
            }
            EXPECT_LT(at, demo.lines.size()) << note;
        }
    }
}

TEST_F(AppTest, EndsWithTheCommandAndWithWhatItHasStarted)
{
    const std::string child = folder / "child";
    const std::string leave = "sleep 1000 & echo $! > " + child + "; ";
    const auto childIsGone = [&child] {
        return Wait_Until([&child] { return kill(std::stoi(ReadAll(child)), 0) != 0; });
    };
    const Ended early = RunProgram(Command(leave + "exit 7"));
    EXPECT_EQ(1, early.Lines("status 7; it had not bound 127.0.0.1:10000, so the service was not"));
    EXPECT_EQ(7, early.status);
    EXPECT_TRUE(childIsGone());
    // Left outside the process group, which only a reaper of its own finds; endless output.
    const Ended apart = RunProgram(Command("bash -c 'set -m; " + leave + "exit'; exit 7"));
    EXPECT_EQ(7, apart.status);
    EXPECT_TRUE(childIsGone());
    EXPECT_EQ(137, RunProgram(Command("kill -KILL $$")).status);

    Program demo;
    StartProgram(demo,
                 Command(leave + "python3 -c 'import time; print(\"up\"); time.sleep(1000)'"));
    std::string line;
    EXPECT_TRUE(demo.AwaitLine(" app up", line)) << "at once";
    kill(demo.Pid(), SIGINT);
    EXPECT_EQ(0, EndOf(demo).status);
    EXPECT_TRUE(childIsGone());

    StartProgram(demo, Command("trap 'echo good-bye; exit' TERM; echo up; yes endless & wait"));
    EXPECT_TRUE(demo.AwaitLine(" app endless", line));
    kill(demo.Pid(), SIGHUP);
    const Ended hungUp = EndOf(demo);
    EXPECT_EQ(0, hungUp.status);
    EXPECT_EQ(1, hungUp.Lines(" app good-bye"));

    WriteAll(folder / "service", "#!/bin/sh\necho last words; exit 3\n");
    std::filesystem::permissions(folder / "service", std::filesystem::perms::owner_all);
    const Ended broken =
        RunProgram(Command(std::string(PANEL) + " & " + leave + "wait", folder / "service"));
    EXPECT_EQ(1, broken.Lines(" srv last words"));
    EXPECT_EQ(1, broken.Lines("demo: the service ended with status 3"));
    EXPECT_EQ(1, broken.status);
    EXPECT_TRUE(childIsGone());
}

TEST(ProtocolPageTest, NamesEveryVariableOfTheSimulation)
{
    const std::regex name("QRCODE_SIM_[A-Z_]*[A-Z]");
    const auto namesIn = [&name](const std::string& text, std::set<std::string>& names) {
        for (std::sregex_iterator at(text.begin(), text.end(), name), end; at != end; ++at) {
            names.insert(at->str());
        }
    };
    std::set<std::string> read;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(SOURCE_DIR "/sim")) {
        if (entry.path().extension() == ".cpp") {
            namesIn(ReadAll(entry.path()), read);
        }
    }
    std::set<std::string> rows;
    const std::string page = ReadAll(SOURCE_DIR "/docs/protocol.md");
    const std::regex row("\n\\| `(QRCODE_SIM_[A-Z_]+)` \\|");
    for (std::sregex_iterator at(page.begin(), page.end(), row), end; at != end; ++at) {
        rows.insert(at->str(1));
    }
    EXPECT_FALSE(read.empty());
    EXPECT_EQ(read, rows);
}

} // namespace
