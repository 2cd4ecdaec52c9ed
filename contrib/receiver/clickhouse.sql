-- SPDX-License-Identifier: Apache-2.0
--
-- The events of a fleet, as syslog-ng-clickhouse.conf inserts them. Run it on every server
-- of clickhouse-cluster.xml:
--
--     clickhouse-client --multiquery < clickhouse.sql

-- What this server holds. The order puts a device's events side by side, by time. It ends
-- with the unique id, so that rows which came twice are equal in it, and become one when
-- the server merges its parts.
CREATE TABLE events_local (
    received    DateTime('UTC'), -- by the receiver's clock
    microsecond UInt32,          -- of "received"
    receiver    String,          -- which receiver,
    sequence    UInt64,          -- and its number for the event: the unique id
    device      String,          -- the address that the datagram came from
    device_time String,          -- the device's local time, as sent, of an unknown zone
    level       Int64,           -- not bounded, may be negative
    id          Int64,           -- event id, signed
    path        String,
    message     String
) ENGINE = ReplacingMergeTree
PARTITION BY toYYYYMMDD(received) -- a day is dropped in one piece
ORDER BY (device, received, microsecond, receiver, sequence);

-- What all servers hold: to be inserted into, and to be asked. A device's events are all on
-- one server.
CREATE TABLE events AS events_local
ENGINE = Distributed(events, default, events_local, cityHash64(device));

-- The records of the devices' own logs, which are numbered, as the collector gives them. There
-- are no transactions here, so a collection may come in part, or twice: rows with the same
-- device, number and time become one when parts are merged. Ask with FINAL.
CREATE TABLE exact_local (
    device  String,           -- as in "events"
    number  UInt64,
    time    String,           -- UTC, six digits of the second: 2026-11-20T23:55:00.232614Z
    event   Int64,
    level   Nullable(Int64),  -- these two are NULL where the catalogue does not know the event
    path    String,
    message Nullable(String),
    state   String            -- whole, damaged or likely
) ENGINE = ReplacingMergeTree
-- By months: one log may reach back for years, and an insert into too many is refused.
PARTITION BY substring(time, 1, 7)
ORDER BY (device, number, time);

CREATE TABLE exact AS exact_local
ENGINE = Distributed(events, default, exact_local, cityHash64(device));
