// The start of the program, up to its first frame, against that of an empty window in the same style. Both
// ask this machine's ffmpeg, beside which the program gets other work done.

#include "tests/bench/Figures.h"
#include "tests/bench/MeasuredProgram.h"
#include "tests/support/TestSupport.h"
#include "tests/support/XServer.h"

#include <QCoreApplication>
#include <QStandardPaths>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

constexpr int runs = 15;
constexpr int editorRuns = 5;

/// The figures of the runs of one program.
struct Starts
{
    QList<double> firstFrameNs;    ///< from the start of the process
    QList<double> firstFrameCpuNs; ///< processor time on the way there
    QList<double> wholeNs;         ///< with all that the window holds
    QList<double> probeNs;         ///< asking ffmpeg, where the program itself takes the time
    QList<double> firstFrameKib;
    QList<double> restKib;

    void add(const QJsonObject &figures)
    {
        if (figures.isEmpty())
            return;
        firstFrameNs << figures.value("firstFrameNs"_L1).toDouble();
        firstFrameCpuNs << figures.value("firstFrameCpuNs"_L1).toDouble();
        wholeNs << figures.value("wholeNs"_L1).toDouble();
        probeNs << figures.value("probeNs"_L1).toDouble();
        firstFrameKib << figures.value("firstFrameKib"_L1).toDouble();
        restKib << figures.value("restKib"_L1).toDouble();
    }
};

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    const test::XServer display;
    if (!display.problem().isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(display.problem()));
        return 2;
    }

    const QString ffmpeg = QStandardPaths::findExecutable(u"ffmpeg"_s);
    if (ffmpeg.isEmpty()) {
        std::fprintf(stderr, "there is no ffmpeg to ask\n");
        return 2;
    }
    const auto started = [&](const QString &path, const QString &what) {
        return bench::measuredRun(path, display, {{u""_s, what}}, bench::Renderer::Software, ffmpeg);
    };

    Starts empty;
    Starts program;
    for (int run = 0; run < runs; ++run) {
        empty.add(started(bench::emptyWindowProgram(), u"start"_s));
        program.add(started(test::corvaneProgram(), u"start"_s));
        if (empty.restKib.size() <= run || program.restKib.size() <= run)
            return 2;
    }

    const double probe = bench::median(empty.probeNs);
    const double emptyNs = bench::median(empty.firstFrameNs) - probe;
    const double programNs = bench::median(program.firstFrameNs) - probe;
    const double wholeNs = bench::median(program.wholeNs) - probe;
    bench::Figures figures;
    figures.note("start: asking ffmpeg", probe / 1e6, "ms");
    figures.note("start: empty window, first frame less that", emptyNs / 1e6, "ms");
    figures.note("start: first frame less that", programNs / 1e6, "ms");
    figures.atMost("start: first frame, empty windows", programNs / emptyNs, 1.2, "");
    figures.note("start: the same, of processor time",
                 bench::median(program.firstFrameCpuNs) / bench::median(empty.firstFrameCpuNs), "");
    figures.note("start: whole window less that", wholeNs / 1e6, "ms");
    figures.note("start: whole window, empty windows", wholeNs / emptyNs, "");
    figures.note("start: empty window, memory at rest", bench::median(empty.restKib), "KiB");
    figures.note("start: memory at rest", bench::median(program.restKib), "KiB");
    figures.atMost("start: memory at the first frame, empty windows",
                   bench::median(program.firstFrameKib) / bench::median(empty.firstFrameKib), 1.3, "");
    figures.atMost("start: memory at rest, empty windows",
                   bench::median(program.restKib) / bench::median(empty.restKib), 1.35, "");

    QList<double> editorTurnNs;
    QList<double> editorKib;
    for (int run = 0; run < editorRuns; ++run) {
        const QJsonObject opening = started(test::corvaneProgram(), u"editor"_s);
        editorTurnNs << opening.value("editorTurnNs"_L1).toDouble(qQNaN());
        editorKib << opening.value("editorKib"_L1).toDouble(qQNaN());
    }
    figures.atMost("editor: first opening, longest turn", bench::median(editorTurnNs) / 1e6, 50, "ms");
    figures.note("editor: memory at rest with it, empty windows",
                 bench::median(editorKib) / bench::median(empty.restKib), "");
    return figures.exitCode();
}
