// Cost of pipelines on air to the program that shows them: encoders that print two progress lines a second,
// the window in view, drawn by the processor, with Qt's own renderer or through OpenGL. The share of a core
// that they take is held against that of a plain window with as many lines that change as often.

#include "tests/bench/Figures.h"
#include "tests/bench/MeasuredProgram.h"
#include "tests/support/TestSupport.h"
#include "tests/support/XServer.h"

#include <QCoreApplication>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

constexpr int runSeconds = 15;

QJsonObject onAir(const test::XServer &display, bench::Renderer renderer, int pipelines, bool refreshed)
{
    QList<std::pair<QString, QString>> settings{{u""_s, u"air"_s},
                                                {u"_PIPELINES"_s, QString::number(pipelines)},
                                                {u"_OUTPUT"_s, u"fake:pace=500"_s},
                                                {u"_SECONDS"_s, QString::number(runSeconds)}};
    if (refreshed)
        settings << std::pair(u"_REFRESH"_s, u"1"_s);
    return bench::measuredRun(test::corvaneProgram(), display, settings, renderer);
}

QJsonObject plainLines(const test::XServer &display, bench::Renderer renderer, int lines)
{
    return bench::measuredRun(bench::emptyWindowProgram(), display,
                              {{u""_s, u"lines"_s},
                               {u"_PIPELINES"_s, QString::number(lines)},
                               {u"_SECONDS"_s, QString::number(runSeconds)}},
                              renderer);
}

/// Of one core, in percent.
double share(const QJsonObject &run)
{
    return 100 * run.value("cpuShare"_L1).toDouble(qQNaN());
}

/// `name` of a run, for each second.
double rate(const QJsonObject &run, QLatin1StringView name)
{
    return run.value(name).toDouble(qQNaN()) / runSeconds;
}

/// `plain`: the run of the plain window with sixteen lines.
void measure(bench::Figures &figures, const test::XServer &display, const QJsonObject &plain, bool refreshed)
{
    const std::string title = refreshed ? "on air, rows renewed by each: " : "on air: ";
    const auto run = [&](int pipelines) {
        return onAir(display, bench::Renderer::Software, pipelines, refreshed);
    };
    const QJsonObject four = run(4);
    const QJsonObject sixteen = run(16);
    const QJsonObject many = run(32);
    const auto turn = [](const QJsonObject &measured) {
        return measured.value("longestTurnNs"_L1).toDouble(qQNaN()) / 1e6;
    };

    figures.atLeast(title + "16 pipelines, lines a second", rate(sixteen, "logChanges"_L1), 30, "lines");
    if (refreshed)
        figures.atLeast(title + "16 pipelines, renewals a second", rate(sixteen, "listChanges"_L1), 14, "");
    figures.atMost(title + "16 pipelines, frames a second", rate(sixteen, "frames"_L1), 10.5, "frames");
    figures.note(title + "16 pipelines, of one core", share(sixteen), "%");
    figures.atMost(title + "16 pipelines to 16 plain lines", share(sixteen) / share(plain),
                   refreshed ? 18 : 9, "times");
    figures.atMost(title + "32 pipelines to 4", share(many) / share(four), 8, "times");
    figures.atMost(title + "16 pipelines, longest turn", turn(sixteen), 50, "ms");
    figures.atMost(title + "32 pipelines, longest turn", turn(many), 50, "ms");
}

void measureOpenGl(bench::Figures &figures, const test::XServer &display)
{
    const QJsonObject plain = plainLines(display, bench::Renderer::OpenGl, 16);
    const std::string title = "on air, OpenGL drawn by the processor: ";
    const QJsonObject sixteen = onAir(display, bench::Renderer::OpenGl, 16, false);
    figures.atLeast(title + "16 pipelines, lines a second", rate(sixteen, "logChanges"_L1), 30, "lines");
    figures.atMost(title + "16 pipelines, frames a second", rate(sixteen, "frames"_L1), 10.5, "frames");
    figures.note(title + "16 pipelines, of one core", share(sixteen), "%");
    figures.atMost(title + "16 pipelines to 16 plain lines", share(sixteen) / share(plain), 4, "times");
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
    const QJsonObject plain = plainLines(display, bench::Renderer::Software, 16);
    figures.note("16 plain lines, of one core", share(plain), "%");
    figures.note("16 plain lines, frames a second", rate(plain, "frames"_L1), "frames");
    measure(figures, display, plain, false);
    measure(figures, display, plain, true);
    measureOpenGl(figures, display);
    return figures.exitCode();
}
