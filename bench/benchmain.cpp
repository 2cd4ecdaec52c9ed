// SPDX-License-Identifier: Apache-2.0
#include <QCoreApplication>
#include <QLoggingCategory>

#include <benchmark/benchmark.h>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv); // the writer's timer wants an event loop
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
