/* A main application of the door terminal, whole: answers the service, and takes its results.
 *
 * usage: application [PREFIX [COUNT]]
 * Accepts texts of printable ASCII that begin with PREFIX, and ends after COUNT of them.
 *
 * cc -std=c99 -I include docs/protocol/application.c -o application
 */
#define _POSIX_C_SOURCE 200809L

#include <arpa/inet.h>
#include <poll.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

#include "message.h"

enum {
    OUR_SOURCE = 1, /* the service does not look at it */
    OUR_MODE = 1,
    REPEAT_MS = 2000, /* the same text again within this time is the same showing */
    IDLE_MS = 1000    /* until the loop comes round for the rest of its work */
};

struct Application {
    int link;
    const char* prefix;
    char last[QRCODE_TEXT_SIZE];
    int64_t lastMs;
    long accepted;
};

static struct sockaddr_in Loopback(int port)
{
    struct sockaddr_in address;
    memset(&address, 0, sizeof(address));
    address.sin_family = AF_INET;
    address.sin_port = htons((uint16_t)port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

static int64_t Milliseconds(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

/* Sends a frame whose payload is zeros, but for its last byte. */
static void Send(const struct Application* application, int32_t command, size_t payload,
                 uint8_t lastByte)
{
    struct SocketMsg frame;
    const struct sockaddr_in service = Loopback(QRCODE_SERVER_PORT);
    memset(&frame, 0, sizeof(frame));
    frame.MsgHead.nMsgSync = MSG_SYNC;
    frame.MsgHead.nMsgCommand = command;
    frame.MsgHead.nMsgSource = OUR_SOURCE;
    frame.MsgHead.nMsgLength = (uint32_t)payload;
    if (payload > 0) {
        frame.MsgData[payload - 1] = lastByte;
    }
    if (sendto(application->link, &frame, MSG_HEAD_SIZE + payload, 0,
               (const struct sockaddr*)&service, sizeof(service)) < 0) {
        perror("sendto");
    }
}

/* Mode, then enable, in this order; may be repeated at will. */
static void SwitchOn(const struct Application* application)
{
    Send(application, MSG_CMD_QRCODE_PARAM, MSG_PARAM_MODE_OFFSET + 1 - MSG_HEAD_SIZE, OUR_MODE);
    Send(application, MSG_CMD_QRCODE_ENABLE, 0, 0);
}

/* Anybody can hold any code before the camera: the text is untrusted bytes. */
static bool IsOurs(const char* text, const char* prefix)
{
    if (strncmp(text, prefix, strlen(prefix)) != 0) {
        return false;
    }
    for (; *text != '\0'; ++text) {
        if (*text < 0x20 || *text > 0x7E) {
            return false;
        }
    }
    return true;
}

static void TakeText(struct Application* application, const char* text)
{
    const int64_t now = Milliseconds();
    const bool repeated =
        strcmp(text, application->last) == 0 && now - application->lastMs < REPEAT_MS;
    strcpy(application->last, text); /* shorter than QRCODE_TEXT_SIZE, as TakeFrame sees to */
    application->lastMs = now;
    if (repeated) {
        return;
    }
    if (IsOurs(text, application->prefix)) {
        ++application->accepted;
        printf("accepted %s\n", text);
    } else {
        printf("refused %zu bytes\n", strlen(text));
    }
}

static void TakeFrame(struct Application* application)
{
    struct SocketMsg frame;
    const ssize_t length = recv(application->link, &frame, sizeof(frame), MSG_DONTWAIT);
    if (length < MSG_HEAD_SIZE || frame.MsgHead.nMsgSync != MSG_SYNC ||
        frame.MsgHead.nMsgLength != (size_t)length - MSG_HEAD_SIZE) {
        return; /* no frame of the service's */
    }
    if (frame.MsgHead.nMsgCommand == MSG_CMD_QRCODE_START) {
        SwitchOn(application); /* again after each start of the service; it waits 0.3 s */
    } else if (frame.MsgHead.nMsgCommand == MSG_CMD_QRCODE_RESULT &&
               frame.MsgHead.nMsgLength == QRCODE_TEXT_SIZE &&
               frame.MsgData[QRCODE_TEXT_SIZE - 1] == 0) {
        TakeText(application, (const char*)frame.MsgData);
    }
}

int main(int argc, char** argv)
{
    struct Application application = {.prefix = argc > 1 ? argv[1] : ""};
    const long count = argc > 2 ? atol(argv[2]) : 0;
    const struct sockaddr_in ours = Loopback(QRCODE_PEER_PORT);
    application.link = socket(AF_INET, SOCK_DGRAM, 0);
    /* Before the service starts: it says MSG_CMD_QRCODE_START once. */
    if (application.link < 0 ||
        bind(application.link, (const struct sockaddr*)&ours, sizeof(ours)) != 0) {
        perror("bind");
        return 1;
    }
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);
    SwitchOn(&application); /* for a service that is up already: we have been restarted */
    while (count == 0 || application.accepted < count) {
        struct pollfd ready = {.fd = application.link, .events = POLLIN};
        if (poll(&ready, 1, IDLE_MS) > 0) {
            TakeFrame(&application);
        }
        /* the rest of the application's work */
    }
    return 0;
}
