#!/usr/bin/env python3
"""A window on Wayland that asks for activation tokens, as a launcher does: for its own surface, by the
serial of a key that the user pressed there. Prints a token for each line that it reads.

Talks with the compositor that WAYLAND_DISPLAY names, and presses the key by a virtual keyboard.
"""

import itertools
import os
import socket
import struct
import sys

KEYMAP = b"""xkb_keymap {
    xkb_keycodes { minimum = 8; maximum = 9; <K> = 9; };
    xkb_types { include "complete" };
    xkb_compatibility { include "complete" };
    xkb_symbols { key <K> { [ a ] }; };
};\0"""
SIZE = 100  # of the window, in pixels

server = socket.socket(socket.AF_UNIX)
server.connect(os.path.join(os.environ["XDG_RUNTIME_DIR"], os.environ["WAYLAND_DISPLAY"]))
server.settimeout(10)
new_id = itertools.count(2).__next__


def send(target, opcode, *arguments, file=None):
    body = b"".join(text(each) if isinstance(each, bytes) else struct.pack("=I", each)
                    for each in arguments)
    message = struct.pack("=II", target, (8 + len(body)) << 16 | opcode) + body
    socket.send_fds(server, [message], [file] if file is not None else [])


def text(value):
    value += b"\0"
    return struct.pack("=I", len(value)) + value + b"\0" * (-len(value) % 4)


def create(target, opcode, *arguments, file=None):
    """Returns the object that a request creates, whose number is the first argument."""
    number = new_id()
    send(target, opcode, number, *arguments, file=file)
    return number


def receive(size):
    data = b""
    while len(data) < size:
        part = server.recv(size - len(data))
        if not part:
            sys.exit("the compositor has gone")
        data += part
    return data


def wait_for(target, opcode):
    """Returns the body of an event, and answers what comes before it."""
    while True:
        sender, head = struct.unpack("=II", receive(8))
        body = receive((head >> 16) - 8)
        if sender == 1 and head & 0xFFFF == 0:
            sys.exit(f"the compositor refuses: {body}")
        if sender == registry and head & 0xFFFF == 0:
            (length,) = struct.unpack_from("=I", body, 4)
            interfaces[body[8:7 + length].decode()] = struct.unpack_from("=I", body)[0]
        if sender == interface_objects.get("xdg_wm_base") and head & 0xFFFF == 0:
            send(sender, 3, *struct.unpack("=I", body))  # pong
        if (sender, head & 0xFFFF) == (target, opcode):
            return body


def memory(content):
    file = os.memfd_create("shared")
    os.write(file, content)
    return file


interfaces, interface_objects = {}, {}
registry = create(1, 1)
wait_for(create(1, 0), 0)  # all interfaces are known then
for name in ("wl_compositor", "wl_shm", "wl_seat", "xdg_wm_base", "xdg_activation_v1",
             "zwp_virtual_keyboard_manager_v1"):
    number = new_id()
    send(registry, 0, interfaces[name], name.encode(), 1, number)
    interface_objects[name] = number
compositor, shm, seat, shell, activation, keyboards = interface_objects.values()

virtual = new_id()
send(keyboards, 0, seat, virtual)
send(virtual, 0, 1, len(KEYMAP), file=memory(KEYMAP))
keyboard = create(seat, 1)

surface = create(compositor, 0)
shell_surface = create(shell, 2, surface)
window = create(shell_surface, 1)
send(window, 2, b"launcher")
send(surface, 6)
send(shell_surface, 4, *struct.unpack("=I", wait_for(shell_surface, 0)))  # configured
pool = create(shm, 0, 4 * SIZE * SIZE, file=memory(bytes(4 * SIZE * SIZE)))
send(surface, 1, create(pool, 0, 0, SIZE, SIZE, 4 * SIZE, 0), 0, 0)
send(surface, 6)

for _ in sys.stdin:
    send(virtual, 1, 0, 1, 1)
    send(virtual, 1, 0, 1, 0)
    (serial,) = struct.unpack_from("=I", wait_for(keyboard, 3))
    token = create(activation, 1)
    send(token, 0, serial, seat)
    send(token, 2, surface)
    send(token, 3)
    body = wait_for(token, 0)
    (length,) = struct.unpack_from("=I", body)
    print(body[4:3 + length].decode(), flush=True)
