#include <cstring>

#include "log_write.h"
#include "message.h"
#include "messaging.h"
#include "run_flags.h"

// Enable and disable act only in modes that allow them. In the other two the flag stays as it was
// when the mode was set, on purpose: even a running scan cannot be stopped then.
static void SetEnableIfModeAllows(int32_t nEnable)
{
    const uint8_t nMode = Qrcode_GetScanMode();
    if (nMode != QRCODE_MODE_NEVER && nMode != QRCODE_MODE_FROZEN) {
        Qrcode_SetScanEnable(nEnable);
    }
}

int NET_Socket_Server_DealMsg(const void* pMsg)
{
    if (pMsg == nullptr) {
        return -1;
    }
    MsgHead head;
    std::memcpy(&head, pMsg, sizeof(head));
    API_Log_Write(QRCODE_LOG_PATH, "pMsgHead->MsgHead.nMsgCommand=0x%04x\n",
                  static_cast<unsigned int>(head.nMsgCommand));
    switch (head.nMsgCommand) {
    case MSG_CMD_QRCODE_PARAM:
        Qrcode_SetScanMode(static_cast<const uint8_t*>(pMsg)[MSG_PARAM_MODE_OFFSET]);
        break;
    case MSG_CMD_QRCODE_ENABLE:
        SetEnableIfModeAllows(1);
        break;
    case MSG_CMD_QRCODE_DISABLE:
    case MSG_CMD_QRCODE_STOP:
        SetEnableIfModeAllows(0);
        break;
    default:
        break;
    }
    return 0;
}
