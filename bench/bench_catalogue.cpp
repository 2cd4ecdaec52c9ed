// SPDX-License-Identifier: Apache-2.0
#include "catalog/systemeventcatalogue.h"
#include "folders.h"

#include <QFile>

#include <benchmark/benchmark.h>

namespace
{

constexpr int kinds = 2000;

//! A catalogue of many event kinds, each with four arguments and two languages.
QByteArray largeCatalogue()
{
    QByteArray xml("<systemevents>\n<enum name=\"LogLevel\">"
                   "<item value=\"4\" name=\"warning\"/></enum>\n<service name=\"power\">\n");
    for (int id = 1; id <= kinds; ++id) {
        const QByteArray number = QByteArray::number(id);
        xml += "<event id=\"" + number + "\" name=\"supply" + number
            + "\" loglevel=\"warning\">\n"
              "<argument type=\"bool\" name=\"enabled\"/>\n"
              "<argument type=\"int32\" name=\"load\"/>\n"
              "<argument type=\"double\" name=\"level\"/>\n"
              "<argument type=\"string\" name=\"unit\"/>\n"
              "<description lang=\"en\">Supply "
            + number
            + " enabled %1, load %2 mA, level %3 V, unit %4</description>\n"
              "<description lang=\"de\">Versorgung "
            + number + " an %1, Last %2 mA, Pegel %3 V, Einheit %4</description>\n</event>\n";
    }
    return xml + "</service>\n</systemevents>\n";
}

void load(benchmark::State &state)
{
    const Folder folder(Folder::Tmpfs);
    const QString name = folder.dir().filePath(QStringLiteral("systemevent.xml"));
    QFile file(name);
    if (!file.open(QIODevice::WriteOnly) || file.write(largeCatalogue()) < 0) {
        qFatal("cannot write a catalogue");
    }
    file.close();
    for (auto step : state) {
        (void)step;
        SystemeventCatalogue catalogue;
        if (!catalogue.load(name) || catalogue.events.size() != kinds) {
            state.SkipWithError("the catalogue is not whole");
        }
    }
    state.SetItemsProcessed(state.iterations() * kinds);
}
BENCHMARK(load)->Unit(benchmark::kMillisecond);

} // namespace
