// The service among hostile neighbours: its log held, filled up, removed or replaced; the main
// application or itself killed and started again and again.
#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>

#include "allowances.h"
#include "files.h"
#include "message.h"
#include "program.h"
#include "service_peer.h"
#include "udp_peer.h"
#include "wait.h"

namespace
{

const std::string FOLDER = "/Database/doorlog";
const std::string SERVICE_LOG = FOLDER + "/qrcodelog.txt";
const std::string PLAIN = SAMPLES_DIR "/plain.png";
const int RESTARTS = EMULATED_OR_SANITIZED ? 10 : 100;

const int SILENCE_MS = EMULATED_OR_SANITIZED ? 4000 : 1000; // much longer than two readings

class HardshipTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::remove_all(FOLDER);
        std::filesystem::create_directories(FOLDER);
        StartService();
    }

    // A service that has said hello, got its mode and is switched on.
    void StartService()
    {
        service = std::make_unique<Program>(
            EmulatedSilently({SERVICE}),
            std::vector<std::string>{"QRCODE_SIM_SCENE=" + PLAIN, "QRCODE_SIM_VIEW_MS=1"});
        std::string frame;
        do {
            ASSERT_TRUE(peer->Receive(frame, 20000)) << "no hello";
        } while (frame.size() != MSG_HEAD_SIZE); // of the one before, a late result
        Send(Mode(1));
        Send(Command(MSG_CMD_QRCODE_ENABLE));
    }

    void Send(const std::string& frame) const { peer->SendTo(ServiceAddress(), frame); }

    // Empties the socket, then waits for a result.
    bool Reports() const
    {
        std::string frame;
        while (recv(peer->fd, nullptr, 0, MSG_DONTWAIT | MSG_PEEK | MSG_TRUNC) > 0) {
            peer->Receive(frame);
        }
        return peer->Receive(frame, 20000) && SampleText(PLAIN) == frame.c_str() + MSG_HEAD_SIZE;
    }

    // Switches off, and on again: both are obeyed, whatever became of the log.
    void ExpectObeyed() const
    {
        std::string frame;
        EXPECT_TRUE(Reports());
        Send(Command(MSG_CMD_QRCODE_DISABLE));
        EXPECT_TRUE(WaitUntil([&] { return !peer->Receive(frame, SILENCE_MS); })) << "switched off";
        Send(Command(MSG_CMD_QRCODE_ENABLE));
        EXPECT_TRUE(Reports()) << "switched on";
    }

    static std::string Entry(const std::string& code)
    {
        return "pMsgHead->MsgHead.nMsgCommand=" + code + "\n</br>";
    }

    // An unknown command leaves its entry at the log's end.
    void ExpectLogged() const
    {
        Send(Command(0x4321));
        EXPECT_TRUE(WaitUntil([] {
            const std::string log = ReadAll(SERVICE_LOG);
            const std::string entry = Entry("0x4321");
            return log.size() >= entry.size() &&
                   log.compare(log.size() - entry.size(), entry.size(), entry) == 0;
        }));
    }

    std::unique_ptr<UdpPeer> peer = std::make_unique<UdpPeer>(QRCODE_PEER_PORT);
    std::unique_ptr<Program> service;
};

TEST_F(HardshipTest, HeldLogDelaysCommandsAndLosesNone)
{
    EXPECT_TRUE(Reports());
    const int log = open(SERVICE_LOG.c_str(), O_WRONLY);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_len = 1;
    ASSERT_EQ(0, fcntl(log, F_OFD_SETLK, &lock));
    for (int i = 0; i < 20; ++i) {
        Send(Command(0x5000 + static_cast<uint32_t>(i)));
    }
    Send(Command(MSG_CMD_QRCODE_DISABLE));
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(Reports()) << "the readings go on, and nothing is obeyed yet";
    }
    EXPECT_EQ(std::string::npos, ReadAll(SERVICE_LOG).find("0x5000"));
    lock.l_type = F_UNLCK;
    fcntl(log, F_OFD_SETLK, &lock);
    close(log);
    EXPECT_TRUE(
        WaitUntil([] { return ReadAll(SERVICE_LOG).find(Entry("0x0905")) != std::string::npos; }));
    for (int i = 0; i < 20; ++i) {
        char code[8];
        std::snprintf(code, sizeof(code), "0x%04x", 0x5000 + i);
        EXPECT_NE(std::string::npos, ReadAll(SERVICE_LOG).find(Entry(code)));
    }
    std::string frame;
    EXPECT_TRUE(WaitUntil([&] { return !peer->Receive(frame, SILENCE_MS); })) << "switched off now";
}

int Count(const std::string& bytes, const std::string& part)
{
    int count = 0;
    for (size_t at = bytes.find(part); at != std::string::npos; at = bytes.find(part, at + 1)) {
        ++count;
    }
    return count;
}

TEST_F(HardshipTest, FullDiskCostsEntriesAndNothingElse)
{
    ExpectLogged();
    const int filler = open((FOLDER + "/filler").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const std::string much(1 << 20, 'f');
    size_t chunk = much.size();
    for (size_t filled = 0; chunk > 0 && filled < (64U << 20);) { // down to the last byte
        const ssize_t written = write(filler, much.data(), chunk);
        filled += written > 0 ? static_cast<size_t>(written) : 0;
        chunk = written > 0 ? chunk : chunk / 2;
    }
    close(filler);
    ASSERT_EQ(0U, chunk) << "the private /Database is small";
    for (int i = 0; i < 100; ++i) { // more than the log's last page has room for
        Send(Command(0x777));
    }
    ExpectObeyed();
    EXPECT_LT(Count(ReadAll(SERVICE_LOG), Entry("0x0777")), 100) << "or the disk was not full";
    std::filesystem::remove(FOLDER + "/filler");
    ExpectLogged();
}

TEST_F(HardshipTest, RemovedFolderAndReplacedFileCostEntriesAndNothingElse)
{
    ExpectLogged();
    std::filesystem::remove_all(FOLDER);
    ExpectObeyed();
    EXPECT_FALSE(std::filesystem::exists(FOLDER)) << "the service makes no folder";
    std::filesystem::create_directory(FOLDER);
    ExpectLogged();

    std::filesystem::remove(SERVICE_LOG);
    std::filesystem::create_directory(SERVICE_LOG);
    ExpectObeyed();
    std::filesystem::remove(SERVICE_LOG);
    ASSERT_EQ(0,
              mkfifo(SERVICE_LOG.c_str(), 0600)); // nobody reads it: it does not hold the service
    ExpectObeyed();
    std::filesystem::remove(SERVICE_LOG);
    WriteAll(SERVICE_LOG, "another's line\n");
    ExpectLogged();
    EXPECT_EQ(0U, ReadAll(SERVICE_LOG).find("another's line\n["));
}

TEST_F(HardshipTest, MainApplicationKilledAndRestartedManyTimes)
{
    EXPECT_TRUE(Reports());
    peer.reset(); // its port is the panel's now
    for (int i = 0; i < RESTARTS; ++i) {
        SCOPED_TRACE("restart " + std::to_string(i));
        Program panel(Emulated({PANEL, "--json"}));
        std::string line;
        ASSERT_TRUE(panel.LineWith("0x904", line));
        panel.Kill();
    }
    peer = std::make_unique<UdpPeer>(QRCODE_PEER_PORT);
    ExpectObeyed();
    EXPECT_TRUE(service->Runs());
}

TEST_F(HardshipTest, ServiceKilledAndRestartedManyTimes)
{
    for (int i = 0; i < RESTARTS; ++i) {
        SCOPED_TRACE("restart " + std::to_string(i));
        service->Kill();
        StartService();
        ASSERT_FALSE(HasFatalFailure());
        ASSERT_TRUE(Reports());
    }
    ExpectObeyed();
}

} // namespace
