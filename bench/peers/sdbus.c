// SPDX-License-Identifier: Apache-2.0
//
// sdbus ADDRESS EVENTS [FOLDER]: a receiver of status changes on sd-bus that only counts them, or
// stores them in plain C.
#include "stream.h"

#include <systemd/sd-bus.h>

static int need(int result)
{
    if (result < 0) {
        errno = -result;
        fail("bus");
    }
    return result;
}

static int onChange(sd_bus_message *message, void *data, sd_bus_error *error)
{
    (void)data;
    (void)error;
    if (received++ == 0) {
        start();
    }
    if (writer.file > 0) {
        int id, enabled, load;
        double level;
        const char *unit;
        need(sd_bus_message_read(message, "iv", &id, "av", 4, "b", &enabled, "i", &load, "d",
                                 &level, "s", &unit));
        const struct Event event = {enabled != 0, load, level, makeText(unit)};
        const struct Text path = makeText(sd_bus_message_get_path(message));
        store(id, &path, &event);
    }
    return 0;
}

int main(int argc, char *argv[])
{
    prepareReceiver(argc, argv);
    sd_bus *bus = NULL;
    setenv("DBUS_SYSTEM_BUS_ADDRESS", argv[1], 1);
    need(sd_bus_open_system(&bus));
    need(sd_bus_match_signal(bus, NULL, NULL, NULL, "com.tovel.status", "change", onChange, NULL));
    need(sd_bus_request_name(bus, "peers.Receiver", 0));
    say("ready", 1);
    while (received < events) {
        if (need(sd_bus_process(bus, NULL)) == 0) {
            need(sd_bus_wait(bus, UINT64_MAX));
        }
    }
    finishReceiver();
    return 0;
}
