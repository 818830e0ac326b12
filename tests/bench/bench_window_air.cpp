// Cost of pipelines on air to the program that shows them: encoders that print two progress lines a second,
// the window in view, drawn by the processor.

#include "tests/bench/Figures.h"
#include "tests/bench/MeasuredProgram.h"
#include "tests/support/TestSupport.h"
#include "tests/support/XServer.h"

#include <QCoreApplication>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

constexpr int seconds = 15;

QJsonObject onAir(const test::XServer &display, int pipelines, bool refreshed)
{
    QList<std::pair<QString, QString>> settings{{u""_s, u"air"_s},
                                                {u"_PIPELINES"_s, QString::number(pipelines)},
                                                {u"_OUTPUT"_s, u"fake:pace=500"_s},
                                                {u"_SECONDS"_s, QString::number(seconds)}};
    if (refreshed)
        settings << std::pair(u"_REFRESH"_s, u"1"_s);
    return bench::measuredRun(test::corvaneProgram(), display, settings);
}

void measure(bench::Figures &figures, const test::XServer &display, bool refreshed)
{
    const std::string title = refreshed ? "on air, rows renewed by each: " : "on air: ";
    const QJsonObject four = onAir(display, 4, refreshed);
    const QJsonObject sixteen = onAir(display, 16, refreshed);
    const QJsonObject many = onAir(display, 32, refreshed);
    const auto share = [](const QJsonObject &run) { return run.value("cpuShare"_L1).toDouble(qQNaN()); };
    const auto turn = [](const QJsonObject &run) {
        return run.value("longestTurnNs"_L1).toDouble(qQNaN()) / 1e6;
    };

    figures.atLeast(title + "16 pipelines, lines a second",
                    sixteen.value("logChanges"_L1).toDouble() / seconds, 30, "lines");
    if (refreshed)
        figures.atLeast(title + "16 pipelines, renewals a second",
                        sixteen.value("listChanges"_L1).toDouble() / seconds, 14, "");
    figures.atMost(title + "16 pipelines, of one core", 100 * share(sixteen), 10, "%");
    figures.atMost(title + "32 pipelines to 4", share(many) / share(four), 8, "times");
    figures.atMost(title + "16 pipelines, longest turn", turn(sixteen), 50, "ms");
    figures.atMost(title + "32 pipelines, longest turn", turn(many), 50, "ms");
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    const test::XServer display;
    if (!display.problem().isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(display.problem()));
        return 2;
    }
    bench::Figures figures;
    measure(figures, display, false);
    measure(figures, display, true);
    return figures.exitCode();
}
