#include "engine/host/Capabilities.h"
#include "ndi/FramePipe.h"
#include "ndi/NdiReceiver.h"
#include "pipeline/Pipeline.h"
#include "tests/ndi/FrameFeed.h"
#include "tests/ndi/ReceiverBench.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTest>
#include <QThread>
#include <QUuid>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

const QString noFrame = u"[ndi] sem frame da fonte — verifique se a fonte NDI está ativa"_s;
const QString noPipe = u"[ndi] falha ao criar named pipe; sem ingest NDI nativo"_s;

/// An NDI source and one output, under an id of its own: pipes are named by it.
PipelineConfig ndiConfig(const QString &steps = u"progress"_s)
{
    PipelineConfig config = fakeConfig(steps);
    config.id = QUuid::createUuid().toString(QUuid::Id128);
    config.source.kind = SourceKind::Ndi;
    config.source.uri = u"ESTUDIO (Camera 1)"_s;
    config.source.width = 640;
    config.source.height = 480;
    config.source.fps = 24;
    return config;
}

QString waitingLine(const PipelineConfig &config)
{
    return "[ndi] NDI: aguardando ffmpeg conectar no pipe "_L1 + framePipePath(config.id);
}

/// The part of the last start's command that opens the picture.
QString inputOf(const Recorder &recorder)
{
    QString command;
    for (const QString &line : recorder.logLines()) {
        if (line.startsWith("ffmpeg -hide_banner "_L1))
            command = line;
    }
    const qsizetype input = command.indexOf(" -stats "_L1) + 8;
    const qsizetype encoder = command.indexOf(" -c:v "_L1);
    return encoder < input ? command : command.sliced(input, encoder - input);
}

QString ownInput(const PipelineConfig &config)
{
    return u"-f libndi_newtek -flags low_delay -analyzeduration 0 -i "_s + config.source.uri;
}

QString pipeInput(const PipelineConfig &config, const QString &size, int fps)
{
    return u"-f rawvideo -pixel_format uyvy422 -video_size %1 -framerate %2 -i %3"_s.arg(
        size, QString::number(fps), framePipePath(config.id));
}

QStringList ndiLines(const Recorder &recorder)
{
    return recorder.logLines().filter(QRegularExpression(uR"(^\[ndi\] )"_s));
}

} // namespace

/// Route of an NDI source into ffmpeg.
class tst_PipelineNdi : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void withoutARuntime();
    void otherWaysPastTheReceiver_data();
    void otherWaysPastTheReceiver();
    void sourceWithAFrame();
    void takesOverTheFormat_data();
    void takesOverTheFormat();
    void sourceWithoutAFrame();
    void pipeThatCannotBeMade();
    void pathIsKept_data();
    void pathIsKept();
    void restartsKeepNoSource();
    void listThatCannotBeBuilt();
};

void tst_PipelineNdi::cleanup()
{
    setNdiRuntimeAvailable(false);
}

void tst_PipelineNdi::withoutARuntime()
{
    QVERIFY(!ndiRuntimeAvailable());
    const FrameFeed feed(frameInfo(1280, 720, 30));
    const PipelineConfig config = ndiConfig();
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Running; }));
    QCOMPARE(pipeline.findChildren<NdiReceiver *>(), QList<NdiReceiver *>());
    pipeline.stop();

    QCOMPARE(feed.probes(), QStringList());
    QCOMPARE(inputOf(recorder), ownInput(config));
    QCOMPARE(ndiLines(recorder), QStringList());
    QCOMPARE(pipeline.config().source.width, 640);
    QVERIFY(!pipeExists(framePipePath(config.id)));
}

void tst_PipelineNdi::otherWaysPastTheReceiver_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QString>("input");

    QTest::newRow("no name") << int(SourceKind::Ndi) << QString()
                             << u"-f libndi_newtek -flags low_delay -analyzeduration 0 -i "_s;
    QTest::newRow("SRT source") << int(SourceKind::Srt) << u"srt://127.0.0.1:9000"_s
                                << u"-fflags nobuffer -i srt://127.0.0.1:9000"_s;
    QTest::newRow("capture device") << int(SourceKind::Capture) << u"USB Camera"_s
                                    << u"-f dshow -i video=USB Camera"_s;
}

void tst_PipelineNdi::otherWaysPastTheReceiver()
{
    QFETCH(const int, kind);
    QFETCH(const QString, uri);
    QFETCH(const QString, input);

    setNdiRuntimeAvailable(true);
    const FrameFeed feed(frameInfo(1280, 720, 30));
    PipelineConfig config = ndiConfig();
    config.source.kind = kind;
    config.source.uri = uri;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Running; }));
    QCOMPARE(pipeline.findChildren<NdiReceiver *>(), QList<NdiReceiver *>());
    pipeline.stop();
    QCOMPARE(feed.probes(), QStringList());
    QCOMPARE(ndiLines(recorder), QStringList());
    QCOMPARE(inputOf(recorder), input);
}

void tst_PipelineNdi::sourceWithAFrame()
{
    setNdiRuntimeAvailable(true);
    const FrameFeed feed(frameInfo(1280, 720, 30000, 1001));
    const PipelineConfig config = ndiConfig();
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    QList<QThread *> threads;
    connect(
        &pipeline, &Pipeline::logLine, this, [&] { threads << QThread::currentThread(); },
        Qt::DirectConnection);
    pipeline.start();

    QCOMPARE(feed.probes(), QStringList{u"ESTUDIO (Camera 1) 3000"_s});
    const SourceConfig &source = pipeline.config().source;
    QCOMPARE(source.width, 1280);
    QCOMPARE(source.height, 720);
    QCOMPARE(source.fps, 30);
    QCOMPARE(source.ndiPipePath, framePipePath(config.id));
    QVERIFY(pipeExists(source.ndiPipePath));
    QCOMPARE(pipeline.findChildren<NdiReceiver *>().size(), 1);
    QCOMPARE(pipeline.findChildren<NdiReceiver *>().constFirst()->parent(), &pipeline);

    QVERIFY(waitUntil([&] {
        return pipeline.state() == Pipeline::State::Running &&
               recorder.logLines().contains(waitingLine(config));
    }));
    // The command comes first: the pump starts once ffmpeg has been launched.
    QVERIFY(recorder.logLines().constFirst().startsWith(u"ffmpeg -hide_banner "_s));
    QCOMPARE(inputOf(recorder), pipeInput(config, u"1280x720"_s, 30));
    QCOMPARE(ndiLines(recorder), QStringList{waitingLine(config)});
    pipeline.stop();
    QVERIFY(!pipeExists(framePipePath(config.id)));
    QVERIFY(waitUntil([&] { return ndiLines(recorder).size() == 2; }));
    QCOMPARE(ndiLines(recorder).constLast(),
             u"[ndi] NDI: ffmpeg não conectou no pipe (err=%1)"_s.arg(waitEndedError()));
    // The result of the run stays in the record.
    QCOMPARE(source.width, 1280);
    QCOMPARE(source.ndiPipePath, framePipePath(config.id));
    QCOMPARE(QSet<QThread *>(threads.begin(), threads.end()), QSet<QThread *>{thread()});
}

void tst_PipelineNdi::takesOverTheFormat_data()
{
    QTest::addColumn<int>("numerator");
    QTest::addColumn<int>("denominator");
    QTest::addColumn<int>("fps");

    QTest::newRow("25") << 25 << 1 << 25;
    QTest::newRow("24000/1001") << 24000 << 1001 << 24;
    QTest::newRow("60000/1001") << 60000 << 1001 << 60;
    QTest::newRow("half a frame") << 25 << 2 << 13;
    QTest::newRow("less than half") << 1249 << 100 << 12;
    QTest::newRow("no denominator") << 25 << 0 << 30;
    QTest::newRow("one that the pump doesn't believe") << 1 << 2 << 1;
}

void tst_PipelineNdi::takesOverTheFormat()
{
    QFETCH(const int, numerator);
    QFETCH(const int, denominator);
    QFETCH(const int, fps);

    setNdiRuntimeAvailable(true);
    const FrameFeed feed(frameInfo(1920, 1080, numerator, denominator));
    const PipelineConfig config = ndiConfig();
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QCOMPARE(pipeline.config().source.fps, fps);
    QCOMPARE(inputOf(recorder), pipeInput(config, u"1920x1080"_s, fps));
}

void tst_PipelineNdi::sourceWithoutAFrame()
{
    setNdiRuntimeAvailable(true);
    const FrameFeed feed({});
    const PipelineConfig config = ndiConfig();
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QCOMPARE(feed.probes().size(), 1);
    QVERIFY(!pipeExists(framePipePath(config.id)));
    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Running; }));
    pipeline.stop();

    QCOMPARE(outline(recorder),
             QStringList({u"state starting"_s, "log "_L1 + noFrame, u"log ffmpeg <arguments>"_s,
                          u"state running"_s, u"log ffmpeg rodando (pid <pid>)"_s, u"state stopped"_s}));
    QCOMPARE(inputOf(recorder), ownInput(config));
    const SourceConfig &source = pipeline.config().source;
    QCOMPARE(source.width, 640);
    QCOMPARE(source.height, 480);
    QCOMPARE(source.fps, 24);
    QCOMPARE(source.ndiPipePath, QString());
}

void tst_PipelineNdi::pipeThatCannotBeMade()
{
    setNdiRuntimeAvailable(true);
    const FrameFeed feed(frameInfo(1280, 720, 50));
    const PipelineConfig config = ndiConfig();
    FramePipe other;
    QCOMPARE(other.create(framePipePath(config.id)), 0U);
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Running; }));
    pipeline.stop();

    const QString why = u"log [ndi] NDI: falha ao criar named pipe %1 (err=%2)"_s.arg(
        framePipePath(config.id), alreadyServedError());
    QCOMPARE(outline(recorder),
             QStringList({u"state starting"_s, why, "log "_L1 + noPipe, u"log ffmpeg <arguments>"_s,
                          u"state running"_s, u"log ffmpeg rodando (pid <pid>)"_s, u"state stopped"_s}));
    QCOMPARE(inputOf(recorder), ownInput(config));
    const SourceConfig &source = pipeline.config().source;
    QCOMPARE(source.width, 1280);
    QCOMPARE(source.height, 720);
    QCOMPARE(source.fps, 50);
    QCOMPARE(source.ndiPipePath, QString());
    QVERIFY(pipeExists(framePipePath(config.id))); // the other one's
}

void tst_PipelineNdi::pathIsKept_data()
{
    QTest::addColumn<bool>("frame");
    QTest::addColumn<bool>("pipe");
    QTest::addColumn<bool>("pumps");
    QTest::addColumn<QString>("line");

    QTest::newRow("a good start") << true << true << true << QString();
    // The receiver is started on the path of the run before, and has no pipe.
    QTest::newRow("no frame this time") << false << true << true << noFrame;
    QTest::newRow("no pipe this time") << true << false << false << noPipe;
}

void tst_PipelineNdi::pathIsKept()
{
    QFETCH(const bool, frame);
    QFETCH(const bool, pipe);
    QFETCH(const bool, pumps);
    QFETCH(const QString, line);

    setNdiRuntimeAvailable(true);
    FrameFeed feed(frameInfo(1280, 720, 30));
    const PipelineConfig config = ndiConfig();
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return ndiLines(recorder).contains(waitingLine(config)); }));
    pipeline.stop();
    QVERIFY(waitUntil([&] { return ndiLines(recorder).size() == 2; }));

    recorder.clear();
    if (!frame)
        feed.setInfo({});
    FramePipe other;
    if (!pipe)
        QCOMPARE(other.create(framePipePath(config.id)), 0U);
    pipeline.start();
    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Running; }));
    QCOMPARE(pipeline.config().source.ndiPipePath, framePipePath(config.id));
    QCOMPARE(inputOf(recorder), pipeInput(config, u"1280x720"_s, 30));
    if (!line.isEmpty())
        QVERIFY(ndiLines(recorder).contains(line));
    if (pumps) {
        const QString said = frame ? waitingLine(config) : u"[ndi] NDI: named pipe ausente"_s;
        QVERIFY(waitUntil([&] { return ndiLines(recorder).contains(said); }));
    }
    pipeline.stop();
    QCoreApplication::processEvents();
    QCOMPARE(ndiLines(recorder).filter(u"NDI: aguardando"_s).size(), frame && pipe ? 1 : 0);
}

void tst_PipelineNdi::restartsKeepNoSource()
{
    setNdiRuntimeAvailable(true);
    const FrameFeed feed(frameInfo(1280, 720, 30));
    PipelineConfig config = ndiConfig(u"exit=3"_s);
    config.restart.initialBackoffMs = 0;
    config.restart.maxRestartsInWindow = 3;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"circuit breaker ABERTO"_s); }));

    QCOMPARE(feed.probes().size(), 4);
    QCOMPARE(pipeline.findChildren<NdiReceiver *>().size(), 4); // they stay, stopped, as long as the pipeline
    QCOMPARE(feed.sources(), 0);
}

void tst_PipelineNdi::listThatCannotBeBuilt()
{
    setNdiRuntimeAvailable(true);
    const FrameFeed feed(frameInfo(1280, 720, 30));
    PipelineConfig config = ndiConfig();
    config.outputs.clear();
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QCOMPARE(pipeline.state(), Pipeline::State::Failed);
    QCOMPARE(recorder.events(),
             QStringList(
                 {u"state starting"_s, u"log ERRO: Pipeline sem saídas habilitadas"_s, u"state failed"_s}));
    // The source was opened first, and waits for the stop.
    QCOMPARE(feed.probes().size(), 1);
    QVERIFY(pipeExists(framePipePath(config.id)));
    pipeline.stop();
    QVERIFY(!pipeExists(framePipePath(config.id)));
    QCoreApplication::processEvents();
    QCOMPARE(ndiLines(recorder), QStringList());
}

CORVANE_TEST(tst_PipelineNdi, QCoreApplication)
#include "tst_PipelineNdi.moc"
