#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""silent.py PORT SECONDS: says "listening", takes one connection of MQTT 3.1.1, accepts the client, and
acknowledges all messages but those of the topic "replay". When the first of these has come, it says so. So
many seconds later it says "enough seen"."""
import select
import socket
import sys
import time

CONNECT, PUBLISH, SUBSCRIBE, PINGREQ = 1, 3, 8, 12
CONNACK, PUBACK, SUBACK, PINGRESP = b"\x20\x02\x00\x00", b"\x40\x02", b"\x90\x03", b"\xd0\x00"

port, watched = int(sys.argv[1]), float(sys.argv[2])
listener = socket.create_server(("127.0.0.1", port))
print("listening", flush=True)
client, _ = listener.accept()
stream = client.makefile("rb", buffering=0)


def take(count):
    data = b""
    while len(data) < count:
        part = stream.read(count - len(data))
        if not part:
            sys.exit("the client has gone")
        data += part
    return data


def packet():
    """Type, flags and content of the next packet."""
    head = take(1)[0]
    length = shift = 0
    while True:
        digit = take(1)[0]
        length |= (digit & 0x7F) << shift
        shift += 7
        if digit < 0x80:
            return head >> 4, head & 0x0F, take(length)


def answer(kind, flags, content):
    """Returns whether the packet was one of the messages that are never acknowledged."""
    if kind == CONNECT:
        client.sendall(CONNACK)
    elif kind == SUBSCRIBE:
        client.sendall(SUBACK + content[:2] + b"\x01")
    elif kind == PINGREQ:
        client.sendall(PINGRESP)
    elif kind == PUBLISH and flags & 0x06:
        end = 2 + int.from_bytes(content[:2], "big")
        if content[2:end].endswith(b"/replay"):
            return True
        client.sendall(PUBACK + content[end : end + 2])
    return False


while not answer(*packet()):
    pass
print("heard of an earlier time", flush=True)
deadline = time.monotonic() + watched
while (left := deadline - time.monotonic()) > 0:
    if select.select([client], [], [], left)[0]:
        answer(*packet())
print("enough seen", flush=True)
take(1)
