#include "pipeline/Pipeline.h"
#include "tests/e2e/OnAir.h"
#include "tests/support/Recording.h"
#include "tests/support/RtmpServer.h"
#include "tests/support/Runner.h"
#include "tests/support/SrtListener.h"
#include "tests/support/TestSupport.h"

#include <QCoreApplication>
#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

/// The companion beside this program, where the search for tools looks first. The program has a folder of its
/// own, so that no other test finds it there.
class CompanionBeside
{
public:
    CompanionBeside() { QFile::copy(QStringLiteral(CORVANE_AIR), path()); }
    ~CompanionBeside() { QFile::remove(path()); }

    static QString path() { return QCoreApplication::applicationDirPath() + "/ffmpeg"_L1; }
};

} // namespace

/// One pipeline with several outputs: refused by ffmpeg as it stands, on air through the companion.
class tst_SeveralOutputs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void refusedByTheEncoder();
    void opensTheCircuit();
    void throughTheCompanion_data();
    void throughTheCompanion();
};

void tst_SeveralOutputs::initTestCase()
{
    if (!OnAir::toolsInstalled())
        QSKIP("ffmpeg, ffprobe or srt-live-transmit isn't installed");
    QFile::remove(CompanionBeside::path()); // of a run that was ended halfway
}

void tst_SeveralOutputs::refusedByTheEncoder()
{
    OnAir air(SrtPath::Bridge);
    air.engine().addRtmpOutput(air.id(), u"rtmp://127.0.0.1:1/live/key"_s);
    air.engine().addSrtOutput(air.id(), u"srt://127.0.0.1:%1"_s.arg(freeUdpPort()), 120, QString());

    air.start();
    QVERIFY2(waitUntil([&] { return air.state() == "failed"_L1; }), qPrintable(air.engine().log()));

    const QString bridge = air.linesWith(u"[srt] srt-live-transmit udp://:"_s).constFirst();
    const QString port = bridge.section(u"udp://:"_s, 1).section(u' ', 0, 0);
    const QString command = air.linesWith(u"ffmpeg -hide_banner"_s).constFirst();
    QCOMPARE(
        command,
        u"ffmpeg -hide_banner -loglevel warning -stats -re -f lavfi -i testsrc=size=320x180:rate=30 -f lavfi -i anullsrc=channel_layout=stereo:sample_rate=48000 -c:v libx264 -b:v 500k -maxrate 500k -bufsize 1000k -g 30 -pix_fmt yuv420p -bf 0 -preset veryfast -tune zerolatency -minrate 500k -c:a aac -b:a 160k -ar 48000 -f tee [f=flv:use_fifo=1:fifo_options=queue_size=120\\:drop_pkts_on_overflow=1:onfail=ignore]rtmp://127.0.0.1:1/live/key|[f=mpegts:use_fifo=1:fifo_options=queue_size=120\\:drop_pkts_on_overflow=1:onfail=ignore]udp://127.0.0.1:%1?pkt_size=1316"_s
            .arg(port));
    QVERIFY(!air.linesWith(u" does not contain any stream"_s).isEmpty());
    QVERIFY(!encoderFailures(air.logLines()).isEmpty());
    QVERIFY(air.hasLine(u"auto-restart em 1000ms (tentativa 1 na janela)"_s));
    QCOMPARE(OnAir::childWith(u"srt-live-transmit udp://"_s), 0); // the transport goes with the encoder
    QVERIFY(waitUntil([&] { return air.hasLine(u"auto-restart em 2000ms (tentativa 2 na janela)"_s); }));
}

void tst_SeveralOutputs::opensTheCircuit()
{
    PipelineConfig config = fakeConfig(QString());
    config.outputs.first().url = u"rtmp://127.0.0.1:1/live/key"_s;
    config.outputs << config.outputs.constFirst();
    config.restart.initialBackoffMs = 10;
    Pipeline pipeline(config, machineTool(u"ffmpeg"_s), true);
    const Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"circuit "_s); }));

    QCOMPARE(encoderFailures(recorder.logLines()).size(), 7);
    QVERIFY(recorder.contains(
        u"log FATAL: circuit breaker ABERTO: 7 restarts em 120s — parando auto-restart (intervenção necessária)"_s));
    QCOMPARE(pipeline.state(), Pipeline::State::Failed);
}

void tst_SeveralOutputs::throughTheCompanion_data()
{
    QTest::addColumn<QString>("lost");

    QTest::newRow("RTMP receiver killed") << u"rtmp"_s;
    QTest::newRow("SRT receiver killed") << u"srt"_s;
    QTest::newRow("receiver behind the bond killed") << u"bonded"_s;
}

void tst_SeveralOutputs::throughTheCompanion()
{
    QFETCH(const QString, lost);
    if (const QString missing = RtmpServer::missing(); !missing.isEmpty())
        QSKIP(qPrintable(missing));
    RtmpServer rtmp;
    QVERIFY2(rtmp.start(), qPrintable(rtmp.error()));
    SrtListener srt;
    QVERIFY2(srt.start(), qPrintable(srt.error()));
    SrtListener bonded;
    QVERIFY2(bonded.start(), qPrintable(bonded.error()));
    const CompanionBeside companion;
    OnAir air(SrtPath::Bridge);
    QCOMPARE(air.engine().ffmpegPath(), CompanionBeside::path());
    air.engine().addRtmpOutput(air.id(), rtmp.url(u"key"_s));
    air.engine().addSrtOutput(air.id(), srt.url(), 120, QString());
    air.engine().addSrtlaOutput(air.id(), u"127.0.0.1"_s, bonded.port());

    air.start();
    QVERIFY2(waitUntil([&] {
                 return srt.bytesRecorded() > 0 && bonded.bytesRecorded() > 0 &&
                        QFileInfo(rtmp.recording(u"key"_s)).size() > 0;
             }),
             qPrintable(air.engine().log()));
    QVERIFY(air.transmitFor(2.5));
    if (lost == "rtmp"_L1)
        rtmp.stop();
    else
        (lost == "srt"_L1 ? srt : bonded).kill();
    QVERIFY2(air.transmitFor(4.5), qPrintable(air.engine().log()));

    QCOMPARE(air.state(), u"running"_s);
    QCOMPARE(air.linesWith(u"ffmpeg rodando"_s).size(), 1);
    QCOMPARE(air.linesWith(u"ERRO: "_s), QStringList());
    air.stop();
    rtmp.stop();
    srt.stop();
    bonded.stop();

    const QList<std::pair<QString, QString>> recordings{{u"rtmp"_s, rtmp.recording(u"key"_s)},
                                                        {u"srt"_s, srt.recording()},
                                                        {u"bonded"_s, bonded.recording()}};
    for (const auto &[receiver, file] : recordings) {
        const Recording received = inspectRecording(file);
        QCOMPARE(received.videoCodec, u"h264"_s);
        QCOMPARE(received.audioCodec, u"aac"_s);
        QCOMPARE_GE(received.seconds, receiver == lost ? 1.0 : 6.0);
        if (receiver != lost)
            QCOMPARE_LE(received.largestGap, 1.0);
    }
}

CORVANE_TEST(tst_SeveralOutputs, QCoreApplication)
#include "tst_SeveralOutputs.moc"
