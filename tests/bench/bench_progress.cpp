// Progress lines: how many a second one core takes in, and what a long flood of them leaves in memory.

#include "pipeline/Pipeline.h"
#include "pipeline/Telemetry.h"
#include "tests/bench/Figures.h"
#include "tests/support/TestSupport.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QFile>

#include <unistd.h>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

void progressLine(benchmark::State &state)
{
    const QString line =
        u"frame= 1234 fps= 30 q=28.0 size=   30850kB time=00:00:41.13 bitrate=6012.3kbits/s drop=5 speed=   1x "_s;
    Telemetry telemetry;
    for ([[maybe_unused]] auto _ : state) {
        if (isProgressLine(line))
            telemetry.readProgress(line);
        benchmark::DoNotOptimize(telemetry);
    }
}
BENCHMARK(progressLine)->Repetitions(9);

/// Resident memory of this process, in KiB.
qint64 residentKib()
{
    QFile statm(u"/proc/self/statm"_s);
    const QByteArrayList pages =
        statm.open(QIODevice::ReadOnly) ? statm.readAll().split(' ') : QByteArrayList();
    return pages.value(1).toLongLong() * sysconf(_SC_PAGESIZE) / 1024;
}

/// Sends ten million progress lines through a pipeline's child and looks at the memory after each million.
void flood(bench::Figures &figures)
{
    constexpr qint64 lines = 10'000'000;
    constexpr qint64 sampleEvery = 1'000'000;
    constexpr double allowedGrowthKib = 512; // variation of the heap; one byte kept per line is 20 times this

    Pipeline pipeline(fakeConfig(u"progress=%1,exit=0"_s.arg(lines)), fakeFfmpeg(), false);
    qint64 seen = 0;
    QList<qint64> samples;
    QObject::connect(&pipeline, &Pipeline::statsChanged, &pipeline, [&](const QString &) {
        if (++seen % sampleEvery == 0)
            samples << residentKib();
    });
    pipeline.start();
    waitUntil([&] { return !pipeline.isTransmitting(); }, 15 * 60 * 1000);

    std::fprintf(stderr, "resident KiB after each million lines:");
    for (const qint64 sample : samples)
        std::fprintf(stderr, " %lld", static_cast<long long>(sample));
    std::fprintf(stderr, "\n");
    const double growth =
        samples.isEmpty()
            ? 0
            : static_cast<double>(*std::max_element(samples.begin(), samples.end()) - samples.first());
    // A read may end inside a line, whose two parts then count as two lines or as none.
    figures.atLeast("progress: lines of ten million that arrived", static_cast<double>(seen), 0.99 * lines,
                    "lines");
    figures.atMost("progress: memory growth from the first million lines to the tenth", growth,
                   allowedGrowthKib, "KiB");
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    bench::Figures figures;
    figures.atLeast("progress: lines read on one core", 1e9 / bench::medianNanoseconds("progressLine"),
                    100'000, "lines/s");
    flood(figures);
    return figures.exitCode();
}
