#include "tests/bench/MeasuredProgram.h"

#include "tests/bench/Usage.h"
#include "tests/support/ProgramSandbox.h"
#include "tests/support/XServer.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>

#include <cstdio>
#include <numeric>

namespace corvane::bench {

using namespace Qt::StringLiterals;

constexpr int runTimeoutMs = 10 * 60 * 1000;

QJsonObject measuredRun(const QString &program, const test::XServer &display,
                        const QList<std::pair<QString, QString>> &settings, Renderer renderer,
                        const QString &ffmpeg)
{
    test::ProgramSandbox sandbox;
    if (!ffmpeg.isEmpty()) {
        QFile::remove(sandbox.fakeFfmpegCopy());
        QFile::link(ffmpeg, sandbox.fakeFfmpegCopy());
    }
    const QString reportPath = sandbox.path(u"report"_s);
    QProcessEnvironment &environment = sandbox.environment();
    environment.insert(u"DISPLAY"_s, display.display());
    environment.insert(u"QT_PLUGIN_PATH"_s, QStringLiteral(CORVANE_TEST_PLUGINS));
    environment.insert(u"QT_QPA_GENERIC_PLUGINS"_s, u"corvane_window_probe"_s);
    environment.insert(u"CORVANE_MEASURE_REPORT"_s, reportPath);
    for (const auto &[name, value] : settings)
        environment.insert("CORVANE_MEASURE"_L1 + name, value);
    if (renderer == Renderer::OpenGl) {
        environment.remove(u"QT_QUICK_BACKEND"_s);
        environment.insert(u"QSG_RHI_BACKEND"_s, u"opengl"_s);
        environment.insert(u"LIBGL_ALWAYS_SOFTWARE"_s, u"1"_s);
    }
    environment.insert(u"CORVANE_MEASURE_SINCE"_s, QString::number(monotonicNs()));

    QProcess process;
    sandbox.prepare(process);
    process.setProgram(program);
    process.start();
    process.waitForFinished(runTimeoutMs);

    QFile report(reportPath);
    if (!report.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "%s left no report:\n%s\n", qPrintable(program),
                     process.readAllStandardError().constData());
        return {};
    }
    return QJsonDocument::fromJson(report.readAll()).object();
}

QString emptyWindowProgram()
{
    return QStringLiteral(CORVANE_EMPTY_WINDOW);
}

double mean(const QList<double> &values)
{
    return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

QList<double> numbers(const QJsonValue &array)
{
    QList<double> values;
    const QJsonArray items = array.toArray();
    for (const auto &item : items)
        values << item.toDouble();
    return values;
}

} // namespace corvane::bench
