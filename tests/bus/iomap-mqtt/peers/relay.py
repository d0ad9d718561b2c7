#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""relay.py FROM TO FILE: says "relaying", takes one connection at the port FROM, carries its bytes to the
port TO and back until one end closes, and writes what it has carried to FILE as a capture of IPv4
packets. To capture at an interface would take privileges."""
import select
import socket
import struct
import sys

RAW_IP = 101
LONGEST = 16384
PUSH_ACK = 0x18

from_port, to_port, path = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3]


def packet(source, target, sequence, acknowledged, payload):
    tcp = struct.pack("!HHIIBBHHH", source, target, sequence, acknowledged, 5 << 4, PUSH_ACK, 65535, 0, 0)
    loopback = socket.inet_aton("127.0.0.1")
    ip = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 40 + len(payload), 0, 0, 64, 6, 0, loopback, loopback)
    return ip + tcp + payload


listener = socket.create_server(("127.0.0.1", from_port))
print("relaying", flush=True)
client, (_, client_port) = listener.accept()
broker = socket.create_connection(("127.0.0.1", to_port))
other = {client: broker, broker: client}
port = {client: client_port, broker: to_port}
sequence = {client: 1, broker: 1}

with open(path, "wb") as capture:
    capture.write(struct.pack("!IHHIIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, RAW_IP))
    number = 0
    while True:
        ready, _, _ = select.select([client, broker], [], [])
        data = ready[0].recv(LONGEST)
        if not data:
            break
        source, target = ready[0], other[ready[0]]
        text = packet(port[source], port[target], sequence[source], sequence[target], data)
        capture.write(struct.pack("!IIII", number, 0, len(text), len(text)) + text)
        sequence[source] += len(data)
        number += 1
        target.sendall(data)
