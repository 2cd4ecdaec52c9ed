// SPDX-License-Identifier: Apache-2.0
#include "app/version.h"

#include "buildversion.h"

QString Version::version() const
{
    return QStringLiteral(SEL_REVISION);
}

QString Version::githash() const
{
    return QStringLiteral(SEL_GITHASH);
}
