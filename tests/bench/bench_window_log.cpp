// Cost of one more line in a full log, against the replacement of its whole text; and memory over very many
// lines.

#include "tests/bench/Figures.h"
#include "tests/bench/MeasuredProgram.h"
#include "tests/support/TestSupport.h"
#include "tests/support/XServer.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;
using namespace corvane;

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    const test::XServer display;
    if (!display.problem().isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(display.problem()));
        return 2;
    }
    const QJsonObject run =
        bench::measuredRun(test::corvaneProgram(), display, {{u""_s, u"log"_s}, {u"_LINES"_s, u"100000"_s}});
    const auto of = [&run](QLatin1StringView name) { return bench::numbers(run.value(name)); };
    const QList<double> memory = of("memoryKib"_L1);
    const double growth =
        memory.isEmpty() ? qQNaN() : *std::max_element(memory.begin(), memory.end()) - memory.first();
    constexpr double allowedGrowthKib = 2048; // variation of the heaps; the lines themselves are 20 MiB

    bench::Figures figures;
    figures.note("log: a line more, with its frame", bench::median(of("lineFrame"_L1)) / 1e3, "us");
    figures.note("log: the whole text, with its frame", bench::median(of("wholeFrame"_L1)) / 1e3, "us");
    figures.note("log: a line at which the log is cut, with its frame",
                 bench::median(of("cutFrame"_L1)) / 1e3, "us");
    figures.atLeast("log: whole texts to one line, frames included",
                    bench::median(of("wholeFrame"_L1)) / bench::median(of("lineFrame"_L1)), 8, "");
    figures.atLeast("log: whole texts to one line, frames left out",
                    bench::median(of("whole"_L1)) / bench::median(of("line"_L1)), 8, "");
    figures.atLeast("log: the same, means of both", bench::mean(of("whole"_L1)) / bench::mean(of("line"_L1)),
                    8, "");
    figures.atMost("log: lines after which the view differed", run.value("unequal"_L1).toDouble(qQNaN()), 0,
                   "lines");
    figures.atMost("log: memory growth over 100,000 lines", growth, allowedGrowthKib, "KiB");
    return figures.exitCode();
}
