// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "logformat/argumenttype.h"

#include <QString>

//! One declared argument of an event.
struct SystemeventArgument {
    SystemeventArgument() = default;
    SystemeventArgument(QString argumentName, int typeCode);

    QString name;
    int type = ArgumentType::Unknown; //!< a type code
    QString enumName; //!< the enumeration that gives the texts; null unless type is Enum
};
