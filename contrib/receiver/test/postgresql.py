# SPDX-License-Identifier: Apache-2.0
"""PostgreSQL, fed by rsyslog."""
import contextlib
import json
import os
import re
import shutil
import signal
import subprocess
import threading
import time

import events
import servers
from common import ANY_EVENT, BROKEN, Sender, await_lines, compare_all, expect, figure, now, say
from device import PATIENCE, end, eventually, paced

POSTGRES = 5432  # as user id, as group id and as port
GENTLE_RATE = 5000  # where the rate is not the question
BATCH = 100  # queue.dequeueBatchSize of rsyslog-postgresql.conf

# What is to be replaced in that event, by what.
AWKWARD = {
    "30 February, a wrong date": (b"2024-05-01", b"2024-02-30"),
    "29 February in 2023, a wrong date": (b"2024-05-01", b"2023-02-29"),
    "the year 0, a wrong date": (b"2024-05-01", b"0000-01-01"),
    "25 o'clock, a wrong date": (b"T12", b"T25"),
    "an id of 10 digits": (b"1001", b"-9999999999"),
    "a level of 10 digits": (b"<28>", b"<9999999999>"),
    "a broken path": (b"/a", b"/\xe4"),
    "a zero byte in the path": (b"/a", b"/\0a"),
    **{f"the text {text}": (b"] x", b"] " + text) for text in BROKEN},
}


class Session:
    """A client that stays connected."""

    def __init__(self, process):
        self.process = process
        self.begin(f"SET statement_timeout = '{PATIENCE}s'")

    def begin(self, statement):
        """Without waiting for it."""
        self.process.stdin.write(statement + ";\n")
        self.process.stdin.flush()

    def do(self, statement):
        """With all that was begun before."""
        self.begin(statement)
        self.process.stdin.write("\\warn done\n")
        self.process.stdin.flush()
        said = self.process.stderr.readline()
        expect(said == "done\n", f"a session had to {statement}, and says {said}")


class PostgreSql:
    """A database with the schema; to be used by `with`."""

    def __init__(self, root):
        self.root = root
        self.programs = "/usr/lib/postgresql/15/bin/"
        self.data = "/var/lib/postgresql/data"
        self.process = None
        with open(root.path("etc/passwd"), "w", encoding="ascii") as file:
            file.write("root:x:0:0::/:/bin/sh\n"
                       f"postgres:x:{POSTGRES}:{POSTGRES}::/var/lib/postgresql:/bin/sh\n")
        for name in ("var/lib/postgresql", "tmp"):
            os.chown(root.path(name), POSTGRES, POSTGRES)
        root.run(self.programs + "initdb", "-D", self.data, "-A", "trust", "-E", "UTF8",
                 "--no-sync", user=POSTGRES)

    def __enter__(self):
        self.start()
        self.query("CREATE DATABASE events", database="postgres")
        with open(os.path.join(servers.CONFIGURATIONS, "schema.sql"), encoding="utf-8") as file:
            self.query(file.read())
        return self

    def __exit__(self, *_):
        self.stop()
        shutil.rmtree(self.root.path(self.data[1:]))

    def start(self):
        self.process = self.root.launch(
            self.programs + "postgres", "-D", self.data, "-k", "/tmp", "-h", "127.0.0.1",
            user=POSTGRES, log="var/log/postgresql")
        eventually("the database", self.answers)

    def stop(self):
        """Without waiting for its clients."""
        if self.process:
            self.process.send_signal(signal.SIGINT)
            end(self.process)
            self.process = None

    def answers(self):
        done = subprocess.run(self.root.command(
            self.programs + "pg_isready", "-h", "127.0.0.1"), stdout=subprocess.DEVNULL,
            check=False)
        return done.returncode == 0

    def writer_cpu_seconds(self):
        """Of what serves the receiver."""
        return servers.cpu_seconds_of(int(self.query(
            "SELECT pid FROM pg_stat_activity WHERE usename = 'events_writer'")))

    def psql(self, database="events", role="postgres"):
        return [self.programs + "psql", "-h", "/tmp", "-U", role, "-d", database, "-qAtX",
                "-v", "ON_ERROR_STOP=1"]

    def query(self, statement, database="events"):
        return self.root.run(*self.psql(database), user=POSTGRES, text=statement)

    def refuses(self, role, statement):
        """Whether a role lacks the right to do this."""
        done = subprocess.run(
            self.root.command(*self.psql(role=role), user=POSTGRES), input=statement,
            stderr=subprocess.PIPE, stdout=subprocess.DEVNULL, text=True, check=False)
        return done.returncode != 0 and ("permission denied" in done.stderr
                                         or "must be owner" in done.stderr)

    @contextlib.contextmanager
    def session(self):
        process = subprocess.Popen(
            self.root.command(*self.psql(), user=POSTGRES), stdin=subprocess.PIPE,
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        try:
            yield Session(process)
        finally:
            process.stdin.close()
            end(process)
            process.stderr.close()

    def await_waiting(self, statement, count=1):
        """Until so many who do this wait for a lock."""
        eventually(f"a lock that keeps waiting: {statement}", lambda: int(self.query(
            "SELECT count(*) FROM pg_stat_activity WHERE wait_event_type = 'Lock' "
            f"AND query LIKE '{statement}%'")) >= count)

    def count(self):
        return int(self.query("SELECT count(*) FROM events"))

    def rows(self):
        """The events in the order in which they were received."""
        return [json.loads(line) for line in self.query(
            "SELECT json_build_object('received', received, 'host', host(host), "
            "'devicetime', device_time, 'level', level, 'id', event_id, 'path', path, "
            "'message', message) FROM events ORDER BY received, sequence").split("\n")[:-1]]


def await_rows(database, count):
    eventually(f"{count} rows", lambda: database.count() >= count)
    return database.rows()


def special_rows(device, server, database):
    special = events.special_events()
    begin = now()
    for event in special.values():
        device.emit(event)
    rows = await_rows(database, len(special))
    compare_all(special.keys(), special.values(), rows, begin, server)
    say(f"  {len(special)} special events from the daemon: all whole in the table")
    database.query("TRUNCATE events")


def stream_of_rows(server, database, stream, captured, begin):
    cpu = server.cpu_seconds(), database.writer_cpu_seconds()
    with Sender() as sender:
        started = time.monotonic()
        paced(captured, GENTLE_RATE, sender.send)
    eventually("all rows", lambda: database.count() >= len(stream))
    took = time.monotonic() - started
    cpu = server.cpu_seconds() - cpu[0], database.writer_cpu_seconds() - cpu[1]
    compare_all(range(len(stream)), stream, database.rows(), begin, server)
    size = int(database.query(
        "SELECT sum(pg_total_relation_size(day)) FROM (SELECT DISTINCT tableoid AS day "
        "FROM events) AS days")) / len(stream)
    say(f"  {len(stream)} events sent at {GENTLE_RATE} a second: 0 lost, all in order and whole")
    figure(f"seconds until {len(stream)} sent at {GENTLE_RATE} a second are in the table",
           f"{took:.1f}")
    figure("CPU an event, rsyslog with its JSON file", f"{cpu[0] / len(stream) * 1e6:.0f} us")
    figure("CPU an event, database", f"{cpu[1] / len(stream) * 1e6:.0f} us")
    figure("bytes a row with its indexes", f"{size:.0f}")
    database.query("TRUNCATE events")
    server.forget()


def awkward_rows(server, database):
    """What a database would refuse must not cost it the events around."""
    awkward = {name: ANY_EVENT.replace(*change) for name, change in AWKWARD.items()}
    with Sender() as sender:
        for datagram in awkward.values():
            sender.send(ANY_EVENT)
            sender.send(datagram)
    rows = await_rows(database, 2 * len(awkward))
    expect(len(rows) == 2 * len(awkward), f"{len(rows)} rows of {2 * len(awkward)}")
    for row in rows[::2]:
        expect(row["message"] == "x" and row["devicetime"], f"an event became {row}")
    for name, row in zip(awkward, rows[1::2]):
        expect((row["devicetime"] is None) == name.endswith("date"), f"{name}: {row}")
    say(f"  {len(awkward)} that a table refuses: kept, and the events around them too")
    database.query("TRUNCATE events")
    server.forget()


def spooled(server):
    """Bytes in the queue on disk."""
    folder = server.root.path("var/spool/rsyslog")
    return sum(entry.stat().st_size for entry in os.scandir(folder))


def check_rows(server, database, stream, begin):
    """How many are missing; those that are there are in order, once each, and whole."""
    rows = database.rows()
    numbers = [int(re.match("Number ([0-9]+):", row["message"])[1]) for row in rows]
    expect(all(a < b for a, b in zip(numbers, numbers[1:])), "events are doubled or reordered")
    compare_all(numbers, [stream[number] for number in numbers], rows, begin, server)
    return len(stream) - len(rows)


def stream_without_database(server, database, captured):
    """The database goes in the middle of inserting."""
    with Sender() as sender:
        paced(captured[:4000], GENTLE_RATE, sender.send)
        eventually("a first row", lambda: database.count() > 0)
        database.stop()
        paced(captured[4000:], GENTLE_RATE, sender.send)
        await_lines(server, len(captured))
        eventually("a queue on disk", lambda: spooled(server) > 0)


def restarted_database(server, database, stream, captured, begin):
    stream_without_database(server, database, captured)
    on_disk = spooled(server)
    database.start()
    started = time.monotonic()
    eventually("all rows", lambda: database.count() >= len(stream))
    took = time.monotonic() - started
    expect(check_rows(server, database, stream, begin) == 0, "events are missing")
    figure(f"database away amid {len(stream)} events ({on_disk >> 10} KiB on disk)",
           f"0 lost, all there {took:.1f} s after its return")
    database.query("TRUNCATE events")
    server.forget()


def await_no_more(database):
    """Nothing tells when the queue is empty."""
    before = -1
    while database.count() != before:
        before = database.count()
        time.sleep(3)


def restarted_server(server, database, stream, captured, begin):
    """The server ends while the database is away: what is in its hands is lost."""
    with server:
        stream_without_database(server, database, captured)
    database.start()
    at_most = 2 * BATCH  # one from memory, one from disk
    with server:
        eventually("the rows", lambda: database.count() >= len(stream) - at_most)
        await_no_more(database)
    missing = check_rows(server, database, stream, begin)
    expect(missing <= at_most, f"{missing} events are missing")
    figure("the same, and the server ended", f"{missing} lost of {len(stream)}")


# --- Days --------------------------------------------------------------------------

INSERT = ("INSERT INTO events SELECT {}, 0, '127.0.0.1', NULL, 4, 1, '/a', 'x' "
          "FROM generate_series(0, {} - 1)")
TODAY = "date_trunc('day', now() AT TIME ZONE 'UTC') AT TIME ZONE 'UTC'"


def partitions(database):
    """How many rows each has that has any; by days from today, or default."""
    return dict(line.split("|") for line in database.query(
        "SET timezone = 'UTC'; SELECT CASE name WHEN 'events_default' THEN 'default' "
        "ELSE (right(name, 8)::date - current_date)::text END, rows FROM (SELECT "
        "tableoid::regclass::text AS name, count(*) AS rows FROM events GROUP BY 1) AS counted"
    ).split())


def expect_partitions(database, expected, when):
    got = partitions(database)
    expect(got == expected, f"{when}: rows by day are {got}, not {expected}")


def coming_days(database):
    """A new schema has a week; whatever is inserted finds its day, or waits."""
    expect(database.query("SELECT create_event_days(7)") == "0\n", "a week is not there yet")
    expect(database.query("SELECT create_event_days(9)") == "2\n", "two days more are not two")
    zones = ("UTC", "Pacific/Auckland", "America/Los_Angeles")
    for zone in zones:
        statement = "; ".join(INSERT.format(f"{TODAY} + interval '{moment}'", 1) for moment in (
            "0", "23:59:59.999999", "24:00:00", "239:59:59.999999", "240:00:00", "-1 us",
            "-960:00:00", "24000:00:00"))
        database.query(f"SET ROLE events_writer; SET timezone = '{zone}'; {statement}")
    count = str(len(zones))
    double = str(2 * len(zones))
    expect_partitions(database, {"0": double, "1": count, "9": count,
                                 "default": str(4 * len(zones))}, "before its day is made")
    database.query("SET timezone = 'Asia/Kolkata'; SELECT create_event_days(9)")
    late = {"0": double, "1": count, "9": count, "10": count, "-1": count, "-40": count,
            "1000": count}
    expect_partitions(database, late, "a day that is made late")
    expect(database.query("SELECT drop_event_days(40)") == "0\n", "40 days are not kept")
    expect(database.query("SELECT drop_event_days(39)") == "1\n", "the 40th is not dropped")
    del late["-40"]
    expect_partitions(database, late, "without the old day")
    database.query("SET ROLE events_writer; " + INSERT.format(f"{TODAY} - interval '40 days'", 1))
    expect_partitions(database, {**late, "default": "1"}, "an event of a dropped day")
    database.query("TRUNCATE events")
    say("  days: made ahead and late, dropped by age, none refused")


def other_tables(database):
    """Of the same names, in a schema that comes first; and times for which there is no day."""
    day = "to_char(current_date + {}, '\"events_\"YYYYMMDD')"
    database.query("SELECT drop_event_days(-10000); SELECT create_event_days(7); "
                   "CREATE SCHEMA postgres")
    for offset in (-200, 30):
        database.query("SET timezone = 'UTC'; SELECT "
                       f"format('CREATE TABLE postgres.%I ()', {day.format(offset)}) \\gexec")
    for time in ("'infinity'", "'-infinity'", "'294276-12-31 23:59:59.999999Z'",
                 "'0044-03-15 BC'", f"{TODAY} - interval '200 days'"):
        database.query("SET ROLE events_writer; " + INSERT.format(time, 1))
    expect(database.query("SELECT create_event_days(30)") == "24\n", "days are not made")
    expect_partitions(database, {"-200": "1", "default": "4"}, "beside times without a day")
    expect(database.query("SELECT drop_event_days(90)") == "1\n", "the old day is not dropped")
    expect(database.query("SELECT count(*) FROM pg_tables WHERE schemaname = 'postgres'") == "2\n",
           "a table of the same name was dropped")
    database.query("DROP SCHEMA postgres CASCADE; TRUNCATE events; SELECT drop_event_days(-100); "
                   "SELECT create_event_days(7)")
    say("  tables of the same names elsewhere are let alone")


def insert_meanwhile(database):
    """Whoever inserts while the day is made waits, and is in it then."""
    target = f"{TODAY} + interval '20 days'"
    with database.session() as maker, database.session() as before, \
            database.session() as after:
        before.do("BEGIN; " + INSERT.format(target, 1))
        maker.begin("BEGIN; SELECT create_event_days(20)")
        database.await_waiting("SELECT create_event_days(20)")
        after.begin(INSERT.format(target, 2))
        database.await_waiting("INSERT INTO events")
        before.do("COMMIT")
        maker.do("COMMIT")
        after.do("SELECT 1")
    expect_partitions(database, {"20": "3"}, "inserted while the day was made")
    database.query("TRUNCATE events")
    say("  inserted while a day is made: nothing refused, all in their day")


def day_of_many(database):
    """What it costs to make a day late."""
    day = f"{TODAY} + interval '30 days'"
    database.query(INSERT.format(day, 1000000))
    started = time.monotonic()
    database.query("SELECT create_event_days(0)")
    took = time.monotonic() - started
    expect_partitions(database, {"30": "1000000"}, "a day of many")
    figure("seconds to make a day late, with 1,000,000 events", f"{took:.1f}")
    database.query("SELECT drop_event_days(-100); SELECT create_event_days(7)")


def late_day(server, database, stream, captured, begin):
    """The day is made while events of it come in."""
    database.query("SELECT drop_event_days(-100)")
    with Sender() as sender:
        paced(captured[:4000], GENTLE_RATE, sender.send)
        eventually("a first row", lambda: database.count() > 0)
        expect(set(partitions(database)) == {"default"}, "there is a day already")
        maker = threading.Thread(
            target=database.query, args=("SELECT create_event_days(7)",))
        maker.start()
        paced(captured[4000:], GENTLE_RATE, sender.send)
        maker.join()
    eventually("all rows", lambda: database.count() >= len(stream))
    expect(check_rows(server, database, stream, begin) == 0, "events are missing")
    expect_partitions(database, {"0": str(len(stream))}, "the day in the end")
    say(f"  the day made amid {len(stream)} events: 0 lost, all whole and in order")
    database.query("TRUNCATE events")
    server.forget()


WRITER_MAY_NOT = (
    "SELECT FROM events", "UPDATE events SET level = 0", "DELETE FROM events",
    "TRUNCATE events", "DROP TABLE events", "BEGIN; LOCK TABLE events", "CREATE TABLE own ()",
    "INSERT INTO events_default SELECT", "SELECT FROM events_default",
    "SELECT create_event_days(100)", "SELECT drop_event_days(-100)")


def rights(database):
    for statement in WRITER_MAY_NOT:
        expect(database.refuses("events_writer", statement), f"events_writer may {statement}")
    say(f"  events_writer is refused {len(WRITER_MAY_NOT)} statements that do not insert an event")


def test(root, device, stream, captured, begin):
    server = servers.Rsyslog(root, "postgresql")
    expect(not server.check_configuration(), server.check_configuration())
    with PostgreSql(root) as database:
        rights(database)
        coming_days(database)
        other_tables(database)
        insert_meanwhile(database)
        day_of_many(database)
        with server:
            special_rows(device, server, database)
            stream_of_rows(server, database, stream, captured, begin)
            late_day(server, database, stream, captured, begin)
            awkward_rows(server, database)
            restarted_database(server, database, stream, captured, begin)
        restarted_server(server, database, stream, captured, begin)
