// Entry of the `qrcode` service: hello, a short wait for the mode, then parked or scanning for the
// rest of the process's life. Nothing is torn down; the process ends when it is killed.
#include <cstring>
#include <unistd.h>

#include "message.h"
#include "messaging.h"
#include "process_setup.h"
#include "run_flags.h"
#include "scan_loop.h"
#include "socket_server.h"

enum { PARK_SLEEP_S = 100 };

int main()
{
    Qrcode_SetUpProcess();

    ScanLoop loop;
    std::memset(&loop, 0, sizeof(loop));

    NET_Socket_Server_Start(); // on failure every send is dropped, no answer comes, and we park
    API_Socket_SendMsg(nullptr, 0, MSG_CMD_QRCODE_START, 0);
    usleep(QRCODE_ANSWER_MS * 1000);

    // The one look at the mode, on purpose: a mode that comes later neither starts nor stops the
    // loop. The listening thread goes on in either case.
    if (Qrcode_GetScanMode() == QRCODE_MODE_NEVER) {
        for (;;) {
            sleep(PARK_SLEEP_S);
        }
    }
    for (;;) {
        Qrcode_ScanPass(&loop);
    }
}
