// SPDX-License-Identifier: Apache-2.0
#include "ctl/daemoncalls.h"

#include "ctl/busname.h"

#include <utility>

namespace
{

constexpr char properties[] = "org.freedesktop.DBus.Properties";

BusAnswer callProperties(Bus &bus, const char *method, const char *property,
                         std::vector<BusValue> more)
{
    std::vector<BusValue> arguments
        = {{"s", QLatin1String(BusName::logInterface)}, {"s", QLatin1String(property)}};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return bus.call({BusName::daemon, BusName::logNode, properties, method, std::move(arguments)});
}

} // namespace

BusAnswer DaemonCalls::call(Bus &bus, const char *method)
{
    return bus.call({BusName::daemon, BusName::logNode, BusName::logInterface, method, {}});
}

BusAnswer DaemonCalls::get(Bus &bus, const char *property)
{
    return callProperties(bus, "Get", property, {});
}

BusAnswer DaemonCalls::set(Bus &bus, const char *property, const BusValue &value)
{
    return callProperties(bus, "Set", property, {{'v' + value.type, value.value}});
}
