// SPDX-License-Identifier: Apache-2.0
#include "ctl/busname.h"

#include <dlfcn.h>

namespace
{

constexpr int systemBus = 1; // DBUS_BUS_SYSTEM

//! The few functions of libdbus that this takes; all null where it is missing.
class BusLibrary // which stays loaded until the process ends
{
public:
    BusLibrary()
        : library(dlopen("libdbus-1.so.3", RTLD_NOW | RTLD_LOCAL))
    {
        find("dbus_bus_get_private", connect);
        find("dbus_bus_name_has_owner", hasOwner);
        find("dbus_connection_close", close);
        find("dbus_connection_unref", forget);
    }

    [[nodiscard]] bool isThere() const { return connect && hasOwner && close && forget; }

    // The last parameter takes an error, or null.
    void *(*connect)(int bus, void *error) = nullptr;
    unsigned (*hasOwner)(void *connection, const char *name, void *error) = nullptr;
    void (*close)(void *connection) = nullptr;
    void (*forget)(void *connection) = nullptr;

private:
    template <typename Function>
    void find(const char *name, Function *&function)
    {
        if (library) {
            function = reinterpret_cast<Function *>(dlsym(library, name));
        }
    }

    void *library;
};

} // namespace

bool isDaemonOnBus()
{
    const BusLibrary bus;
    void *const connection = bus.isThere() ? bus.connect(systemBus, nullptr) : nullptr;
    if (!connection) {
        return false;
    }
    const bool isOwned = bus.hasOwner(connection, SEL_SERVICE_NAME, nullptr) != 0;
    bus.close(connection);
    bus.forget(connection);
    return isOwned;
}
