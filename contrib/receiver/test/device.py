# SPDX-License-Identifier: Apache-2.0
"""A device with the unmodified daemon, whose datagrams go to port 514 of loopback.

To be used within scripts/private-device, which makes the daemon's fixed paths.
"""
import os
import socket
import subprocess
import tempfile
import time

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

SERVICE = "com.tovel.systemeventlogger"
NODE = "/system/eventlog"
INTERFACE = "local.LogManager"
PATIENCE = 120  # seconds; only a bound against hangs
BUS = """<busconfig><listen>unix:path={path}</listen><auth>EXTERNAL</auth>
<policy context="default"><allow user="*"/><allow own="*"/><allow eavesdrop="true"/>
<allow send_destination="*" eavesdrop="true"/></policy></busconfig>"""


def eventually(what, condition, patience=PATIENCE):
    deadline = time.monotonic() + patience
    while not condition():
        if time.monotonic() > deadline:
            raise RuntimeError(f"waited in vain: {what}")
        time.sleep(0.02)


def end(process):
    """Ends a child of ours and collects it."""
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            raise


def paced(items, rate, send):
    """Sends items at a rate a second; a sender that was held up catches up.

    Returns the seconds it took.
    """
    start = time.monotonic()
    for number, item in enumerate(items):
        early = start + number / rate - time.monotonic()
        if early > 0:
            time.sleep(early)
        send(item)
    return time.monotonic() - start


class Device:
    """The daemon on a bus of its own; to be used by `with`."""

    def __init__(self, daemon, catalogue):
        self.daemon = daemon
        self.catalogue = catalogue
        self.folder = tempfile.TemporaryDirectory()
        self.log = os.path.join(self.folder.name, "log")
        self.processes = []
        self.bus = None

    def __enter__(self):
        try:
            self.start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, failure=True, *_):
        for process in reversed(self.processes):
            end(process)
        if failure:
            with open(self.log, encoding="utf-8") as file:
                print("bus and daemon said:", file.read(), sep="\n")
        self.folder.cleanup()

    def start(self):
        os.makedirs("/srv/public", exist_ok=True)
        with open("/var/www/data/systemevent.xml", "w", encoding="utf-8") as file:
            file.write(self.catalogue)
        path = os.path.join(self.folder.name, "bus")
        with open(path + ".conf", "w", encoding="utf-8") as file:
            file.write(BUS.format(path=path))
        self.launch("dbus-daemon", f"--config-file={path}.conf", "--nofork", "--nosyslog",
                    "--nopidfile")
        eventually("the bus", lambda: os.path.exists(path))
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = f"unix:path={path}"
        self.bus = Gio.DBusConnection.new_for_address_sync(
            f"unix:path={path}", Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
            | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
        self.launch(self.daemon)
        eventually("the daemon", self.answers)
        self.set("logNetworkAddress", GLib.Variant("s", "127.0.0.1"))
        self.set("logNetwork", GLib.Variant("b", True))

    def launch(self, *command):
        with open(self.log, "a", encoding="utf-8") as log:
            self.processes.append(subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=log, stderr=log))

    def call(self, interface, method, arguments=None):
        return self.bus.call_sync(SERVICE, NODE, interface, method, arguments, None,
                                  Gio.DBusCallFlags.NONE, PATIENCE * 1000, None)

    def answers(self):
        try:
            self.call(INTERFACE, "getMinLogNr")
            return True
        except GLib.Error:
            return False

    def set(self, name, value):
        self.call("org.freedesktop.DBus.Properties", "Set",
                  GLib.Variant("(ssv)", (INTERFACE, name, value)))

    def emit(self, event):
        self.bus.emit_signal(None, event.emitter, "com.tovel.status", "change", event.payload)

    def settle(self):
        """Returns once the daemon has sent everything that was emitted before."""
        self.call(INTERFACE, "getMinLogNr")

    def capture(self, events):
        """What the daemon sends for these, one datagram each."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
            # Beyond what the system allows to ordinary programs.
            receiver.setsockopt(socket.SOL_SOCKET, 33, 100_000_000)  # SO_RCVBUFFORCE
            receiver.bind(("127.0.0.1", 514))
            for event in events:
                self.emit(event)
            self.settle()
            receiver.setblocking(False)
            return [receiver.recv(65536) for _ in events]


class Event:
    """What a service emits, and what has to come out of it at the receiver."""

    def __init__(self, event_id, level, message, *values, emitter="/power/supply"):
        self.emitter = emitter
        self.payload = GLib.Variant("(iv)", (event_id, GLib.Variant("av", list(values))))
        self.expected = {"host": "127.0.0.1", "level": level, "id": event_id,
                         "path": emitter, "message": message}


def text(value):
    return GLib.Variant("s", value)


def number(value):
    return GLib.Variant("i", value)
