# SPDX-License-Identifier: Apache-2.0
"""The catalogue of the test's device, and the events that it emits."""
from gi.repository import GLib

from device import Event, number, text

# By level number: the id whose event has it, and whose text is just its one value.
ODD_LEVELS = {0: 100, 7: 107, 8: 108, 25: 125, 103: 203, 2000: 300,
              -1: 401, -24: 424, -25: 425, -1000: 500}


def catalogue():
    levels = "".join(f'<item value="{level}" name="l{level}"/>' for level in (*ODD_LEVELS, 4))
    value = '<argument type="string" name="value"/>'
    odd = "".join(f'<event id="{event}" loglevel="l{level}">{value}'
                  '<description lang="en">%1</description></event>'
                  for level, event in ODD_LEVELS.items())
    plain = "".join(f'<event id="{event}" loglevel="l4">{value}'
                    '<description lang="en">%1</description></event>'
                    for event in (1001, 4294967291, 2147483648, 2147483647))
    return f"""<?xml version="1.0" encoding="UTF-8"?>
<systemevents><enum name="LogLevel">{levels}</enum><service name="test">{odd}{plain}
<event id="1002" loglevel="l4"><description lang="en"></description></event>
<event id="1003" loglevel="l4"><argument type="int32" name="number"/>{value}
<description lang="en">Number %1: %2</description></event>
<event id="1004" loglevel="l4"><argument type="int32" name="number"/>{value}
<description lang="en">%1: %2</description></event>
</service></systemevents>"""


TEXTS = {
    "a plain text": "Supply fails",
    "a blank at either end": "  Supply fails  ",
    "line feeds": "first\nsecond\n\nlast",
    "a line feed at either end": "\nfirst\n\n",
    "carriage returns and tabs": "\tfirst\r\nsecond\r",
    "control characters": "\x01\x07\x1b[31mred\x1b[0m\x1f\x7f",
    "quotes": "'it''s' \"so\" `called` $HOME ${id} $1",
    "backslashes": "C:\\new\\table\\ \\n \\\" \\\\",
    "what looks like a datagram": "<28> 1 2024-05-01T12:00:00  zib - 7 - \ufeff[/a] b",
    "what looks like SQL": "'); DELETE FROM events; --",
    "what looks like JSON": "\", \"level\": 0, \"x\": {\"[1]",
    "a per cent sign": "100 % %d %s %msg% %%",
    "Latin and Greek": "Gerät Süd, Ωμέγα, ½ €",
    "Chinese and beyond 16 bits": "電源 \U0001f50c \U0010fffd",
    "the last code points of each length": "\u0080\u07ff\u0800\ud7ff\ue000\ufffd\U00010000",
    "9,000 bytes": "".join(f"{i:08}," for i in range(1000)),
    "9,000 bytes of two-byte characters": "äöüß" * 1125,
    "65,000 bytes": "".join(f"{i:07} \n" for i in range(7222))[:65000],
}


def special_events():
    """One of each kind that is easily lost or damaged, by name."""
    events = {name: Event(1001, 4, value, text(value)) for name, value in TEXTS.items()}
    for level, event in ODD_LEVELS.items():
        events[f"level {level}"] = Event(event, level, "odd", text("odd"))
    for event in (-5, -2**31, 2**31 - 1):
        events[f"id {event}"] = Event(event, 4, "odd", text("odd"))
    events["an empty text"] = Event(1002, 4, "")
    events["the shortest path"] = Event(1001, 4, "x", text("x"), emitter="/")
    long_path = "/a_long_path/0123456789" * 100
    events["a path of 2,300 bytes"] = Event(1001, 4, "x", text("x"), emitter=long_path)
    latin1 = bytes(range(0x80, 0x100))
    events["bytes of Latin-1"] = Event(1001, 4, latin1.decode("latin-1"),
                                       GLib.Variant("ay", latin1))
    events["a zero byte"] = Event(1003, 4, "Number \0: in it", GLib.Variant("y", 0), text("in it"))
    events["a zero byte at the beginning"] = Event(1004, 4, "\0: then text",
                                                   GLib.Variant("y", 0), text("then text"))
    events["a zero byte at the end"] = Event(1001, 4, "\0", GLib.Variant("y", 0))
    return events


def stream(count):
    """Numbered events of all sizes up to some hundred bytes."""
    events = []
    for i in range(count):
        value = f"Gerät \"{i % 97}\" \\ line 1\nline 2 " + "." * (i % 211)
        events.append(Event(1003, 4, f"Number {i}: {value}", number(i), text(value)))
    return events
