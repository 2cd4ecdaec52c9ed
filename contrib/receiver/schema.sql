-- SPDX-License-Identifier: Apache-2.0
--
-- The events of a fleet, as store-postgresql.conf inserts them.

CREATE TABLE events (
    received    timestamptz NOT NULL, -- by the receiver's clock
    sequence    bigint      NOT NULL, -- order among those received at the same moment
    host        inet        NOT NULL, -- the address that the datagram came from
    device_time timestamp,            -- the device's local time, of an unknown zone
    level       bigint      NOT NULL, -- not bounded, may be negative
    event_id    bigint      NOT NULL, -- signed 32 bits
    path        text        NOT NULL,
    message     text        NOT NULL
);

-- Rows come roughly in the order of "received"; this index stays tiny.
CREATE INDEX events_received ON events USING brin (received);
CREATE INDEX events_host ON events (host, received);

-- A row that is refused takes the rest of its batch along: a date that does not exist, such
-- as 30 February, becomes NULL instead.
CREATE FUNCTION as_device_time(value text) RETURNS timestamp
LANGUAGE plpgsql STABLE STRICT AS $$
BEGIN
    RETURN value::timestamp;
EXCEPTION WHEN data_exception THEN
    RETURN NULL;
END $$;

-- The receiver may add rows, and nothing else.
CREATE ROLE events_writer LOGIN;
GRANT INSERT ON events TO events_writer;
