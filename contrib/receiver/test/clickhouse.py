# SPDX-License-Identifier: Apache-2.0
"""Events on through syslog-ng into two servers of ClickHouse, each with half the devices.

The servers have the names and ports of the configurations, on addresses of loopback.
"""
import http.client
import json
import os
import re
import shutil
import signal
import socket
import statistics
import time
import types
import urllib.parse

import events
import servers
from common import ANY_EVENT, compare_all, expect, figure, moment, now, say
from device import end, eventually, paced

ROWS = int(os.environ.get("RECEIVER_ROWS") or 20_000_000)
DAYS = 20       # over which these rows are spread
DEVICES = 2000  # that send them
SILENT = 10     # of these, without an event in the last two hours
WORST = 777     # of these, with nothing but errors
RARE = 99991    # rows a day from one rare text to the next
RATE = 5000  # events a second, where the rate is not the question
SOURCES = [f"127.0.0.{number}" for number in range(11, 19)]
FOLDER = "var/lib/clickhouse"

# What is to be replaced in that event, by what, and the members of its row that show it.
AWKWARD = {
    "30 February": (b"2024-05-01", b"2024-02-30", {"devicetime": "2024-02-30T12:00:00"}),
    "the year 0": (b"2024-05-01", b"0000-01-01", {"devicetime": "0000-01-01T12:00:00"}),
    "25 o'clock": (b"T12", b"T25", {"devicetime": "2024-05-01T25:00:00"}),
    "an id of 10 digits": (b"1001", b"-9999999999", {"id": -9999999999}),
    "a level of 10 digits": (b"<28>", b"<9999999999>", {"level": 9999999975}),
    "a broken path": (b"/a", b"/\xe4", {"path": "/\\xe4"}),
    "a zero byte in the path": (b"/a", b"/\0a", {"path": "/\\x00a"}),
    "a zero byte before the path": (b"/a", b"\0/a", {"path": "\\x00/a"}),
    "a zero byte before the text": (b"] x", b"] \0x", {"message": "\\x00x"}),
    "a broken text": (b"] x", b"] Ger\xe4t", {"message": "Ger\\xe4t"}),
    "text that ends a row": (b"] x", b"] \"}\n{\"id\":7}\n", {"message": "\"}\n{\"id\":7}"}),
}

CONFIGURATION = """<yandex>
<listen_host replace="replace">{name}</listen_host>
<path>/{folder}/</path><tmp_path>/{folder}/tmp/</tmp_path>
<user_files_path>/{folder}/files/</user_files_path>
<format_schema_path>/{folder}/schemas/</format_schema_path>
<logger><log>/var/log/{name}</log><errorlog>/var/log/{name}</errorlog></logger>
</yandex>
"""


# --- The servers ------------------------------------------------------------------

class SyslogNg(servers.SyslogNg):
    """The receiver that inserts."""

    def __init__(self, root):
        super().__init__(root, "clickhouse")

    def kill(self):
        self.process.kill()
        self.process.wait()


class Shard:
    """One of the servers, with its own data; it is not running at first."""

    def __init__(self, root, name, address):
        self.root = root
        self.name = name
        self.address = address
        self.process = None
        self.merges = True
        folder = f"{FOLDER}/{name}"
        os.makedirs(root.path(f"{folder}/tmp"))
        self.configuration = f"/{folder}/etc/config.xml"
        shutil.copytree(root.path("etc/clickhouse-server"), root.path(f"{folder}/etc"))
        os.makedirs(root.path(f"{folder}/etc/config.d"), exist_ok=True)
        root.install("clickhouse-cluster.xml", f"{folder}/etc/config.d")
        with open(root.path(f"{folder}/etc/config.d/test.xml"), "w", encoding="ascii") as file:
            file.write(CONFIGURATION.format(name=name, folder=folder))

    def start(self):
        self.process = self.root.launch("clickhouse-server",
                                        f"--config-file={self.configuration}",
                                        log=f"var/log/{self.name}")
        eventually(f"{self.name} to answer", self.answers)
        self.let_merge(self.merges)

    def let_merge(self, merges):
        """While parts are not merged, rows that came twice stay."""
        self.merges = merges
        self.query(f"SYSTEM {'START' if merges else 'STOP'} MERGES")

    def stop(self):
        """Returns once it has ended: a second one would not start beside it."""
        if self.process:
            end(self.process)
            self.process = None

    def kill(self):
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()
        self.process = None

    def answers(self):
        if self.process.poll() is not None:
            raise RuntimeError(f"{self.name} has ended")
        try:
            return self.query("SELECT 1") == "1\n"
        except OSError:
            return False

    def query(self, statement, **settings):
        connection = http.client.HTTPConnection(self.address, 8123, timeout=600)
        try:
            connection.request("POST", "/?" + urllib.parse.urlencode(settings),
                               statement.encode("utf-8"))
            answer = connection.getresponse()
            text = answer.read().decode("utf-8")
        finally:
            connection.close()
        expect(answer.status == 200, f"{self.name} answers to {statement:.200}: {text:.500}")
        return text

    def rows(self, statement):
        return [json.loads(line) for line in self.query(
            statement + " FORMAT JSONEachRow",
            output_format_json_quote_64bit_integers=0).split("\n")[:-1]]

    def number(self, statement, **settings):
        return int(self.query(statement, **settings))

    def messages(self):
        with open(self.root.path(f"var/log/{self.name}"), encoding="utf-8") as file:
            return file.read()

    def cpu_seconds(self):
        return servers.Server.cpu_seconds(self)


class Store:
    """Both servers with the tables; they run within `with`."""

    def __init__(self, root):
        root.mount(FOLDER, "-t", "tmpfs", "tmpfs")
        addresses = {"clickhouse1": "127.0.1.1", "clickhouse2": "127.0.1.2"}
        with open(root.path("etc/hosts"), "w", encoding="ascii") as file:
            file.write("127.0.0.1 localhost\n")
            file.writelines(f"{address} {name}\n" for name, address in addresses.items())
        if not os.path.lexists(root.path("etc/localtime")):
            os.symlink("/usr/share/zoneinfo/UTC", root.path("etc/localtime"))
        self.root = root
        self.shards = [Shard(root, *server) for server in addresses.items()]

    def __enter__(self):
        try:
            for shard in self.shards:
                shard.start()
            self.version = self.shards[0].query("SELECT version()").strip()
            self.make_tables()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for shard in self.shards:
            shard.stop()

    def make_tables(self):
        with open(os.path.join(servers.CONFIGURATIONS, "clickhouse.sql"),
                  encoding="utf-8") as file:
            schema = file.read()
        for shard in self.shards:
            self.root.run("clickhouse-client", "-h", shard.name, "--multiquery", text=schema)

    def empty(self):
        """Makes the tables anew: what TRUNCATE takes out, this version may bring back."""
        for shard in self.shards:
            for table in ("events", "events_local", "exact", "exact_local"):
                shard.query(f"DROP TABLE {table}")
        self.make_tables()

    def number(self, statement):
        return self.shards[0].number(statement)

    def count(self):
        return self.number("SELECT count() FROM events")

    def distinct(self):
        """Events by their unique id."""
        return self.number("SELECT uniqExact(receiver, sequence) FROM events")

    def let_merge(self, merges):
        for shard in self.shards:
            shard.let_merge(merges)

    def merge(self):
        """Merges all parts of each day into one."""
        for shard in self.shards:
            shard.let_merge(True)
            days = shard.rows("SELECT DISTINCT partition FROM system.parts "
                              "WHERE active AND table = 'events_local'")
            for day in days:
                shard.query(f"OPTIMIZE TABLE events_local PARTITION {day['partition']} FINAL")

    def bytes(self):
        return sum(shard.number("SELECT sum(bytes_on_disk) FROM system.parts "
                                "WHERE active AND table = 'events_local'")
                   for shard in self.shards)

    def cpu_seconds(self):
        return sum(shard.cpu_seconds() for shard in self.shards)

    def received(self):
        """The events of each device in the order in which they were received, as `compare`
        wants them, with their unique id besides."""
        rows = self.shards[0].rows("SELECT * FROM events "
                                   "ORDER BY device, received, microsecond, sequence")
        return [({"received": f"{row['received']}.{row['microsecond']:06}+00:00",
                  "host": row["device"], "devicetime": row["device_time"],
                  "level": row["level"], "id": row["id"], "path": row["path"],
                  "message": row["message"]}, (row["receiver"], row["sequence"]))
                for row in rows]


# --- Sending and comparing -----------------------------------------------------------

class Fleet:
    """Sends datagrams as they are, from one address after the other."""

    def __enter__(self):
        self.sockets = []
        for address in SOURCES:
            self.sockets.append(socket.socket(socket.AF_INET, socket.SOCK_DGRAM))
            self.sockets[-1].bind((address, 0))
            self.sockets[-1].connect(("127.0.0.1", 514))
        return self

    def __exit__(self, *_):
        for sender in self.sockets:
            sender.close()

    def send(self, numbered):
        number, datagram = numbered
        self.sockets[number % len(SOURCES)].send(datagram)


def from_its_device(number, event):
    return types.SimpleNamespace(
        expected=dict(event.expected, host=SOURCES[number % len(SOURCES)]))


def check_places(store):
    """Each device on one server, and both used."""
    places = [{row["device"] for row in shard.rows("SELECT DISTINCT device FROM events_local")}
              for shard in store.shards]
    expect(all(places) and not places[0] & places[1], f"the devices are at {places}")


def check_times(rows):
    """The moments of a receiver never go back from one of its numbers to the next."""
    by_number = sorted(rows, key=lambda row: row[1])
    moments = [moment(row["received"]) for row, _ in by_number]
    expect(all(a <= b for a, b in zip(moments, moments[1:])), "the times received go back")


def check_stream(store, server, stream, begin, lost):
    """Each event of the stream but those lost, whole, in its device's order; how many came
    twice, which their unique ids must tell."""
    rows = store.received()
    ids = [unique for _, unique in rows]
    doubled = len(ids) - len(set(ids))
    rows = [row for row, before in zip(rows, [(None, None), *rows]) if row[1] != before[1]]
    check_times(rows)
    received = [row for row, _ in rows]
    numbers = [int(re.match("Number ([0-9]+):", row["message"])[1]) for row in received]
    expect(len(set(numbers)) == len(numbers),
           f"{len(numbers) - len(set(numbers))} doubled beyond what their ids tell")
    expect(len(numbers) == len(stream) - lost,
           f"{len(numbers)} events of {len(stream)} arrived, {lost} found no room")
    # By device as text, then by number: what the query is to have answered.
    expect(numbers == sorted(numbers, key=lambda number: (
        SOURCES[number % len(SOURCES)], number)), "a device's events are out of order")
    compare_all(numbers, [from_its_device(number, stream[number]) for number in numbers],
                received, begin, server)
    check_places(store)
    return doubled


class Run:
    """Numbered events sent in pieces, and what is to be in the store of them."""

    def __init__(self, store, server, stream, captured, begin):
        self.store, self.server = store, server
        self.stream, self.begin = stream, begin
        self.datagrams = list(enumerate(captured))
        self.sent = 0
        self.overflows = servers.overflows()

    def send(self, share):
        """The next so many of the stream's quarters."""
        until = self.sent + share * len(self.datagrams) // 4
        with Fleet() as fleet:
            paced(self.datagrams[self.sent:until], RATE, fleet.send)
        self.sent = until

    def lost(self):
        """Those that found no room in the socket of a server that was held up."""
        return servers.overflows() - self.overflows

    def finish(self):
        """Once all are there: a text about doubles; the table is empty afterwards."""
        expect(self.sent == len(self.datagrams), "not all was sent")
        wanted = self.sent - self.lost()
        eventually(f"{wanted} events", lambda: self.store.distinct() >= wanted, 300)
        doubled = check_stream(self.store, self.server, self.stream, self.begin, self.lost())
        self.store.merge()
        again = check_stream(self.store, self.server, self.stream, self.begin, self.lost())
        expect(again == 0, f"{again} events are double after merging")
        held_up = f", {self.lost()} found no room before" if self.lost() else ""
        return f"0 lost{held_up}, {doubled} doubled, in order and whole"


# --- What is tested --------------------------------------------------------------------

def special_events(device, server, store):
    special = events.special_events()
    begin = now()
    for event in special.values():
        device.emit(event)
    eventually("the events", lambda: store.count() >= len(special))
    compare_all(special.keys(), special.values(), [row for row, _ in store.received()],
                begin, server)
    say(f"  {len(special)} special events from the daemon: all whole in the table")
    store.empty()


def awkward_events(server, store):
    """What cannot be stored as it is must not cost the events around it."""
    with Fleet() as fleet:
        for old, new, _ in AWKWARD.values():
            fleet.send((0, ANY_EVENT))
            fleet.send((0, ANY_EVENT.replace(old, new)))
        fleet.send((0, b"<13>May  1 12:00:00 host su: failed"))
    eventually("the events", lambda: store.count() >= 2 * len(AWKWARD))
    plain = {"host": SOURCES[0], "devicetime": "2024-05-01T12:00:00", "level": 4, "id": 1001,
             "path": "/a", "message": "x"}
    rows = [dict(row, received=None) for row, _ in store.received()]
    wanted = [dict(plain, received=None) for _ in rows]
    for place, (_, _, members) in zip(range(1, len(wanted), 2), AWKWARD.values()):
        wanted[place].update(members)
    for got, want in zip(rows, wanted):
        expect(got == want, f"{want} became {got}")
    expect(len(rows) == 2 * len(AWKWARD), f"{len(rows)} rows")
    eventually("the stranger", lambda: len(server.lines("strangers")) == 1)
    say(f"  {len(AWKWARD)} with impossible dates, broken texts and the like: kept as sent")
    store.empty()
    server.forget()


def plain_stream(run):
    cpu = run.server.cpu_seconds(), run.store.cpu_seconds()
    started = time.monotonic()
    run.send(4)
    wanted = run.sent - run.lost()
    eventually("all events", lambda: run.store.distinct() >= wanted)
    took = time.monotonic() - started
    cpu = run.server.cpu_seconds() - cpu[0], run.store.cpu_seconds() - cpu[1]
    text = run.finish()
    size = run.store.bytes() / wanted
    say(f"  {run.sent} events of {len(SOURCES)} devices sent at {RATE} a second: {text}")
    figure(f"seconds until {run.sent} are in the table", f"{took:.1f}")
    figure("CPU an event, syslog-ng with its JSON file", f"{cpu[0] / run.sent * 1e6:.0f} us")
    figure("CPU an event, both servers", f"{cpu[1] / run.sent * 1e6:.0f} us")
    figure("bytes a row of this stream, merged", f"{size:.0f}")


def shard_away(run, name, leave, shard, other):
    """One server goes amid the stream; its rows wait at the other, and in syslog-ng."""
    run.send(1)
    eventually("first events", lambda: run.store.count() > 0)
    leave(shard)

    def others():
        return other.number("SELECT count() FROM events", skip_unavailable_shards=1)

    before = others()
    run.send(3)
    eventually("more of the other half", lambda: others() > before + run.sent // 16)
    shard.start()
    started = time.monotonic()
    text = run.finish()
    say(f"  a server {name} amid {run.sent} events, and started: {text}, "
        f"{time.monotonic() - started:.1f} s after its return")


def is_read(port=514):
    """Whether the receiver has taken all datagrams out of its socket."""
    with open("/proc/net/udp", encoding="ascii") as file:
        lines = [line.split() for line in file.readlines()[1:]]
    return all(line[4].endswith(":00000000") for line in lines
               if line[1].endswith(f":{port:04X}"))


def restart(server):
    eventually("an empty socket", is_read)
    server.__exit__()
    server.__enter__()


def refusing(run):
    """One server has no table, the other one another, which is an error of its own: what
    comes waits until they take it."""
    run.send(1)
    wanted = run.sent - run.lost()
    eventually("the first events", lambda: run.store.distinct() >= wanted)
    for shard in run.store.shards:
        shard.query("RENAME TABLE events TO others")
    one, other = run.store.shards
    one.query("CREATE TABLE events (received DateTime) ENGINE = Null")
    run.send(3)
    # More often than a batch would be tried that is given up in the end.
    eventually("one server's refusals", lambda: one.messages().count("Unknown field") > 20)
    eventually("the other's",
               lambda: other.messages().count("Table default.events doesn't exist") > 20)
    restart(run.server)
    one.query("DROP TABLE events")
    for shard in run.store.shards:
        shard.query("RENAME TABLE others TO events")
    say(f"  both servers refuse amid {run.sent} events: {run.finish()}")


def restarted_server(run):
    """Both servers are away; syslog-ng ends and begins with what is on its disk."""
    run.send(1)
    for shard in run.store.shards:
        shard.stop()
    run.send(1)
    restart(run.server)
    run.send(1)
    restart(run.server)
    run.send(1)
    for shard in run.store.shards:
        shard.start()
    started = time.monotonic()
    text = run.finish()
    say(f"  both servers stopped amid {run.sent} events, syslog-ng restarted twice meanwhile: "
        f"{text}, {time.monotonic() - started:.1f} s after their return")


def is_idle(server):
    """Whether it waits for something to do, with nothing in hand."""
    tasks = f"/proc/{server.process.pid}/task"
    for task in os.listdir(tasks):
        with open(f"{tasks}/{task}/stat", encoding="ascii") as file:
            if file.read().rpartition(") ")[2][0] != "S":
                return False
    return is_read()


def killed_server(run):
    """Syslog-ng is killed while its batches are under way: it cannot know which arrived."""
    shards = run.store.shards
    run.send(1)
    eventually("first events", lambda: run.store.count() > 0)
    for shard in shards:
        shard.process.send_signal(signal.SIGSTOP)
    try:
        run.send(2)
        eventually("syslog-ng to be idle", lambda: is_idle(run.server))
        run.server.kill()
    finally:
        for shard in shards:
            shard.process.send_signal(signal.SIGCONT)
    run.server.__enter__()
    run.send(1)
    say(f"  syslog-ng killed amid {run.sent} events, while inserting: {run.finish()}")


def doubled_rows(run):
    """The same rows once more, as a batch whose answer was lost would bring them."""
    run.send(4)
    wanted = run.sent - run.lost()
    eventually("all events", lambda: run.store.distinct() >= wanted)
    run.store.shards[1].query("INSERT INTO events SELECT * FROM events WHERE sequence % 4 = 0")
    again = run.store.number("SELECT uniqExact(sequence) FROM events WHERE sequence % 4 = 0")
    eventually("the doubles", lambda: run.store.count() >= wanted + again)
    doubled = check_stream(run.store, run.server, run.stream, run.begin, run.lost())
    expect(doubled == again, f"{doubled} are double by their ids, not {again}")
    run.finish()
    say(f"  {again} rows inserted again through the other server: told by their unique ids, "
        "gone after merging")


# --- Records known exactly ---------------------------------------------------------------

def exact_records(store):
    """Lines as the collector prints them, of which a second load brings some again."""
    def line(device, number, second):
        # Every third is of an event that the catalogue does not know.
        level, message = (7, f"Gerät {number} \"x\"\n") if number % 3 else (None, None)
        return json.dumps({
            "device": device, "number": str(number), "time": f"2026-05-01T10:00:{second:09.6f}Z",
            "event": -5, "level": level, "path": "/power", "message": message,
            "state": "whole"})

    first = [line(device, 2**64 - 1 - number, number / 1e6)
             for device in SOURCES for number in range(100)]
    # A repeated load, and a log whose numbers began again.
    load_exact(store, first, first[50:] + [line(device, 2**64 - 1, 30) for device in SOURCES])


def load_exact(store, first, second):
    """Two loads, over one server each, of which a record may be in both."""
    for shard, lines in zip(store.shards, (first, second)):
        shard.query("INSERT INTO exact FORMAT JSONEachRow\n" + "\n".join(lines),
                    insert_distributed_sync=1)
    wanted = set(first) | set(second)
    rows = store.shards[0].rows("SELECT * FROM exact FINAL ORDER BY device, number, time")
    expect(len(rows) == len(wanted), f"{len(rows)} records of {len(wanted)}")
    for row in rows:
        row["number"] = str(row["number"])
    by_key = sorted(map(json.loads, wanted),
                    key=lambda row: (row["device"], int(row["number"]), row["time"]))
    expect(rows == by_key, "records are not as they were loaded")
    say(f"  {len(wanted)} numbered records, {len(set(first) & set(second))} of them loaded twice: "
        "each once")
    store.empty()


def collected_records(store, lines):
    """What the collector took from a device's log, loaded twice."""
    if lines:
        load_exact(store, lines, lines[len(lines) // 2:])
    else:
        say("  records from a device's log: left out, since the part collector has not run")


# --- The questions of operators -------------------------------------------------------------

DEVICE = "concat('10.0.', toString(intDiv({0}, 250)), '.', toString({0} % 250 + 1))"
TEXTS = ("Temperature at board is {0}.{1} °C", "Supply {0} fails at {1}.5 V",
         "User {0} logged in from 192.0.2.{1}", "Door {1} opened by card {0}",
         "Link to neighbour {0} lost after {1} s")


def generated(day, rows, shard):
    """One day's rows of a fleet, as many as asked for over both servers.

    One device has only errors; the last ones ended two hours before now.
    """
    device = DEVICE.format("d")
    texts = []
    for text in TEXTS:
        first, between, last = re.split(r"\{.\}", text)
        texts.append(f"concat('{first}', toString(a), '{between}', toString(b), '{last}')")
    message = f"[{', '.join(texts)}][b % {len(TEXTS)} + 1]"
    return f"""INSERT INTO events_local SELECT
        toDateTime({{end}} - {day} * 86400 - intDiv((n + 1) * 86399, {rows})) AS t,
        n % 1000000, 'generated', {day} * {rows} + n + 1, {device}, toString(t),
        d = {WORST} ? 3 : (a = 7 ? 2 : 4 + a % 4), n % 9973 = 0 ? 2001 : 1000 + b % 40,
        concat('/power/unit', toString(b % 16)),
        n % {RARE} = 0 ? 'Netzteil ÜBERHITZT' : {message}
    FROM (SELECT number AS n, cityHash64(number, {day}) AS h, h % {DEVICES} AS d,
                 intDiv(h, {DEVICES}) % 100 AS a,
                 intDiv(h, {DEVICES * 100}) % 250 AS b
          FROM numbers({rows}))
    WHERE cityHash64({device}) % 2 = {shard}
      AND NOT (d >= {DEVICES - SILENT} AND t > toDateTime({{end}} - 7200))"""


def fill(store):
    a_day = ROWS // DAYS
    end_of_all = int(time.time())
    started = time.monotonic()
    for day in range(DAYS):
        for number, shard in enumerate(store.shards):
            shard.query(generated(day, a_day, number).replace("{end}", str(end_of_all)))
    took = time.monotonic() - started
    store.merge()
    count = store.count()
    say(f"  {count} rows of {DEVICES} devices over {DAYS} days, made in {took:.0f} s")
    figure("bytes a row of this fleet, merged", f"{store.bytes() / count:.1f}")


def queries():
    """By their comments."""
    with open(os.path.join(servers.CONFIGURATIONS, "clickhouse-queries.sql"),
              encoding="utf-8") as file:
        parts = file.read().split(";\n")
    found = {}
    for part in parts[:-1]:
        comment, statement = part.strip().rsplit("-- ", 1)[1].split("\n", 1)
        found[comment] = statement
    return found


def address(device):
    return f"10.0.{device // 250}.{device % 250 + 1}"


YESTERDAY = "toDate(received) = yesterday()"
# Doubled before anything is asked: each of these would count in the answer to a query.
DOUBLED = (f"device = '10.0.3.20' AND received >= now() - 86400 OR id = 2001 AND received >= "
           f"now() - 7 * 86400 OR message = 'Netzteil ÜBERHITZT' OR {YESTERDAY} AND device = "
           f"'{address(WORST)}'")
UNSENT = 3  # records of the worst device


def add_exact(store):
    """The worst device's records of yesterday: one more than events, and those unsent."""
    records = "'', '', 'whole'"
    at_noon = "concat(toString(yesterday()), 'T12:00:00.000000Z')"
    for what in (
            f"device, sequence, {at_noon}, id, 4, {records} FROM events WHERE {YESTERDAY} "
            f"AND device = '{address(WORST)}'",
            f"'{address(WORST)}', 0, {at_noon}, 1001, 4, {records}",
            f"'{address(WORST)}', toUInt64(-1) - number, {at_noon}, -5, NULL, '', NULL, 'whole' "
            f"FROM numbers({UNSENT})"):
        store.shards[1].query(f"INSERT INTO exact SELECT {what}", insert_distributed_sync=1)


def prepare(store):
    """Puts something into the rows of yesterday that is to be found, and some in twice."""
    store.let_merge(False)
    add_exact(store)
    add_exact(store)
    for shard in store.shards:
        shard.query(f"INSERT INTO events_local SELECT * FROM events_local WHERE {DOUBLED}")


def count_once(store, condition):
    return store.number("SELECT count() FROM (SELECT DISTINCT receiver, sequence FROM events "
                        f"WHERE {condition})")


def newest(rows, count):
    """Of which there are so many, in order, and each only once."""
    times = [row["received"] for row in rows]
    unique = {(row["receiver"], row["sequence"]) for row in rows}
    return len(rows) == count == len(unique) and times == sorted(times, reverse=True)


def is_worst(rows, store):
    times = count_once(store, f"{YESTERDAY} AND device = '{address(WORST)}'")
    return len(rows) == 20 and list(rows[0].values()) == [address(WORST), times, times]


def is_of_one_id(rows, store):
    first = rows[0]["device"]
    times = count_once(store, f"id = 2001 AND received >= now() - 7 * 86400 AND device = '{first}'")
    return len(rows) == 50 and times == rows[0]["times"] >= rows[-1]["times"] > 0


def are_twice(rows, store):
    count = store.number(f"SELECT count() FROM events WHERE {YESTERDAY}")
    doubled = count - count_once(store, YESTERDAY)
    return len(rows) == min(100, doubled) > 0 and {row["times"] for row in rows} == {2}


def is_difference(rows, store):
    times = count_once(store, f"{YESTERDAY} AND device = '{address(WORST)}'")
    got = [rows[0][name] for name in ("device", "received", "exact", "unsent", "difference")]
    return (got == [address(WORST), times, times + 1 + UNSENT, UNSENT, 1]
            and rows[1]["difference"] < 1)


def are_of_one_device(rows, store):
    count = count_once(store, "device = '10.0.3.20' AND received >= now() - 86400")
    return count > 20 and newest(rows, min(100, count))


def have_the_text(rows, _):
    return (newest(rows, min(100, DAYS * -(-ROWS // DAYS // RARE)))
            and all(row["message"] == "Netzteil ÜBERHITZT" for row in rows))


# The comment of a query, and whether its rows are right.
ANSWERS = {
    "One device in the last day, newest 100": are_of_one_device,
    "Yesterday's worst devices, by errors": is_worst,
    "One event id over the fleet, last 7 days": is_of_one_id,
    "Devices silent for an hour that were heard in the last 7 days":
        lambda rows, _: {address(DEVICES - 1 - i) for i in range(SILENT)} <= {
            row["device"] for row in rows} and (len(rows) == SILENT or ROWS < 20_000_000),
    "A text in all messages, newest 100": have_the_text,
    "Yesterday's events that are there twice, until parts are merged": are_twice,
    "By device and day: events received, records known exactly, unsent ones, and the difference":
        is_difference,
}


# How much of the table the first ones may read at most.
PART_READ = {
    "One device in the last day, newest 100": 0.01,
    "Yesterday's worst devices, by errors": 1.1 / DAYS,
    "One event id over the fleet, last 7 days": 8.1 / DAYS,
    "Devices silent for an hour that were heard in the last 7 days": 8.1 / DAYS,
}


def ask(store):
    found = queries()
    expect(found.keys() == ANSWERS.keys(), f"the queries are {list(found)}")
    for name, statement in found.items():
        times = []
        for shard in [*store.shards] * 2:
            started = time.monotonic()
            answer = json.loads(shard.query(statement + " FORMAT JSON",
                                            output_format_json_quote_64bit_integers=0))
            times.append(time.monotonic() - started)
            rows, read = answer["data"], answer["statistics"]["rows_read"]
            expect(ANSWERS[name](rows, store), f"{name}: {rows[:3]}")
            limit = round(ROWS * PART_READ.get(name, 1)) + 200_000
            expect(read < limit, f"{name}: {read} rows were read, which is not below {limit}")
        figure(f"{name}: seconds ({read} rows read)",
               f"{statistics.median(times):.2f} ({min(times):.2f} to {max(times):.2f})")


def drop_day(store):
    day = store.shards[0].query("SELECT toYYYYMMDD(yesterday())").strip()
    others = store.number("SELECT count() FROM events WHERE toDate(received) != yesterday()")
    for shard in store.shards:
        shard.query(f"ALTER TABLE events_local DROP PARTITION {day}")
    expect(0 < others == store.count(), "a dropped day is not gone, or others with it")
    say("  yesterday dropped as a partition: gone, all others there")


def questions(store):
    fill(store)
    prepare(store)
    ask(store)
    drop_day(store)


# --- The part ------------------------------------------------------------------------------

def test(root, device, stream, captured, begin, collected):
    server = SyslogNg(root)
    expect(not server.check_configuration(), server.check_configuration())

    with Store(root) as store:
        say(f"  version {store.version}, two servers with half of the devices each")

        def run():
            server.forget()
            store.empty()
            return Run(store, server, stream, captured, begin)

        def outage(test_it, *arguments):
            current = run()
            store.let_merge(False)
            test_it(current, *arguments)

        one, other = store.shards
        with server:
            special_events(device, server, store)
            awkward_events(server, store)
            plain_stream(run())
            outage(shard_away, "stopped", Shard.stop, other, one)
            outage(shard_away, "killed", Shard.kill, one, other)
            outage(refusing)
            outage(restarted_server)
            outage(killed_server)
            outage(doubled_rows)
            exact_records(store)
            collected_records(store, collected)
        store.empty()
        questions(store)
