# SPDX-License-Identifier: Apache-2.0
"""rsyslog or syslog-ng, which write events into a file."""
import json
import re

import events
import servers
from common import (ANY_EVENT, BROKEN, Sender, await_lines, compare_all, compare_file, expect,
                    figure, now, rate_of, say)
from device import paced

RATE = 20000  # a second
RATES = [RATE] * 6 + [10000, 5000, 2000, 1000]


def special_events(device, server):
    special = events.special_events()
    begin = now()
    for event in special.values():
        device.emit(event)
    compare_file(server, special.keys(), special.values(), begin)
    say(f"  {len(special)} special events from the daemon: all whole")
    server.forget()


def complete_stream(how, server, stream, send_all, begin):
    """Has a stream sent until one arrives completely; what was sent at which rate.

    Where the machine holds the server up for longer than its buffer lasts, the kernel drops
    datagrams and counts them. Then the stream is sent again, and at last more slowly. A loss
    that the kernel has not counted is the server's, and a failure.
    """
    for attempt, rate in enumerate(RATES, 1):
        overflows = servers.overflows()
        cpu = server.cpu_seconds()
        took = send_all(rate)
        overflows = servers.overflows() - overflows
        lines = await_lines(server, len(stream) - overflows)
        expect(len(lines) + overflows == len(stream),
               f"{len(lines)} events of {len(stream)} arrived, {overflows} found no room")
        if not overflows:
            break
        say(f"  (held up: {overflows} events of {len(stream)} at {rate} a second found no room)")
        server.forget()
    received = [json.loads(line) for line in lines]
    compare_all(range(len(stream)), stream, received, begin, server)
    size = sum(map(len, lines)) / len(lines)
    say(f"  {how}: {len(stream)} events at {len(stream) / took:.0f} a second, received at "
        f"{rate_of(received):.0f}: 0 lost, all in order and whole (attempt {attempt})")
    cpu = (server.cpu_seconds() - cpu) / len(stream)
    figure(f"CPU and JSON an event, {how}", f"{cpu * 1e6:.0f} us, {size:.0f} bytes")
    server.forget()


def live_stream(device, server, stream):
    def emit_all(rate):
        took = paced(stream, rate, device.emit)
        device.settle()
        return took

    complete_stream("emitted on the bus", server, stream, emit_all, now())


def replayed_stream(server, stream, captured, begin):
    with Sender() as sender:
        complete_stream("the daemon's datagrams sent again", server, stream,
                        lambda rate: paced(captured, rate, sender.send), begin)


def broken_bytes(server):
    """What the daemon never sends, but a bad network or another sender can."""
    with Sender() as sender:
        for text in BROKEN:
            sender.send(ANY_EVENT[:-1] + text)
    lines = await_lines(server, len(BROKEN))
    expect(len(lines) == len(BROKEN), f"of {len(BROKEN)} broken texts arrived {lines}")
    for line, (text, pattern) in zip(lines, BROKEN.items()):
        message = json.loads(line.decode("utf-8"))["message"]
        expect(re.fullmatch(pattern, message), f"{text} became {message!r}")
    say(f"  {len(BROKEN)} texts of broken UTF-8: kept, in valid UTF-8")
    server.forget()


def strangers(server):
    """Whatever else comes to the port is kept apart, and disturbs nothing."""
    event = ANY_EVENT
    strange = [
        b"<13>May  1 12:00:00 host su: failed", b"<34>1 2024-05-01T12:00:00Z host su - - - x",
        b"x", b"<28>", b"<> 1 2024-05-01T12:00:00  zib - 1 - \xef\xbb\xbf[/a] x",
        event.replace(b"<28>", b"<2x>"), event.replace(b"1001", b"abc"),
        event.replace(b"1001", b"007"), event.replace(b"1001", b"-0"),
        event.replace(b"<28>", b"<028>"),
        event.replace(b"1001", b"12345678901"), event.replace(b"05-01T", b"x5-01T"),
        event.replace(b"\xef\xbb\xbf", b""), event.replace(b"zib", b"zab"), b" " + event]
    with Sender() as sender:
        sender.send(b"")
        for datagram in strange:
            sender.send(datagram)
        sender.send(event)
    lines = await_lines(server, 1)
    expect(len(lines) == 1, f"one event and strangers gave {lines}")
    lines = await_lines(server, len(strange), "strangers")
    expect(len(lines) == len(strange), f"of {len(strange)} strangers arrived {lines}")
    for line, datagram in zip(lines, strange):
        raw = json.loads(line.decode("utf-8"))["raw"]
        expect(raw == datagram.decode("utf-8"), f"{datagram} became {raw!r}")
    say(f"  {len(strange)} strangers: kept apart")
    server.forget()


def burst(server, captured):
    """How many datagrams wait in the socket of a server that does not run at all."""
    sent = captured * 4
    overflows = servers.overflows()
    server.hold()
    try:
        with Sender() as sender:
            for datagram in sent:
                sender.send(datagram)
    finally:
        server.go_on()
    overflows = servers.overflows() - overflows
    kept = len(await_lines(server, len(sent) - overflows))
    expect(kept + overflows == len(sent), f"{kept} kept, but {overflows} found no room")
    size = sum(map(len, captured)) / len(captured)
    figure(f"kept of a burst of {len(sent)} datagrams of {size:.0f} bytes, while the server stands "
           "still", kept)
    server.forget()


def test(server, device, stream, captured, begin):
    with server:
        special_events(device, server)
        live_stream(device, server, stream)
        replayed_stream(server, stream, captured, begin)
        broken_bytes(server)
        strangers(server)
        burst(server, captured)
