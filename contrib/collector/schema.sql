-- SPDX-License-Identifier: Apache-2.0
--
-- What the logs of a fleet's devices hold, as collect-fleet stores it, beside the table of
-- contrib/receiver/schema.sql, which comes first. A device is called by the address that its
-- datagrams come from; so the view at the end joins the two.

CREATE TABLE exact (
    device  text        NOT NULL,
    number  numeric(20) NOT NULL, -- unsigned 64 bits
    time    timestamptz NOT NULL, -- by the device's clock
    event   bigint      NOT NULL,
    level   bigint,               -- these three are NULL where the catalogue does not
    path    text        NOT NULL, -- know the event
    message text,
    state   text        NOT NULL, -- whole, damaged or likely
    PRIMARY KEY (device, number, time)
);
CREATE INDEX exact_time ON exact USING brin (time);

-- For other stores: {"device":"192.0.2.11", "number":"4711", ...}
CREATE FUNCTION as_json(record exact) RETURNS json LANGUAGE sql STABLE AS $$
    SELECT json_build_object('device', record.device, 'number', record.number::text,
        'time', to_char(record.time AT TIME ZONE 'UTC', 'YYYY-MM-DD"T"HH24:MI:SS.US"Z"'),
        'event', record.event, 'level', record.level, 'path', record.path,
        'message', record.message, 'state', record.state)
$$;

-- The last record that is here; the device is asked for those behind it.
CREATE TABLE places (
    device text PRIMARY KEY,
    number numeric(20) NOT NULL,
    time   timestamptz NOT NULL,
    stored timestamptz NOT NULL DEFAULT now() -- when it was asked last, and answered
);

-- Numbers of which there is no record any more, both included. What numbered so may have
-- happened at any time between the records beside it; "time" is that of the one behind.
CREATE TABLE missing (
    device text        NOT NULL,
    first  numeric(20) NOT NULL,
    last   numeric(20) NOT NULL,
    time   timestamptz NOT NULL,
    PRIMARY KEY (device, first, last, time)
);

-- Where numbers began again: the first record of the new ones.
CREATE TABLE restarted (
    device text        NOT NULL,
    number numeric(20) NOT NULL,
    time   timestamptz NOT NULL,
    PRIMARY KEY (device, number, time)
);

-- Bytes in a device's files of which not even a number could be read.
CREATE TABLE damage (
    device text        NOT NULL,
    stored timestamptz NOT NULL DEFAULT now(),
    line   jsonb       NOT NULL
);

-- The time of the first whole record behind a line of an answer.
CREATE FUNCTION time_behind(place bigint) RETURNS timestamptz LANGUAGE plpgsql AS $$
BEGIN
    RETURN (SELECT line->>'time' FROM parsed
            WHERE position > place AND line @> '{"state": "whole"}' ORDER BY position LIMIT 1);
END $$;

-- Stores one answer of a device, all of it or nothing: the lines of the temporary table
-- "collected", which were asked for behind the place that is given. Returns the records that
-- are new.
CREATE FUNCTION store_collected(of_device text, after numeric, at timestamptz)
RETURNS SETOF exact LANGUAGE plpgsql AS $$
DECLARE
    place places;
    resume jsonb;
BEGIN
    -- Of two collectors at once the second finds the place moved on.
    PERFORM pg_advisory_xact_lock(hashtextextended(of_device, 0));
    SELECT * INTO place FROM places WHERE device = of_device;
    IF (place.number, place.time) IS DISTINCT FROM (after, at) THEN
        RAISE 'another collector has stored what is new meanwhile';
    END IF;

    -- A text cannot hold a zero byte here; it becomes what the receiver makes of it, too.
    CREATE TEMPORARY TABLE parsed (position bigint PRIMARY KEY, line jsonb) ON COMMIT DROP;
    INSERT INTO parsed SELECT position, CASE strpos(line, '\u0000')
        WHEN 0 THEN line
        ELSE regexp_replace(line, '(?<!\\)((?:\\\\)*)\\u0000', '\1#000', 'g') END::jsonb
        FROM collected;

    SELECT line INTO resume FROM parsed ORDER BY position DESC LIMIT 1;
    IF resume->'resume' IS NULL THEN
        RAISE 'the answer is not complete: its last line is not "resume"';
    END IF;

    RETURN QUERY INSERT INTO exact
        SELECT of_device, (line->>'number')::numeric, (line->>'time')::timestamptz,
            (line->>'event')::bigint, (line->>'levelNumber')::bigint, line->>'path',
            line->>'message', line->>'state'
        FROM parsed WHERE line ?& '{number,time}' ORDER BY position
        ON CONFLICT DO NOTHING RETURNING *;
    INSERT INTO missing
        SELECT of_device, (line->'missing'->>0)::numeric, (line->'missing'->>1)::numeric,
            time_behind(position)
        FROM parsed WHERE line ? 'missing' ON CONFLICT DO NOTHING;
    INSERT INTO restarted
        SELECT of_device, (line->>'restarted')::numeric, time_behind(position)
        FROM parsed WHERE line ? 'restarted' ON CONFLICT DO NOTHING;
    INSERT INTO damage (device, line)
        SELECT of_device, line FROM parsed WHERE line ? 'state' AND NOT line ?& '{number,time}';
    INSERT INTO places VALUES (of_device, (resume->>'resume')::numeric,
                               (resume->>'time')::timestamptz)
        ON CONFLICT (device) DO UPDATE
        SET number = excluded.number, time = excluded.time, stored = excluded.stored;
END $$;


-- What the two tell of each device and day, by UTC. The day of "received" is that of the
-- receiver's clock, since the datagram tells no other; all else goes by the device's. So an
-- event around midnight, or a device whose clock is wrong, shifts the difference from one day
-- to the other: the sum over days is right, up to what both keep, and what the collector has
-- not asked for yet.
CREATE VIEW completeness AS
SELECT device, day,
    sum(received) AS received, -- by datagram
    sum(known) AS exact,       -- by the device's log
    sum(unsent) AS unsent,     -- of these, unknown to the catalogue and so never sent
    sum(gone) AS missing,      -- from the log, counted on the day of the record behind
    sum(known) - sum(unsent) - sum(received) AS difference
FROM (
    SELECT host(host) AS device, (received AT TIME ZONE 'UTC')::date AS day,
        count(*) AS received, 0 AS known, 0 AS unsent, 0 AS gone
    FROM events GROUP BY 1, 2
    UNION ALL
    SELECT device, (time AT TIME ZONE 'UTC')::date,
        0, count(*), count(*) FILTER (WHERE level IS NULL), 0
    FROM exact GROUP BY 1, 2
    UNION ALL
    SELECT device, (time AT TIME ZONE 'UTC')::date, 0, 0, 0, sum(last - first + 1)
    FROM missing GROUP BY 1, 2
) AS counted GROUP BY device, day;

-- The collector may add, and move the places on.
CREATE ROLE events_collector LOGIN;
GRANT SELECT, INSERT ON exact, places, missing, restarted, damage TO events_collector;
GRANT UPDATE ON places TO events_collector;
