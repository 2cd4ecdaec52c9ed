// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

#include <string>

/*!
 * Appends a time as RFC 3339 writes it, in UTC with six digits. False, and nothing
 * appended, for one behind the year 9999 or with a million microseconds and more, which
 * only damage makes.
 */
[[nodiscard]] bool appendTime(std::string &out, quint64 seconds, quint32 microseconds);
