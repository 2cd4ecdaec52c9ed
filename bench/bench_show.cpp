// SPDX-License-Identifier: Apache-2.0
#include "folders.h"
#include "toolrun.h"

#include <benchmark/benchmark.h>

namespace
{

using benchmark::Counter;

//! Everything in a format; what a start takes is spread over many records.
void everything(benchmark::State &state, const char *format)
{
    constexpr int files = 100;
    const Folder folder(Folder::Tmpfs);
    const ToolRun tool(folder.dir(), files);
    while (state.KeepRunning()) {
        tool.run({QStringLiteral("show"), QStringLiteral("-o"), QLatin1String(format)});
    }
    state.counters["s_per_record"] = Counter(double(files) * Stream::recordsPerFile,
                                             Counter::kIsIterationInvariantRate | Counter::kInvert);
}

//! The last records of so many files.
void lastTen(benchmark::State &state)
{
    const Folder folder(Folder::Tmpfs);
    const ToolRun tool(folder.dir(), int(state.range(0)));
    while (state.KeepRunning()) {
        tool.run({QStringLiteral("show"), QStringLiteral("-n"), QStringLiteral("10")});
    }
}

BENCHMARK_CAPTURE(everything, json, "json")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(everything, text, "text")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(lastTen)
    ->Arg(Stream::defaultFiles)
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace
