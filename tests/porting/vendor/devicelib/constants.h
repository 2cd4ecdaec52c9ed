// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

namespace zib
{

namespace SystemeventloggerGlobals
{
inline const QString SERVICE_NAME = QStringLiteral("com.example.eventmemory");
} // namespace SystemeventloggerGlobals

namespace FwConfigGlobals
{
inline const QString SERVICE_PATH_NAME = QStringLiteral("com.example.settings");
inline const QString SYSTEMVARIABLES_PATH = QStringLiteral("/settings");
inline const QString SYSTEMVARIABLES_INTERFACE = QStringLiteral("com.example.Settings");
} // namespace FwConfigGlobals

namespace ConstParameter
{
constexpr int IDX_SYSTEM = 7;
inline QString domainForIdx(int index)
{
    return index == IDX_SYSTEM ? QStringLiteral("parameters") : QString();
}
} // namespace ConstParameter

} // namespace zib
