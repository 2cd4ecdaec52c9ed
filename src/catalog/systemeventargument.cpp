// SPDX-License-Identifier: Apache-2.0
#include "catalog/systemeventargument.h"

#include <utility>

SystemeventArgument::SystemeventArgument(QString argumentName, int typeCode)
    : name(std::move(argumentName))
    , type(typeCode)
{
}
