#!/usr/bin/env python3
"""A main application of the door terminal, whole: answers the service, and takes its results.

usage: application.py [PREFIX [COUNT]]
Accepts texts of printable ASCII that begin with PREFIX, and ends after COUNT of them.
"""
import socket
import struct
import sys
import time

SERVICE = ("127.0.0.1", 10010)
OUR_ADDRESS = ("127.0.0.1", 10000)
HEAD = struct.Struct("<IiIII")  # sync, command, source, param, length
SYNC = 0x3456
SOURCE = 1  # ours; the service does not look at it
START, PARAM, ENABLE, RESULT = 0x602, 0x604, 0x903, 0x904
MODE_OFFSET = 1139  # in the payload
MODE = 1
TEXT_BYTES = 1024
REPEAT_S = 2.0  # the same text again within this time is the same showing


def frame(command, payload=b""):
    return HEAD.pack(SYNC, command, SOURCE, 0, len(payload)) + payload


def switch_on(link):
    """Mode, then enable, in this order; may be repeated at will."""
    link.sendto(frame(PARAM, bytes(MODE_OFFSET) + bytes([MODE])), SERVICE)
    link.sendto(frame(ENABLE), SERVICE)


def parse(datagram):
    """Command and payload, or (None, b"") of what is no frame of the service's."""
    if len(datagram) < HEAD.size:
        return None, b""
    sync, command, _, _, length = HEAD.unpack_from(datagram)
    if sync != SYNC or length != len(datagram) - HEAD.size:
        return None, b""
    return command, datagram[HEAD.size:]


def is_ours(text, prefix):
    """Anybody can hold any code before the camera: the text is untrusted bytes."""
    return text.startswith(prefix) and all(0x20 <= byte < 0x7F for byte in text)


def main():
    prefix = sys.argv[1].encode() if len(sys.argv) > 1 else b""
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 0
    link = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    link.bind(OUR_ADDRESS)  # before the service starts: it says START once
    switch_on(link)  # for a service that is up already: we have been restarted
    last, last_time, accepted = b"", 0.0, 0
    while count == 0 or accepted < count:
        command, payload = parse(link.recv(65536))
        if command == START:  # again after each start of the service; it waits 0.3 s
            switch_on(link)
        elif command == RESULT and len(payload) == TEXT_BYTES:
            text, now = payload.split(b"\0")[0], time.monotonic()
            repeated = text == last and now - last_time < REPEAT_S
            last, last_time = text, now
            if repeated:
                continue
            if is_ours(text, prefix):
                accepted += 1
                print("accepted", text.decode(), flush=True)
            else:
                print("refused", len(text), "bytes", flush=True)


if __name__ == "__main__":
    main()
