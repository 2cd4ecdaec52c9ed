// SPDX-License-Identifier: Apache-2.0
#include "rendering/eventtemplate.h"
#include "stream.h"

#include <benchmark/benchmark.h>

#include <string>

namespace
{

//! The text of a status change, as a datagram carries it: its template is taken apart once.
void liveText(benchmark::State &state)
{
    const EventTemplate message(Stream::templateText());
    const QList<QVariant> args = Stream::arguments(1);
    std::string text;
    for (auto step : state) {
        (void)step;
        text.clear();
        appendLiveEvent(text, message, args);
        benchmark::DoNotOptimize(text.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(liveText);

} // namespace
