// The service's two sockets and the listening thread, for the life of the process.
#ifndef QRCODE_SOCKET_SERVER_H
#define QRCODE_SOCKET_SERVER_H

#include <netinet/in.h>

// Written by NET_Socket_Server_Start, read by the sends after it; main thread only.
extern int g_ClientSock;              // 0 until the client socket is made: sends are refused
extern struct sockaddr_in g_PeerAddr; // destination of every send

// Binds the server socket to 127.0.0.1:QRCODE_SERVER_PORT, starts the listening thread and makes
// the client socket aimed at 127.0.0.1:QRCODE_PEER_PORT. Call once, before the first send. Returns
// 0; or -1 when the port cannot be bound (or came as descriptor 0): then there is no thread and no
// client socket, uilog.txt has an entry, and every later send is dropped. Whether the thread could
// be started is not checked: without it nothing is received, and the result is 0. Nothing is ever
// closed.
int NET_Socket_Server_Start();

// Thread routine: receives on the descriptor carried in the pointer's value and hands every
// datagram of one byte or more to NET_Socket_Server_DealMsg. Returns (null, without a meaning) only
// after a failed wait; nothing restarts it. Keeps its SOCKET_RECV_BUF_SIZE buffer on its own stack:
// the thread needs well over 512 KiB, which a C library's default must provide.
void* NET_Socket_Server_ListenTask(void* pArg);

#endif
