// SPDX-License-Identifier: Apache-2.0
#include "folders.h"
#include "reader/systemeventlogfilereader.h"
#include "stream.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <limits>
#include <map>
#include <memory>

#include <malloc.h>

namespace
{

constexpr quint64 noLimit = std::numeric_limits<quint64>::max();

//! A folder with so many files, made once for all that read it.
QDir folderWith(int files)
{
    static std::map<int, std::unique_ptr<Folder>> folders;
    std::unique_ptr<Folder> &folder = folders[files];
    if (!folder) {
        folder = std::make_unique<Folder>(Folder::Tmpfs);
        Stream::fillFiles(folder->dir(), files);
    }
    return folder->dir();
}

QDir folderFor(const benchmark::State &state)
{
    return folderWith(int(state.range(0)));
}

//! Bytes that the process has from the allocator, large blocks included.
double allocatedBytes()
{
    const struct mallinfo2 info = mallinfo2();
    return double(info.uordblks) + double(info.hblkhd);
}

//! Says how many records one step reads, and the time of each.
void countRecords(benchmark::State &state, quint64 perStep)
{
    const double all = double(perStep) * double(state.iterations());
    state.SetItemsProcessed(int64_t(all));
    state.counters["records"] = double(perStep);
    state.counters["s_per_record"]
        = benchmark::Counter(all, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

//! From nothing to the first answer about the whole set; the argument is the number of files.
void fullIndex(benchmark::State &state)
{
    const QDir dir = folderFor(state);
    quint64 records = 0;
    double bytes = 0;
    for (auto step : state) {
        (void)step;
        const double before = allocatedBytes();
        SystemeventLogfileReader reader(dir, &Stream::catalogue());
        records = reader.getMaxLogNr();
        bytes = allocatedBytes() - before;
    }
    countRecords(state, records);
    state.counters["bytes_per_record"] = bytes / double(records);
}
BENCHMARK(fullIndex)->Arg(1)->Arg(11)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

/*!
 * Everything as JSON, in answers of at most 20,000 records: of 1,000 files no single answer
 * could travel on the bus.
 */
void exportAll(benchmark::State &state)
{
    constexpr quint64 perAnswer = 20000;
    SystemeventLogfileReader reader(folderFor(state), &Stream::catalogue());
    const quint64 records = reader.getMaxLogNr();
    const QString lang = QStringLiteral("en");
    for (auto step : state) {
        (void)step;
        for (quint64 first = 1; first <= records; first += perAnswer) {
            const quint64 last = std::min(first + perAnswer - 1, records);
            benchmark::DoNotOptimize(reader.jsonRange(first, last, lang, noLimit));
        }
    }
    countRecords(state, records);
}
BENCHMARK(exportAll)->Arg(1)->Arg(11)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

//! So many records from the middle, at ever new places; the arguments are files and records.
void middle(benchmark::State &state)
{
    SystemeventLogfileReader reader(folderFor(state), &Stream::catalogue());
    const auto count = quint64(state.range(1));
    const quint64 half = reader.getMaxLogNr() / 2;
    const QString lang = QStringLiteral("en");
    quint64 shift = 0;
    for (auto step : state) {
        (void)step;
        const quint64 first = half + shift;
        benchmark::DoNotOptimize(reader.jsonRange(first, first + count - 1, lang, noLimit));
        shift = (shift + 7) % 357;
    }
    countRecords(state, count);
}
BENCHMARK(middle)
    ->Args({11, 1})
    ->Args({1, 100})
    ->Args({11, 100})
    ->Args({100, 100})
    ->Args({1000, 100})
    ->Unit(benchmark::kMicrosecond);

} // namespace
