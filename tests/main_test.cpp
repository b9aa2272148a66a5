// The process entry: what it calls, in which order, and how it waits, parks and scans. All that it
// calls stands in; its endless loops are left by an exception.
#include <cstring>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

#include "dirty_stack.h"
#include "messaging.h"
#include "process_setup.h"
#include "run_flags.h"
#include "scan_loop.h"
#include "socket_server.h"

int Service_Main(); // the service's main, renamed for this program

namespace
{

struct Enough {
};

std::vector<std::string> calls;
const size_t CALLS = 9; // five up to the look at the mode, then four of the loop, which is left
uint8_t mode = 0;
ScanLoop* memory = nullptr; // of the passes so far

void Called(const std::string& call)
{
    calls.push_back(call);
    if (calls.size() == CALLS) {
        throw Enough();
    }
}

} // namespace

void Qrcode_SetUpProcess()
{
    Called("set up");
}

int NET_Socket_Server_Start()
{
    Called("start");
    return mode % 2 - 1; // fails in some of the modes: it goes on
}

int API_Socket_SendMsg(const void* data, unsigned int length, int command, int param)
{
    EXPECT_TRUE(data == nullptr && length == 0 && param == 0);
    Called("send " + std::to_string(command));
    return 0;
}

uint8_t Qrcode_GetScanMode()
{
    Called("mode");
    return mode;
}

void Qrcode_ScanPass(ScanLoop* loop)
{
    // Zero before the first pass, then as the pass before left it.
    EXPECT_EQ(std::string(sizeof(*loop), memory == nullptr ? '\0' : 'x'),
              std::string(reinterpret_cast<const char*>(loop), sizeof(*loop)));
    EXPECT_TRUE(memory == nullptr || memory == loop);
    memory = loop;
    std::memset(loop, 'x', sizeof(*loop));
    Called("pass");
}

extern "C" {
int __wrap_usleep(useconds_t us)
{
    Called("usleep " + std::to_string(us));
    return 0;
}

unsigned __wrap_sleep(unsigned seconds)
{
    Called("sleep " + std::to_string(seconds));
    return 0;
}
}

namespace
{

TEST(MainTest, LooksAtTheModeOnceThenParksOrScansForGood)
{
    for (const int given : {0, 1, 2, 3, 255}) {
        mode = static_cast<uint8_t>(given);
        memory = nullptr;
        calls.clear();
        alarm(10); // ends this program should the entry spin
        DirtyStack<65536>();
        EXPECT_THROW(Service_Main(), Enough);
        alarm(0);
        std::vector<std::string> expected = {"set up", "start", "send 1538", "usleep 300000",
                                             "mode"};
        expected.resize(CALLS, given == 0 ? "sleep 100" : "pass");
        EXPECT_EQ(expected, calls) << "mode " << given;
    }
}

} // namespace
