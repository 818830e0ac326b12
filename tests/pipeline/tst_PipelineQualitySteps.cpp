#include "pipeline/Pipeline.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

/// Lets a run go on until the ladder ends it; returns the lines that report a step.
QStringList runUntilAStep(Pipeline &pipeline)
{
    const Recorder recorder(pipeline);
    pipeline.start();
    if (!waitUntil([&] { return recorder.contains(relaunchLine()); }, 60000))
        return {};
    QStringList steps;
    for (const QString &event : recorder.events()) {
        if (event.startsWith(u"log DEGRADAÇÃO"_s) || event.startsWith("quality "_L1))
            steps << event;
    }
    pipeline.stop();
    return steps;
}

} // namespace

/// The ladder over several runs, each of which an operator starts.
class tst_PipelineQualitySteps : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void downToTheLowest();
    void downAndUpAgain();
};

void tst_PipelineQualitySteps::downToTheLowest()
{
    Pipeline pipeline(fakeConfig(u"drops=50"_s), fakeFfmpeg(), false);

    // Each rate is a share of the first one, not of the one before.
    QCOMPARE(runUntilAStep(pipeline),
             QStringList({u"log DEGRADAÇÃO: nível 1 (bitrate-75) — bitrate 6000→4500 kbps"_s,
                          u"quality 1 bitrate-75"_s}));
    QCOMPARE(runUntilAStep(pipeline),
             QStringList({u"log DEGRADAÇÃO: nível 2 (bitrate-50+fps30) — bitrate 4500→3000 kbps"_s,
                          u"quality 2 bitrate-50+fps30"_s}));
    QCOMPARE(runUntilAStep(pipeline),
             QStringList({u"log DEGRADAÇÃO: nível 3 (bitrate-35+720p) — bitrate 3000→2100 kbps"_s,
                          u"quality 3 bitrate-35+720p"_s}));
    QCOMPARE(runUntilAStep(pipeline),
             QStringList({u"log DEGRADAÇÃO: nível 4 (bitrate-25+540p) — bitrate 2100→1500 kbps"_s,
                          u"quality 4 bitrate-25+540p"_s}));
    QCOMPARE(pipeline.level(), 4);

    // No level is left below: the drops go on, and so does the run.
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.count(u"telemetry"_s) >= 6; }));
    QCOMPARE(outline(recorder), launched());
    QCOMPARE(pipeline.level(), 4);
    QCOMPARE(pipeline.config().encoder.bitrate, 1500);
}

void tst_PipelineQualitySteps::downAndUpAgain()
{
    const QTemporaryDir dir;
    const QString first = dir.filePath(u"first"_s);
    // Only the first run drops frames.
    Pipeline pipeline(fakeConfig(u"once=%1,drops=50,end,progress"_s.arg(stepText(first.toUtf8()))),
                      fakeFfmpeg(), false);

    QCOMPARE(runUntilAStep(pipeline),
             QStringList({u"log DEGRADAÇÃO: nível 1 (bitrate-75) — bitrate 6000→4500 kbps"_s,
                          u"quality 1 bitrate-75"_s}));
    // The way up ends a run as the way down does, with the same lines.
    QCOMPARE(
        runUntilAStep(pipeline),
        QStringList({u"log DEGRADAÇÃO: nível 0 (full) — bitrate 4500→6000 kbps"_s, u"quality 0 full"_s}));
    QCOMPARE(pipeline.level(), 0);
    QCOMPARE(pipeline.config().encoder.bitrate, 6000);
}

CORVANE_TEST(tst_PipelineQualitySteps, QCoreApplication)
#include "tst_PipelineQualitySteps.moc"
