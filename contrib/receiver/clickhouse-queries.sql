-- SPDX-License-Identifier: Apache-2.0
--
-- What operators ask of the tables of clickhouse.sql, on any of its servers, whose time zone
-- is taken to be UTC. A condition on "received" keeps a query to the days that it names (on
-- the bare column: with toDate(received) old servers read all days), one on "device" to the
-- few blocks that hold it.

-- One device in the last day, newest 100
SELECT received, microsecond, level, id, path, message
FROM events
WHERE device = '10.0.3.20' AND received >= now() - 86400
ORDER BY received DESC, microsecond DESC, sequence DESC
LIMIT 100;

-- Yesterday's worst devices, by errors
SELECT device, countIf(level <= 3) AS errors, count() AS events
FROM events
WHERE received >= toDateTime(yesterday()) AND received < toDateTime(today())
GROUP BY device
ORDER BY errors DESC, device
LIMIT 20;

-- One event id over the fleet, last 7 days
SELECT device, count() AS times, min(received) AS first, max(received) AS last
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
SELECT received, device, level, id, path, message
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

-- By device and day: events received, records known exactly, and the difference
SELECT device, day, sum(events) AS received, sum(records) AS exactly,
       exactly - received AS missing
FROM (
    SELECT device, toDate(received) AS day,
           toInt64(uniqExact(receiver, sequence)) AS events, toInt64(0) AS records
    FROM events
    WHERE received >= toDateTime(today() - 2)
    GROUP BY device, day
    UNION ALL
    SELECT device, toDate(substring(time, 1, 10)) AS day,
           toInt64(0) AS events, toInt64(uniqExact(number, time)) AS records
    FROM exact
    WHERE time >= toString(today() - 2)
    GROUP BY device, day
)
GROUP BY device, day
ORDER BY missing DESC, device, day
LIMIT 100;
