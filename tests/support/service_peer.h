// Starting the service, and speaking to it in the main application's place.
#ifndef TESTS_SERVICE_PEER_H
#define TESTS_SERVICE_PEER_H

#include <arpa/inet.h>
#include <cstdint>
#include <cstring>
#include <netinet/in.h>
#include <sstream>
#include <string>
#include <vector>

#include "message.h"

// The command as it runs here: with the emulator before it in a build for the device.
inline std::vector<std::string> Emulated(const std::vector<std::string>& command)
{
    std::vector<std::string> words;
    std::istringstream emulator(EMULATOR);
    for (std::string word; std::getline(emulator, word, '|');) {
        words.push_back(word);
    }
    words.insert(words.end(), command.begin(), command.end());
    return words;
}

// ... and what it prints goes nowhere, where nobody would read the pipe.
inline std::vector<std::string> EmulatedSilently(const std::vector<std::string>& command)
{
    std::vector<std::string> words = {"/bin/sh", "-c", "exec \"$@\" > /dev/null 2>&1", "sh"};
    for (const std::string& word : Emulated(command)) {
        words.push_back(word);
    }
    return words;
}

inline std::string Command(uint32_t command, size_t length = 20, int mode = 0)
{
    std::string frame(length, '\0');
    std::memcpy(&frame[4], &command, 4);
    if (length > MSG_PARAM_MODE_OFFSET) {
        frame[MSG_PARAM_MODE_OFFSET] = static_cast<char>(mode);
    }
    return frame;
}

inline std::string Mode(int mode)
{
    return Command(MSG_CMD_QRCODE_PARAM, 1160, mode);
}

inline const sockaddr_in& ServiceAddress()
{
    static sockaddr_in addr;
    addr.sin_family = AF_INET;
    addr.sin_port = htons(10010);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

#endif
