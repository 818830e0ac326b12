#include "pipeline/Pipeline.h"
#include "tests/support/Files.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QMetaEnum>
#include <QMetaMethod>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

class tst_Pipeline : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void metaObject();
    void freshObject();
    void goesOnAirAndStops();
    void signalsComeAfterTheChange();
    void secondStartIsRefused();
    void commandIsLoggedAsItIs();
    void runningDoesNotWaitForProgress();
    void timersAreMadeOnce();
    void telemetryGoesOutEverySecond();
    void figuresSurviveAStop();
    void ownsACopyOfItsRecord();
};

void tst_Pipeline::metaObject()
{
    const Pipeline pipeline(PipelineConfig(), QString(), false);
    const QMetaObject &meta = Pipeline::staticMetaObject;

    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        QCOMPARE(method.methodType(), QMetaMethod::Signal);
        methods << QString::fromLatin1(method.name()) + u'(' +
                       QString::fromLatin1(method.parameterNames().join(',')) + u')';
    }
    QCOMPARE(methods, QStringList({u"stateChanged(s)"_s, u"logLine(line)"_s, u"statsChanged(stats)"_s,
                                   u"circuitOpen(reason)"_s, u"telemetryChanged()"_s,
                                   u"qualityChanged(level,name)"_s}));
    QCOMPARE(meta.propertyCount(), meta.propertyOffset());

    QCOMPARE(meta.enumeratorCount() - meta.enumeratorOffset(), 1);
    const QMetaEnum state = meta.enumerator(meta.enumeratorOffset());
    QCOMPARE(state.name(), "State");
    QVERIFY(state.isScoped());
    QCOMPARE(state.keyCount(), 4);
    constexpr const char *names[] = {"Stopped", "Starting", "Running", "Failed"};
    for (int i = 0; i < 4; ++i) {
        QCOMPARE(state.key(i), names[i]);
        QCOMPARE(state.value(i), i);
    }

    const QMetaType type = QMetaType::fromName("corvane::Pipeline::State");
    QVERIFY(type.isValid());
    QCOMPARE(type, QMetaType::fromType<Pipeline::State>());
    QCOMPARE(QMetaMethod::fromSignal(&Pipeline::stateChanged).parameterMetaType(0), type);
}

void tst_Pipeline::freshObject()
{
    const Pipeline pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), true);
    QCOMPARE(pipeline.state(), Pipeline::State::Stopped);
    QCOMPARE(pipeline.isTransmitting(), false);
    QCOMPARE(pipeline.level(), 0);
    QCOMPARE(pipeline.telemetry().valid, false);
    QCOMPARE(pipeline.telemetry().fps, 0.0);
    QVERIFY(pipeline.children().isEmpty());
}

void tst_Pipeline::goesOnAirAndStops()
{
    Pipeline pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QCOMPARE(pipeline.state(), launchedState());
    QVERIFY(pipeline.isTransmitting());
    QVERIFY(awaitProgress(recorder));
    QCOMPARE(pipeline.state(), Pipeline::State::Running);
    QVERIFY(pipeline.isTransmitting());
    pipeline.stop();
    QCOMPARE(pipeline.state(), Pipeline::State::Stopped);
    QVERIFY(!pipeline.isTransmitting());

    QVERIFY(recorder.events().at(1).startsWith(u"log ffmpeg -hide_banner -loglevel warning -stats"_s));
    QCOMPARE(outline(recorder), launched() + QStringList{u"state stopped"_s});
}

void tst_Pipeline::signalsComeAfterTheChange()
{
    Pipeline pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), false);
    QList<Pipeline::State> announced;
    QList<Pipeline::State> held;
    connect(&pipeline, &Pipeline::stateChanged, this, [&](Pipeline::State s) {
        announced << s;
        held << pipeline.state();
    });

    pipeline.start();
    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Running; }));
    pipeline.stop();

    using State = Pipeline::State;
    QCOMPARE(announced, QList({State::Starting, State::Running, State::Stopped}));
    QCOMPARE(held, announced);
}

void tst_Pipeline::secondStartIsRefused()
{
    const QTemporaryDir dir;
    const QString pids = dir.filePath(u"pids"_s);
    Pipeline pipeline(fakeConfig(u"append=%1,progress"_s.arg(stepText(pids.toUtf8()))), fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    const QStringList afterFirst = recorder.events();
    pipeline.start();
    QCOMPARE(recorder.events(), afterFirst);

    QVERIFY(awaitProgress(recorder));
    const QStringList running = outline(recorder);
    pipeline.start();
    QCOMPARE(outline(recorder), running);

    // A second child would write its line long before the first one is asked for its tenth update.
    recorder.clear();
    QVERIFY(waitUntil([&] { return recorder.events().size() >= 10; }));
    pipeline.stop();
    QCOMPARE(fileLines(pids).size(), 1);
    QCOMPARE(pipeline.findChildren<QProcess *>().size(), 1);
}

void tst_Pipeline::commandIsLoggedAsItIs()
{
    const QTemporaryDir dir;
    const QString arguments = dir.filePath(u"arguments"_s);
    PipelineConfig config = fakeConfig(QString());
    // A key and a passphrase appear in the log as in the arguments, and nothing is quoted.
    config.outputs[0].url = u"rtmp://host/live/s3cr3t key?passphrase=pa\"ss&fake:args=%1,progress"_s.arg(
        stepText(arguments.toUtf8()));
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(awaitProgress(recorder));
    pipeline.stop();

    const QString line = recorder.logLines().at(0);
    QCOMPARE(line, u"ffmpeg "_s + fileLines(arguments).join(u' '));
    QVERIFY(line.contains(u" rtmp://host/live/s3cr3t key?passphrase=pa\"ss&fake:"_s));
}

void tst_Pipeline::runningDoesNotWaitForProgress()
{
    const QTemporaryDir dir;
    const QString sign = dir.filePath(u"go"_s);
    Pipeline pipeline(fakeConfig(u"await=%1,progress"_s.arg(stepText(sign.toUtf8()))), fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.contains(u"telemetry"_s); }));
    QCOMPARE(pipeline.state(), Pipeline::State::Running);
    QVERIFY(!hasProgress(recorder));
    QCOMPARE(pipeline.telemetry().valid, false);

    createFile(sign);
    QVERIFY(awaitProgress(recorder));
    QCOMPARE(pipeline.telemetry().valid, true);
}

void tst_Pipeline::timersAreMadeOnce()
{
    Pipeline pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    const auto timers = [&] { return pipeline.findChildren<QTimer *>(Qt::FindDirectChildrenOnly); };
    QVERIFY(timers().isEmpty());

    QList<QTimer *> first;
    for (int run = 1; run <= 2; ++run) {
        recorder.clear();
        pipeline.start();
        QVERIFY(awaitProgress(recorder));

        QList<int> intervals;
        for (const QTimer *timer : timers()) {
            QVERIFY(timer->isActive());
            QVERIFY(!timer->isSingleShot());
            intervals << timer->interval();
        }
        QCOMPARE(intervals, QList({2000, 1000}));
        if (run == 1)
            first = timers();
        QCOMPARE(timers(), first);

        pipeline.stop();
        for (const QTimer *timer : timers())
            QVERIFY(!timer->isActive());
    }
}

void tst_Pipeline::telemetryGoesOutEverySecond()
{
    // No progress at all: the signal comes whether or not a figure has changed.
    Pipeline pipeline(fakeConfig(u"end"_s), fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    QElapsedTimer clock;
    connect(&pipeline, &Pipeline::stateChanged, this, [&] { clock.start(); });

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.count(u"telemetry"_s) == 3; }));

    QCOMPARE_GE(clock.elapsed(), 2990); // three ticks of 1000 ms; a timer may round down by a little
    QCOMPARE(pipeline.telemetry().thermalState, 0);
    QCOMPARE(pipeline.telemetry().valid, false);

    pipeline.stop();
    recorder.clear();
    passTimersOf(1500);
    QCOMPARE(recorder.events(), QStringList());
}

void tst_Pipeline::figuresSurviveAStop()
{
    const QTemporaryDir dir;
    const QString sign = dir.filePath(u"go"_s);
    const QString line = stepText("frame=9 fps=24.5 bitrate=5012.3kbits/s drop=17\n");
    Pipeline pipeline(fakeConfig(u"once=%1,stderr=%2,end"_s.arg(stepText(sign.toUtf8()), line)), fakeFfmpeg(),
                      false);
    Recorder recorder(pipeline);

    // The second run prints nothing.
    for (int run = 1; run <= 2; ++run) {
        pipeline.start();
        QVERIFY(waitUntil(
            [&] { return pipeline.telemetry().valid && pipeline.state() == Pipeline::State::Running; }));
        pipeline.stop();

        QCOMPARE(recorder.count(u"stats frame=9 fps=24.5 bitrate=5012.3kbits/s drop=17"_s), 1);
        QCOMPARE(pipeline.telemetry().fps, 24.5);
        QCOMPARE(pipeline.telemetry().bitrateKbps, 5012.3);
        QCOMPARE(pipeline.telemetry().dropped, 17);
        QCOMPARE(pipeline.telemetry().valid, true);
    }
}

void tst_Pipeline::ownsACopyOfItsRecord()
{
    PipelineConfig config = fakeConfig(u"progress"_s);
    Pipeline pipeline(config, fakeFfmpeg(), false);
    config.outputs.clear();
    config.name = u"another"_s;
    QCOMPARE(pipeline.config().name, u"Teste"_s);
    QCOMPARE(pipeline.config().outputs.size(), 1);

    pipeline.start();
    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Running; }));
}

CORVANE_TEST(tst_Pipeline, QCoreApplication)
#include "tst_Pipeline.moc"
