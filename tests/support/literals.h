// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

//! "text"_s is a QString, from UTF-8.
inline QString operator""_s(const char *text, std::size_t size)
{
    return QString::fromUtf8(text, QString::size_type(size));
}
