// SPDX-License-Identifier: Apache-2.0
#include "folders.h"
#include "stream.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <benchmark/benchmark.h>

namespace
{

constexpr int records = 100000;

//! A page of the stream, from the exec of the tool to its end.
void report(benchmark::State &state)
{
    const Folder folder(Folder::Tmpfs);
    Stream::fillFiles(folder.dir(), records / Stream::recordsPerFile + 1);
    const QString catalogue = folder.dir().filePath(QStringLiteral("systemevent.xml"));
    const QString page = folder.dir().filePath(QStringLiteral("page.html"));
    QFile file(catalogue);
    if (!file.open(QIODevice::WriteOnly) || file.write(Stream::catalogueXml()) < 0) {
        qFatal("cannot write a catalogue");
    }
    file.close();
    while (state.KeepRunning()) {
        QProcess tool;
        tool.start(QStringLiteral(SEL_CTL),
                   {QStringLiteral("report"), page, QStringLiteral("-q"), QStringLiteral("-n"),
                    QString::number(records), QStringLiteral("-D"), folder.dir().path(),
                    QStringLiteral("-C"), catalogue});
        if (!tool.waitForFinished() || tool.exitCode() != 0) {
            qFatal("the tool fails");
        }
    }
    state.counters["bytes"] = double(QFileInfo(page).size());
}

BENCHMARK(report)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
