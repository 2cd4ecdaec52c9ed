# SPDX-License-Identifier: Apache-2.0
"""The receiving programs, each in a root of its own made from Debian's packages.

To be used as root within scripts/private-device: what is mounted over such a root, and
what is written there, is gone afterwards.
"""
import os
import shutil
import signal
import subprocess

from device import end, eventually

CONFIGURATIONS = os.path.dirname(os.path.dirname(os.path.realpath(__file__)))
MADE_FRESH = ("run", "tmp", "var/log", "var/spool", "var/lib/postgresql",
              "var/lib/syslog-ng", "etc/rsyslog-events", "etc/syslog-ng-events")


def cpu_seconds_of(process):
    with open(f"/proc/{process}/stat", encoding="ascii") as file:
        fields = file.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class Root:
    def __init__(self, folder):
        self.folder = os.path.realpath(folder)
        for name in MADE_FRESH:
            self.mount(name, "-t", "tmpfs", "tmpfs")
            os.chmod(self.path(name), 0o755)
        self.mount("proc", "-t", "proc", "proc")
        self.mount("dev", "--rbind", "/dev")
        os.makedirs(self.path("var/spool/rsyslog"))
        os.makedirs(self.path("var/log/events"))

    def mount(self, name, *what):
        os.makedirs(self.path(name), exist_ok=True)
        subprocess.run(["mount", *what, self.path(name)], check=True)

    def path(self, name):
        return os.path.join(self.folder, name)

    def install(self, configuration, target):
        shutil.copy(os.path.join(CONFIGURATIONS, configuration), self.path(target))

    def command(self, *command, user=None):
        as_user = [f"--userspec={user}:{user}"] if user else []
        return ["env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C.UTF-8",
                "chroot", *as_user, self.folder, *command]

    def run(self, *command, user=None, text=None):
        return subprocess.run(self.command(*command, user=user), input=text, check=True,
                              stdout=subprocess.PIPE, text=True).stdout

    def launch(self, *command, user=None, log, nice=0):
        with open(self.path(log), "a", encoding="utf-8") as output:
            return subprocess.Popen(
                ["nice", "-n", str(nice), *self.command(*command, user=user)],
                stdout=output, stderr=output, stdin=subprocess.DEVNULL)


def is_port_taken(port):
    lines = []
    for name in ("/proc/net/udp", "/proc/net/udp6"):
        with open(name, encoding="ascii") as file:
            lines += file.readlines()[1:]
    return any(line.split()[1].endswith(f":{port:04X}") for line in lines)


def overflows():
    """Datagrams that found the receive buffer full, by the kernel's count."""
    with open("/proc/net/snmp", encoding="ascii") as file:
        names, values = (line.split() for line in file if line.startswith("Udp:"))
    return int(values[names.index("RcvbufErrors")])


class Server:
    """A receiver; it runs within `with`."""

    zero_byte: str   # what it writes for one within a text
    cut_at_end: str  # the characters that it cuts off at the end of a text

    def __init__(self, root, *command):
        self.root = root
        self.command = command
        self.log = "var/log/server"
        self.process = None
        self.forget()

    def __enter__(self):
        # Other work on this machine is not to hold it up for longer than its buffer lasts.
        self.process = self.root.launch(*self.command, log=self.log, nice=-10)
        try:
            eventually("port 514 to be open", self.is_listening)
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        end(self.process)

    def is_listening(self):
        if self.process.poll() is not None:
            raise RuntimeError(f"the server has ended:\n{self.messages()}")
        return is_port_taken(514)

    def cpu_seconds(self):
        return cpu_seconds_of(self.process.pid)

    def is_held(self):
        tasks = f"/proc/{self.process.pid}/task"
        for task in os.listdir(tasks):
            with open(f"{tasks}/{task}/stat", encoding="ascii") as file:
                if file.read().rpartition(") ")[2][0] != "T":
                    return False
        return True

    def hold(self):
        """Until it goes on, it takes nothing out of its socket."""
        self.process.send_signal(signal.SIGSTOP)
        eventually("the server to stand still", self.is_held)

    def go_on(self):
        self.process.send_signal(signal.SIGCONT)

    def messages(self):
        with open(self.root.path(self.log), encoding="utf-8", errors="replace") as file:
            return file.read()

    def lines(self, name="events"):
        """The complete lines of a file that it writes."""
        try:
            with open(self.root.path(f"var/log/events/{name}.json"), "rb") as file:
                content = file.read()
        except FileNotFoundError:
            return []
        return content[:content.rfind(b"\n") + 1].split(b"\n")[:-1]

    def whole(self, message):
        """What becomes of a message in its hands: the same, but for the above."""
        return message.rstrip(self.cut_at_end).replace("\0", self.zero_byte)

    def forget(self):
        """Empties its files, which it opens for appending."""
        for name in ("events", "strangers"):
            path = self.root.path(f"var/log/events/{name}.json")
            if os.path.exists(path):
                os.truncate(path, 0)


class Rsyslog(Server):
    zero_byte = "#000"
    cut_at_end = "\0"
    folder = "etc/rsyslog-events/"

    def __init__(self, root, store=None):
        """With a store, the one of rsyslog-STORE.conf."""
        for name in os.listdir(root.path(self.folder)):
            os.remove(root.path(self.folder + name))
        for name in ("rsyslog.conf", "events.rulebase"):
            root.install(name, self.folder)
        if store:
            root.install(f"rsyslog-{store}.conf", f"{self.folder}store-{store}.conf")
        super().__init__(root, "rsyslogd", "-n", "-f", "/etc/rsyslog-events/rsyslog.conf",
                         "-i", "/run/rsyslogd.pid")

    def check_configuration(self):
        """What the server's own check says; an empty text when it finds nothing wrong."""
        done = subprocess.run(self.root.command(*self.command, "-N1"), check=False, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        return "" if done.returncode == 0 and "rror" not in done.stdout else done.stdout


class SyslogNg(Server):
    zero_byte = "\\x00"
    cut_at_end = "\0\n"

    folder = "etc/syslog-ng-events/"

    def __init__(self, root, store=None):
        """With a store, the one of syslog-ng-STORE.conf."""
        for name in os.listdir(root.path(self.folder)):
            os.remove(root.path(self.folder + name))
        root.install("syslog-ng.conf", self.folder)
        if store:
            root.install(f"syslog-ng-{store}.conf", f"{self.folder}store-{store}.conf")
        super().__init__(root, "syslog-ng", "-F", "--no-caps",
                         "-f", "/etc/syslog-ng-events/syslog-ng.conf")

    def check_configuration(self):
        """What the server's own check says; an empty text when it finds nothing wrong."""
        done = subprocess.run(self.root.command(*self.command, "-s"), check=False, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        return "" if done.returncode == 0 else done.stdout
