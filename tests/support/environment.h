// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>

//! How much a test does: a decimal number from the environment, or another where there is none.
template <typename Number>
Number numberFromEnvironment(const char *name, Number otherwise)
{
    bool isNumber = false;
    const qlonglong number = qgetenv(name).toLongLong(&isNumber);
    return isNumber ? Number(number) : otherwise;
}
