# SPDX-License-Identifier: Apache-2.0
"""What the tests of all receivers and stores have in common."""
import datetime
import json
import socket
import time

from device import eventually

MEMBERS = {"received", "host", "devicetime", "level", "id", "path", "message"}
ANY_EVENT = b"<28> 1 2024-05-01T12:00:00  zib - 1001 - \xef\xbb\xbf[/a] x"

# A text in broken UTF-8, and what must be left of it.
BROKEN = {
    b"Ger\xe4t": "Ger.{1,4}t",
    b"cut \xe2\x82": "cut .*",
    b"\xff\xfe and": ".* and",
    b"\x80\x80 stray": ".* stray",
    b"half \xed\xa0\x80 a pair": "half .* a pair",
    b"over\xc0\xaflong": "over.*long",
    b"beyond \xf4\x90\x80\x80 the end": "beyond .* the end",
    b"five \xf8\x88\x80\x80\x80 bytes": "five .* bytes",
}


class Failure(Exception):
    pass


def expect(condition, text):
    if not condition:
        raise Failure(text)


def say(text):
    print(text, flush=True)


FIGURES = {}  # what was measured in each part, for the table at the end


def figure(what, value):
    """Of the part that was begun last."""
    list(FIGURES.values())[-1].append((what, value))
    say(f"    {what}: {value}")


# --- Comparing --------------------------------------------------------------------

def moment(text):
    return datetime.datetime.fromisoformat(text)


def compare(name, event, got, begin, server):
    """One received event, member by member."""
    expect(set(got) == MEMBERS, f"{name}: has the members {list(got)}")
    expected = dict(event.expected, message=server.whole(event.expected["message"]))
    for member, value in expected.items():
        expect(got[member] == value,
               f"{name}: {member} is {got[member]!r:.300}, not {value!r:.300}")
    now = datetime.datetime.now().astimezone()
    received = moment(got["received"])
    expect(received.tzinfo and begin <= received <= now, f"{name}: received {received}")
    device_time = moment(got["devicetime"])
    expect(device_time.tzinfo is None and not device_time.microsecond
           and begin.replace(microsecond=0) <= device_time.astimezone() <= now,
           f"{name}: device time {device_time}")


def await_lines(server, count, name="events"):
    """The lines of a file once there are so many; fewer if no more come."""
    seen = [-1, time.monotonic()]

    def is_complete_or_idle():
        lines = len(server.lines(name))
        if lines != seen[0]:
            seen[:] = [lines, time.monotonic()]
        return lines >= count or time.monotonic() > seen[1] + 20

    eventually(f"{count} lines", is_complete_or_idle, 300)
    return server.lines(name)


def compare_all(names, expected, received, begin, server):
    expect(len(received) == len(expected),
           f"{len(received)} events of {len(expected)} arrived")
    for name, event, got in zip(names, expected, received):
        compare(name, event, got, begin, server)


def compare_file(server, names, expected, begin):
    received = [json.loads(line) for line in await_lines(server, len(expected))]
    compare_all(names, expected, received, begin, server)
    return received


def rate_of(received):
    first, last = (moment(received[i]["received"]) for i in (0, -1))
    return len(received) / max((last - first).total_seconds(), 1e-6)


# --- Sending ----------------------------------------------------------------------

class Sender:
    """Sends datagrams as they are."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.connect(("127.0.0.1", 514))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, datagram):
        self.socket.send(datagram)


def now():
    return datetime.datetime.now().astimezone()
