#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

#include "log_write.h"
#include "message.h"
#include "messaging.h"
#include "run_flags.h"
#include "service_cost.h"
#include "socket_server.h"

namespace
{

enum {
    WARM_UP = 100,
    LOST_AFTER_S = 2 // a command without an effect
};

int g_peer = -1; // the main application's socket

sockaddr_in Loopback(int nPort)
{
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(nPort));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

double SecondsSince(std::chrono::steady_clock::time_point begin)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// Sends a command and looks at the flag until it is `nEnable`. Returns the seconds it took,
// LOST_AFTER_S or more when it never was.
double SecondsToFlag(int nCommand, int nEnable)
{
    const MsgHead head = {MSG_SYNC, nCommand, 1, 0, 0};
    const sockaddr_in service = Loopback(QRCODE_SERVER_PORT);
    const auto begin = std::chrono::steady_clock::now();
    sendto(g_peer, &head, sizeof(head), 0, reinterpret_cast<const sockaddr*>(&service),
           sizeof(service));
    double seconds = 0.0;
    do {
        seconds = SecondsSince(begin);
    } while (Qrcode_GetScanEnable() != nEnable && seconds < LOST_AFTER_S);
    return seconds;
}

void CommandToFlag(benchmark::State& state)
{
    int nEnable = 1 - Qrcode_GetScanEnable();
    while (state.KeepRunning()) {
        const double seconds =
            SecondsToFlag(nEnable == 1 ? MSG_CMD_QRCODE_ENABLE : MSG_CMD_QRCODE_DISABLE, nEnable);
        if (seconds >= LOST_AFTER_S) {
            state.SkipWithError("a command had no effect");
            break;
        }
        state.SetIterationTime(seconds);
        nEnable = 1 - nEnable;
    }
}

void Result(benchmark::State& state)
{
    char szText[QRCODE_TEXT_SIZE] = "VISITOR PASS 2024-0117";
    char aDatagram[sizeof(SocketMsg)];
    while (state.KeepRunning()) {
        const auto begin = std::chrono::steady_clock::now();
        API_Socket_SendMsg(szText, sizeof(szText), MSG_CMD_QRCODE_RESULT, 0);
        state.SetIterationTime(SecondsSince(begin));
        if (recv(g_peer, aDatagram, sizeof(aDatagram), 0) != MSG_HEAD_SIZE + QRCODE_TEXT_SIZE) {
            state.SkipWithError("a result did not arrive");
            break;
        }
    }
}

void LogEntry(benchmark::State& state)
{
    while (state.KeepRunning()) {
        if (API_Log_Write(QRCODE_LOG_PATH, "pMsgHead->MsgHead.nMsgCommand=0x%04x\n",
                          MSG_CMD_QRCODE_ENABLE) != 1) {
            state.SkipWithError("the log cannot be opened");
            break;
        }
    }
}

} // namespace

bool Messages_Register(std::string& error)
{
    const sockaddr_in own = Loopback(QRCODE_PEER_PORT);
    const timeval wait = {LOST_AFTER_S, 0};
    g_peer = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    setsockopt(g_peer, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait));
    if (bind(g_peer, reinterpret_cast<const sockaddr*>(&own), sizeof(own)) != 0) {
        error = "port " + std::to_string(QRCODE_PEER_PORT) + ": " + std::strerror(errno);
        return false;
    }
    if (NET_Socket_Server_Start() != 0) {
        error = "the service's port cannot be had";
        return false;
    }
    Qrcode_SetScanMode(1);
    for (int i = 0; i < WARM_UP; ++i) {
        if (SecondsToFlag(i % 2 == 0 ? MSG_CMD_QRCODE_ENABLE : MSG_CMD_QRCODE_DISABLE, 1 - i % 2) >=
            LOST_AFTER_S) {
            error = "a command had no effect";
            return false;
        }
    }
    benchmark::RegisterBenchmark("message/command-to-flag", CommandToFlag)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("message/result", Result)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("message/log-entry", LogEntry)->Unit(benchmark::kMicrosecond);
    return true;
}
