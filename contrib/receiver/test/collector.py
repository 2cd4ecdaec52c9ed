# SPDX-License-Identifier: Apache-2.0
"""The collector: what the device's log has, in the table beside the datagrams.

An account of all that was emitted is kept here, and the daemon itself is asked which of it
is still in its files; the tables have to agree with both. SYSTEMEVENTCTL names the tool.
"""
import contextlib
import json
import os
import random
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time

from gi.repository import GLib

import events
import servers
from common import expect, figure, say
from device import INTERFACE, PATIENCE, Event, end, eventually, number, paced, text
from postgresql import GENTLE_RATE, POSTGRES, PostgreSql

COLLECTOR = os.path.join(os.path.dirname(servers.CONFIGURATIONS), "collector")
TABLES = ("exact", "missing", "restarted", "damage", "places")
DEVICE = "127.0.0.1"
LOSS = 0.03
ZERO = "a zero byte \0\0, and none: \\u0000 \\\0 \\"
FILES = "/srv/public/log"

# Takes the place of ssh; a device of its own behaviour is a script of this name.
RUN = """#!/bin/sh
name=$1; shift
[ ! -x {folder}/devices/$name ] || exec {folder}/devices/$name "$@"
exec {tool} collect --quiet -l en "$@"
"""
PSQL = """#!/bin/sh
echo $$ >{folder}/psql.pid
exec chroot --userspec={user}:{user} {root} /usr/lib/postgresql/15/bin/psql "$@"
"""


class Relay(threading.Thread):
    """The network: passes datagrams on to the receiver, and loses some."""

    address = "127.0.0.2"

    def __init__(self):
        super().__init__(daemon=True)
        self.lost = 0
        self.passed = 0
        self.chance = random.Random(1)
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.socket.setsockopt(socket.SOL_SOCKET, 33, 100_000_000)  # SO_RCVBUFFORCE
        self.socket.bind((self.address, 514))

    def run(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            while datagram := self.socket.recv(65536):
                if self.chance.random() < LOSS:
                    self.lost += 1
                else:
                    sender.sendto(datagram, (DEVICE, 514))
                    self.passed += 1

    def stop(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            sender.sendto(b"", (self.address, 514))
        self.join()
        self.socket.close()


class Account:
    """What was emitted, what of it was in the files when it was asked for, and what not."""

    def __init__(self, device):
        self.device = device
        self.runs = []     # messages by number, from 1 on; each time that numbers began again
        self.expected = {}  # message by run and number
        self.gone = set()   # run and number
        self.last = 0       # the number up to which it was asked for
        self.sent = 0       # datagrams
        self.is_damaged = False  # then the daemon does not see all of its files

    def begin_again(self):
        """The log is deleted while the daemon does not run."""
        end(self.device.processes.pop())
        shutil.rmtree(FILES, ignore_errors=True)
        self.device.launch(self.device.daemon)
        eventually("the daemon", self.device.answers)
        self.device.set("logNetworkAddress", GLib.Variant("s", Relay.address))
        self.device.set("logNetwork", GLib.Variant("b", True))
        self.device.set("logLocal", GLib.Variant("b", True))
        self.runs.append([])
        self.last = 0

    def emit(self, emitted):
        """They are in the files then, since a long one makes the daemon write."""
        long = "x" * 60000
        emitted = [*emitted, Event(1001, 4, long, text(long))]
        paced(emitted, GENTLE_RATE, self.device.emit)
        self.runs[-1] += [event.expected["message"] for event in emitted]
        self.sent += sum(event.expected["message"] is not None for event in emitted)
        eventually("the files", lambda: self.limits()[1] == len(self.runs[-1]))

    def limits(self):
        """The first and the last number in the files, as the daemon says."""
        if self.is_damaged:
            return 1, len(self.runs[-1])
        return [self.device.call(INTERFACE, method)[0] for method in (
            "getMinLogNr", "getMaxLogNr")]

    def ask(self, lost=()):
        """What is in the files now is to be stored, without these numbers."""
        run = len(self.runs) - 1
        first, last = self.limits()
        expect(last == len(self.runs[-1]), "the daemon numbers otherwise than this account")
        for log_number in range(self.last + 1, last + 1):
            if log_number < first or log_number in lost:
                self.gone.add((run, log_number))
            else:
                self.expected[run, log_number] = self.runs[run][log_number - 1]
        self.last = last

    def check(self, database, what):
        rows = [json.loads(line) for line in database.query(
            "SELECT json_build_array((SELECT count(*) FROM restarted r WHERE r.device = e.device "
            "AND r.time <= e.time), number, message) FROM exact e "
            f"WHERE device = '{DEVICE}'").splitlines()]
        stored = {(run, log_number): message for run, log_number, message in rows}
        expect(len(stored) == len(rows), f"{what}: {len(rows) - len(stored)} records are doubled")
        for key in stored.keys() | self.expected.keys():
            expect(stored.get(key, "") == self.expected.get(key, ""),
                   f"{what}: record {key} is {stored.get(key, 'not there')!r:.80}, "
                   f"not {self.expected.get(key, 'there')!r:.80}")
        gone = [tuple(map(int, line.split("|"))) for line in database.query(
            "SELECT (SELECT count(*) FROM restarted r WHERE r.device = m.device "
            "AND r.time <= m.time), generate_series(first, last) FROM missing m "
            f"WHERE device = '{DEVICE}'").split()]
        expect(len(set(gone)) == len(gone), f"{what}: missing is told twice")
        expect(set(gone) == self.gone,
               f"{what}: {len(set(gone) - self.gone)} are missing too much, and "
               f"{len(self.gone - set(gone))} are not reported")


class Fleet:
    """The collector with its files; to be used by `with`."""

    def __init__(self, root):
        self.root = root
        self.holder = tempfile.TemporaryDirectory(dir="/tmp")
        self.folder = self.holder.name
        self.tool = os.path.realpath(os.environ["SYSTEMEVENTCTL"])

    def __enter__(self):
        os.chmod(self.folder, 0o755)
        # psql runs in its root and reads files of the collector.
        shutil.copytree(COLLECTOR, self.path("collector"))
        self.root.mount(self.folder[1:], "--bind", self.folder)
        os.mkdir(self.path("devices"))
        self.script("run", RUN.format(folder=self.folder, tool=self.tool))
        self.script("psql", PSQL.format(folder=self.folder, root=self.root.folder, user=POSTGRES))
        return self

    def __exit__(self, *_):
        subprocess.run(["umount", self.root.path(self.folder[1:])], check=True)
        self.holder.cleanup()

    def path(self, name):
        return os.path.join(self.folder, name)

    def script(self, name, content):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(content)
        os.chmod(self.path(name), 0o755)

    def device(self, name, content):
        self.script(f"devices/{name}", "#!/bin/sh\n" + content)

    @contextlib.contextmanager
    def start(self, *options, devices=(DEVICE,)):
        with tempfile.NamedTemporaryFile("w", dir=self.folder) as file:
            file.write("# the fleet\n" + "".join(f"{device}\n" for device in devices))
            file.flush()
            process = subprocess.Popen(
                [self.path("collector/collect-fleet"), "-c", self.path("run") + " {}", *options,
                 file.name], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                stdin=subprocess.DEVNULL, env={
                    "PATH": f"{self.folder}:{os.environ['PATH']}", "LC_ALL": "C.UTF-8",
                    "PGHOST": "/tmp", "PGDATABASE": "events", "PGUSER": "events_collector"})
            try:
                yield process
            finally:
                end(process)

    def run(self, *options, status=0, devices=(DEVICE,)):
        """What it tells of the devices, and what it prints."""
        with self.start(*options, devices=devices) as process:
            printed, told = process.communicate(timeout=PATIENCE)
        expect(process.returncode == status, f"the status is {process.returncode}:\n{told}")
        return told.splitlines(), printed.splitlines()


def fingerprint(database):
    return [database.query(f"SELECT count(*), md5(string_agg(t::text, ' ' ORDER BY t::text)) "
                           f"FROM {table} t") for table in TABLES]


def numbered(count):
    return events.stream(count)


def unknown(count):
    """Events that the catalogue does not know: recorded, but not sent."""
    unknown_events = [Event(777, 4, "", number(i)) for i in range(count)]
    for event in unknown_events:
        event.expected["message"] = None
    return unknown_events


# --- The ways of a log ----------------------------------------------------------------

def collected(fleet, account, database, what, *options, lost=()):
    account.ask(lost)
    told = fleet.run(*options)
    account.check(database, what)
    return told


def daemon_cpu(device):
    with open(f"/proc/{device.processes[-1].pid}/stat", encoding="ascii") as file:
        fields = file.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def first_time(fleet, account, database):
    account.emit(numbered(4000) + unknown(50))
    cpu = daemon_cpu(account.device)
    started = time.monotonic()
    told, printed = collected(fleet, account, database, "the first time", "--print")
    took = time.monotonic() - started
    cpu = daemon_cpu(account.device) - cpu
    rows = len(account.expected)
    expect(told[0].startswith(f"{DEVICE}: {rows} records, "), f"it tells {told}")
    lines = [json.loads(line) for line in printed]
    expect({line["number"]: line["message"] for line in lines}
           == {str(key[1]): message for key, message in account.expected.items()}
           and all(line["device"] == DEVICE for line in lines), "it prints something else")
    again = database.query("SELECT as_json(e) FROM exact e").splitlines()
    expect(sorted(again) == sorted(printed), "the table gives something else")
    started = time.monotonic()
    told, printed = collected(fleet, account, database, "nothing new", "--print")
    nothing = time.monotonic() - started
    expect(told[0] == f"{DEVICE}: 0 records, 0 missing" and not printed, f"it tells {told}")
    database.query("VACUUM exact")
    size = int(database.query("SELECT pg_total_relation_size('exact')")) / rows
    figure(f"a run with {rows} new records", f"{took:.1f} s, {rows / took:.0f} a second, "
           f"{cpu * 1000:.0f} ms of the daemon's CPU")
    figure("a run with none", f"{nothing:.1f} s")
    figure("bytes a row with its indexes", f"{size:.0f}")


def rotated(fleet, account, database):
    for count in (3000, 20000, 100):
        account.emit(numbered(count))
        collected(fleet, account, database, f"{count} more")
    expect(account.gone, "nothing was rotated away")
    say(f"  rotation between runs: {len(account.gone)} missing, all others once")


def cleared(fleet, account, database):
    before = len(account.gone)
    account.emit(numbered(500))
    account.device.call(INTERFACE, "clearLogfiles")
    account.emit(numbered(300))
    collected(fleet, account, database, "cleared")
    say(f"  cleared: {len(account.gone) - before} missing, all others once")


def from_one_again(fleet, account, database):
    for count in (700, 1500):  # with fewer numbers than before, and with more
        account.begin_again()
        account.emit(numbered(count))
        told, _ = collected(fleet, account, database, f"from 1 again, {count} events")
        expect("numbers began again" in told[0], f"it tells {told}")
    say("  the log deleted, numbers from 1 again, twice: all known apart")


def place_forgotten(fleet, account, database):
    """All that is there comes again."""
    before = fingerprint(database)[0]
    database.query("DELETE FROM places")
    told, printed = fleet.run("--print")
    expect(told[0].startswith(f"{DEVICE}: 0 records") and not printed, f"it tells {told}")
    expect(fingerprint(database)[0] == before, "records changed that had come before")
    account.check(database, "all again")
    say("  the same records again: each there once")


def special(fleet, account, database):
    chosen = [event for name, event in events.special_events().items()
              if name in events.TEXTS or name.startswith(("level", "id"))]
    account.emit(chosen)
    collected(fleet, account, database, "special")
    fleet.device("zero", f"""cat <<'END'
{json.dumps({"number": "18446744073709551615", "time": "9999-12-31T23:59:59.999999Z",
             "event": 1, "path": "/a", "message": ZERO, "state": "likely"})}
{json.dumps({"resume": "18446744073709551615", "time": "9999-12-31T23:59:59.999999Z"})}
END
""")
    for records in (1, 0):
        told, _ = fleet.run(devices=["zero"])
        expect(told[0].startswith(f"zero: {records} record"), f"it tells {told}")
    got = database.query("SELECT number, message FROM exact WHERE device = 'zero'")
    expect(got == "18446744073709551615|" + ZERO.replace("\0", "#000") + "\n", f"it is {got!r}")
    database.query("DELETE FROM exact WHERE device = 'zero'")
    say(f"  {len(chosen) + 1} special events: all whole")


# The text is sure to be there as it is; in front of it are 28 bytes of head, the path, its
# length twice, and the number.
def record_of(content, index):
    """Where a record of the stream begins and ends."""
    message = f"Gerät \"{index % 97}\" \\ line 1\nline 2 ".encode() + b"." * (index % 211)
    at = content.rindex(message + b"\n")
    begin = content.rindex(b"/power/supply", 0, at) - 30
    return begin, at + len(message)


def damaged(fleet, account, database):
    """One record is wiped out, the end mark of another is wrong, and the daemon goes on."""
    first = len(account.runs[-1]) + 1
    account.emit(numbered(200))
    with open(os.path.join(FILES, "zib0.log"), "r+b") as file:
        content = file.read()
        begin, end_of_record = record_of(content, 150)
        file.seek(begin)
        file.write(b"\xff" * (end_of_record - begin))
        file.seek(record_of(content, 170)[1])
        file.write(b"\x00")
    account.is_damaged = True
    account.emit(numbered(50))
    eventually("the files", lambda: f'"resume":"{len(account.runs[-1])}"' in subprocess.run(
        [fleet.tool, "collect", "-q"], stdout=subprocess.PIPE, text=True, check=False).stdout)
    told, _ = collected(fleet, account, database, "damaged", lost=[first + 150])
    expect("damage" in told[0] and "1 missing" in told[0], f"it tells {told}")
    states = database.query(f"SELECT number, state FROM exact WHERE device = '{DEVICE}' "
                            "AND state <> 'whole'")
    expect(states == f"{first + 170}|damaged\n", f"damaged are {states}")
    expect(int(database.query("SELECT count(*) FROM damage WHERE line->>'state' = 'lost'")) > 0,
           "the damage is not told")
    collected(fleet, account, database, "after the damage")
    say("  one record wiped out, another damaged: one missing, the other marked")


# --- Cut off ----------------------------------------------------------------------------

def cut_answers(fleet, account, database):
    account.emit(numbered(300))
    before = fingerprint(database)
    fleet.device(DEVICE, f"{fleet.tool} collect -l en \"$@\" >{fleet.folder}/answer\n")
    fleet.run(status=1)
    size = os.path.getsize(fleet.path("answer"))
    with open(fleet.path("answer"), "rb") as file:
        content = file.read()
    resume = content.rindex(b"{")
    ends = [0, 1, content.index(b"\n"), content.index(b"\n") + 1, size // 2, resume - 1, resume,
            resume + 1, size - 2]
    for cut in ends:
        fleet.device(DEVICE, f"head -c {cut} {fleet.folder}/answer\n")
        told, printed = fleet.run("--print", status=1)
        expect("not stored" in told[0] and not printed, f"cut at {cut}: {told}")
        expect(fingerprint(database) == before, f"cut at {cut}: something is stored")
    for status in (1, 2, 4, 124, 255):
        fleet.device(DEVICE, f"cat {fleet.folder}/answer; exit {status}\n")
        fleet.run(status=1)
        expect(fingerprint(database) == before, f"status {status}: something is stored")
    os.remove(fleet.path(f"devices/{DEVICE}"))
    say(f"  an answer cut off at {len(ends)} places, or with a status of failure: nothing stored")


TIME = '"time":"2026-05-01T10:00:00.000000Z"'
RESUME = f'{{"resume":"1",{TIME}}}'
RECORD = (f'{{"number":"1",{TIME},"event":1,"levelNumber":4,"path":"/a","message":"x",'
          '"state":"whole"}')
WRONG = [
    *(RESUME.replace('"1"', number)
      for number in ("1", '"-5"', '"NaN"', '"1.5"', '"1e3"', '"18446744073709551616"', "null")),
    *(RESUME.replace("2026-05-01T10:00:00.000000Z", time)
      for time in ("infinity", "-infinity", "now", "2026-05-01", "0044-01-01T00:00:00.000000Z BC",
                   "10000-01-01T00:00:00.000000Z", "2026-05-01T10:00:00.000000")),
    RESUME + "\n" + RESUME,
    *(f"{line}\n{RECORD}\n{RESUME}" for line in (
        '{"missing":["9","3"]}', '{"missing":["1","NaN"]}', '{"missing":["1"]}',
        '{"missing":"1"}', '{"restarted":-1}', "null", "1", "[1]", '"Welcome"', '{"hello":1}',
        '{"number":"1"}', RECORD.replace("whole", "DROP"), RECORD.replace('"/a"', "{}"),
        RECORD.replace('"1"', '"-1"'), RECORD.replace("05-01T", "02-30T"), "\\.")),
    f'{{"missing":["1","2"]}}\n{RESUME}',
]


def wrong_answers(fleet, account, database):
    """What no device says is refused as a whole, and disturbs neither the others nor itself."""
    before = fingerprint(database)
    names = [f"wrong{number}" for number in range(len(WRONG))]
    for name, answer in zip(names, WRONG):
        fleet.device(name, f"cat <<'END'\n{answer}\nEND\n")
    told, _ = fleet.run(devices=names, status=1)
    lines = dict(line.split(": ", 1) for line in told[:-1])
    for name, answer in zip(names, WRONG):
        expect(lines[name].startswith("not stored: "), f"{answer} is stored: {lines[name]}")
        os.remove(fleet.path(f"devices/{name}"))
    expect(fingerprint(database) == before, "something of them is stored")
    collected(fleet, account, database, "after answers that are none")
    say(f"  {len(WRONG)} answers that no device gives: nothing stored")


def many_gaps(fleet, database):
    """As many as a device may tell take no longer than as many records."""
    fleet.device("gaps", f"""awk 'BEGIN {{ for (i = 1; i <= 100000; i++)
        printf("{{\\"missing\\":[\\"%d\\",\\"%d\\"]}}\\n", 2 * i, 2 * i) }}'
cat <<'END'
{RECORD}
{RESUME}
END
""")
    fleet.run("-t", "60", devices=["gaps"])  # each for itself looked through all: minutes
    os.remove(fleet.path("devices/gaps"))
    for table in TABLES:
        database.query(f"DELETE FROM {table} WHERE device = 'gaps'")
    say("  an answer with 100,000 gaps: stored")


def locked_out(fleet, database):
    """A load that cannot go on leaves nothing behind in the server."""
    fleet.device("waits", f"echo '{RECORD}'; echo '{RESUME}'\n")
    with database.session() as other:
        other.do("BEGIN; LOCK TABLE exact")
        told, _ = fleet.run("-t", "2", devices=["waits"], status=1)
        expect(told[0].startswith("waits: not stored: "), f"it tells {told}")
        eventually("the end of what was asked of the server", lambda: database.query(
            "SELECT count(*) FROM pg_stat_activity WHERE usename = 'events_collector'") == "0\n")
        other.do("ROLLBACK")
    os.remove(fleet.path("devices/waits"))
    say("  a load that waits for others for too long: it ends in the server, too")


def kill_psql(fleet, database):
    with open(fleet.path("psql.pid"), encoding="ascii") as file:
        os.kill(int(file.read()), signal.SIGKILL)


def end_connection(fleet, database):
    database.query("SELECT pg_terminate_backend(pid) FROM pg_stat_activity "
                   "WHERE usename = 'events_collector'")


REFUSED_IN_THE_END = """
CREATE FUNCTION refuse() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN RAISE 'no'; END $$;
CREATE CONSTRAINT TRIGGER refuse AFTER INSERT OR UPDATE ON places
DEFERRABLE INITIALLY DEFERRED FOR EACH ROW EXECUTE FUNCTION refuse()"""


def cut_loads(fleet, account, database):
    """Within the transaction, before each of the tables."""
    before = fingerprint(database)
    for table in TABLES:
        for cut in (kill_psql, end_connection):
            with database.session() as blocker:
                mode = "SHARE ROW EXCLUSIVE" if table == "places" else "ACCESS EXCLUSIVE"
                blocker.do(f"BEGIN; LOCK TABLE {table} IN {mode} MODE")
                with fleet.start("--print") as process:
                    database.await_waiting("CREATE TEMPORARY TABLE stored")
                    cut(fleet, database)
                    printed, told = process.communicate(timeout=PATIENCE)
                blocker.do("COMMIT")
            expect(process.returncode == 1 and not printed, f"{table}: it tells {told}")
            eventually("the end of the transaction", lambda: database.query(
                "SELECT count(*) FROM pg_stat_activity WHERE usename = 'events_collector'")
                == "0\n")
            expect(fingerprint(database) == before, f"cut off at {table}: something is stored")
    database.query(REFUSED_IN_THE_END)
    _, printed = fleet.run("--print", status=1)
    database.query("DROP TRIGGER refuse ON places; DROP FUNCTION refuse")
    expect(fingerprint(database) == before and not printed, "what is not stored is printed")
    collected(fleet, account, database, "after all cuts")
    say(f"  a load cut off before each of {len(TABLES)} tables, by two ways, and refused at "
        "its end: nothing stored or printed, and all of it the next time")


# --- Many -------------------------------------------------------------------------------

def away(fleet, account, database):
    account.emit(numbered(100))
    fleet.device("away", "echo no route to host >&2; exit 255\n")
    fleet.device("hangs", "trap '' TERM; while :; do sleep 1000; done\n")
    fleet.device("babbles", "while echo '{}'; do sleep 0.01; done\n")
    fleet.device("attacks", "echo '\\.'; echo 'DROP TABLE exact;'; "
                 f"echo '\\! touch {fleet.folder}/taken'; echo '{{\"resume\":\"1\"}}'\n")
    fleet.device("empty", "echo '{\"resume\":\"0\",\"time\":\"1970-01-01T00:00:00.000000Z\"}'\n")
    devices = ["hangs", "away", "babbles", "attacks", "empty", DEVICE]
    account.ask()
    started = time.monotonic()
    told, _ = fleet.run("-j", "3", "-t", "3", devices=devices, status=1)
    took = time.monotonic() - started
    account.check(database, "beside devices that are away")
    lines = dict(line.split(": ", 1) for line in told[:-1])
    expect(set(lines) == set(devices) and len(told) == len(devices) + 1, f"it tells {told}")
    expect(lines["away"] == "status 255: no route to host", f"it tells {told}")
    expect(lines["hangs"] == lines["babbles"] == "no end after 3 seconds", f"it tells {told}")
    expect(lines["attacks"].startswith("not stored"), f"it tells {told}")
    expect(not os.path.exists(fleet.path("taken")), "a device commands the store's side")
    expect(told[-1] == "6 devices, 4 failed" and "hangs" in told[-2],
           f"the others waited for the one that hangs: {told}")
    expect(took < 60, f"what hangs was waited for {took:.0f} seconds")  # of 8, on a busy machine
    fleet.run(devices=["-oProxyCommand=x"], status=2)
    for wrong in (("-j", "0"), ("-t", "0"), ("-c", "sh 'no end {}")):
        fleet.run(*wrong, status=2)
    say(f"  one of six away, one hanging, one babbling, one attacking: the others stored, "
        f"{took:.1f} s with a bound of 3 s")
    for name in os.listdir(fleet.path("devices")):
        os.remove(fleet.path(f"devices/{name}"))


def bounded(fleet, database):
    """So many are asked at a time, and no more."""
    devices = [f"device{i}" for i in range(12)]
    os.mkdir(fleet.path("running"))
    for name in devices:
        fleet.device(name, f"cd {fleet.folder}\n>running/{name}\nls running | wc -l >>most\n"
                     f"{fleet.tool} collect -q -l en \"$@\"\nrm running/{name}\n")
    started = time.monotonic()
    fleet.run("-j", "3", devices=devices)
    took = time.monotonic() - started
    with open(fleet.path("most"), encoding="ascii") as file:
        most = max(map(int, file))
    expect(most == 3, f"{most} were asked at a time, not 3")
    counts = set(database.query("SELECT count(*) FROM exact WHERE device LIKE 'device%' "
                                "GROUP BY device").split())
    expect(len(counts) == 1, f"12 devices with the same log have {counts} records")
    for table in TABLES:
        database.query(f"DELETE FROM {table} WHERE device LIKE 'device%'")
    count = int(counts.pop())
    figure(f"12 devices with {count} new records each, three at a time",
           f"{took:.1f} s, {12 * count / took:.0f} a second")


WAITS = """{tool} collect -q -l en "$@" >{folder}/answer.$$
>{folder}/asked.$$
while [ ! -e {folder}/go ]; do sleep 0.02; done
cat {folder}/answer.$$
"""


def asked(fleet):
    return sum(name.startswith("asked.") for name in os.listdir(fleet.folder))


def two_at_once(fleet, account, database):
    account.emit(numbered(200))
    fleet.device(DEVICE, WAITS.format(folder=fleet.folder, tool=fleet.tool))
    account.ask()
    with database.session() as blocker, fleet.start() as one, fleet.start() as other:
        eventually("two answers", lambda: asked(fleet) == 2)
        blocker.do("BEGIN; LOCK TABLE exact")  # so that both are within their transactions
        with open(fleet.path("go"), "w", encoding="ascii"):
            pass
        database.await_waiting("CREATE TEMPORARY TABLE stored", 2)
        blocker.do("COMMIT")
        told = [process.communicate(timeout=PATIENCE)[1] for process in (one, other)]
    expect(sorted((one.returncode, other.returncode)) == [0, 1], f"they tell {told}")
    expect("another collector" in "".join(told), f"they tell {told}")
    account.check(database, "two at once")

    os.remove(fleet.path("go"))
    with fleet.start() as slow:
        eventually("the answer", lambda: asked(fleet) == 3)
        os.remove(fleet.path(f"devices/{DEVICE}"))
        account.emit(numbered(100))
        collected(fleet, account, database, "while a slow one waits")
        before = fingerprint(database)
        with open(fleet.path("go"), "w", encoding="ascii"):
            pass
        slow.communicate(timeout=PATIENCE)
    expect(slow.returncode == 1 and fingerprint(database) == before,
           "a slow collector sets the place back")
    say("  two collectors at once: each record once, and the place never goes back")


# --- Both ways --------------------------------------------------------------------------

def view(account, database, relay):
    eventually("the datagrams", lambda: relay.passed + relay.lost == account.sent)
    eventually("the rows of events", lambda: database.count() == relay.passed)
    exact = len(account.expected)
    unsent = sum(message is None for message in account.expected.values())
    expected = [relay.passed, exact, unsent, len(account.gone), exact - unsent - relay.passed]
    got = database.query("SELECT sum(received), sum(exact), sum(unsent), sum(missing), "
                         f"sum(difference) FROM completeness WHERE device = '{DEVICE}'")
    expect(list(map(int, got.split("|"))) == expected, f"the view says {got}, not {expected}")
    emitted = sum(map(len, account.runs))
    expect(exact + len(account.gone) == emitted, "the account does not add up")
    figure("of both, as the view says",
           f"{emitted} emitted, {relay.lost} datagrams lost on purpose, {relay.passed} received, "
           f"{exact} known exactly, {len(account.gone)} known to be missing")


def as_before(device):
    """For other parts of the test."""
    device.set("logLocal", GLib.Variant("b", False))
    device.set("logNetworkAddress", GLib.Variant("s", DEVICE))


def test(root, device):
    """Returns what was collected, as lines for other stores."""
    server = servers.Rsyslog(root, "postgresql")
    relay = Relay()
    relay.start()
    with contextlib.ExitStack() as stack:
        stack.callback(relay.stop)
        stack.callback(as_before, device)
        database = stack.enter_context(PostgreSql(root))
        stack.enter_context(server)
        fleet = stack.enter_context(Fleet(root))
        with open(os.path.join(COLLECTOR, "schema.sql"), encoding="utf-8") as file:
            database.query(file.read())
        account = Account(device)
        account.begin_again()
        for step in (first_time, rotated, cleared, from_one_again, place_forgotten, special,
                     cut_answers, wrong_answers, cut_loads, away, two_at_once, damaged):
            step(fleet, account, database)
        many_gaps(fleet, database)
        locked_out(fleet, database)
        bounded(fleet, database)
        view(account, database, relay)
        return database.query("SELECT as_json(e) FROM exact e").splitlines()
