// SPDX-License-Identifier: Apache-2.0
//
// The client behind peers-hook and peers/run: the sender of everybody's events, and the caller
// whose answers are timed.
#include "clocks.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <systemd/sd-bus.h>
#include <unistd.h>

namespace
{

constexpr const char *service = SEL_SERVICE_NAME;
constexpr const char *readyService = "bench.ReadyText";
constexpr const char *object = "/system/eventlog";
constexpr const char *interface = "local.LogManager";
constexpr const char *propertiesInterface = "org.freedesktop.DBus.Properties";

[[noreturn]] void fail(const char *what, const char *why)
{
    (void)std::fprintf(stderr, "hookbus: %s: %s\n", what, why);
    std::exit(1);
}

//! A negative result of sd-bus ends the program.
int need(const char *what, int result)
{
    if (result < 0) {
        fail(what, std::strerror(-result));
    }
    return result;
}

sd_bus *dial(const char *address)
{
    sd_bus *bus = nullptr;
    need("bus", sd_bus_new(&bus));
    need("address", sd_bus_set_address(bus, address));
    need("client", sd_bus_set_bus_client(bus, 1));
    need("connection", sd_bus_start(bus));
    return bus;
}

sd_bus_message *newCall(sd_bus *bus, const char *callInterface, const char *method)
{
    sd_bus_message *call = nullptr;
    need(method,
         sd_bus_message_new_method_call(bus, &call, service, object, callInterface, method));
    return call;
}

//! Sends a call; null where it was answered by an error.
sd_bus_message *ask(sd_bus *bus, sd_bus_message *call)
{
    sd_bus_message *reply = nullptr;
    const int result = sd_bus_call(bus, call, 0, nullptr, &reply);
    sd_bus_message_unref(call);
    return result < 0 ? nullptr : reply;
}

//! Reads a property that costs the daemon nothing; it is answered after all that came before it.
bool answers(sd_bus *bus)
{
    sd_bus_message *const call = newCall(bus, propertiesInterface, "Get");
    need("Get", sd_bus_message_append(call, "ss", interface, "logLocal"));
    sd_bus_message *const reply = ask(bus, call);
    sd_bus_message_unref(reply);
    return reply != nullptr;
}

/*!
 * Says when the daemon's object answers. The name's owner comes as a signal, so up to
 * then the daemon is left alone.
 */
void waitForDaemon(sd_bus *bus)
{
    static bool owned = false;
    const auto onOwner = [](sd_bus_message *message, void *, sd_bus_error *) {
        const char *name = "";
        if (sd_bus_message_read(message, "s", &name) >= 0 && std::strcmp(name, service) == 0) {
            owned = true;
        }
        return 0;
    };
    need("match",
         sd_bus_match_signal(bus, nullptr, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                             "org.freedesktop.DBus", "NameOwnerChanged", onOwner, nullptr));
    say("listening", 1);
    const double deadline = wallSeconds() + 10;
    while (!owned && wallSeconds() < deadline) {
        if (need("process", sd_bus_process(bus, nullptr)) == 0) {
            need("wait", sd_bus_wait(bus, 100000));
        }
    }
    while (owned && wallSeconds() < deadline) {
        if (answers(bus)) {
            say("ready", wallSeconds());
            return;
        }
        (void)usleep(500);
    }
    fail("waiting", owned ? "the daemon's object does not answer" : "nobody takes the name");
}

void setProperty(sd_bus *bus, const char *name, const char *type, int value)
{
    sd_bus_message *const call = newCall(bus, propertiesInterface, "Set");
    need("Set", sd_bus_message_append(call, "ssv", interface, name, type, value));
    sd_bus_message *const reply = ask(bus, call);
    if (reply == nullptr) {
        fail(name, "refused");
    }
    sd_bus_message_unref(reply);
}

//! Says when everything sent before has been dealt with.
void waitUntilIdle(sd_bus *bus)
{
    if (!answers(bus)) {
        fail("waiting", "no answer");
    }
    say("idle", wallSeconds());
}

void sayNewest(sd_bus *bus)
{
    sd_bus_message *const reply = ask(bus, newCall(bus, interface, "getMaxLogNr"));
    uint64_t number = 0;
    if (reply == nullptr) {
        fail("getMaxLogNr", "no answer");
    }
    need("getMaxLogNr", sd_bus_message_read(reply, "t", &number));
    sd_bus_message_unref(reply);
    say("newest", double(number));
}

//! Round trips of a call; the text is looked at, not converted. The first one is not counted.
void measureAnswers(sd_bus *bus, int calls, const std::function<sd_bus_message *()> &makeCall)
{
    std::vector<double> times;
    std::size_t bytes = 0;
    for (int step = 0; step <= calls; ++step) {
        const char *text = "";
        const double start = wallSeconds();
        sd_bus_message *const reply = ask(bus, makeCall());
        if (reply == nullptr) {
            fail("call", "no answer");
        }
        need("call", sd_bus_message_read(reply, "s", &text));
        const double time = wallSeconds() - start;
        if (step > 0) {
            times.push_back(time);
        }
        bytes = std::strlen(text);
        sd_bus_message_unref(reply);
    }
    say("reply_us", median(times) * 1e6);
    say("bytes", double(bytes));
}

void measureJson(sd_bus *bus, uint64_t first, uint64_t last, int calls)
{
    measureAnswers(bus, calls, [=] {
        sd_bus_message *const call = newCall(bus, interface, "jsonLogfile");
        need("jsonLogfile", sd_bus_message_append(call, "tts", first, last, "en"));
        return call;
    });
}

//! Answers with a text that is there already, until it is ended or nobody has asked for long.
void serveReadyText(sd_bus *bus, int size)
{
    std::string text(std::size_t(size), 'x');
    const auto onGet = [](sd_bus_message *call, void *ready, sd_bus_error *) {
        return sd_bus_reply_method_return(call, "s", static_cast<std::string *>(ready)->c_str());
    };
    need("object", sd_bus_add_object(bus, nullptr, object, onGet, &text));
    need("name", sd_bus_request_name(bus, readyService, 0));
    say("serving", 1);
    constexpr uint64_t patience = 20000000; // microseconds
    while (need("process", sd_bus_process(bus, nullptr)) > 0
           || need("wait", sd_bus_wait(bus, patience)) > 0) { }
}

void measureReadyText(sd_bus *bus, int calls)
{
    measureAnswers(bus, calls, [=] {
        sd_bus_message *call = nullptr;
        need("call",
             sd_bus_message_new_method_call(bus, &call, readyService, object, interface, "get"));
        return call;
    });
}

//! The stream as status changes; ends when the bus has taken everything.
void sendStream(sd_bus *bus, int events)
{
    const Stopwatch watch;
    for (int step = 0; step < events; ++step) {
        const auto n = unsigned(step);
        std::array<char, 24> unit{};
        (void)std::snprintf(unit.data(), unit.size(), "supply%06u-nominal", n % 1000000U);
        sd_bus_message *change = nullptr;
        need(
            "signal",
            sd_bus_message_new_signal(bus, &change, "/power/supply", "com.tovel.status", "change"));
        need("signal",
             sd_bus_message_append(change, "iv", 1001, "av", 4, "b", int(n & 1U), "i",
                                   int((n * 2654435761U) % 200000U) - 100000, "d",
                                   11.5 + (n % 977) / 64.0, "s", unit.data()));
        need("send", sd_bus_send(bus, change, nullptr));
        sd_bus_message_unref(change);
        if (n % 64 == 63) {
            need("flush", sd_bus_flush(bus));
        }
    }
    need("flush", sd_bus_flush(bus));
    sd_bus_message *reply = nullptr;
    need("GetId",
         sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                            "org.freedesktop.DBus", "GetId", nullptr, &reply, ""));
    sd_bus_message_unref(reply);
    watch.sayRateAndCpu(events);
}

//! Notes the process's number and the time in a file and becomes a command.
[[noreturn]] void startCommand(const char *fileName, char *const *command)
{
    std::FILE *const note = std::fopen(fileName, "w");
    if (note == nullptr || std::fprintf(note, "pid %d\nstarted %.9f\n", getpid(), wallSeconds()) < 0
        || std::fclose(note) != 0) {
        fail(fileName, std::strerror(errno));
    }
    (void)execv(*command, command);
    fail(*command, std::strerror(errno));
}

} // namespace

int main(int argc, char *argv[])
{
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "exec" && argc > 3) {
        startCommand(argv[2], argv + 3);
    }
    const auto number = [argv](int word) { return std::atoi(argv[word]); };
    const auto wide = [argv](int word) { return std::strtoull(argv[word], nullptr, 10); };
    struct Mode {
        int words;
        std::function<void(sd_bus *)> run;
    };
    const std::map<std::string, Mode> modes{
        {"wait", {3, waitForDaemon}},
        {"idle", {3, waitUntilIdle}},
        {"newest", {3, sayNewest}},
        {"set", {6, [&](sd_bus *bus) { setProperty(bus, argv[3], argv[4], number(5)); }}},
        {"json", {6, [&](sd_bus *bus) { measureJson(bus, wide(3), wide(4), number(5)); }}},
        {"serve", {4, [&](sd_bus *bus) { serveReadyText(bus, number(3)); }}},
        {"ready", {4, [&](sd_bus *bus) { measureReadyText(bus, number(3)); }}},
        {"send", {4, [&](sd_bus *bus) { sendStream(bus, number(3)); }}},
    };
    const auto chosen = modes.find(mode);
    if (chosen == modes.end() || argc != chosen->second.words) {
        (void)std::fputs("usage: hookbus exec FILE COMMAND... | wait ADDRESS | idle ADDRESS |\n"
                         "       newest ADDRESS | set ADDRESS PROPERTY b|i VALUE |\n"
                         "       json ADDRESS FIRST LAST CALLS | send ADDRESS EVENTS |\n"
                         "       serve ADDRESS BYTES | ready ADDRESS CALLS\n",
                         stderr);
        return 2;
    }
    sd_bus *const bus = dial(argv[2]);
    chosen->second.run(bus);
    sd_bus_flush_close_unref(bus);
    return 0;
}
