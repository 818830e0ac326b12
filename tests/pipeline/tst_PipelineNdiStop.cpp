#include "engine/host/Capabilities.h"
#include "ndi/FramePipe.h"
#include "ndi/NdiReceiver.h"
#include "pipeline/Pipeline.h"
#include "tests/ndi/FrameFeed.h"
#include "tests/ndi/PipeReader.h"
#include "tests/ndi/ReceiverBench.h"
#include "tests/pipeline/TransportTestSupport.h"
#include "tests/support/Files.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"

#include <QPointer>
#include <QTest>
#include <QUuid>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

constexpr qsizetype frameSize = qsizetype(16) * 2 * 4;

PipelineConfig withNdiSource(PipelineConfig config)
{
    config.id = QUuid::createUuid().toString(QUuid::Id128);
    config.source.kind = SourceKind::Ndi;
    config.source.uri = u"ESTUDIO (Camera 1)"_s;
    return config;
}

QList<NdiReceiver *> receiversOf(const Pipeline &pipeline)
{
    return pipeline.findChildren<NdiReceiver *>();
}

} // namespace

/// Lifetime of a receiver: running, and kept. The test reads the frames in ffmpeg's place.
class tst_PipelineNdiStop : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void encodersEnd_data();
    void encodersEnd();
    void automaticRestart();
    void encoderThatCannotBeLaunched();
    void pumpsUntilTheEncoderHasGone();
    void pumpsUntilTheTransportHasGone();
    void receiverDoesNotEndTheRun();
    void destructor();
    void leavesNothing();

private:
    std::unique_ptr<FrameFeed> m_feed;
};

void tst_PipelineNdiStop::init()
{
    setNdiRuntimeAvailable(true);
    m_feed = std::make_unique<FrameFeed>(frameInfo(16, 4, 100));
}

void tst_PipelineNdiStop::cleanup()
{
    m_feed.reset();
    setNdiRuntimeAvailable(false);
}

void tst_PipelineNdiStop::encodersEnd_data()
{
    QTest::addColumn<QString>("ending");
    QTest::addColumn<Pipeline::State>("state");

    QTest::newRow("clean") << u"exit=0"_s << Pipeline::State::Stopped;
    QTest::newRow("with an error") << u"exit=3"_s << Pipeline::State::Failed;
    QTest::newRow("crash") << u"crash"_s << Pipeline::State::Failed;
}

void tst_PipelineNdiStop::encodersEnd()
{
    QFETCH(const QString, ending);
    QFETCH(const Pipeline::State, state);

    const QTemporaryDir dir;
    const QString sign = dir.filePath(u"sign"_s);
    PipelineConfig config = withNdiSource(fakeConfig(u"await=%1,%2"_s.arg(stepText(sign.toUtf8()), ending)));
    config.autoRestart = false;
    PipeReader reader(frameSize);
    Pipeline pipeline(config, fakeFfmpeg(), false);
    pipeline.start();
    reader.open(framePipePath(config.id));
    QVERIFY(waitUntil([&] { return reader.frames() > 2; }));
    createFile(sign);
    QVERIFY(waitUntil([&] { return pipeline.state() == state; }));

    // Stopped, and kept until the stop of the pipeline.
    QVERIFY(waitUntil([&] { return reader.ended(); }));
    QVERIFY(!pipeExists(framePipePath(config.id)));
    QCOMPARE(m_feed->captures(), 0);
    QCOMPARE(receiversOf(pipeline).size(), 1);
    pipeline.stop();
    QVERIFY(waitUntil([&] { return receiversOf(pipeline).isEmpty(); }));
}

void tst_PipelineNdiStop::automaticRestart()
{
    const QTemporaryDir dir;
    PipelineConfig config = withNdiSource(
        fakeConfig(u"once=%1,pause=50,exit=3,end,progress"_s.arg(stepText(dir.filePath(u"run"_s).toUtf8()))));
    config.restart.initialBackoffMs = 0;
    PipeReader reader(frameSize);
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(awaitProgress(recorder));
    QCOMPARE(m_feed->probes().size(), 2);
    // The new one serves the old one's path; the old one stays for as long as the pipeline.
    QCOMPARE(receiversOf(pipeline).size(), 2);
    reader.open(framePipePath(config.id));
    QVERIFY(waitUntil([&] { return reader.frames() > 2; }));
    QCOMPARE(m_feed->captures(), 1);

    const QPointer<NdiReceiver> first = receiversOf(pipeline).constFirst();
    pipeline.stop();
    QVERIFY(waitUntil([&] { return receiversOf(pipeline).size() == 1; }));
    QCOMPARE(receiversOf(pipeline).constFirst(), first.data());
    QVERIFY(waitUntil([&] { return reader.ended(); }));
}

void tst_PipelineNdiStop::encoderThatCannotBeLaunched()
{
    const PipelineConfig config = withNdiSource(fakeConfig(u"progress"_s));
    Pipeline pipeline(config, u"/no/such/ffmpeg"_s, false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] {
        return recorder.contains(u"log ffmpeg errorOccurred: 0"_s) &&
               recorder.containsPart(u"NDI: aguardando ffmpeg conectar no pipe "_s);
    }));
    QCOMPARE(pipeline.state(), Pipeline::State::Starting);
    pipeline.stop();
    QCOMPARE(pipeline.state(), Pipeline::State::Stopped);
    QVERIFY(!pipeExists(framePipePath(config.id)));
    QVERIFY(waitUntil([&] { return receiversOf(pipeline).isEmpty(); }));
}

void tst_PipelineNdiStop::pumpsUntilTheEncoderHasGone()
{
    const PipelineConfig config = withNdiSource(fakeConfig(u"ignore-q,progress"_s));
    PipeReader reader(frameSize);
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    reader.open(framePipePath(config.id));
    QVERIFY(waitUntil([&] { return reader.frames() > 2 && hasProgress(recorder); }));

    const qsizetype before = reader.frames();
    pipeline.stop(); // three seconds of patience with the encoder
    QCOMPARE_GT(reader.frames(), before + 50);
    QVERIFY(waitUntil([&] { return reader.ended(); }));
}

void tst_PipelineNdiStop::pumpsUntilTheTransportHasGone()
{
    const TransportTools tools(u"ignore-term"_s);
    const PipelineConfig config = withNdiSource(transportConfig({srtOutput(8900)}, u"progress"_s));
    PipeReader reader(frameSize);
    Pipeline pipeline(config, fakeFfmpeg(), false);
    pipeline.start();
    reader.open(framePipePath(config.id));
    QVERIFY(waitUntil([&] { return reader.frames() > 2 && tools.started().size() == 1; }));

    const qsizetype before = reader.frames();
    pipeline.stop(); // two seconds of patience with the bridge
    QCOMPARE_GT(reader.frames(), before + 30);
    QVERIFY(waitUntil([&] { return reader.ended(); }));
}

void tst_PipelineNdiStop::receiverDoesNotEndTheRun()
{
    const PipelineConfig config = withNdiSource(fakeConfig(u"progress"_s));
    PipeReader reader(frameSize);
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    reader.open(framePipePath(config.id));
    QVERIFY(waitUntil([&] { return reader.frames() > 2; }));
    reader.close();
    QVERIFY(waitUntil([&] {
        return recorder.contains(u"log [ndi] NDI: pipe fechado pelo leitor (ffmpeg) — encerrando pump"_s);
    }));
    m_feed->failWith([] { throw 1; });
    QVERIFY(waitUntil([&] { return recorder.contains(u"log [ndi] NDI cap: exceção desconhecida"_s); }));
    const qsizetype events = recorder.events().size();
    QVERIFY(waitUntil([&] { return recorder.events().size() > events; })); // the encoder goes on
    QCOMPARE(pipeline.state(), Pipeline::State::Running);
    QVERIFY(!recorder.contains(u"state failed"_s));
}

void tst_PipelineNdiStop::destructor()
{
    const PipelineConfig config = withNdiSource(fakeConfig(u"progress"_s));
    PipeReader reader(frameSize);
    auto pipeline = std::make_unique<Pipeline>(config, fakeFfmpeg(), false);
    pipeline->start();
    reader.open(framePipePath(config.id));
    QVERIFY(waitUntil([&] { return reader.frames() > 2; }));
    pipeline.reset();
    QVERIFY(waitUntil([&] { return reader.ended(); }));
    QVERIFY(!pipeExists(framePipePath(config.id)));
    QCOMPARE(m_feed->captures(), 0);
}

void tst_PipelineNdiStop::leavesNothing()
{
    Pipeline pipeline(withNdiSource(fakeConfig(u"progress"_s)), fakeFfmpeg(), false);
    const auto cycle = [&] {
        pipeline.start();
        if (!waitUntil([&] { return pipeline.state() == Pipeline::State::Running; }))
            return false;
        pipeline.stop();
        return waitUntil(
            [&] { return receiversOf(pipeline).isEmpty() && pipeline.findChildren<QProcess *>().isEmpty(); });
    };
    QVERIFY(cycle()); // objects created once exist from here on
    const qsizetype descriptors = openDescriptors();
    for (int i = 0; i < 30; ++i)
        QVERIFY(cycle());
    QCOMPARE(openDescriptors(), descriptors);
    QCOMPARE(childProcesses(), QList<qint64>());
}

CORVANE_TEST(tst_PipelineNdiStop, QCoreApplication)
#include "tst_PipelineNdiStop.moc"
