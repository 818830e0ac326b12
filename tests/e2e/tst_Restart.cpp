#include "pipeline/Pipeline.h"
#include "tests/support/Files.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

/// Events of one run of a child that crashes.
QStringList crashedRun()
{
    return launched() + QStringList{u"log ffmpeg errorOccurred: 1"_s,
                                    u"log ERRO: ffmpeg saiu (code=%1, crash)"_s.arg(crashedExitCode()),
                                    u"state failed"_s};
}

} // namespace

/// A child that keeps crashing, from the first start to the open circuit.
class tst_Restart : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void crashesToTheOpenCircuit();
    void waitsAsLongAsItSays();
};

void tst_Restart::crashesToTheOpenCircuit()
{
    const QTemporaryDir dir;
    const QString pids = dir.filePath(u"pids"_s);
    PipelineConfig config = fakeConfig(u"append=%1,crash"_s.arg(stepText(pids.toUtf8())));
    config.restart.initialBackoffMs = 10;
    config.restart.maxBackoffMs = 300;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"circuit "_s); }));
    passTimersOf(700); // twice the longest back-off: no run comes any more

    QStringList story;
    constexpr int delays[] = {10, 20, 40, 80, 160, 300};
    int failures = 0;
    for (const int delay : delays)
        story << crashedRun()
              << u"log auto-restart em %1ms (tentativa %2 na janela)"_s.arg(delay).arg(++failures);
    story
        << crashedRun()
        << u"log FATAL: circuit breaker ABERTO: 7 restarts em 120s — parando auto-restart (intervenção necessária)"_s
        << u"circuit circuit breaker ABERTO: 7 restarts em 120s — parando auto-restart (intervenção necessária)"_s;
    QCOMPARE(outline(recorder), story);
    QCOMPARE(pipeline.state(), Pipeline::State::Failed);
    QCOMPARE(fileLines(pids).size(), 7);
}

void tst_Restart::waitsAsLongAsItSays()
{
    // The default policy; its first two pauses.
    Pipeline pipeline(fakeConfig(u"crash"_s), fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    QElapsedTimer clock;
    QList<qint64> pauses;
    connect(&pipeline, &Pipeline::stateChanged, this, [&](Pipeline::State state) {
        if (state == Pipeline::State::Failed)
            clock.start();
        else if (state == Pipeline::State::Starting && clock.isValid())
            pauses << clock.elapsed();
    });

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"(tentativa 3 na janela)"_s); }));

    QCOMPARE(outline(recorder), crashedRun()
                                    << u"log auto-restart em 1000ms (tentativa 1 na janela)"_s << crashedRun()
                                    << u"log auto-restart em 2000ms (tentativa 2 na janela)"_s << crashedRun()
                                    << u"log auto-restart em 4000ms (tentativa 3 na janela)"_s);
    QCOMPARE(pauses.size(), 2);
    constexpr qint64 tickMs = 16; // of Windows: by so much its two clocks may disagree
    QCOMPARE_GE(pauses.at(0), 1000 - tickMs);
    QCOMPARE_LT(pauses.at(0), 4000); // slack for a loaded machine
    QCOMPARE_GE(pauses.at(1), 2000 - tickMs);
    QCOMPARE_LT(pauses.at(1), 6000);

    pipeline.stop();
    QCOMPARE(recorder.events().last(), u"state stopped"_s);
}

CORVANE_TEST(tst_Restart, QCoreApplication)
#include "tst_Restart.moc"
