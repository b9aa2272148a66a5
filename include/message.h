/* The datagrams between the `qrcode` service and the terminal's main application.
 *
 * One message frame travels in one UDP datagram over the loopback interface. The service listens
 * on 127.0.0.1:QRCODE_SERVER_PORT, the main application on 127.0.0.1:QRCODE_PEER_PORT. A frame is
 * the 20-byte MsgHead followed by nMsgLength bytes of payload; every header word is 32 bits in the
 * host's byte order (little-endian on the terminal, where both ends run).
 *
 * Order of a session, seen from the main application:
 *   1. bind QRCODE_PEER_PORT before the service starts;
 *   2. receive MSG_CMD_QRCODE_START, sent once;
 *   3. answer with MSG_CMD_QRCODE_PARAM within QRCODE_ANSWER_MS; without a mode other than
 *      QRCODE_MODE_NEVER by then the service parks until it is started anew;
 *   4. send MSG_CMD_QRCODE_ENABLE, and MSG_CMD_QRCODE_DISABLE or _STOP, as often as needed;
 *   5. receive one MSG_CMD_QRCODE_RESULT for each newly read text.
 *
 * Nothing is acknowledged, numbered, retransmitted or authenticated. This header needs C99 or
 * C++14 and nothing else of the service.
 */
#ifndef QRCODE_MESSAGE_H
#define QRCODE_MESSAGE_H

#include <stdint.h>

enum {
    QRCODE_SERVER_PORT = 10010, /* UDP port of the service: commands go here */
    QRCODE_PEER_PORT = 10000,   /* UDP port of the main application: hello and results come here */
    QRCODE_ANSWER_MS = 300,     /* ms between the hello and the service's one look at the mode */

    MSG_SYNC = 0x3456,      /* nMsgSync of every frame the service sends; not checked by it */
    MSG_SOURCE_QRCODE = 10, /* nMsgSource of every frame the service sends; not checked by it */
    MSG_HEAD_SIZE = 20,     /* bytes of MsgHead */
    MSG_DATA_SIZE = 3072,   /* bytes of the payload area of a frame that the service sends */
    QRCODE_TEXT_SIZE =
        1024, /* bytes of a text with its terminating zero, and of a result's payload */
    QRCODE_TEXT_REPORT_MIN = 11 /* bytes: a shorter text is read but never sent */
};

/* nMsgCommand. "Received" and "sent" are the service's point of view. */
enum {
    /* Sent once at start-up, no payload (datagram of 20 bytes): "I am up, give me a mode". */
    MSG_CMD_QRCODE_START = 0x602,
    /* Received: a record of the main application of which the service reads one byte, the scanning
     * mode at datagram offset MSG_PARAM_MODE_OFFSET. Acts whatever the current mode. A datagram too
     * short to hold that byte sets mode 0. */
    MSG_CMD_QRCODE_PARAM = 0x604,
    /* Received: start reading. Ignored in modes QRCODE_MODE_NEVER and QRCODE_MODE_FROZEN. */
    MSG_CMD_QRCODE_ENABLE = 0x903,
    /* Sent for each newly read text of QRCODE_TEXT_REPORT_MIN bytes or more: QRCODE_TEXT_SIZE bytes
     * of payload, the text and zeros behind it (datagram of 1044 bytes, whatever the text). */
    MSG_CMD_QRCODE_RESULT = 0x904,
    /* Received: stop reading. Ignored in the same two modes. */
    MSG_CMD_QRCODE_DISABLE = 0x905,
    /* Received: the same effect as MSG_CMD_QRCODE_DISABLE; two codes on purpose. */
    MSG_CMD_QRCODE_STOP = 0x90D
};

/* Offset of the mode byte from the start of a MSG_CMD_QRCODE_PARAM datagram; in its payload 1139.
 */
enum { MSG_PARAM_MODE_OFFSET = 1159 };

/* Scanning modes with a meaning to the service; it treats every other value (1..255) alike. */
enum {
    QRCODE_MODE_NEVER = 0, /* at start-up: park; later: enable and disable are ignored */
    QRCODE_MODE_FROZEN = 3 /* enable and disable are ignored: the flag stays as it is */
};

struct MsgHead {
    uint32_t nMsgSync;
    int32_t nMsgCommand; /* compared as a signed word */
    uint32_t nMsgSource;
    uint32_t nMsgParam;  /* the service sends 0 and does not read it */
    uint32_t nMsgLength; /* bytes of payload; the service does not read it */
};

/* A frame with room for the largest payload; on the wire it ends after nMsgLength payload bytes. */
struct SocketMsg {
    struct MsgHead MsgHead;
    uint8_t MsgData[MSG_DATA_SIZE];
};

#ifdef __cplusplus
static_assert(sizeof(MsgHead) == MSG_HEAD_SIZE, "MsgHead: 20 bytes on the wire");
static_assert(sizeof(SocketMsg) == MSG_HEAD_SIZE + MSG_DATA_SIZE, "SocketMsg: 3092 bytes");
#endif

#endif
