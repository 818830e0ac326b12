// Cost of the settings: a save after an edit, and the restoration of the stored pipelines at a start.

#include "engine/Engine.h"
#include "tests/bench/Figures.h"
#include "tests/support/SettingsSandbox.h"
#include "tests/support/ToolPath.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QEvent>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

constexpr int pipelines = 50;

double milliseconds(const std::function<void()> &work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

/// Time that the constructor takes; ends the program unless it restores `restored` pipelines.
double startOnce(int restored)
{
    std::unique_ptr<Engine> engine;
    const double spent = milliseconds([&] { engine = std::make_unique<Engine>(); });
    if (engine->pipelines().size() != restored)
        qFatal("not %d pipelines", restored);
    return spent;
}

/// Has the settings read from the file again, as in a process of its own.
void ageSettings(const QString &path, int turn)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite) ||
        !file.setFileTime(QDateTime::currentDateTime().addSecs(-1000 - turn),
                          QFileDevice::FileModificationTime))
        qFatal("no settings at %s", qPrintable(path));
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    const QTemporaryDir settings;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, settings.path());
    ToolPath path;
    path.addFakeFfmpeg("libx264\n");
    const QString file = QSettings().fileName();
    bench::Figures figures;

    // The store with 50 pipelines is that of `path`; within its life another one can take its place.
    {
        Engine engine;
        for (int i = 0; i < pipelines; ++i) {
            const QString id = engine.addPipeline(u"Transmissão número %1"_s.arg(i));
            engine.configureSource(
                id, {{u"kind"_s, u"srt"_s}, {u"uri"_s, u"srt://host-%1.example:9000"_s.arg(i)}});
        }
        const QString id = engine.pipelines().at(pipelines / 2).toMap().value(u"id"_s).toString();
        QList<double> saves;
        for (int i = 0; i < 301; ++i) {
            saves << milliseconds([&] { engine.renamePipeline(id, u"nome %1"_s.arg(i)); });
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
        std::fprintf(stderr, "edit with %d pipelines: least %.2f ms, most %.2f ms\n", pipelines,
                     *std::min_element(saves.begin(), saves.end()),
                     *std::max_element(saves.begin(), saves.end()));
        figures.atMost("store: edit and save with 50 pipelines, median", bench::median(saves), 5, "ms");
    }

    // Turn by turn, so that both kinds of start see the same machine; the differences of neighbours count.
    QList<double> differences;
    QList<double> empty;
    for (int i = 0; i < 61; ++i) {
        double without = 0;
        {
            const SettingsSandbox none;
            without = startOnce(0);
        }
        empty << without;
        ageSettings(file, i);
        differences << startOnce(pipelines) - without;
    }
    figures.note("store: start with an empty store, median", bench::median(empty), "ms");
    figures.atMost("store: what 50 stored pipelines add to a start, median", bench::median(differences), 10,
                   "ms");
    return figures.exitCode();
}
