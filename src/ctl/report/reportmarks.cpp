// SPDX-License-Identifier: Apache-2.0
#include "ctl/report/reportmarks.h"

#include "ctl/jsonobject.h"
#include "logformat/logformat.h"

std::string &ReportMarks::next()
{
    if (!marks.empty()) {
        marks += ',';
    }
    return marks;
}

void ReportMarks::missing(quint64 before, const Archive::NumberRange &numbers)
{
    JsonObject object(next());
    object.add("kind", std::string_view("gap")).addNumber("before", qint64(before));
    object.addLarge("first", numbers.first).addLarge("last", numbers.last);
    object.end();
}

void ReportMarks::again(quint64 before, quint64 number)
{
    JsonObject object(next());
    object.add("kind", std::string_view("again")).addNumber("before", qint64(before));
    object.addLarge("first", number);
    object.end();
}

void ReportMarks::lost(quint64 before, const Archive::Place &place, Archive::Fault reason)
{
    JsonObject object(next());
    object.add("kind", std::string_view("lost")).addNumber("before", qint64(before));
    object.add("file", LogFormat::fileName(place.file));
    object.addNumber("offset", place.offset).addNumber("length", place.length);
    object.add("reason", Archive::faultText(reason));
    object.end();
}
