#include "socket_server.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <pthread.h>

#include "log_write.h"
#include "message.h"
#include "messaging.h"
#include "udp_socket.h"

int g_ClientSock;
struct sockaddr_in g_PeerAddr;

int NET_Socket_Server_Start()
{
    const int fd = API_Socket_Server_Init(QRCODE_SERVER_PORT);
    if (fd > 0) {
        pthread_t thread; // neither joined nor detached: it lives as long as the process
        pthread_create(&thread, nullptr, NET_Socket_Server_ListenTask,
                       reinterpret_cast<void*>(static_cast<intptr_t>(fd)));
        g_ClientSock = API_Socket_Client_Init(QRCODE_PEER_PORT, &g_PeerAddr);
        return 0;
    }
    // The one message that goes to the UI log, not to our own, on purpose.
    API_Log_Write(UI_LOG_PATH, "API_Socket_Server_Init is error port=%d\n", QRCODE_SERVER_PORT);
    return -1;
}

// Takes one datagram from a readable socket. The whole buffer is cleared first, so that the fields
// behind the end of a short datagram read as zero.
static void ReceiveOne(int fd, char* pBuffer)
{
    std::memset(pBuffer, 0, SOCKET_RECV_BUF_SIZE);
    const int nReceived = NET_SocketFunc_UdpRecv(fd, pBuffer, SOCKET_RECV_BUF_SIZE, 0);
    if (nReceived > 0) {
        NET_Socket_Server_DealMsg(pBuffer);
    } else {
        API_Log_Write(QRCODE_LOG_PATH, "NET_SocketFunc_UdpRecv recv error %s\n",
                      std::strerror(errno));
    }
}

void* NET_Socket_Server_ListenTask(void* pArg)
{
    char szBuffer[SOCKET_RECV_BUF_SIZE];
    const int fd = static_cast<int>(reinterpret_cast<intptr_t>(pArg));
    for (;;) {
        const int nRet =
            API_Socket_Select(&fd, 1, SELECT_READ, SOCKET_WAIT_MS, "NET_Socket_Server_ListenTask");
        if (nRet == -1) { // by design the end of this thread: nothing is received any more
            API_Log_Write(QRCODE_LOG_PATH, "NET_Socket_Select Select error %s\n",
                          std::strerror(errno));
            return nullptr;
        }
        if (nRet == (fd | SELECT_EVENT_READ)) {
            ReceiveOne(fd, szBuffer);
        }
    }
}
