// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/plan.h"

#include <QString>

#include <string_view>
#include <vector>

//! The values that options and arguments can have, as far as they are known.
namespace KnownValues
{

struct Value {
    QString text;
    QString meaning; //!< empty where there is nothing to say
};

//! What a value is called in a help, such as "LEVEL", says what it may be.
enum class Kind : quint8 { Words, Files, Directories };
Kind kindOf(std::string_view name);

/*!
 * Values that begin with \a typed, sorted; none of files. Only as much of a log is read as
 * takes no time that somebody would notice: its newest files.
 */
std::vector<Value> startingWith(const QString &typed, std::string_view name,
                                const SourceChoice &source);

} // namespace KnownValues
