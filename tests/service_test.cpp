// The whole service over the simulated terminal: how it starts, obeys and reports, also among
// hostile neighbours; and the panel.
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <pty.h>
#include <regex>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

#include "service.h"
#include "udp_peer.h"

namespace
{

enum {
    IDLE_MS = 1500, // beyond the second between two looks at a flag that is off, and a reading
    ATTEMPTS = 5    // of what has a deadline, on a machine that may be too slow for it
};

// A frame of the service's, from its words.
std::string Frame(uint32_t command, const std::string& payload)
{
    const uint32_t words[] = {0x3456, command, 10, 0, static_cast<uint32_t>(payload.size())};
    std::string frame;
    for (const uint32_t word : words) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            frame += static_cast<char>(word >> shift);
        }
    }
    return frame + payload;
}

TerminalOptions QuietService()
{
    TerminalOptions options = PlainService();
    options.quiet = true;
    return options;
}

class ServiceTest : public testing::Test
{
protected:
    void Start(const TerminalOptions& options,
               bool (Terminal::*how)(std::string&) = &Terminal::Start)
    {
        std::string error;
        service.reset();
        ResetLogs();
        service = std::make_unique<Terminal>(options);
        ASSERT_TRUE((service.get()->*how)(error)) << error;
    }

    // Without an answer to its hello.
    void Launch(const TerminalOptions& options) { Start(options, &Terminal::Launch); }

    // Starts a service that gets its mode so long after its hello. Returns the ms from the hello
    // until the mode has been handled.
    int64_t StartWithModeAfter(int ms)
    {
        TerminalOptions options = PlainService();
        options.mode = TERMINAL_NO_ANSWER;
        Start(options);
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        service->SendMode(1);
        const int64_t sentUs = service->SendCommand(MSG_CMD_QRCODE_ENABLE);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(AwaitEntries(2)) << "it listens, parked or not";
        const auto taken = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - start);
        return (sentUs - service->HelloUs()) / 1000 + taken.count();
    }

    long Threads() const { return std::max(1L, service->Figures().threads - EXTRA_THREADS); }

    const std::string text = SampleText(PLAIN);
    std::unique_ptr<Terminal> service;
};

TEST_F(ServiceTest, PanelHearsHelloAndResults)
{
    Program panel;
    StartProgram(panel, Emulated({PANEL, "--json", "--count", "2"}));
    std::string said;
    ASSERT_TRUE(panel.AwaitLine("listening", said)) << "or it hears no hello";
    TerminalOptions options = QuietService();
    options.port = false;
    Launch(options);
    std::vector<std::string> seen;
    const Ended heard = EndOf(panel);
    for (const std::string& line : heard.lines) {
        const nlohmann::json event = nlohmann::json::parse(line, nullptr, false);
        if (event.is_object()) { // the rest is said on standard error
            seen.push_back(event.value("direction", "") + " " + event.value("command", "") + " " +
                           event.value("name", "") + " " + event.value("text", ""));
        }
    }
    EXPECT_EQ((std::vector<std::string>{
                  "in 0x602 MSG_CMD_QRCODE_START ", "out 0x604 MSG_CMD_QRCODE_PARAM ",
                  "out 0x903 MSG_CMD_QRCODE_ENABLE ", "in 0x904 MSG_CMD_QRCODE_RESULT " + text,
                  "in 0x904 MSG_CMD_QRCODE_RESULT " + text}),
              seen);
    EXPECT_EQ(0, heard.status);
    EXPECT_EQ(2, Threads());
    const std::regex log(ENTRY_FORM + "pMsgHead->MsgHead.nMsgCommand=0x0604\n</br>" + ENTRY_FORM +
                         "pMsgHead->MsgHead.nMsgCommand=0x0903\n</br>");
    EXPECT_TRUE(std::regex_match(ReadAll(SERVICE_LOG), log)) << ReadAll(SERVICE_LOG);
    EXPECT_FALSE(std::filesystem::exists(UI_LOG));
}

TEST_F(ServiceTest, SaysHelloOnceAndReportsInExactFrames)
{
    Start(PlainService());
    ASSERT_TRUE(service->Await([this] { return service->Datagrams().size() >= 3; }));
    std::string payload = text;
    payload.resize(1024);
    const std::string frames[] = {Frame(0x602, ""), Frame(0x904, payload), Frame(0x904, payload)};
    for (size_t i = 0; i < 3; ++i) {
        const PanelBytes& datagram = service->Datagrams()[i].datagram;
        EXPECT_EQ(frames[i], std::string(datagram.begin(), datagram.end()));
    }
}

TEST_F(ServiceTest, TakesAModeThatComes150MsAfterItsHello)
{
    int attempt = 0;
    while (StartWithModeAfter(150) >= QRCODE_ANSWER_MS && ++attempt < ATTEMPTS) {
    }
    EXPECT_EQ(text, service->AwaitResult());
}

TEST_F(ServiceTest, ParksWhenTheModeComes500MsAfterItsHello)
{
    std::string result;
    int attempt = 0;
    do { // a service that was kept from waking up after 300 ms may see it all the same
        StartWithModeAfter(500);
        result = service->AwaitResult(IDLE_MS);
    } while (!result.empty() && ++attempt < ATTEMPTS);
    EXPECT_EQ("", result);
    EXPECT_TRUE(service->Service().Running());
    EXPECT_EQ(2, Threads());
}

TEST_F(ServiceTest, ModeThreeFreezesTheFlagOffAndModeZeroFreezesItOn)
{
    TerminalOptions options = PlainService();
    options.mode = QRCODE_MODE_FROZEN;
    Start(options);
    ASSERT_TRUE(AwaitEntries(2));
    EXPECT_EQ("", service->AwaitResult(IDLE_MS)) << "the enable command is ignored";
    service->SendMode(1);
    ASSERT_TRUE(AwaitEntries(3));
    EXPECT_EQ("", service->AwaitResult(IDLE_MS)) << "a mode alone enables nothing";
    service->SendCommand(MSG_CMD_QRCODE_ENABLE);
    EXPECT_EQ(text, service->AwaitResult());

    service->SendMode(QRCODE_MODE_NEVER);
    service->SendCommand(MSG_CMD_QRCODE_DISABLE);
    service->SendCommand(MSG_CMD_QRCODE_STOP);
    ASSERT_TRUE(AwaitEntries(7));
    EXPECT_TRUE(Reports(*service));
    EXPECT_TRUE(Reports(*service)) << "the first may have been on its way";

    service->SendMode(2);
    service->SendCommand(MSG_CMD_QRCODE_STOP);
    ASSERT_TRUE(AwaitEntries(9));
    EXPECT_TRUE(service->SilentFor(IDLE_MS));
}

TEST_F(ServiceTest, TakenPortIsSaidAndParksIt)
{
    const UdpPeer taker(QRCODE_SERVER_PORT);
    ASSERT_TRUE(taker.bound);
    Launch(PlainService());
    std::string line;
    ASSERT_TRUE(service->Service().NextLine(line)) << "at once, though it goes to a pipe";
    EXPECT_EQ("API_Socket_Server_Init bind is error 98", line);
    EXPECT_FALSE(service->AwaitHello(SILENCE_MS));
    const std::regex log(ENTRY_FORM + "API_Socket_Server_Init is error port=10010\n</br>");
    EXPECT_TRUE(std::regex_match(ReadAll(UI_LOG), log)) << ReadAll(UI_LOG);
    EXPECT_FALSE(std::filesystem::exists(SERVICE_LOG));
    EXPECT_TRUE(service->Service().Running());
    EXPECT_EQ(1, Threads());
}

// Its own address reuse, on both sockets, lets it bind beside an earlier one; the later one gets
// the commands.
TEST_F(ServiceTest, SecondServiceTakesTheCommandsOver)
{
    Start(PlainService());
    EXPECT_TRUE(Reports(*service));
    service->SendCommand(MSG_CMD_QRCODE_DISABLE);
    EXPECT_TRUE(service->SilentFor(SILENCE_MS));
    TerminalOptions options = PlainService();
    options.port = false; // its hello goes to the first one's application, which answers it
    Terminal second(options);
    std::string error;
    ASSERT_TRUE(second.Launch(error)) << error;
    EXPECT_EQ(text, service->AwaitResult());
}

TEST_F(ServiceTest, PlatformFaultsAreSaidAtOnceAndPassedOver)
{
    TerminalOptions options = PlainService();
    options.script =
        "packs 16:600 3:*\nHI_MPI_SYS_Bind 0xa0020001 1\nHI_MPI_VENC_QueryStatus 0xa0080002 1";
    Start(options);
    std::string line;
    for (const char* const said :
         {"HI_MPI_SYS_Bind failed with 0xa0020001!", "HI_MPI_SYS_Bind failed with 0xffffffff!",
          "venc chn 4 get stream time out!", "src.data is NULL",
          "VencChn 4 Query failed with 0xa0080002!", "src.data is NULL"}) {
        EXPECT_TRUE(service->AwaitLine(said, line)) << said;
    }
    EXPECT_EQ(text, service->AwaitResult());
}

TEST_F(ServiceTest, WatchedOneSeesWhatItIsHandedAndItsOutputsComeApart)
{
    TerminalOptions options = PlainService();
    options.scene.clear();
    options.newest = true;
    options.watched = true;
    options.script = "# none";
    Start(options);
    TempFolder folder;
    std::string error;
    std::filesystem::copy_file(Sample("plain.png"), folder / "handed");
    ASSERT_TRUE(service->Hand((folder / "handed").string(), error)) << error;
    EXPECT_EQ(text, service->AwaitResult());
    EXPECT_FALSE(service->Hand((folder / "absent").string(), error));
    ASSERT_TRUE(service->SetScript("picture none", error)) << error;
    const auto come = [&](std::deque<std::string>& lines, const std::string& line) {
        return service->Await(
            [&] { return std::find(lines.begin(), lines.end(), line) != lines.end(); });
    };
    EXPECT_TRUE(come(service->Service().ErrorLines(), "NOTE: Current  frame is NULL!"));
    EXPECT_TRUE(come(service->Service().Lines(), "src.data is NULL"));
    ASSERT_TRUE(service->SetScript("# none", error)) << error;
    EXPECT_EQ(text, service->AwaitResult()) << "forgotten meanwhile";
    ASSERT_TRUE(service->Hand("", error)) << error;
    EXPECT_TRUE(service->SilentFor(200));
}

TEST_F(ServiceTest, WrongSettingOfTheSimulationStopsTheStart)
{
    for (const std::vector<std::string>& wrong :
         std::vector<std::vector<std::string>>{{"QRCODE_SIM_SCENE=/absent"},
                                               {"QRCODE_SIM_VIEW_MS=0"},
                                               {"QRCODE_SIM_VIEW_MS=1s"},
                                               {"QRCODE_SIM_SCENE=", "QRCODE_SIM_VIEW_MS=5"},
                                               {"QRCODE_SIM_NEWEST=/absent"}, // and a scene
                                               {"QRCODE_SIM_SCRIPT=/absent"}}) {
        TerminalOptions options = PlainService();
        options.environment = wrong;
        Launch(options);
        const Ended ended = EndOf(service->Service());
        EXPECT_EQ(1, ended.Lines("sim: ")) << wrong.back();
        EXPECT_EQ(2, ended.status);
    }
}

// --- Hostile neighbours: its log held, filled up, removed or replaced.

TEST_F(ServiceTest, HeldLogDelaysCommandsAndLosesNone)
{
    const int commands = 20;
    Start(QuietService());
    EXPECT_TRUE(Reports(*service));
    const int log = open(SERVICE_LOG.c_str(), O_WRONLY | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_len = 1;
    ASSERT_EQ(0, fcntl(log, F_OFD_SETLK, &lock));
    for (int i = 0; i < commands; ++i) {
        service->SendCommand(UNKNOWN_COMMAND + i);
    }
    service->SendCommand(MSG_CMD_QRCODE_DISABLE);
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(Reports(*service)) << "the readings go on, and nothing is obeyed yet";
    }
    EXPECT_EQ(0, Count(ReadAll(SERVICE_LOG), Entry(UNKNOWN_COMMAND)));
    close(log); // and so the lock
    EXPECT_TRUE(AwaitEntries(2 + commands + 1));
    for (int i = 0; i < commands; ++i) {
        EXPECT_EQ(1, Count(ReadAll(SERVICE_LOG), Entry(UNKNOWN_COMMAND + i)));
    }
    EXPECT_TRUE(service->SilentFor(SILENCE_MS)) << "switched off now";
}

TEST_F(ServiceTest, FullDiskCostsEntriesAndNothingElse)
{
    const int commands = 100; // more than the log's last page has room for
    Start(QuietService());
    EXPECT_TRUE(Logs(*service));
    const int filler = open((LOG_FOLDER + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const std::string much(1 << 20, 'f');
    size_t chunk = much.size();
    for (size_t filled = 0; chunk > 0 && filled < (64U << 20);) { // down to the last byte
        const ssize_t written = write(filler, much.data(), chunk);
        filled += written > 0 ? static_cast<size_t>(written) : 0;
        chunk = written > 0 ? chunk : chunk / 2;
    }
    close(filler);
    ASSERT_EQ(0U, chunk) << "the private /Database is small";
    for (int i = 0; i < commands; ++i) {
        service->SendCommand(UNKNOWN_COMMAND);
    }
    EXPECT_TRUE(Obeys(*service));
    EXPECT_LT(Count(ReadAll(SERVICE_LOG), Entry(UNKNOWN_COMMAND)), commands)
        << "or the disk was not full";
    std::filesystem::remove(LOG_FOLDER + "/filler");
    EXPECT_TRUE(Logs(*service));
}

TEST_F(ServiceTest, MissingFolderAndReplacedFileCostEntriesAndNothingElse)
{
    std::string error;
    std::filesystem::remove_all(LOG_FOLDER);
    service = std::make_unique<Terminal>(QuietService());
    ASSERT_TRUE(service->Start(error)) << error;
    EXPECT_TRUE(Obeys(*service));
    EXPECT_FALSE(std::filesystem::exists(LOG_FOLDER)) << "the service makes no folder";
    std::filesystem::create_directory(LOG_FOLDER);
    EXPECT_TRUE(Logs(*service));

    std::filesystem::remove(SERVICE_LOG);
    std::filesystem::create_directory(SERVICE_LOG);
    EXPECT_TRUE(Obeys(*service));
    std::filesystem::remove(SERVICE_LOG);
    ASSERT_EQ(0, mkfifo(SERVICE_LOG.c_str(), 0600)); // nobody reads it: it holds nothing up
    EXPECT_TRUE(Obeys(*service));
    std::filesystem::remove(SERVICE_LOG);
    WriteAll(SERVICE_LOG, "another's line\n");
    EXPECT_TRUE(Logs(*service));
    EXPECT_EQ(0U, ReadAll(SERVICE_LOG).find("another's line\n["));
}

// --- The panel by itself.

TEST(PanelTest, RefusesWrongUsageAndATakenPort)
{
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
             {PANEL, "--mode", "256"}, {PANEL, "--count", "x"}, {PANEL, "--nonsense"}}) {
        const Ended ended = RunProgram(Emulated(command));
        EXPECT_FALSE(ended.lines.empty()) << "it says why";
        EXPECT_EQ(2, ended.status);
    }
    const UdpPeer taker(QRCODE_PEER_PORT);
    const Ended ended = RunProgram(Emulated({PANEL}));
    EXPECT_EQ(1, ended.Lines("10000"));
    EXPECT_EQ(2, ended.status);
}

// Types into a shell on a terminal of its own, as a person does.
TEST(PanelTest, ObeysItsWordsAgainInTheForeground)
{
    const UdpPeer service(QRCODE_SERVER_PORT);
    ASSERT_TRUE(service.bound);
    int keyboard = -1;
    const pid_t shell = forkpty(&keyboard, nullptr, nullptr, nullptr);
    ASSERT_GE(shell, 0);
    if (shell == 0) {
        execlp("bash", "bash", "--norc", "--noediting", "-i", nullptr);
        _exit(127);
    }
    std::string screen;
    const auto shows = [&](const std::string& part) {
        pollfd ready = {keyboard, POLLIN, 0};
        char bytes[1024];
        while (screen.find(part) == std::string::npos && poll(&ready, 1, 20000) > 0) {
            const ssize_t length = read(keyboard, bytes, sizeof(bytes));
            if (length <= 0) {
                return false;
            }
            screen.append(bytes, static_cast<size_t>(length));
        }
        return screen.find(part) != std::string::npos;
    };
    const auto type = [&](const std::string& line) {
        EXPECT_LT(0, write(keyboard, line.data(), line.size()));
    };
    std::string command;
    for (const std::string& word : Emulated({PANEL, "--no-enable"})) {
        command += word + " ";
    }
    type(command + "&\n");
    EXPECT_TRUE(shows("panel: listening")) << screen;
    type("echo not $((40 + 2)) panel\n"); // the shell's, while the panel is in the background
    EXPECT_TRUE(shows("not 42 panel")) << screen;
    type("fg\nenable\n");
    std::string frame;
    EXPECT_TRUE(service.Receive(frame)) << screen;
    EXPECT_EQ("\x03\x09", frame.substr(4, 2));
    kill(shell, SIGKILL);
    close(keyboard); // hangs the panel up
    waitpid(shell, nullptr, 0);
}

TEST(PanelTest, ObeysItsWordsAndCountsTime)
{
    const UdpPeer service(QRCODE_SERVER_PORT);
    ASSERT_TRUE(service.bound);
    Program panel;
    StartProgram(panel, Emulated({PANEL, "--no-enable", "--mode", "7"}));
    std::string line;
    panel.Say("nonsense");
    EXPECT_TRUE(panel.AwaitLine("nonsense", line));
    const UdpPeer other;
    sockaddr_in to = service.addr;
    to.sin_port = htons(QRCODE_PEER_PORT);
    other.SendTo(to, "short"); // less than a header: shown, and nothing else
    other.SendTo(to, Frame(MSG_CMD_QRCODE_START, ""));
    const std::pair<const char*, const char*> words[] = {{"", "\x04\x06"},
                                                         {"enable", "\x03\x09"},
                                                         {"disable", "\x05\x09"},
                                                         {"stop", "\x0d\x09"},
                                                         {"mode 9", "\x04\x06"}};
    std::string modes;
    for (const auto& [word, command] : words) {
        if (*word != '\0') { // the first is the answer to the hello
            panel.Say(word);
        }
        std::string frame;
        ASSERT_TRUE(service.Receive(frame)) << word;
        EXPECT_EQ(std::string("\x56\x34\0\0", 4) + command, frame.substr(0, 6));
        modes += frame.size() == 1160 ? frame.substr(1159) : "";
    }
    EXPECT_EQ("\x07\x09", modes);
    panel.Say("quit");
    EXPECT_EQ(0, panel.Wait());
    EXPECT_EQ(1, RunProgram(Emulated({PANEL, "--count", "1", "--seconds", "0.2"})).status);
}

} // namespace
