// SPDX-License-Identifier: Apache-2.0
#include "ctl/busvalue.h"

#include "logformat/encoding.h"

QVariant outputValue(const BusValue &value)
{
    const std::string_view type = value.innermostType();
    QVariant output = type == "o" || type == "g" ? QVariant() : value.value;
    for (size_t variants = value.variants(); variants > 0; --variants) {
        output = QVariant::fromValue(WrappedValue{output});
    }
    return output;
}
