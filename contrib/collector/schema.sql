-- SPDX-License-Identifier: Apache-2.0
--
-- What the logs of a fleet's devices hold, as collect-fleet stores it, beside the table of
-- contrib/receiver/schema.sql, which comes first. A device is called by the address that its
-- datagrams come from; so the view at the end joins the two.

SET search_path = public;

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
    CHECK (first <= last),
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

-- A number and a time as collect prints them. Whatever else a device says there would spoil
-- more than its own rows, so an answer with it is refused.
CREATE FUNCTION log_number(value jsonb) RETURNS numeric LANGUAGE plpgsql IMMUTABLE AS $$
BEGIN
    IF jsonb_typeof(value) = 'string' AND value #>> '{}' ~ '^[0-9]{1,20}$'
        AND (value #>> '{}')::numeric < 18446744073709551616 THEN
        RETURN value #>> '{}';
    END IF;
    RAISE 'the answer has a number that is none: %', left(value::text, 40);
END $$;
CREATE FUNCTION log_time(value jsonb) RETURNS timestamptz LANGUAGE plpgsql STABLE AS $$
BEGIN
    IF jsonb_typeof(value) = 'string' AND value #>> '{}' ~
        '^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{6}Z$' THEN
        RETURN value #>> '{}';
    END IF;
    RAISE 'the answer has a time that is none: %', left(value::text, 40);
END $$;

-- What a line of an answer is, by what it has.
CREATE FUNCTION kind_of(line jsonb) RETURNS text LANGUAGE plpgsql IMMUTABLE AS $$
BEGIN
    IF jsonb_typeof(line) = 'object' THEN
        IF line ? 'resume' THEN
            RETURN 'resume';
        ELSIF line ? 'missing' THEN
            RETURN 'missing';
        ELSIF line ? 'restarted' THEN
            RETURN 'restarted';
        ELSIF line->>'state' IN ('whole', 'damaged', 'likely')
            AND jsonb_typeof(line->'number') = 'string' AND jsonb_typeof(line->'time') = 'string'
            AND jsonb_typeof(line->'path') = 'string' THEN
            RETURN 'record';
        ELSIF line->>'state' IN ('damaged', 'likely', 'lost') THEN
            RETURN 'damage'; -- also a record whose number or time cannot be told
        END IF;
    END IF;
    RAISE 'the answer has a line that is none: %', left(line::text, 40);
END $$;

-- Stores one answer of a device, all of it or nothing: the lines of the temporary table
-- "collected", which were asked for behind the place that is given. Returns the records that
-- are new.
CREATE FUNCTION store_collected(of_device text, after numeric, at timestamptz)
RETURNS SETOF exact LANGUAGE plpgsql
SET search_path = pg_catalog, public, pg_temp AS $$
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
    -- "behind" is the place of the first whole record from a line on.
    CREATE TEMPORARY TABLE parsed (
        position bigint PRIMARY KEY, kind text, line jsonb, behind bigint
    ) ON COMMIT DROP;
    INSERT INTO parsed
        SELECT position, kind_of(line), line,
            min(position) FILTER (WHERE line @> '{"state": "whole"}')
                OVER (ORDER BY position DESC)
        FROM (SELECT position, CASE strpos(line, '\u0000')
            WHEN 0 THEN line
            ELSE regexp_replace(line, '(?<!\\)((?:\\\\)*)\\u0000', '\1#000', 'g') END::jsonb AS line
            FROM collected) AS lines;

    SELECT line INTO resume FROM parsed WHERE kind = 'resume'
        AND position = (SELECT max(position) FROM parsed);
    IF resume IS NULL OR (SELECT count(*) FROM parsed WHERE kind = 'resume') > 1 THEN
        RAISE 'the answer is not complete: its last line is not "resume"';
    END IF;

    RETURN QUERY INSERT INTO exact
        SELECT of_device, log_number(line->'number'), log_time(line->'time'),
            (line->>'event')::bigint, (line->>'levelNumber')::bigint, line->>'path',
            line->>'message', line->>'state'
        FROM parsed WHERE kind = 'record' ORDER BY position
        ON CONFLICT DO NOTHING RETURNING *;
    INSERT INTO missing
        SELECT of_device, log_number(gap.line->'missing'->0), log_number(gap.line->'missing'->1),
            log_time(next.line->'time')
        FROM parsed AS gap LEFT JOIN parsed AS next ON next.position = gap.behind
        WHERE gap.kind = 'missing' ON CONFLICT DO NOTHING;
    INSERT INTO restarted
        SELECT of_device, log_number(mark.line->'restarted'), log_time(next.line->'time')
        FROM parsed AS mark LEFT JOIN parsed AS next ON next.position = mark.behind
        WHERE mark.kind = 'restarted' ON CONFLICT DO NOTHING;
    INSERT INTO damage (device, line)
        SELECT of_device, line FROM parsed WHERE kind = 'damage';
    INSERT INTO places VALUES (of_device, log_number(resume->'resume'), log_time(resume->'time'))
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
