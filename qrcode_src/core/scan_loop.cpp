#include "scan_loop.h"

#include <cstring>
#include <unistd.h>

#include "capture_decode.h"
#include "messaging.h"
#include "run_flags.h"

enum { SCAN_IDLE_US = 1000000 }; // between two looks at the enable flag while it is off

void Qrcode_ScanPass(ScanLoop* pLoop)
{
    if (Qrcode_GetScanEnable() != 1) {
        usleep(SCAN_IDLE_US);
        return;
    }
    std::memset(pLoop->szCurrent, 0, sizeof(pLoop->szCurrent));
    if (Qrcode_CaptureAndDecode(&pLoop->nReserved, pLoop->szCurrent) < 1) {
        // The only place where the last result is forgotten: a code must leave the view before it
        // is reported again.
        std::memset(pLoop->szLast, 0, sizeof(pLoop->szLast));
        return;
    }
    if (std::memcmp(pLoop->szCurrent, pLoop->szLast, sizeof(pLoop->szLast)) == 0) {
        return;
    }
    // Before the length test on purpose: a short text, too, makes an earlier one new again.
    std::memcpy(pLoop->szLast, pLoop->szCurrent, sizeof(pLoop->szLast));
    if (std::strlen(pLoop->szLast) < QRCODE_TEXT_REPORT_MIN) {
        return;
    }
    API_Socket_SendMsg(pLoop->szLast, sizeof(pLoop->szLast), MSG_CMD_QRCODE_RESULT, 0);
}
