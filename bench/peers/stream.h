// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the programs here have in common, in C and in C++: the stream of events that the product's
// benchmarks take too, the clocks, how a result is told, and a writer of records in plain C.

#include <errno.h>
#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

enum {
    eventId = 1001,
    bundleLimit = 2560,    // bytes; a bundle is written once it has more
    fileLimit = 102400,    // bytes; the next bundle begins a new file
    highestIndex = 40,     // of the files that are kept
    room = 512,            // bytes; no record, text or file name has more
    answerRoom = 64 << 20, // bytes
    patience = 40,         // seconds, with the stream
};

// What stands in the files, one after the other; a text only as far as it goes. A record ends
// with a line feed and the size of all before it.
struct __attribute__((packed)) Head {
    uint64_t number;
    int64_t seconds;
    int32_t microseconds;
    int32_t padding;
    int32_t id;
};
struct __attribute__((packed)) Text {
    uint16_t size;
    char text[30];
};
struct __attribute__((packed)) Event {
    uint8_t enabled;
    int32_t load;
    double level;
    struct Text unit;
};

static inline struct Text makeText(const char *text)
{
    struct Text made;
    made.size = (uint16_t)snprintf(made.text, sizeof made.text, "%s", text);
    return made;
}

static inline struct Event makeEvent(int number)
{
    const uint32_t n = (uint32_t)number;
    struct Event event = {
        n & 1U, (int32_t)((n * 2654435761U) % 200000U) - 100000, 11.5 + (n % 977) / 64.0, {0, ""}};
    event.unit.size = (uint16_t)snprintf(event.unit.text, sizeof event.unit.text,
                                         "supply%06u-nominal", n % 1000000U);
    return event;
}

//! One element of an answer, as the product prints it; returns its end.
static inline char *printJson(char *out, const struct Head *head, const struct Text *path,
                              const struct Event *event)
{
    out += sprintf(out,
                   "{\"eventnr\":%llu,\"secs\":\"%lld.%d\",\"eventtype\":%d,"
                   "\"loglevel\":\"warning\",\"path\":\"%.*s\",\"msg\":\"",
                   (unsigned long long)head->number, (long long)head->seconds, head->microseconds,
                   head->id, path->size, path->text);
    return out
        + sprintf(out, "Supply enabled %d, load %d mA, level %g V, unit %.*s\"},\n", event->enabled,
                  event->load, event->level, event->unit.size, event->unit.text);
}

static inline void fail(const char *what)
{
    fprintf(stderr, "%s: %s\n", what, strerror(errno));
    exit(1);
}

static inline double clockSeconds(clockid_t clock)
{
    struct timespec now;
    clock_gettime(clock, &now);
    return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

//! One result a line, for `run`.
static inline void say(const char *key, double value)
{
    printf("%s %.17g\n", key, value);
    fflush(stdout);
}

static double startCpu;

static inline void start(void)
{
    startCpu = clockSeconds(CLOCK_PROCESS_CPUTIME_ID);
}

//! The CPU microseconds that each of so many events, and no fewer, has taken since the start.
static inline void sayCost(const char *key, int done, int events)
{
    say(key, (clockSeconds(CLOCK_PROCESS_CPUTIME_ID) - startCpu) / done * 1e6);
    if (done != events) {
        fail("events are missing");
    }
}

//! The median microseconds of a step; \a prepare, if there is one, goes before each untimed.
static inline void sayMedian(const char *key, int steps, void (*prepare)(void), void (*step)(int))
{
    double times[64]; // sorted
    for (int n = 0; n < steps; ++n) {
        if (prepare) {
            prepare();
        }
        const double begin = clockSeconds(CLOCK_MONOTONIC);
        step(n);
        const double time = clockSeconds(CLOCK_MONOTONIC) - begin;
        int place = n;
        for (; place > 0 && times[place - 1] > time; --place) {
            times[place] = times[place - 1];
        }
        times[place] = time;
    }
    say(key, times[steps / 2] * 1e6);
}

//! The one writer of a program: bundles, each one write and one fsync, in rotating files.
static struct {
    const char *folder;
    int file; // 0 as long as none is to be written
    uint64_t number;
    size_t fileSize;
    size_t filled;
    char bundle[bundleLimit + room];
} writer;

static inline int openFile(int index, int flags)
{
    char name[room];
    snprintf(name, sizeof name, "%s/%d.log", writer.folder, index);
    return open(name, flags | O_CLOEXEC, 0644);
}

static inline void beginFile(void)
{
    char from[room];
    char to[room];
    for (int index = highestIndex; index > 0; --index) {
        snprintf(from, sizeof from, "%s/%d.log", writer.folder, index - 1);
        snprintf(to, sizeof to, "%s/%d.log", writer.folder, index);
        (void)rename(from, to); // most are not there yet
    }
    writer.fileSize = 0;
    writer.file = openFile(0, O_WRONLY | O_CREAT | O_TRUNC);
    if (writer.file < 0) {
        fail(from);
    }
}

static inline void writeBundle(void)
{
    if (write(writer.file, writer.bundle, writer.filled) != (ssize_t)writer.filled
        || fsync(writer.file) != 0) {
        fail("writing");
    }
    writer.fileSize += writer.filled;
    writer.filled = 0;
    if (writer.fileSize >= fileLimit) {
        close(writer.file);
        beginFile();
    }
}

static inline void store(int32_t id, const struct Text *path, const struct Event *event)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const struct Head head = {++writer.number, now.tv_sec, (int32_t)(now.tv_nsec / 1000), 0, id};
    char *const begin = writer.bundle + writer.filled;
    char *end = (char *)mempcpy(begin, &head, sizeof head);
    end = (char *)mempcpy(end, path, sizeof path->size + path->size);
    end = (char *)mempcpy(end, event, offsetof(struct Event, unit.text) + event->unit.size);
    *end++ = '\n';
    const uint16_t size = (uint16_t)(end - begin);
    memcpy(end, &size, sizeof size);
    writer.filled += size + sizeof size;
    if (writer.filled > bundleLimit) {
        writeBundle();
    }
}

//! A receiver's words are ADDRESS EVENTS [FOLDER]; it stores only if there is a folder.
static int events, received;

static inline void prepareReceiver(int argc, char *argv[])
{
    alarm(patience);
    events = atoi(argv[2]);
    if (argc > 3) {
        writer.folder = argv[3];
        beginFile();
    }
}

static inline void finishReceiver(void)
{
    if (writer.file > 0) {
        writeBundle();
    }
    sayCost("cpu_us", received, events);
}
