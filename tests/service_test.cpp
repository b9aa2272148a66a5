// The whole service binary over the simulated terminal: against the panel, and against a bare
// socket in the main application's place where a test needs to be ill-timed or silent.
#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <sys/stat.h>
#include <thread>

#include "allowances.h"
#include "files.h"
#include "message.h"
#include "program.h"
#include "service_peer.h"
#include "udp_peer.h"
#include "wait.h"

namespace
{

const std::string SERVICE_LOG = "/Database/doorlog/qrcodelog.txt";
const std::string UI_LOG = "/Database/doorlog/uilog.txt";
const std::string PLAIN = SAMPLES_DIR "/plain.png";

std::vector<std::string> Scene(const std::string& path, int viewMs = 1)
{
    return {"QRCODE_SIM_SCENE=" + path, "QRCODE_SIM_VIEW_MS=" + std::to_string(viewMs)};
}

// How many times a text stands in a file.
size_t Count(const std::string& path, const std::string& text)
{
    const std::string bytes = ReadAll(path);
    size_t count = 0;
    for (size_t at = bytes.find(text); at != std::string::npos; at = bytes.find(text, at + 1)) {
        ++count;
    }
    return count;
}

bool WaitForEntries(size_t entries)
{
    return WaitUntil([entries] { return Count(SERVICE_LOG, "</br>") >= entries; });
}

bool WaitForPanel()
{
    return WaitUntil([] { // port 10000
        return ReadAll("/proc/net/udp").find(":2710 ") != std::string::npos;
    });
}

int Threads(pid_t pid)
{
    std::smatch match;
    const std::string status = ReadAll("/proc/" + std::to_string(pid) + "/status");
    return std::regex_search(status, match, std::regex("Threads:\\s*(\\d+)"))
               ? std::max(1, std::stoi(match[1]) - EXTRA_THREADS)
               : -1;
}

class ServiceTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::create_directories("/Database/doorlog");
        std::filesystem::remove(SERVICE_LOG);
        std::filesystem::remove(UI_LOG);
    }

    // The text of the next result; empty when none comes in time.
    static std::string Result(const UdpPeer& peer, int waitMs = 20000)
    {
        std::string frame;
        if (!peer.Receive(frame, waitMs) || frame.substr(4, 4) != std::string("\x04\x09\0\0", 4)) {
            return "";
        }
        EXPECT_EQ(1044U, frame.size());
        return frame.c_str() + 20;
    }

    static void Hello(const UdpPeer& peer)
    {
        ASSERT_TRUE(peer.bound);
        std::string frame;
        ASSERT_TRUE(peer.Receive(frame));
        EXPECT_EQ(std::string("\x56\x34\0\0\x02\x06\0\0\x0a\0\0\0\0\0\0\0\0\0\0\0", 20), frame);
    }
};

TEST_F(ServiceTest, PanelHearsHelloAndResults)
{
    Program panel(Emulated({PANEL, "--json", "--count", "2"}));
    std::string line;
    const std::string text = SampleText(PLAIN);
    ASSERT_TRUE(WaitForPanel()) << "or it may miss the hello";
    Program service(Emulated({SERVICE}), Scene(PLAIN));
    std::vector<std::string> seen;
    while (panel.Line(line)) {
        if (line[0] != '{') { // said on standard error
            continue;
        }
        const nlohmann::json event = nlohmann::json::parse(line);
        seen.push_back(event["direction"].get<std::string>() + " " +
                       event["command"].get<std::string>() + " " +
                       event["name"].get<std::string>());
        if (event.contains("text")) {
            EXPECT_EQ(text, event["text"].get<std::string>());
            EXPECT_EQ(1044, event["bytes"].get<int>());
        }
    }
    EXPECT_EQ((std::vector<std::string>{
                  "in 0x602 MSG_CMD_QRCODE_START", "out 0x604 MSG_CMD_QRCODE_PARAM",
                  "out 0x903 MSG_CMD_QRCODE_ENABLE", "in 0x904 MSG_CMD_QRCODE_RESULT",
                  "in 0x904 MSG_CMD_QRCODE_RESULT"}),
              seen);
    EXPECT_EQ(0, panel.Wait());
    EXPECT_EQ(2, Threads(service.Pid()));
    const std::regex log("\\[[-0-9]{10} [:0-9]{8}\\] pMsgHead->MsgHead.nMsgCommand=0x0604\n</br>"
                         "\\[[-0-9]{10} [:0-9]{8}\\] pMsgHead->MsgHead.nMsgCommand=0x0903\n</br>");
    EXPECT_TRUE(std::regex_match(ReadAll(SERVICE_LOG), log)) << ReadAll(SERVICE_LOG);
    EXPECT_FALSE(std::filesystem::exists(UI_LOG));
}

TEST_F(ServiceTest, ModeThatComesTooLateNeverStartsIt)
{
    const UdpPeer peer(QRCODE_PEER_PORT);
    const Program service(Emulated({SERVICE}), Scene(PLAIN));
    Hello(peer);
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // the lateness itself
    peer.SendTo(ServiceAddress(), Mode(1));
    peer.SendTo(ServiceAddress(), Command(MSG_CMD_QRCODE_ENABLE));
    EXPECT_TRUE(WaitForEntries(2)) << "it still listens";
    EXPECT_EQ("", Result(peer, 1500));
    EXPECT_TRUE(service.Runs());
    EXPECT_EQ(2, Threads(service.Pid()));
}

TEST_F(ServiceTest, ModeHasMostOfThe300Milliseconds)
{
    const UdpPeer peer(QRCODE_PEER_PORT);
    const Program service(Emulated({SERVICE}), Scene(PLAIN));
    Hello(peer);
    std::this_thread::sleep_for(std::chrono::milliseconds(150)); // late, but in time
    peer.SendTo(ServiceAddress(), Mode(1));
    peer.SendTo(ServiceAddress(), Command(MSG_CMD_QRCODE_ENABLE));
    EXPECT_EQ(SampleText(PLAIN), Result(peer));
}

TEST_F(ServiceTest, ModeThreeFreezesTheFlagOffAndModeZeroFreezesItOn)
{
    const UdpPeer peer(QRCODE_PEER_PORT);
    const Program service(Emulated({SERVICE}), Scene(PLAIN));
    Hello(peer);
    peer.SendTo(ServiceAddress(), Mode(3));
    peer.SendTo(ServiceAddress(), Command(MSG_CMD_QRCODE_ENABLE));
    ASSERT_TRUE(WaitForEntries(2));
    EXPECT_EQ("", Result(peer, 1500)) << "ignored in mode 3";
    peer.SendTo(ServiceAddress(), Mode(1));
    ASSERT_TRUE(WaitForEntries(3));
    EXPECT_EQ("", Result(peer, 1500)) << "a mode alone enables nothing";
    peer.SendTo(ServiceAddress(), Command(MSG_CMD_QRCODE_ENABLE));
    EXPECT_EQ(SampleText(PLAIN), Result(peer));

    peer.SendTo(ServiceAddress(), Mode(0));
    peer.SendTo(ServiceAddress(), Command(MSG_CMD_QRCODE_DISABLE));
    peer.SendTo(ServiceAddress(), Command(MSG_CMD_QRCODE_STOP));
    ASSERT_TRUE(WaitForEntries(7));
    while (Result(peer, 1) != "") { // what was sent before
    }
    EXPECT_EQ(SampleText(PLAIN), Result(peer)) << "it goes on";
    EXPECT_EQ(SampleText(PLAIN), Result(peer));

    peer.SendTo(ServiceAddress(), Mode(2));
    peer.SendTo(ServiceAddress(), Command(MSG_CMD_QRCODE_STOP));
    ASSERT_TRUE(WaitForEntries(9));
    while (Result(peer, 1500) != "") { // until it has stopped; a scan that goes on never ends this
    }
    EXPECT_TRUE(service.Runs());
}

TEST_F(ServiceTest, TakenPortIsSaidAndParksIt)
{
    const UdpPeer peer(QRCODE_PEER_PORT);
    const UdpPeer taker(QRCODE_SERVER_PORT);
    ASSERT_TRUE(taker.bound);
    Program service(Emulated({SERVICE}), Scene(PLAIN));
    std::string line;
    ASSERT_TRUE(service.Line(line)) << "at once, though standard output is a pipe";
    EXPECT_EQ("API_Socket_Server_Init bind is error 98", line);
    std::string frame;
    EXPECT_FALSE(peer.Receive(frame, 1000)) << "not even a hello";
    EXPECT_TRUE(std::regex_match(
        ReadAll(UI_LOG),
        std::regex("\\[[-0-9]{10} [:0-9]{8}\\] API_Socket_Server_Init is error port=10010\n</br>")))
        << ReadAll(UI_LOG);
    EXPECT_FALSE(std::filesystem::exists(SERVICE_LOG));
    EXPECT_TRUE(service.Runs());
    EXPECT_EQ(1, Threads(service.Pid()));
}

TEST_F(ServiceTest, MissingLogFolderChangesNothingElse)
{
    std::filesystem::remove_all("/Database/doorlog");
    const UdpPeer peer(QRCODE_PEER_PORT);
    const Program service(Emulated({SERVICE}), Scene(PLAIN));
    Hello(peer);
    peer.SendTo(ServiceAddress(), Mode(1));
    peer.SendTo(ServiceAddress(), Command(MSG_CMD_QRCODE_ENABLE));
    EXPECT_EQ(SampleText(PLAIN), Result(peer));
    EXPECT_FALSE(std::filesystem::exists("/Database/doorlog"));
}

TEST_F(ServiceTest, PanelCanBeRestarted)
{
    auto first = std::make_unique<Program>(Emulated({PANEL, "--json"}));
    ASSERT_TRUE(WaitForPanel());
    const Program service(Emulated({SERVICE}), Scene(PLAIN));
    std::string line;
    ASSERT_TRUE(first->LineWith("0x904", line));
    first.reset(); // killed: what is sent now is lost
    Program second(Emulated({PANEL, "--count", "1"}));
    EXPECT_TRUE(second.LineWith(SampleText(PLAIN), line));
    EXPECT_EQ(0, second.Wait());
    EXPECT_TRUE(service.Runs());
}

TEST_F(ServiceTest, ShortTextIsReadButNotReported)
{
    const TempFolder scene;
    for (const char* const name : {"ten-characters", "eleven-characters"}) {
        std::filesystem::copy(std::string(SAMPLES_DIR "/") + name + ".png",
                              scene / (std::string(name) + ".png"));
    }
    ASSERT_EQ(10U, SampleText(SAMPLES_DIR "/ten-characters.png").size());
    const std::string eleven = SampleText(SAMPLES_DIR "/eleven-characters.png");
    ASSERT_EQ(11U, eleven.size());
    const UdpPeer peer(QRCODE_PEER_PORT);
    const Program service(Emulated({SERVICE}), Scene(scene.Path().string()));
    Hello(peer);
    peer.SendTo(ServiceAddress(), Mode(1));
    peer.SendTo(ServiceAddress(), Command(MSG_CMD_QRCODE_ENABLE));
    for (int i = 0; i < 3; ++i) { // the other one was on view each time in between
        EXPECT_EQ(eleven, Result(peer));
    }
}

TEST_F(ServiceTest, PlatformFaultsAreSaidAtOnceAndPassedOver)
{
    const TempFolder folder;
    WriteAll(
        folder / "script",
        "packs 16:600 3:*\nHI_MPI_SYS_Bind 0xa0020001 1\nHI_MPI_VENC_QueryStatus 0xa0080002 1");
    const UdpPeer peer(QRCODE_PEER_PORT);
    std::vector<std::string> environment = Scene(PLAIN);
    environment.push_back("QRCODE_SIM_SCRIPT=" + (folder / "script").string());
    Program service(Emulated({SERVICE}), environment);
    Hello(peer);
    peer.SendTo(ServiceAddress(), Mode(1));
    peer.SendTo(ServiceAddress(), Command(MSG_CMD_QRCODE_ENABLE));
    std::string line;
    for (const char* const said :
         {"HI_MPI_SYS_Bind failed with 0xa0020001!", "HI_MPI_SYS_Bind failed with 0xffffffff!",
          "venc chn 4 get stream time out!", "src.data is NULL",
          "VencChn 4 Query failed with 0xa0080002!", "src.data is NULL"}) {
        EXPECT_TRUE(service.LineWith(said, line)) << said;
    }
    EXPECT_EQ(SampleText(PLAIN), Result(peer));
}

TEST_F(ServiceTest, SceneThatDoesNotExistStopsTheStart)
{
    for (const char* const wrong :
         {"QRCODE_SIM_SCENE=/absent", "QRCODE_SIM_VIEW_MS=0", "QRCODE_SIM_VIEW_MS=1s",
          "QRCODE_SIM_VIEW_MS=5", "QRCODE_SIM_SCRIPT=/absent"}) {
        Program service(Emulated({SERVICE}), {wrong});
        std::string line;
        EXPECT_TRUE(service.Line(line)) << wrong;
        EXPECT_EQ(0U, line.find("sim: ")) << line;
        EXPECT_EQ(2, service.Wait());
    }
}

TEST_F(ServiceTest, SceneGoesOnWhenNobodyReadsItsEvents)
{
    const TempFolder folder;
    const std::string fifo = (folder / "events").string();
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    const UdpPeer peer(QRCODE_PEER_PORT);
    std::vector<std::string> environment = Scene(PLAIN);
    environment.push_back("QRCODE_SIM_EVENTS=" + fifo);
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    Program service(Emulated({SERVICE}), environment);
    Hello(peer);
    close(reader);
    peer.SendTo(ServiceAddress(), Mode(1));
    peer.SendTo(ServiceAddress(), Command(MSG_CMD_QRCODE_ENABLE));
    std::string line;
    EXPECT_TRUE(service.LineWith("sim: events: Broken pipe", line));
    EXPECT_EQ(SampleText(PLAIN), Result(peer));
}

// --- the panel by itself ---

TEST_F(ServiceTest, PanelRefusesWrongUsageAndATakenPort)
{
    std::string line;
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
             {PANEL, "--mode", "256"}, {PANEL, "--count", "x"}, {PANEL, "--nonsense"}}) {
        Program panel(Emulated(command));
        EXPECT_TRUE(panel.Line(line)) << "says why";
        EXPECT_EQ(2, panel.Wait());
    }
    const UdpPeer taker(QRCODE_PEER_PORT);
    Program panel(Emulated({PANEL}));
    EXPECT_TRUE(panel.LineWith("10000", line));
    EXPECT_EQ(2, panel.Wait());
}

TEST_F(ServiceTest, PanelObeysItsWordsAndCountsTime)
{
    const UdpPeer service(QRCODE_SERVER_PORT);
    ASSERT_TRUE(service.bound);
    Program panel(Emulated({PANEL, "--no-enable", "--mode", "7"}));
    std::string line;
    std::string frame;
    panel.Say("nonsense");
    EXPECT_TRUE(panel.LineWith("nonsense", line));
    const UdpPeer other;
    sockaddr_in to = ServiceAddress();
    to.sin_port = htons(QRCODE_PEER_PORT);
    other.SendTo(to, "short"); // less than a header: shown, and nothing else
    other.SendTo(to, Command(MSG_CMD_QRCODE_START));
    ASSERT_TRUE(service.Receive(frame));
    EXPECT_EQ(std::string("\x56\x34\0\0\x04\x06\0\0", 8), frame.substr(0, 8));
    ASSERT_EQ(1160U, frame.size());
    EXPECT_EQ(7, frame[1159]);
    const std::pair<const char*, const char*> words[] = {{"enable", "\x03\x09"},
                                                         {"disable", "\x05\x09"},
                                                         {"stop", "\x0d\x09"},
                                                         {"mode 9", "\x04\x06"}};
    for (const auto& word : words) {
        panel.Say(word.first);
        ASSERT_TRUE(service.Receive(frame)) << word.first;
        EXPECT_EQ(word.second, frame.substr(4, 2));
    }
    EXPECT_EQ(9, frame[1159]);
    panel.Say("quit");
    EXPECT_EQ(0, panel.Wait());

    Program timed(Emulated({PANEL, "--count", "1", "--seconds", "0.2"}));
    EXPECT_EQ(1, timed.Wait());
}

} // namespace
