// From the death of an encoder to the first act of the next one, less the back-off that lies between them.

#include "pipeline/Pipeline.h"
#include "tests/bench/Figures.h"
#include "tests/support/Files.h"
#include "tests/support/TestSupport.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

constexpr int crashes = 60;
constexpr int backoffMs = 20;

QList<qint64> numbersIn(const QString &path)
{
    QList<qint64> numbers;
    for (const QString &line : fileLines(path))
        numbers << line.toLongLong();
    return numbers;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    const QTemporaryDir directory;
    const QString clock = directory.filePath(u"clock"_s);

    // Each child writes the time as its first act and dies as its next: one number is both its birth and its
    // death.
    PipelineConfig config = fakeConfig("clock="_L1 + stepText(clock.toUtf8()) + ",exit=3"_L1);
    config.restart.initialBackoffMs = backoffMs;
    config.restart.maxBackoffMs = backoffMs;
    config.restart.maxRestartsInWindow = crashes;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    bool circuitOpen = false;
    QObject::connect(&pipeline, &Pipeline::circuitOpen, &pipeline, [&] { circuitOpen = true; });
    pipeline.start();
    if (!waitUntil([&] { return circuitOpen; }, 120'000)) {
        std::fprintf(stderr, "the restarts didn't come to an end\n");
        return 2;
    }

    const QList<qint64> times = numbersIn(clock);
    if (times.size() != crashes + 1) {
        std::fprintf(stderr, "%d starts, not %d\n", static_cast<int>(times.size()), crashes + 1);
        return 2;
    }
    QList<double> overheads;
    for (qsizetype i = 1; i < times.size(); ++i)
        overheads << static_cast<double>(times.at(i) - times.at(i - 1)) / 1000 - backoffMs;
    std::sort(overheads.begin(), overheads.end());
    std::fprintf(stderr, "restart over %d crashes: least %.2f ms, most %.2f ms\n", crashes, overheads.first(),
                 overheads.last());

    bench::Figures figures;
    figures.atMost("restart: death to next start less back-off, median", overheads.at(overheads.size() / 2),
                   10, "ms");
    return figures.exitCode();
}
