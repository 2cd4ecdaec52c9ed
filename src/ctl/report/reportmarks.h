// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archiverecord.h"
#include "archive/numberset.h"

#include <string>

/*!
 * What a page marks between its records: numbers that are missing or begin again, and bytes
 * that are no record. Each is said to lie before the record that comes next.
 */
class ReportMarks
{
public:
    void missing(quint64 before, const Archive::NumberRange &numbers);
    //! Numbers begin again with that one.
    void again(quint64 before, quint64 number);
    void lost(quint64 before, const Archive::Place &place, Archive::Fault reason);

    //! All of them as a JSON array.
    [[nodiscard]] std::string json() const { return '[' + marks + ']'; }

private:
    //! Opens an object, which the caller ends.
    std::string &next();

    std::string marks;
};
