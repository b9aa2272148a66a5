// Datagrams of any length and content to the dispatcher, several in a row, as the listening thread
// hands them over. The run flags must follow a plain model. Input: for each datagram two bytes of
// its length, low byte first, then its bytes.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "message.h"
#include "messaging.h"
#include "run_flags.h"
#include "udp_socket.h"

enum { MODE_OFF = 0, MODE_OTHER = 3 }; // in these the switches are passed over

static uint8_t g_buffer[SOCKET_RECV_BUF_SIZE];

static void Require(bool bTrue)
{
    if (!bTrue) {
        std::abort();
    }
}

// What the flags should be after the datagram in the buffer.
static void Model(int& nMode, int& nEnable)
{
    int32_t nCommand = 0;
    std::memcpy(&nCommand, g_buffer + 4, sizeof(nCommand));
    const bool bHeard = nMode != MODE_OFF && nMode != MODE_OTHER;
    if (nCommand == 0x604) {
        nMode = g_buffer[1159];
    } else if (nCommand == 0x903 && bHeard) {
        nEnable = 1;
    } else if ((nCommand == 0x905 || nCommand == 0x90D) && bHeard) {
        nEnable = 0;
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Qrcode_SetScanMode(0);
    Qrcode_SetScanEnable(0);
    int nMode = 0;
    int nEnable = 0;
    Require(NET_Socket_Server_DealMsg(nullptr) == -1);
    while (size >= 2) {
        const size_t nLength = std::min<size_t>(data[0] + 256U * data[1], size - 2);
        std::memcpy(g_buffer, data + 2, nLength);
        data += 2 + nLength;
        size -= 2 + nLength;

        Model(nMode, nEnable);
        Require(NET_Socket_Server_DealMsg(g_buffer) == 0);
        Require(static_cast<int>(Qrcode_GetScanMode()) == nMode);
        Require(static_cast<int>(Qrcode_GetScanEnable()) == nEnable);
        std::memset(g_buffer, 0, nLength);
    }
    return 0;
}
