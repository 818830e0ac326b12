#include "pipeline/Pipeline.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QRegularExpression>
#include <QStandardPaths>
#include <QTest>
#include <QUdpSocket>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// A real ffmpeg that stops dead while its process lives on.
class tst_Hang : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void comesBackOnAir();
};

void tst_Hang::comesBackOnAir()
{
    const QString ffmpeg = QStandardPaths::findExecutable(u"ffmpeg"_s);
    if (ffmpeg.isEmpty())
        QSKIP("there is no ffmpeg on this machine");
    QUdpSocket receiver;
    QVERIFY(receiver.bind(QHostAddress::LocalHost, 0));

    PipelineConfig config = fakeConfig(QString());
    config.source.width = 160;
    config.source.height = 90;
    config.source.fps = 10;
    config.encoder.bitrate = 300;
    config.encoder.preset = EncoderPreset::Ultrafast;
    config.outputs[0].url = u"udp://127.0.0.1:%1"_s.arg(receiver.localPort());
    Pipeline pipeline(config, ffmpeg, false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(awaitProgress(recorder));
    QVERIFY(waitUntil([&] { return receiver.hasPendingDatagrams(); }));
    const qint64 hung = lastPid(recorder);
    // Where an ffmpeg takes more than eight seconds to its first line, it has been restarted already.
    const qsizetype earlier = recorder.events().filter(u"log auto-restart em"_s).size();

    recorder.clear();
    suspendProcess(hung);
    QVERIFY(waitUntil([&] { return recorder.contains(u"state failed"_s); }, 30000));
    QVERIFY(!processExists(hung));

    static const QRegularExpression hangLine(
        u"^log HANG detectado: ffmpeg sem progresso há (\\d+)ms — reiniciando$"_s);
    QStringList story = outline(recorder);
    const auto match = hangLine.match(story.takeFirst());
    QVERIFY(match.hasMatch());
    const qint64 silence = match.captured(1).toLongLong();
    QCOMPARE_GT(silence, 8000);
    QCOMPARE_LE(silence, 10000 + 1000); // a second of slack for a loaded machine
    QCOMPARE(
        story,
        QStringList(
            {u"log ffmpeg errorOccurred: 1"_s,
             u"log ERRO: ffmpeg saiu (code=%1, crash)"_s.arg(killedExitCode()), u"state failed"_s,
             u"log auto-restart em %1ms (tentativa %2 na janela)"_s.arg(1000 << earlier).arg(earlier + 1)}));

    recorder.clear();
    QVERIFY(awaitProgress(recorder));
    QCOMPARE(outline(recorder).first(4), launched());
    QCOMPARE(pipeline.state(), Pipeline::State::Running);
    QVERIFY(lastPid(recorder) != hung);

    pipeline.stop();
    QCOMPARE(recorder.events().last(), u"state stopped"_s);
}

CORVANE_TEST(tst_Hang, QCoreApplication)
#include "tst_Hang.moc"
