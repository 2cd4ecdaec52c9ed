# SPDX-License-Identifier: Apache-2.0
"""What peers-hook and peers/run both need: programs and their results, folders, a bus, and a
receiver of datagrams. Everything started here is ended by its own id."""
import os
import re
import shutil
import socket
import subprocess
import tempfile
import threading
import time

SOURCES = os.path.dirname(os.path.dirname(os.path.realpath(__file__)))
BUILD = os.environ.get("SEL_BENCH_BUILD") or os.path.join(SOURCES, "build", "bench")
HOOKBUS = os.path.join(BUILD, "bench", "hookbus")
SO_RCVBUFFORCE = 33  # no constant of Python's


def results(text):
    """The lines KEY NUMBER of a program's output."""
    pairs = (line.split() for line in text.splitlines())
    return {pair[0]: float(pair[1]) for pair in pairs if len(pair) == 2}


def output(*command, limit=40, **options):
    """What a program prints; it is asked to end before it is made to when its time is up."""
    words = [str(word) for word in command]
    with tempfile.TemporaryFile("w+") as errors:
        process = subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=errors, text=True, **options)
        try:
            printed = process.communicate(timeout=limit)[0]
        except subprocess.TimeoutExpired:
            raise RuntimeError(f"{words[0]}: not done after {limit:.0f} seconds") from None
        finally:
            stop(process)
        if process.returncode != 0:
            errors.seek(0)
            raise RuntimeError(f"{' '.join(words)}: {errors.read().strip()[-300:]}")
    return printed


def run(*command, **options):
    return results(output(*command, **options))


def stop(process):
    """Ends a child of ours and collects it."""
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(5)
        except subprocess.TimeoutExpired:
            process.kill()
    process.wait()
    if process.stdout:
        process.stdout.close()


def eventually(what, condition, pause=0.002):
    deadline = time.monotonic() + 10
    while not condition():
        if time.monotonic() > deadline:
            raise RuntimeError(f"waited 10 seconds in vain: {what}")
        time.sleep(pause)


def fresh(parent, name):
    folder = os.path.join(parent, name)
    os.makedirs(folder)
    return folder


def cpu(pid):
    """The CPU seconds of a process so far, by its own clock."""
    return time.clock_gettime((~pid << 3) | 2)


def memory_kb(pid, name, file="smaps_rollup"):
    with open(f"/proc/{pid}/{file}", encoding="utf-8") as lines:
        return int(re.search(rf"^{name}:\s+(\d+) kB", lines.read(), re.M).group(1))


def receive(receiver, expected, done):
    """Counts datagrams until all have come, or nothing does any more once the sender is done."""
    received = 0
    receiver.settimeout(0.5)
    while received < expected:
        try:
            receiver.recv(2048)
            received += 1
        except socket.timeout:
            if done.is_set():
                break
    return received


def send_datagrams(expected, *command):
    """Runs a sender with a port of loopback as its last word: its results, and how many arrive."""
    done = threading.Event()
    arrived = []
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
        receiver.bind(("127.0.0.1", 0))
        room = 256 << 20
        try:
            receiver.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, room)
        except PermissionError:
            receiver.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, room)
        counter = threading.Thread(
            target=lambda: arrived.append(receive(receiver, expected, done)))
        counter.start()
        try:
            sent = run(*command, receiver.getsockname()[1])
        finally:
            done.set()
            counter.join()
    return sent, arrived[0]


class Surroundings:
    """Folders and a bus: those that the environment names, else own ones."""

    def __init__(self, disk=None):
        """`disk` is where own folders on a disk go, by default where temporary files do."""
        self.own_folders = []
        self.own_bus = None
        self.disk = os.environ.get("PEERS_DISK") or self.make_folder(disk)
        memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
        self.tmpfs = os.environ.get("PEERS_TMPFS") or self.make_folder(memory)
        self.bus = os.environ.get("PEERS_BUS") or self.start_bus()

    def make_folder(self, parent):
        self.own_folders.append(tempfile.mkdtemp(prefix="selbench-", dir=parent))
        return self.own_folders[-1]

    def start_bus(self):
        folder = self.make_folder(None)
        path = os.path.join(folder, "bus")
        limits = "".join(f'<limit name="{name}">1000000000</limit>' for name in
                         ("max_incoming_bytes", "max_outgoing_bytes", "max_message_size"))
        with open(path + ".conf", "w", encoding="utf-8") as file:
            file.write(f"<busconfig><type>system</type><listen>unix:path={path}</listen>"
                       "<auth>EXTERNAL</auth><policy context='default'>"
                       "<allow user='*'/><allow own='*'/><allow eavesdrop='true'/>"
                       "<allow send_destination='*' eavesdrop='true'/>"
                       f"</policy>{limits}</busconfig>")
        self.own_bus = subprocess.Popen(
            ["dbus-daemon", f"--config-file={path}.conf", "--nofork", "--nosyslog", "--nopidfile"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        eventually("the bus", lambda: os.path.exists(path))
        return f"unix:path={path}"

    def close(self):
        if self.own_bus:
            stop(self.own_bus)
        for folder in self.own_folders:
            shutil.rmtree(folder, ignore_errors=True)
