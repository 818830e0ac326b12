#include "tests/e2e/OnAir.h"
#include "tests/support/Recording.h"
#include "tests/support/RtmpServer.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/update/UpdateTestSupport.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// An update that comes while a real encoder transmits: it is fetched, verified and staged, and the receiver
/// never notices.
class tst_UpdateOnAir : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void neverTakesDownAStream();
};

void tst_UpdateOnAir::initTestCase()
{
    if (const QString problem = tlsProblem(); !problem.isEmpty())
        QSKIP(qPrintable(problem));
    if (!OnAir::toolsInstalled())
        QSKIP("ffmpeg, ffprobe or srt-live-transmit isn't installed");
    trustTestAuthority();
}

void tst_UpdateOnAir::neverTakesDownAStream()
{
    const QString deferral = u"transmissão ativa — update adiado (regra de ouro: não derrubar a stream)"_s;
    if (const QString missing = RtmpServer::missing(); !missing.isEmpty())
        QSKIP(qPrintable(missing));
    RtmpServer rtmp;
    QVERIFY2(rtmp.start(), qPrintable(rtmp.error()));
    OnAir air(SrtPath::Bridge);
    air.engine().addRtmpOutput(air.id(), rtmp.url(u"key"_s));

    UpdateBench bench;
    bench.updater.isStreamActive = [&air] { return air.engine().anyPipelineTransmitting(); };
    connect(&bench.updater, &UpdateChecker::readyToApply, &bench.updater,
            [&] { bench.updater.applyIfSafe(); });
    bench.publish(u"0.2.0"_s, QByteArray(20'000'000, 'p'));

    air.start();
    QVERIFY2(air.transmitFor(2), qPrintable(air.engine().log()));
    const qint64 encoder = OnAir::childWith(u"rtmp://"_s);
    QVERIFY(encoder != 0);

    QVERIFY(bench.check());
    QVERIFY(bench.events.contains(u"readyToApply DIR/update/CORVANE-0.2.0.zip 0.2.0"_s));
    QCOMPARE(bench.updater.status(), deferral);
    QCOMPARE(air.state(), u"running"_s);
    QVERIFY(air.transmitFor(2));

    // The operator's button, on air.
    const Application early = apply(bench.updater);
    QVERIFY(!early.answer);
    QVERIFY(!early.quits);
    QCOMPARE(bench.updater.status(), deferral);
    QVERIFY(air.transmitFor(2));
    QCOMPARE(OnAir::childWith(u"rtmp://"_s), encoder); // one run of the encoder, from first to last
    QVERIFY(!QFile::exists(bench.runtimeDir() + "/update/apply-now"_L1));

    air.stop();
    QVERIFY(waitUntil([&] { return air.state() == "stopped"_L1; }));
    QCOMPARE(bench.updater.status(), deferral);
    rtmp.stop();
    const Recording recording = inspectRecording(rtmp.recording(u"key"_s));
    QCOMPARE(recording.error, QString());
    QCOMPARE(recording.videoCodec, u"h264"_s);
    QVERIFY2(recording.seconds >= 5.5, qPrintable(QString::number(recording.seconds)));
    // Thirty pictures a second, and not one is missing.
    QVERIFY2(recording.largestGap < 0.05, qPrintable(QString::number(recording.largestGap)));

    const Application application = apply(bench.updater);
    QVERIFY(application.answer);
    QVERIFY(application.quits);
    QVERIFY(QFile::exists(bench.runtimeDir() + "/update/apply-now"_L1));
}

CORVANE_TEST(tst_UpdateOnAir, QCoreApplication)
#include "tst_UpdateOnAir.moc"
