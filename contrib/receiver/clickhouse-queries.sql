-- SPDX-License-Identifier: Apache-2.0
--
-- What operators ask of the tables of clickhouse.sql, on any of its servers, whose time zone
-- is taken to be UTC. A condition on "received" keeps a query to the days that it names (on
-- the bare column: with toDate(received) old servers read all days), one on "device" to the
-- few blocks that hold it.
--
-- What came twice is there twice until parts are merged, which receiver and sequence tell.
-- LIMIT 1 BY these would not do: old servers apply it after the other LIMIT.

-- One device in the last day, newest 100
SELECT DISTINCT received, microsecond, level, id, path, message, receiver, sequence
FROM events
WHERE device = '10.0.3.20' AND received >= now() - 86400
ORDER BY received DESC, microsecond DESC, sequence DESC
LIMIT 100;

-- Yesterday's worst devices, by errors
SELECT device, uniqExactIf(receiver, sequence, level <= 3) AS errors,
       uniqExact(receiver, sequence) AS events
FROM events
WHERE received >= toDateTime(yesterday()) AND received < toDateTime(today())
GROUP BY device
ORDER BY errors DESC, device
LIMIT 20;

-- One event id over the fleet, last 7 days
SELECT device, uniqExact(receiver, sequence) AS times, min(received) AS first, max(received) AS last
FROM events
WHERE id = 2001 AND received >= now() - 7 * 86400
GROUP BY device
ORDER BY times DESC, device
LIMIT 50;

-- Devices silent for an hour that were heard in the last 7 days
SELECT device, max(received) AS last
FROM events
WHERE received >= now() - 7 * 86400
GROUP BY device
HAVING last < now() - 3600
ORDER BY last;

-- A text in all messages, newest 100
SELECT DISTINCT received, microsecond, device, level, id, path, message, receiver, sequence
FROM events
WHERE positionCaseInsensitiveUTF8(message, 'überhitzt') > 0
ORDER BY received DESC, microsecond DESC, sequence DESC
LIMIT 100;

-- Yesterday's events that are there twice, until parts are merged
SELECT receiver, sequence, device, count() AS times
FROM events
WHERE received >= toDateTime(yesterday()) AND received < toDateTime(today())
GROUP BY receiver, sequence, device, received, microsecond
HAVING times > 1
LIMIT 100;

-- "unsent" are those records that the catalogue does not know, of which no datagram is sent.
--
-- By device and day: events received, records known exactly, unsent ones, and the difference
SELECT device, day, sum(events) AS received, sum(records) AS exact, sum(unknown) AS unsent,
       exact - unsent - received AS difference
FROM (
    SELECT device, toDate(received) AS day,
           toInt64(uniqExact(receiver, sequence)) AS events, toInt64(0) AS records,
           toInt64(0) AS unknown
    FROM events
    WHERE received >= toDateTime(today() - 2)
    GROUP BY device, day
    UNION ALL
    SELECT device, toDate(substring(time, 1, 10)) AS day,
           toInt64(0) AS events, toInt64(uniqExact(number, time)) AS records,
           toInt64(uniqExactIf(number, time, level IS NULL)) AS unknown
    FROM exact
    WHERE time >= toString(today() - 2)
    GROUP BY device, day
)
GROUP BY device, day
ORDER BY difference DESC, device, day
LIMIT 100;
