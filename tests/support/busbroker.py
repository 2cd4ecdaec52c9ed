#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
#
# busbroker.py BROKER SOCKET
#
# Becomes a message bus that listens on SOCKET: dbus-broker, without the launcher, which wants
# systemd. A child hands the broker what the launcher would, that is the socket and a policy,
# prints the address, and ends. Everybody may do everything; the limits are those
# that the launcher gives a system bus.

import os
import signal
import socket
import struct
import sys

LIMITS = ["--max-bytes=536870912", "--max-fds=4096", "--max-matches=16384"]
RULES = "a(btssssuutt)"  # a verdict, its priority, what it is about
BATCH = f"(bta(btbs){RULES}{RULES})"  # connecting, owning, sending, receiving
POLICY = f"(a(u{BATCH})a(buu{BATCH})a(ss)bs)"
MOST = 2**64 - 1


def pack(out, types, *values):
    """Appends values, each aligned; of an array the structures, as functions."""
    for kind, value in zip(types, values):
        if kind == "a":
            pack(out, "u", 0)
            place = len(out)
            out += bytes(-len(out) % 8)
            begin = len(out)
            for write in value:
                out += bytes(-len(out) % 8)
                write(out)
            struct.pack_into("<I", out, place - 4, len(out) - begin)
        elif kind == "g":
            out += bytes([len(value)]) + value.encode() + b"\0"
        elif kind == "s":
            pack(out, "u", len(value))
            out += value.encode() + b"\0"
        else:
            code = {"y": "B", "b": "I", "u": "I", "t": "Q"}[kind]
            out += bytes(-len(out) % struct.calcsize(code)) + struct.pack("<" + code, value)


def policy(out):
    def rule(out):
        pack(out, "btssssuutt", True, 1, "", "", "", "", 0, 0, 0, MOST)

    def own(out):
        pack(out, "btbs", True, 1, True, "")

    def everybody(out):
        pack(out, "u", 2**32 - 1)
        out += bytes(-len(out) % 8)
        pack(out, "btaaa", True, 1, [own], [rule], [rule])

    out += bytes(-len(out) % 8)
    pack(out, "aaabs", [everybody], [], [], False, "system")


def add_listener():
    """The call of org.bus1.DBus.Broker.AddListener(o, h, v)."""
    body = bytearray()
    pack(body, "sug", "/org/bus1/DBus/Listener/0", 0, POLICY)
    policy(body)

    def field(code, kind, value):
        def write(out):
            pack(out, "yg" + kind.replace("o", "s"), code, kind, value)
        return write

    message = bytearray()
    pack(message, "yyyyuua", ord("l"), 1, 0, 1, len(body), 1,
         [field(1, "o", "/org/bus1/DBus/Broker"), field(2, "s", "org.bus1.DBus.Broker"),
          field(3, "s", "AddListener"), field(8, "g", "ohv"), field(9, "u", 1)])
    return message + bytes(-len(message) % 8) + body


def control(channel, listener):
    """Introduces itself, hands the socket over; whether the broker takes it."""
    channel.sendall(b"\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n")
    answers = b""
    while answers.count(b"\r\n") < 3:
        answers += channel.recv(1024) or sys.exit("dbus-broker has ended")
    socket.send_fds(channel, [add_listener()], [listener.fileno()])
    answer = channel.recv(1024)
    return len(answer) > 1 and answer[1] == 2 or sys.exit(f"dbus-broker refuses: {answer}")


def main(broker, path):
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(path)
    listener.listen(128)
    listener.setblocking(False)  # the broker accepts until nobody is left
    ours, its = socket.socketpair()
    parent = os.getpid()
    if os.fork() == 0:
        try:
            control(ours, listener)
            print("unix:path=" + path, flush=True)
        except SystemExit:
            os.kill(parent, signal.SIGKILL)
            raise
        return
    # It keeps the other end, too, or it would end with its controller.
    for each in (ours, its):
        os.set_inheritable(each.fileno(), True)
    os.execv(broker, [broker, f"--controller={its.fileno()}", "--machine-id=" + "0" * 31 + "1"]
             + LIMITS)


if __name__ == "__main__":
    main(*sys.argv[1:])
