# SPDX-License-Identifier: Apache-2.0
"""Both servers' ways into Kafka: the protocol, against librdkafka's mock cluster.

No Kafka is started: mockcluster.py is what the servers produce to, and kcat consumes.
"""
import copy
import json
import re
import socket
import subprocess
import time

import events
import servers
from common import (ANY_EVENT, Sender, await_lines, compare, expect, figure, now, say)
from device import end, eventually, paced

BROKERS = 3
PARTITIONS = 6
TOPIC = "device-events"
DEVICES = [f"127.0.0.{number}" for number in range(1, 13)]
TRANSACTIONS = "kafka.events-of-receiver-1"  # by persist-name() of syslog-ng-kafka.conf
END = 10  # seconds that a server gets for its end, before it is killed
RATE = 5000  # a second
IDLE = 45  # seconds without a new event after which none is expected; clients wait up to 10
ROOM = 100_000  # bytes that may wait in the server's socket, by the kernel's count
# Put into a configuration, these must be noticed by the server's own check.
ERRORS = {
    "rsyslog": (("topic=", "topik="), ("omkafka", "omkafkae"),
                ("partitions.auto=\"on\"", "partitions.automatic=\"on\"")),
    "syslog-ng": (("topic(", "topik("), ("kafka-c(", "kafka-d("), ("sync-send", "sink-send")),
}


# --- Brokers and consumer -------------------------------------------------------------

class Cluster:
    """The brokers; to be used by `with`. They forget everything at the end."""

    def __init__(self, root):
        self.root = root
        root.install("test/mockcluster.py", "tmp")
        self.process = None
        self.addresses = []

    def __enter__(self):
        with open(self.root.path("var/log/mockcluster"), "a", encoding="utf-8") as log:
            self.process = subprocess.Popen(
                self.root.command("python3", "/tmp/mockcluster.py", str(BROKERS), TOPIC,
                                  str(PARTITIONS)),
                stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=log, text=True)
        self.addresses = self.process.stdout.readline().strip().split(",")
        expect(len(self.addresses) == BROKERS, f"the brokers are {self.addresses}")
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.stdout.close()
        end(self.process)

    def tell(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline()
        expect(answer == "done\n", f"the brokers answer {command!r} by {answer!r}")

    def all_down(self):
        for broker in range(1, BROKERS + 1):
            self.tell(f"down {broker}")

    def all_up(self):
        for broker in range(1, BROKERS + 1):
            self.tell(f"up {broker}")

    def share(self, brokers):
        """These lead the partitions, in turn; the first also sees to the transactions."""
        for partition in range(PARTITIONS):
            self.tell(f"lead {partition} {brokers[partition % len(brokers)]}")
        self.tell(f"coordinate {TRANSACTIONS} {brokers[0]}")

    def consume(self):
        """All that is there: (partition, key, value), each partition in its order."""
        output = subprocess.run(
            self.root.command("kcat", "-C", "-q", "-e", "-b", ",".join(self.addresses),
                              "-t", TOPIC, "-o", "beginning", "-f", "%p %o %K %S\n%k%s"),
            check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
            timeout=120).stdout
        messages, ends, at = [], {}, 0
        while at < len(output):
            begin = output.index(b"\n", at) + 1
            partition, offset, *sizes = map(int, output[at:begin].split())
            key, value = (max(size, 0) for size in sizes)  # -1 for none
            # Nobody has taken anything away, so this is about the brokers.
            expect(offset == ends.get(partition, 0), "the mock has no room for the events")
            ends[partition] = offset + 1
            at = begin + key + value
            messages.append((partition, output[begin:begin + key], output[begin + key:at]))
        return messages


def await_messages(cluster, count):
    """What the topic holds once so many differ; less if no more come."""
    most, deadline = 0, time.monotonic() + IDLE
    while time.monotonic() < deadline:
        messages = cluster.consume()
        different = len({value for _, _, value in messages})
        if different >= count:
            break
        if different > most:
            most, deadline = different, time.monotonic() + IDLE
        time.sleep(0.5)  # looking takes the processor from who is looked at
    return messages


# --- Sending as several devices ---------------------------------------------------------

def unread():
    """Bytes that wait in the server's socket."""
    with open("/proc/net/udp", encoding="ascii") as file:
        lines = [line.split() for line in file]
    return sum(int(line[4].partition(":")[2], 16) for line in lines if line[1].endswith(":0202"))


class Fleet:
    """Sends each datagram as the next device; to be used by `with`.

    Waits where the server lags, since what finds no room in its socket is not the question.
    """

    def __init__(self):
        self.sockets = []
        for address in DEVICES:
            device = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            device.bind((address, 0))
            device.connect(("127.0.0.1", 514))
            self.sockets.append(device)
        self.sent = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for device in self.sockets:
            device.close()

    def send(self, datagram):
        if self.sent % 50 == 0:
            eventually("room in the server's socket", lambda: unread() < ROOM)
        self.sockets[self.sent % len(self.sockets)].send(datagram)
        self.sent += 1


def as_sent_by_fleet(stream):
    """The events with the address of the device that Fleet sends each as."""
    result = []
    for number, event in enumerate(stream):
        event = copy.copy(event)
        event.expected = dict(event.expected, host=DEVICES[number % len(DEVICES)])
        result.append(event)
    return result


# --- Scenarios ---------------------------------------------------------------------------

def use(server, cluster):
    """Enters the brokers' addresses."""
    name = server.root.path(server.folder + "store-kafka.conf")
    with open(name, encoding="utf-8") as file:
        configuration = file.read()
    for number, address in enumerate(cluster.addresses, 1):
        expect(f"kafka{number}:9092" in configuration, f"broker {number} is not configured")
        configuration = configuration.replace(f"kafka{number}:9092", address)
    with open(name, "w", encoding="utf-8") as file:
        file.write(configuration)


def stop(server):
    """As a service manager does it. Returns how it ended."""
    started = time.monotonic()
    server.process.terminate()
    try:
        server.process.wait(END)
    except subprocess.TimeoutExpired:
        server.process.kill()
        server.process.wait()
        return f"killed after {END} s"
    return f"by itself in {time.monotonic() - started:.1f} s"


def check_configuration(name, server):
    """The server's own check, and that without a broker nothing stops."""
    expect(not server.check_configuration(), server.check_configuration())
    path = server.root.path(server.folder + "store-kafka.conf")
    with open(path, encoding="utf-8") as file:
        right = file.read()
    for word, wrong in ERRORS[name]:
        with open(path, "w", encoding="utf-8") as file:
            file.write(right.replace(word, wrong))
        expect(server.check_configuration(), f"{wrong} is not noticed")
    with open(path, "w", encoding="utf-8") as file:
        file.write(right)
    with server, Sender() as sender:
        sender.send(ANY_EVENT)
        expect(len(await_lines(server, 1)) == 1, "without a broker the file stops too")
        stop(server)
    expect(re.search("kafka[123]:9092", server.messages()), "no client looked for a broker")
    server.forget()
    say("  the server's check finds nothing wrong, and finds three errors put in; without a "
        "broker the JSON file goes on")


def special_events(server, cluster, device):
    """After the event that came when there was no broker at all."""
    special = events.special_events()
    begin = now()
    with server:
        for event in special.values():
            device.emit(event)
        messages = await_messages(cluster, len(special) + 1)
    expect(len(messages) == len(special) + 1, f"{len(messages) - 1} of {len(special)} arrived")
    early = json.loads(messages[0][2])
    expect(early["path"] == "/a", f"what came first is {early}")
    expect(len({partition for partition, _, _ in messages}) == 1, "one device, two partitions")
    for (_, key, value), (name, event) in zip(messages[1:], special.items()):
        expect(key == b"127.0.0.1", f"{name}: the key is {key}")
        expect(re.fullmatch(rb"{.*}\n?", value), f"{name}: the value is {value!r:.300}")
        compare(name, event, json.loads(value), begin, server)
    say(f"  {len(special)} special events from the daemon: all whole")


def check_messages(messages, stream, begin, server):
    """That all are whole and each device's are in one partition.

    Returns how many are missing, how many are doubled and how many come after a later one of
    their device.
    """
    homes = {}
    latest = {}
    seen = set()
    disorder = 0
    for partition, key, value in messages:
        expect(homes.setdefault(key, partition) == partition, f"{key} is in two partitions")
        got = json.loads(value)
        expect(key.decode() == got["host"], f"{key} is not the key of {got}")
        number = int(re.match("Number ([0-9]+):", got["message"])[1])
        if number in seen:
            continue
        seen.add(number)
        compare(number, stream[number], got, begin, server)
        disorder += number < latest.get(key, -1)
        latest[key] = max(number, latest.get(key, -1))
    expect(len(homes) == len(DEVICES), f"the keys are {list(homes)}")
    expect(len(set(homes.values())) > 1, f"all are in partition {set(homes.values())}")
    return len(stream) - len(seen), len(messages) - len(seen), disorder


def undisturbed(server, cluster, fleet, captured):
    with server:
        cpu = server.cpu_seconds()
        started = time.monotonic()
        paced(captured, RATE, fleet.send)
        messages = await_messages(cluster, len(captured))
        took = time.monotonic() - started
        cpu = server.cpu_seconds() - cpu
    return messages, (f"; {took:.1f} s after the first was sent, {cpu / len(captured) * 1e6:.0f} "
                      "us CPU an event")


def brokers_away(server, cluster, fleet, captured):
    fifth = len(captured) // 5
    with server:
        paced(captured[:fifth], RATE, fleet.send)
        cluster.all_down()
        paced(captured[fifth:], RATE, fleet.send)
        expect(len(await_lines(server, len(captured))) == len(captured), "the file lacks some")
        cluster.all_up()
        started = time.monotonic()
        messages = await_messages(cluster, len(captured))
    return messages, f"; all there {time.monotonic() - started:.1f} s after their return"


def one_away(server, cluster, fleet, captured):
    """The others are told to take over in the middle of what comes after."""
    fifth = len(captured) // 5
    cluster.share(range(1, BROKERS + 1))
    with server:
        paced(captured[:fifth], RATE, fleet.send)
        cluster.tell("down 1")
        paced(captured[fifth:3 * fifth], RATE, fleet.send)
        cluster.share(range(2, BROKERS + 1))
        paced(captured[3 * fifth:], RATE, fleet.send)
        messages = await_messages(cluster, len(captured))
    return messages, ""


def server_restarted(server, cluster, fleet, captured):
    third = len(captured) // 3
    with server:
        paced(captured[:third], RATE, fleet.send)
        cluster.all_down()
        paced(captured[third:2 * third], RATE, fleet.send)
        expect(len(await_lines(server, 2 * third)) == 2 * third, "the file lacks some")
        ending = stop(server)
    with server:
        paced(captured[2 * third:], RATE, fleet.send)
        expect(len(await_lines(server, len(captured))) == len(captured), "the file lacks some")
        cluster.all_up()
        messages = await_messages(cluster, len(captured))
    return messages, f"; it ended {ending}"


def server_restarted_twice(server, cluster, fleet, captured):
    quarter = len(captured) // 4
    endings = []
    with server:
        paced(captured[:quarter], RATE, fleet.send)
        cluster.all_down()
        paced(captured[quarter:2 * quarter], RATE, fleet.send)
        expect(len(await_lines(server, 2 * quarter)) == 2 * quarter, "the file lacks some")
        endings.append(stop(server))
    with server:
        paced(captured[2 * quarter:3 * quarter], RATE, fleet.send)
        expect(len(await_lines(server, 3 * quarter)) == 3 * quarter, "the file lacks some")
        endings.append(stop(server))
    with server:
        paced(captured[3 * quarter:], RATE, fleet.send)
        expect(len(await_lines(server, len(captured))) == len(captured), "the file lacks some")
        cluster.all_up()
        messages = await_messages(cluster, len(captured))
    return messages, f"; it ended {', then '.join(endings)}"


SCENARIOS = {
    "undisturbed": undisturbed,
    "all brokers down, then up": brokers_away,
    "one broker of three down": one_away,
    "the server restarted while they are down": server_restarted,
    "the server restarted twice while they are down": server_restarted_twice,
}
# At its start rsyslog deletes failedMsgFile once it is read. If it ends again before brokers are
# back, not all of that gets into the file again; and where its end hangs in librdkafka until it
# is killed, nothing does. No timeout of its queue or of librdkafka changes that. What is lost
# is in events.json.
LOSE = {("rsyslog", server_restarted_twice)}


def into_kafka(name, make, root, device, stream, captured, begin):
    """`make` gives a server with its configuration as it stands."""
    say(f"  {name}:")
    check_configuration(name, make())
    with Cluster(root) as cluster:
        server = make()
        use(server, cluster)
        special_events(server, cluster, device)
        server.forget()
    for what, scenario in SCENARIOS.items():
        with Cluster(root) as cluster, Fleet() as fleet:
            server = make()
            use(server, cluster)
            messages, figures = scenario(server, cluster, fleet, captured)
            lost, doubles, disorder = check_messages(messages, stream, begin, server)
            expect(not lost or (name, scenario) in LOSE, f"{lost} of {len(stream)} are lost")
            expect(scenario is not undisturbed or doubles == disorder == 0,
                   f"{doubles} doubled and {disorder} out of order without a cause")
            partitions = len({partition for partition, _, _ in messages})
            figure(f"{name}, {what}",
                   f"{len(stream)} events of {len(DEVICES)} devices in {partitions} of "
                   f"{PARTITIONS} partitions, {lost} lost, {doubles} doubled, {disorder} out of "
                   f"order{figures}")
            server.forget()


def test(rsyslog_root, root, device, stream, captured, begin):
    """`root` has syslog-ng, the brokers and the consumer."""
    say("  (Kafka's protocol, against librdkafka's mock; no Kafka)")
    stream = as_sent_by_fleet(stream)
    for name, make in (("rsyslog", lambda: servers.Rsyslog(rsyslog_root, "kafka")),
                       ("syslog-ng", lambda: servers.SyslogNg(root, "kafka"))):
        into_kafka(name, make, root, device, stream, captured, begin)
