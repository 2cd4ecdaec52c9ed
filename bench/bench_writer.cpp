// SPDX-License-Identifier: Apache-2.0
#include "binlog/binaryloginterface.h"
#include "folders.h"
#include "logformat/encoding.h"
#include "stream.h"

#include <benchmark/benchmark.h>

namespace
{

//! Argument lists made beforehand: on a device they come ready from the bus.
QList<QList<QVariant>> manyArguments()
{
    QList<QList<QVariant>> all;
    for (uint n = 0; n < 1024; ++n) {
        all.append(Stream::arguments(n));
    }
    return all;
}

//! The values of one record, the emitter's path among them.
void encodeValues(benchmark::State &state)
{
    const QList<QVariant> args = Stream::arguments(1);
    QByteArray out;
    out.reserve(4096);
    for (auto step : state) {
        (void)step;
        out.resize(0); // keeps the memory
        for (const QVariant &value : args) {
            benchmark::DoNotOptimize(LogFormat::appendValue(out, value));
        }
        benchmark::DoNotOptimize(out.constData());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(encodeValues);

//! One event into the log on a tmpfs, with its share of writing, fsync and rotation.
void logEvent(benchmark::State &state)
{
    const Folder folder(Folder::Tmpfs);
    const auto log = Stream::openLog(folder.dir(), Stream::defaultFiles - 1);
    const QList<QList<QVariant>> all = manyArguments();
    int n = 0;
    for (auto step : state) {
        (void)step;
        log->logEvent(Stream::eventId, all.at(n++ & 1023));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(logEvent);

} // namespace
