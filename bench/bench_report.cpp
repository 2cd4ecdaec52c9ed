// SPDX-License-Identifier: Apache-2.0
#include "folders.h"
#include "toolrun.h"

#include <QFileInfo>

#include <benchmark/benchmark.h>

namespace
{

constexpr int records = 100000;

//! A page of the stream.
void report(benchmark::State &state)
{
    const Folder folder(Folder::Tmpfs);
    const ToolRun tool(folder.dir(), records / Stream::recordsPerFile + 1);
    const QString page = folder.dir().filePath(QStringLiteral("page.html"));
    while (state.KeepRunning()) {
        tool.run({QStringLiteral("report"), page, QStringLiteral("-q"), QStringLiteral("-n"),
                  QString::number(records)});
    }
    state.counters["bytes"] = double(QFileInfo(page).size());
}

BENCHMARK(report)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
