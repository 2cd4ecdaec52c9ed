// SPDX-License-Identifier: Apache-2.0
#include "ctl/busname.h"

#include "ctl/bus.h"

namespace BusName
{

const char daemon[] = SEL_SERVICE_NAME;
const char logNode[] = "/system/eventlog";
const char logInterface[] = "local.LogManager";
const char statusInterface[] = "com.tovel.status";
const char statusChange[] = "change";
const char configService[] = SEL_CONFIG_SERVICE;
const char configPath[] = SEL_CONFIG_PATH;
const char configInterface[] = SEL_CONFIG_INTERFACE;
const char adminGroup[] = SEL_ADMIN_GROUP;
const char statusGroup[] = SEL_STATUS_GROUP;

} // namespace BusName

bool isDaemonOnBus()
{
    Bus bus;
    return bus.open() && bus.hasOwner(BusName::daemon);
}
