-- SPDX-License-Identifier: Apache-2.0
--
-- The events of a fleet, as store-postgresql.conf inserts them: a partition for each day, by
-- UTC. Have the owner of the table make the coming days and drop old ones once a day, by cron
-- for example, in this order:
--
--     10 3 * * * postgres psql -qAtX -d events -c "SELECT create_event_days(7)" -c "SELECT drop_event_days(90)"
--
-- If that stops, nothing is refused: events of a day that has no partition wait in
-- events_default, and go to their day as soon as it is made.
--
-- All of it goes into the schema public, in which nobody else may make anything.

SET search_path = public;
REVOKE CREATE ON SCHEMA public FROM PUBLIC;
CREATE TABLE events (
    received    timestamptz NOT NULL, -- by the receiver's clock
    sequence    bigint      NOT NULL, -- order among those received at the same moment
    host        inet        NOT NULL, -- the address that the datagram came from
    device_time timestamp,            -- the device's local time, of an unknown zone
    level       bigint      NOT NULL, -- not bounded, may be negative
    event_id    bigint      NOT NULL, -- signed 32 bits
    path        text        NOT NULL,
    message     text        NOT NULL
) PARTITION BY RANGE (received);
CREATE TABLE events_default PARTITION OF events DEFAULT;

-- Rows come roughly in the order of "received"; this index stays tiny.
CREATE INDEX events_received ON events USING brin (received);
CREATE INDEX events_host ON events (host, received);

-- Makes the partition of a day, with what waits for it. False where it is there already.
CREATE FUNCTION create_event_day(day date) RETURNS boolean
LANGUAGE plpgsql SET timezone = 'UTC' SET lock_timeout = '5s'
SET search_path = pg_catalog, public, pg_temp AS $$
DECLARE
    name text := to_char(day, '"events_"YYYYMMDD');
BEGIN
    IF EXISTS (SELECT FROM pg_inherits JOIN pg_class ON pg_class.oid = inhrelid
               WHERE inhparent = 'events'::regclass AND relname = name) THEN
        RETURN false;
    END IF;
    -- Whoever inserts waits until this is done, since none may come to wait meanwhile, and one
    -- that had chosen the default partition already would be refused. So does whoever reads
    -- it. Where a long question holds it this gives up after five seconds, until the next time.
    LOCK TABLE ONLY events IN SHARE ROW EXCLUSIVE MODE;
    EXECUTE format('CREATE TABLE public.%I (LIKE events)', name);
    EXECUTE format('WITH waiting AS (DELETE FROM events_default WHERE received >= %L '
                   'AND received < %L RETURNING *) INSERT INTO public.%I SELECT * FROM waiting',
                   day, day + 1, name);
    EXECUTE format('ALTER TABLE events ATTACH PARTITION public.%I FOR VALUES FROM (%L) TO (%L)',
                   name, day, day + 1);
    RETURN true;
END $$;

-- Makes the partitions of today, of so many days ahead, and of all days of which events wait.
-- Returns how many are new.
CREATE FUNCTION create_event_days(ahead integer) RETURNS integer
LANGUAGE plpgsql SET timezone = 'UTC' SET search_path = pg_catalog, public, pg_temp AS $$
DECLARE
    day date;
    created integer := 0;
BEGIN
    FOREACH day IN ARRAY ARRAY(
        SELECT current_date + generate_series(0, ahead)
        UNION SELECT received::date FROM events_default
        WHERE received BETWEEN '0001-01-01' AND '9999-12-31') -- the others stay where they are
    LOOP
        created := created + create_event_day(day)::integer;
    END LOOP;
    RETURN created;
END $$;

-- Drops the partitions of the days before the last so many. Returns how many these were.
CREATE FUNCTION drop_event_days(keep integer) RETURNS integer
LANGUAGE plpgsql SET timezone = 'UTC' SET lock_timeout = '5s'
SET search_path = pg_catalog, public, pg_temp AS $$
DECLARE
    name text;
    dropped integer := 0;
BEGIN
    FOR name IN
        SELECT relname FROM pg_inherits JOIN pg_class ON pg_class.oid = inhrelid
        WHERE inhparent = 'events'::regclass AND relname ~ '^events_[0-9]{8}$'
            AND right(relname, 8)::date < current_date - keep
    LOOP
        EXECUTE format('DROP TABLE public.%I', name);
        dropped := dropped + 1;
    END LOOP;
    RETURN dropped;
END $$;

SELECT create_event_days(7);

-- A row that is refused takes the rest of its batch along: a date that does not exist, such
-- as 30 February, becomes NULL instead.
CREATE FUNCTION as_device_time(value text) RETURNS timestamp
LANGUAGE plpgsql STABLE STRICT SET search_path = pg_catalog AS $$
BEGIN
    RETURN value::timestamp;
EXCEPTION WHEN data_exception THEN
    RETURN NULL;
END $$;

-- The receiver may add rows, and nothing else.
CREATE ROLE events_writer LOGIN;
GRANT INSERT ON events TO events_writer;
