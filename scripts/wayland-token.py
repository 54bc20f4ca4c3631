#!/usr/bin/env python3
"""Prints a token by which a window may come to the front, as a launcher gets one from its compositor.

Talks with the compositor that WAYLAND_DISPLAY names, by the messages of xdg-activation-v1.
"""

import os
import socket
import struct

server = socket.socket(socket.AF_UNIX)
server.connect(os.path.join(os.environ["XDG_RUNTIME_DIR"], os.environ["WAYLAND_DISPLAY"]))
server.settimeout(10)
DISPLAY, REGISTRY, ACTIVATION, TOKEN = 1, 2, 3, 4


def send(target, opcode, *arguments):
    body = b"".join(text(each) if isinstance(each, bytes) else struct.pack("=I", each)
                    for each in arguments)
    server.sendall(struct.pack("=II", target, (8 + len(body)) << 16 | opcode) + body)


def text(value):
    value += b"\0"
    return struct.pack("=I", len(value)) + value + b"\0" * (-len(value) % 4)


def events():
    """Yields what the server sends: object, opcode, body."""
    while True:
        target, head = struct.unpack("=II", receive(8))
        yield target, head & 0xFFFF, receive((head >> 16) - 8)


def receive(size):
    data = b""
    while len(data) < size:
        part = server.recv(size - len(data))
        if not part:
            raise SystemExit("the compositor has gone")
        data += part
    return data


def string(body, start):
    (length,) = struct.unpack_from("=I", body, start)
    return body[start + 4:start + 3 + length]


send(DISPLAY, 1, REGISTRY)  # get_registry
for target, opcode, body in events():
    if (target, opcode) == (REGISTRY, 0) and string(body, 4) == b"xdg_activation_v1":
        send(REGISTRY, 0, struct.unpack_from("=I", body)[0], b"xdg_activation_v1", 1, ACTIVATION)
        send(ACTIVATION, 1, TOKEN)  # get_activation_token
        send(TOKEN, 3)  # commit
    if (target, opcode) == (TOKEN, 0):
        print(string(body, 0).decode())
        break
