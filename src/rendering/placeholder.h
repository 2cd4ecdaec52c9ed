// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

#include <optional>

//! A placeholder of QString::arg() in a text: "%1" to "%99", "%L1" for a localised number.
struct Placeholder {
    int number = 0;
    int digits = 0; //!< one or two
    bool localised = false;
    QString::size_type length = 0; //!< of all of it

    //! The next placeholder from a position on, which moves behind it.
    static std::optional<Placeholder> next(const QString &text, QString::size_type &position);
};
