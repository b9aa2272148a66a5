// The service's UDP sockets on the loopback address: creation, options, waiting, receiving and
// sending. Nothing here looks inside a datagram.
//
// Order: API_Socket_Server_Init, then API_Socket_Select and NET_SocketFunc_UdpRecv in turn on the
// listening thread; API_Socket_Client_Init, then NET_SocketFunc_UdpSend on the main thread. A
// descriptor below 1 counts as invalid everywhere, 0 included: start the service with its standard
// input open.
#ifndef QRCODE_UDP_SOCKET_H
#define QRCODE_UDP_SOCKET_H

#include <netinet/in.h>

enum {
    SOCKET_RECV_BUF_SIZE = 524288, // bytes: the listening thread's buffer; a longer datagram is cut
    SOCKET_WAIT_MS = 3000          // ms: the listening thread's wait, and both socket time-outs
};

// Modes of API_Socket_Select, and the bit that its result carries for each.
enum {
    SELECT_READ = 1,
    SELECT_WRITE = 2,
    SELECT_EXCEPT = 4,
    SELECT_EVENT_READ = 0x10000,
    SELECT_EVENT_WRITE = 0x20000,
    SELECT_EVENT_EXCEPT = 0x40000
};

// Interrupted waits of the whole process; it only limits what is printed. Listening thread only.
extern int g_SelectIntrCount;

// Makes a datagram socket bound to 127.0.0.1:nPort (host byte order), with address reuse and
// SOCKET_WAIT_MS time-outs. Returns its descriptor; or -1 with a line on standard output when it
// cannot be bound, in which case the socket stays open. A socket with address reuse of its own, as
// a second service has, is no obstacle: both are bound, and the newer one gets the datagrams.
int API_Socket_Server_Init(int nPort);

// Makes an unbound datagram socket and fills `pAddr` with 127.0.0.1:nPort. Returns the descriptor,
// unchecked (-1 when there is none).
int API_Socket_Client_Init(int nPort, struct sockaddr_in* pAddr);

// Returns setsockopt's result, or -1 for a descriptor below 1.
int NET_SocketFunc_SetKeepAlive(int fd);

// Sets keep-alive, then each option whose argument is not 0: address reuse, send and receive
// time-outs (ms), send and receive buffers (bytes). Returns 0, or -1 for a descriptor below 1 or
// when any requested option failed (the others are still set).
int NET_SocketFunc_SetSockOpt(int fd, int nReuse, int nSendMs, int nRecvMs, int nSendBuf,
                              int nRecvBuf);

// Waits for any of `nCount` open descriptors (those below 1 are skipped) to become ready for one of
// the SELECT_... modes; without limit when nWaitMs is 0 or less. `szCaller` names the caller in
// what is printed. Returns
//   a descriptor ORed with its SELECT_EVENT_... bit: the first ready one in the array's order. With
//     SELECT_READ only readable ones count, whatever else was asked for; SELECT_WRITE likewise
//     hides SELECT_EXCEPT;
//   0: time-out, nothing of the mode that counts, or ten interruptions by signals (each starts the
//     wait again with what is left of the time);
//   -1: no array, a count below 0, no descriptor above 0, one of FD_SETSIZE (1024) or more, or an
//     error of select (in errno). A closed descriptor is such an error only where the kernel looks:
//     behind the end of the process's table of descriptors it counts as ready.
int API_Socket_Select(const int* pSocks, int nCount, int nModes, int nWaitMs, const char* szCaller);

// Receives into `pBuffer` of `nSize` bytes. With nWant below 1: one datagram, cut to nSize bytes.
// With nWant of 1 or more: until nWant bytes have come, and nSize is the caller's to keep at nWant
// or more. Returns the bytes received; fewer than wanted, or 0, when nothing comes any more (the
// fourth time-out in a row, 10 ms apart); -1 for an empty datagram or any other error.
int NET_SocketFunc_UdpRecv(int fd, void* pBuffer, int nSize, int nWant);

// Sends `nLength` bytes to `pAddr`. Returns nLength; 0 for bad arguments (nothing sent); -1 when
// sendto fails, or is not ready for the fourth time (1 ms apart).
int NET_SocketFunc_UdpSend(int fd, const void* pData, int nLength, const struct sockaddr_in* pAddr);

#endif
