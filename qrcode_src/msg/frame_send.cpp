#include <cstring>

#include "message.h"
#include "messaging.h"
#include "socket_server.h"
#include "udp_socket.h"

int API_Socket_SendMsg(const void* pData, unsigned int nLength, int nCommand, int nParam)
{
    SocketMsg msg;
    std::memset(&msg, 0, sizeof(msg));
    msg.MsgHead.nMsgSource = MSG_SOURCE_QRCODE;
    msg.MsgHead.nMsgSync = MSG_SYNC;
    msg.MsgHead.nMsgCommand = nCommand;
    msg.MsgHead.nMsgLength = nLength;
    msg.MsgHead.nMsgParam = static_cast<uint32_t>(nParam);
    if (pData != nullptr) {
        std::memcpy(msg.MsgData, pData, nLength);
    }
    NET_Socket_Client_Send(&msg, static_cast<int>(nLength) + MSG_HEAD_SIZE);
    return 0;
}

int NET_Socket_Client_Send(const void* pBuffer, int nLength)
{
    NET_SocketFunc_UdpSend(g_ClientSock, pBuffer, nLength, &g_PeerAddr);
    return 0;
}
