# SPDX-License-Identifier: Apache-2.0
"""Brokers that speak Kafka's protocol: librdkafka's mock cluster, not a Kafka.

usage: mockcluster.py BROKERS TOPIC PARTITIONS

Prints the brokers' addresses, which are random ports of loopback. Then it takes commands on
its standard input, one a line, and answers each with a line: `down N`, `up N`,
`lead PARTITION N` and `coordinate TRANSACTIONAL_ID N`, with brokers counted from 1. Ends at
the end of the input.

Its data is in memory. It does not elect: what a broker led or coordinated waits for it
until another one is told to. It does not look at sequence numbers either, so what a broker
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
            ("mock_partition_set_leader", number, thing, text, ctypes.c_int32, ctypes.c_int32),
            ("mock_coordinator_set", number, thing, text, text, ctypes.c_int32)):
        function = getattr(loaded, "rd_kafka_" + name)
        function.restype, function.argtypes = result, arguments
    return loaded


def obey(kafka, cluster, topic, command, *words):
    """Returns an error number, 0 for none."""
    if command == "down":
        return kafka.rd_kafka_mock_broker_set_down(cluster, int(words[0]))
    if command == "up":
        return kafka.rd_kafka_mock_broker_set_up(cluster, int(words[0]))
    if command == "lead":
        return kafka.rd_kafka_mock_partition_set_leader(cluster, topic, *map(int, words))
    return kafka.rd_kafka_mock_coordinator_set(cluster, b"transaction", words[0].encode(),
                                               int(words[1]))


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
        failed = obey(kafka, cluster, topic, *line.split())
        print(f"failed: {failed}" if failed else "done", flush=True)


if __name__ == "__main__":
    main()
