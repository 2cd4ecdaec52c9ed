// SPDX-License-Identifier: Apache-2.0
#include "rendering/eventtemplate.h"
#include "stream.h"

#include <benchmark/benchmark.h>

namespace
{

//! The text of a status change, as a datagram carries it.
void liveText(benchmark::State &state)
{
    const QString text = Stream::templateText();
    const QList<QVariant> args = Stream::arguments(1);
    for (auto step : state) {
        (void)step;
        benchmark::DoNotOptimize(renderLiveEvent(EventTemplate(text), args));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(liveText);

} // namespace
