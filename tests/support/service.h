// The whole service for tests: its usual setting, its log, and what it must still do whatever
// befell it. For a private world, one service at a time.
#ifndef TESTS_SERVICE_H
#define TESTS_SERVICE_H

#include <cstdio>

#include "allowances.h"
#include "files.h"
#include "programs.h"
#include "terminal.h"

const std::string LOG_FOLDER = "/Database/doorlog";
const std::string SERVICE_LOG = LOG_FOLDER + "/qrcodelog.txt";
const std::string UI_LOG = LOG_FOLDER + "/uilog.txt";
const std::string PLAIN = Sample("plain.png");

enum {
    SILENCE_MS = EMULATED_OR_SANITIZED ? 4000 : 1000, // much longer than two readings
    UNKNOWN_COMMAND = 0x4321                          // logged, and nothing else
};

// An empty log folder, as before the first start.
inline void ResetLogs()
{
    std::filesystem::remove_all(LOG_FOLDER);
    std::filesystem::create_directories(LOG_FOLDER);
}

// A service that shows one picture again and again, and is switched on.
inline TerminalOptions PlainService()
{
    TerminalOptions options;
    options.service = Emulated({SERVICE});
    options.scene = PLAIN;
    return options;
}

inline int Count(const std::string& bytes, const std::string& part)
{
    int count = 0;
    for (size_t at = bytes.find(part); at != std::string::npos; at = bytes.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// A command's entry in the log, from the stamp's end on.
inline std::string Entry(int32_t command)
{
    char entry[60];
    std::snprintf(entry, sizeof(entry), "] pMsgHead->MsgHead.nMsgCommand=0x%04x\n</br>",
                  static_cast<unsigned>(command));
    return entry;
}

const std::string ENTRY_FORM = "\\[[-0-9]{10} [:0-9]{8}\\] "; // how each begins, for a regex

// Waits for so many entries in the service's log. An entry comes just before its command acts.
inline bool AwaitEntries(int entries)
{
    return Wait_Until([entries] { return Count(ReadAll(SERVICE_LOG), "</br>") >= entries; });
}

// It reads, and reports plain.png from now on.
inline bool Reports(Terminal& service)
{
    service.Forget();
    return service.AwaitResult() == SampleText(PLAIN);
}

// It can be switched off and on again.
inline bool Obeys(Terminal& service)
{
    service.SendCommand(MSG_CMD_QRCODE_DISABLE);
    const bool off = service.SilentFor(SILENCE_MS);
    service.SendCommand(MSG_CMD_QRCODE_ENABLE);
    return off && Reports(service);
}

// A command leaves its entry at the log's end.
inline bool Logs(Terminal& service)
{
    service.SendCommand(UNKNOWN_COMMAND);
    return service.Await([] {
        const std::string log = ReadAll(SERVICE_LOG);
        const std::string entry = Entry(UNKNOWN_COMMAND);
        return log.size() >= entry.size() &&
               log.compare(log.size() - entry.size(), entry.size(), entry) == 0;
    });
}

#endif
