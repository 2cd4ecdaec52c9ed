// SPDX-License-Identifier: Apache-2.0
#include "devicelib/constants.h"

namespace zib
{

const QString SystemeventloggerGlobals::SERVICE_NAME = QStringLiteral(SEL_SERVICE_NAME);
const QString FwConfigGlobals::SERVICE_PATH_NAME = QStringLiteral(SEL_CONFIG_SERVICE);
const QString FwConfigGlobals::SYSTEMVARIABLES_PATH = QStringLiteral(SEL_CONFIG_PATH);
const QString FwConfigGlobals::SYSTEMVARIABLES_INTERFACE = QStringLiteral(SEL_CONFIG_INTERFACE);

QString ConstParameter::domainForIdx(int index)
{
    return index == IDX_SYSTEM ? QStringLiteral("system") : QString();
}

} // namespace zib
