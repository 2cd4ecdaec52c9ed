// SPDX-License-Identifier: Apache-2.0
//
// plain store|read FOLDER EVENTS: plain C that does the work and nothing besides. It stores the
// stream; or reads it back as JSON with all files in memory, and opens it for its ends.
#include "stream.h"

// All files in memory, oldest first, and where each record begins.
static uint8_t *bytes;
static const uint8_t *places[1 << 20]; // taken from the end on
static const uint8_t **const placesEnd = places + (1 << 20);
static const uint8_t **records;
static int count;
static char *text;

static void openLog(void)
{
    int files[highestIndex + 2];
    int index = 0;
    while ((files[index] = openFile(index, O_RDONLY)) >= 0) {
        ++index;
    }
    bytes = malloc(answerRoom);
    uint8_t *end = bytes;
    while (--index >= 0) {
        end += read(files[index], end, (size_t)(bytes + answerRoom - end));
        close(files[index]);
    }
    for (records = placesEnd; end > bytes; *--records = end) {
        uint16_t size;
        memcpy(&size, end - sizeof size, sizeof size);
        end -= size + sizeof size;
    }
    count = (int)(placesEnd - records);
}

static char *printRange(char *out, int first, int last)
{
    *out++ = '[';
    for (int n = first; n < last; ++n) {
        const struct Head *const head = (const void *)records[n];
        const struct Text *const path = (const void *)(head + 1);
        out = printJson(out, head, path, (const void *)(path->text + path->size));
    }
    return memcpy(out - 2, "]", 2); // in place of the last comma
}

static void printFromMiddle(int step)
{
    printRange(text, count / 2 + 7 * step, count / 2 + 7 * step + 100);
}

static void dropFromPageCache(void)
{
    for (int index = 0, file; (file = openFile(index, O_RDONLY)) >= 0; ++index) {
        (void)fdatasync(file);
        (void)posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
        close(file);
    }
}

static void printEnds(int step)
{
    (void)step;
    openLog();
    printRange(text, 0, 1);
    printRange(text, count - 1, count);
    free(bytes);
}

static void storeAll(void)
{
    const struct Text path = makeText("/power/supply");
    beginFile();
    start();
    for (int n = 0; n < events; ++n) {
        const struct Event event = makeEvent(n);
        store(eventId, &path, &event);
    }
    writeBundle();
    sayCost("W1.cpu_us", (int)writer.number, events);
}

static void readAll(void)
{
    start();
    openLog();
    text = malloc(answerRoom);
    printRange(text, 0, count);
    sayCost("W2.cpu_us", count, events);
    sayMedian("W2.range_warm_us", 51, NULL, printFromMiddle);
    free(bytes);
    sayMedian("W3.cold_us", 11, dropFromPageCache, printEnds);
    sayMedian("W3.warm_us", 11, NULL, printEnds);
}

int main(int argc, char *argv[])
{
    writer.folder = argv[argc - 2];
    events = atoi(argv[argc - 1]);
    (strcmp(argv[1], "store") == 0 ? storeAll : readAll)();
    return 0;
}
