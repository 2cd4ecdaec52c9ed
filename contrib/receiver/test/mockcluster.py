# SPDX-License-Identifier: Apache-2.0
"""Brokers that speak Kafka's protocol: librdkafka's mock cluster, not a Kafka.

usage: mockcluster.py BROKERS TOPIC PARTITIONS

Prints the brokers' addresses, which are random ports of loopback. Then it takes commands on
its standard input, one a line, and answers each with a line: `down N`, `up N` and
`lead PARTITION N`, with brokers counted from 1. Ends at the end of the input.

Its data is in memory. It does not elect: a partition whose leader is down has none until
`lead` names another broker. It does not look at sequence numbers either, so what a broker
would know to be a repetition is stored once more.
"""
import ctypes
import sys

PRODUCER = 0
NOBODY = 0


def library():
    """With the types of what is used."""
    loaded = ctypes.CDLL("librdkafka.so.1")
    number, text, thing = ctypes.c_int, ctypes.c_char_p, ctypes.c_void_p
    for name, result, *arguments in (
            ("conf_new", thing),
            ("new", thing, number, thing, thing, ctypes.c_size_t),
            ("mock_cluster_new", thing, thing, number),
            ("mock_cluster_bootstraps", text, thing),
            ("mock_topic_create", number, thing, text, number, number),
            ("mock_broker_set_down", number, thing, ctypes.c_int32),
            ("mock_broker_set_up", number, thing, ctypes.c_int32),
            ("mock_partition_set_leader", number, thing, text, ctypes.c_int32, ctypes.c_int32)):
        function = getattr(loaded, "rd_kafka_" + name)
        function.restype, function.argtypes = result, arguments
    return loaded


def main():
    brokers, topic, partitions = int(sys.argv[1]), sys.argv[2].encode(), int(sys.argv[3])
    kafka = library()
    # Some client has to own the cluster; it is told of no broker and does nothing.
    client = kafka.rd_kafka_new(PRODUCER, kafka.rd_kafka_conf_new(), None, NOBODY)
    cluster = kafka.rd_kafka_mock_cluster_new(client, brokers)
    failed = kafka.rd_kafka_mock_topic_create(cluster, topic, partitions, brokers)
    if failed:
        sys.exit(f"mockcluster: the topic cannot be made: {failed}")
    print(kafka.rd_kafka_mock_cluster_bootstraps(cluster).decode(), flush=True)
    for line in sys.stdin:
        command, *numbers = line.split()
        if command == "down":
            failed = kafka.rd_kafka_mock_broker_set_down(cluster, int(numbers[0]))
        elif command == "up":
            failed = kafka.rd_kafka_mock_broker_set_up(cluster, int(numbers[0]))
        else:
            failed = kafka.rd_kafka_mock_partition_set_leader(
                cluster, topic, int(numbers[0]), int(numbers[1]))
        print(f"failed: {failed}" if failed else "done", flush=True)


if __name__ == "__main__":
    main()
