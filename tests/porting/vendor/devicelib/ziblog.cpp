// SPDX-License-Identifier: Apache-2.0
#include "devicelib/ziblog.h"

#include <QtDebug>

namespace zib
{

Ziblog ziblog;

void Ziblog::open(const QString &identity, facility, option)
{
    qInfo("the vendor's log channel of %s is open", qPrintable(identity));
}

} // namespace zib
