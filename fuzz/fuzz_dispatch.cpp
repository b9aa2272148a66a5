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

namespace
{

enum { MODE_OFF = 0, MODE_OTHER = 3 }; // in these the switches are passed over

uint8_t buffer[SOCKET_RECV_BUF_SIZE];

void Require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

// What the flags should be after the datagram in the buffer.
void Model(int& mode, int& enable)
{
    int32_t command = 0;
    std::memcpy(&command, buffer + 4, sizeof(command));
    const bool heard = mode != MODE_OFF && mode != MODE_OTHER;
    if (command == 0x604) {
        mode = buffer[1159];
    } else if (command == 0x903 && heard) {
        enable = 1;
    } else if ((command == 0x905 || command == 0x90D) && heard) {
        enable = 0;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Qrcode_SetScanMode(0);
    Qrcode_SetScanEnable(0);
    int mode = 0;
    int enable = 0;
    Require(NET_Socket_Server_DealMsg(nullptr) == -1);
    while (size >= 2) {
        const size_t length = std::min<size_t>(data[0] + 256U * data[1], size - 2);
        std::memcpy(buffer, data + 2, length);
        data += 2 + length;
        size -= 2 + length;

        Model(mode, enable);
        Require(NET_Socket_Server_DealMsg(buffer) == 0);
        Require(static_cast<int>(Qrcode_GetScanMode()) == mode);
        Require(static_cast<int>(Qrcode_GetScanEnable()) == enable);
        std::memset(buffer, 0, length);
    }
    return 0;
}
