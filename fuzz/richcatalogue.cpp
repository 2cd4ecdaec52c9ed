// SPDX-License-Identifier: Apache-2.0
#include "richcatalogue.h"

#include "support/literals.h"

#include <initializer_list>

namespace
{

void addEvent(SystemeventCatalogue &catalogue, int id, const QString &level,
              std::initializer_list<int> types, const QHash<QString, QString> &descriptions)
{
    SystemeventDescription event(uint(id), "event"_s, level, "service"_s);
    for (const int type : types) {
        SystemeventArgument argument("argument"_s, type);
        if (type == ArgumentType::Enum) {
            argument.enumName = event.arguments.isEmpty() ? "Plain"_s : "Odd"_s;
        }
        event.arguments.append(argument);
    }
    event.descriptions = descriptions;
    catalogue.events.insert(event.id, event);
}

SystemeventCatalogue make()
{
    SystemeventCatalogue catalogue;
    catalogue.enums.insert("Plain"_s, {{0, "mains"_s}, {1, "battery"_s}, {255, "none"_s}});
    catalogue.enums.insert("Odd"_s,
                           {{0, "%1"_s},
                            {1, "100%"_s},
                            {2, "\"quoted\" \\"_s},
                            {3, "%L2"_s},
                            {4, QString::fromUtf16(u"ü \u20AC \U0001F50B")},
                            {65, "9"_s}});
    const QString english = "en"_s;
    const QString german = "de"_s;
    addEvent(catalogue, 0, ""_s, {}, {{english, "nothing"_s}});
    addEvent(catalogue, 1, "info"_s, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11},
             {{english, "%1 %2 %3 %4 %5 %6 %7 %8 %9 %10 %11 %12"_s},
              {german, "%12%11%10%9%8%7%6%5%4%3%2%1"_s}});
    addEvent(catalogue, 2, "warning"_s, {8, 8, 8, 8},
             {{english, "%1, %2, %3, %4"_s}, {german, "%4%L3%2%1%99"_s}});
    addEvent(catalogue, 3, "error"_s, {10, 10, 10}, {{english, "%1\n%2\t%3"_s}, {""_s, "%3"_s}});
    addEvent(catalogue, 4, "a\"b\\c"_s, {11, 11, 11},
             {{english, "%1 %2 %3"_s}, {german, "%%1 %%L2 %3"_s}});
    addEvent(catalogue, 5, QString::fromUtf16(u"Höhe \u20AC"), {3, 4, 5, 7, 6},
             {{english, "%L1 %L2 %L3 %L4 %L5"_s}, {german, "%01 %02 %03 %04 %05 %00"_s}});
    addEvent(catalogue, 6, "info"_s, {-1, 3, 12, 255, 3}, {{english, "%1 %2 %3 %4 %5"_s}});
    addEvent(catalogue, 7, "info"_s, {8, 3, 8}, {{german, "only German: %1 %2 %3"_s}});
    addEvent(catalogue, 8, "info"_s, {9, 9, 9}, {{english, "%1%2%3%1%2%3"_s}});
    addEvent(catalogue, 9, "info"_s, {8, 10, 3}, {{english, "no placeholder"_s}});
    addEvent(
        catalogue, -5, "debug"_s, {7, 7, 7, 7},
        {{english, QString::fromUtf16(u"\u00B0 %1 %\u0662 %3%")}, {german, "%1%%2%%L3%L%4"_s}});
    addEvent(catalogue, 2147483647, "info"_s, {3, 3}, {{english, "%1%11"_s}, {german, "%1%1"_s}});
    return catalogue;
}

} // namespace

const SystemeventCatalogue &richCatalogue()
{
    static const SystemeventCatalogue catalogue = make();
    return catalogue;
}
