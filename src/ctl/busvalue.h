// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QVariant>

#include <string>
#include <string_view>

//! A value of the bus.
struct BusValue {
    /*!
     * Its D-Bus type, such as "i"; of a value within variants that of the value, with a "v"
     * for each of them in front, such as "vi".
     */
    std::string type;
    /*!
     * The value without the variants around it, as QtDBus would give it: bool, uchar, short,
     * ushort, int, uint, qlonglong, qulonglong, double or QString, also for "o" and "g";
     * QByteArray for "ay" and QStringList for "as". Invalid for every other type.
     */
    QVariant value;

    //! The type behind the variants.
    [[nodiscard]] std::string_view innermostType() const
    {
        return std::string_view(type).substr(variants());
    }
    //! How many variants are around the value.
    [[nodiscard]] size_t variants() const { return std::string_view(type).find_first_not_of('v'); }
};

/*!
 * The value as the daemon's outputs get it: a WrappedValue for each variant around it, and
 * invalid where its type is of no concern to them.
 */
QVariant outputValue(const BusValue &value);
