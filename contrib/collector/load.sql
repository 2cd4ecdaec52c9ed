-- SPDX-License-Identifier: Apache-2.0
--
-- Loads one answer of a device from standard input, for collect-fleet: all of it or nothing.
-- Prints what it stored in short, and then, where asked to, the new records.
\set QUIET on
\set ON_ERROR_STOP on
\pset tuples_only on
\pset format unaligned
\set FETCH_COUNT 1000
BEGIN;
SET LOCAL client_min_messages = warning;
-- The end of this program does not end what the server does for it.
SELECT set_config(name, :'seconds' || 's', true)
    FROM unnest(ARRAY['statement_timeout', 'idle_in_transaction_session_timeout']) AS name
    \g /dev/null
CREATE TEMPORARY TABLE collected (
    position bigint GENERATED ALWAYS AS IDENTITY,
    line text
) ON COMMIT DROP;
-- Quote and delimiter are characters that JSON never holds.
\copy collected (line) FROM pstdin WITH (FORMAT csv, QUOTE E'\x01', DELIMITER E'\x02')
CREATE TEMPORARY TABLE stored ON COMMIT DROP AS
    SELECT record FROM store_collected(:'device', nullif(:'number', '')::numeric,
                                       nullif(:'time', '')::timestamptz) AS record;
SELECT (SELECT count(*) FROM stored) || ' records, '
    || (SELECT coalesce(sum((line->'missing'->>1)::numeric - (line->'missing'->>0)::numeric + 1), 0)
        FROM parsed WHERE kind = 'missing') || ' missing'
    || CASE WHEN EXISTS (SELECT FROM parsed WHERE kind = 'restarted')
        THEN ', numbers began again' ELSE '' END
    || CASE WHEN EXISTS (SELECT FROM parsed WHERE line->>'state' <> 'whole')
        THEN ', damage' ELSE '' END;
\if :print
SELECT as_json(record) FROM stored;
\endif
COMMIT;
