// Message frames between the service and the main application: what the service sends, and what it
// does with each command. The frame itself and the command codes are in message.h.
//
// Order: NET_Socket_Server_Start (socket_server.h) once, then API_Socket_SendMsg as often as
// needed, both on the main thread. The dispatcher runs on the listening thread.
#ifndef QRCODE_MESSAGING_H
#define QRCODE_MESSAGING_H

// Sends one frame: `nCommand` and `nParam` in its header, then `nLength` bytes from `pData`. They
// are copied, so the buffer is the caller's again on return. Without a payload (`pData` null) the
// payload area is zero and `nLength` still counts. `nLength` is the caller's to keep at
// MSG_DATA_SIZE (3072) or less; it is not checked. Returns 0 always: whether the datagram left is
// not reported, and nothing is sent again.
int API_Socket_SendMsg(const void* pData, unsigned int nLength, int nCommand, int nParam);

// Hands `nLength` bytes to the client socket as one datagram for the main application. Returns 0
// always.
int NET_Socket_Client_Send(const void* pBuffer, int nLength);

// Acts on one received frame: logs its command, sets the run flags. `pMsg` must have
// MSG_PARAM_MODE_OFFSET + 1 readable bytes, zero behind the end of a shorter datagram; no alignment
// is needed, and nothing is kept. Nothing else of the frame is examined: neither its sync word,
// source and length nor its sender. Returns 0, or -1 for a null pointer.
int NET_Socket_Server_DealMsg(const void* pMsg);

#endif
