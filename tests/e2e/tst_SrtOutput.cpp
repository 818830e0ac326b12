#include "tests/e2e/OnAir.h"
#include "tests/support/Recording.h"
#include "tests/support/Runner.h"
#include "tests/support/SrtListener.h"
#include "tests/support/TestSupport.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Both ways of sending SRT, to a real listener.
class tst_SrtOutput : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void arrives_data();
    void arrives();
    void wrongStreamIdIsTurnedAway();
    void latency_data();
    void latency();
};

void tst_SrtOutput::initTestCase()
{
    if (!OnAir::toolsInstalled())
        QSKIP("ffmpeg, ffprobe or srt-live-transmit isn't installed");
}

void tst_SrtOutput::arrives_data()
{
    QTest::addColumn<SrtPath>("path");
    QTest::addColumn<QString>("query"); ///< of the output's URL
    QTest::addColumn<QString>("passphrase");
    QTest::addColumn<QString>("streamId");
    QTest::addColumn<QString>("demandedId");
    QTest::addColumn<double>("seconds");
    QTest::addColumn<QString>("parameters"); ///< behind the URL, up to the mode

    const QString none;
    for (const SrtPath path : {SrtPath::Bridge, SrtPath::Direct}) {
        const char *way = path == SrtPath::Bridge ? "bridge" : "direct";
        QTest::addRow("%s, open listener", way)
            << path << none << none << none << none << 5.0 << u"?latency=120"_s;
        QTest::addRow("%s, listener with a passphrase", way)
            << path << none << u"segredo-0123"_s << none << none << 1.0
            << u"?latency=120&passphrase=segredo-0123&pbkeylen=16"_s;
        QTest::addRow("%s, listener with a stream id", way)
            << path << none << none << u"cam-1_a.b~c"_s << u"cam-1_a.b~c"_s << 1.0
            << u"?latency=120&streamid=cam-1_a.b~c"_s;
        QTest::addRow("%s, listener with both", way)
            << path << none << u"segredo-0123"_s << u"cam-1"_s << u"cam-1"_s << 1.0
            << u"?latency=120&passphrase=segredo-0123&pbkeylen=16&streamid=cam-1"_s;
        // Older tools pass other characters on as they are encoded, newer ones decode them.
        QTest::addRow("%s, stream id that needs encoding", way)
            << path << none << none << u"live/câmera 1"_s << u"live%2Fc%C3%A2mera%201\nlive/câmera 1"_s << 1.0
            << u"?latency=120&streamid=live%2Fc%C3%A2mera%201"_s;
        QTest::addRow("%s, stream id in the URL", way)
            << path << u"?streamid=live/1"_s << none << none << u"live/1"_s << 1.0
            << u"?streamid=live/1&latency=120"_s;
    }
}

void tst_SrtOutput::arrives()
{
    QFETCH(const SrtPath, path);
    QFETCH(const QString, query);
    QFETCH(const QString, passphrase);
    QFETCH(const QString, streamId);
    QFETCH(const QString, demandedId);
    QFETCH(const double, seconds);
    QFETCH(const QString, parameters);
    const SrtListener::Demands demands{passphrase, demandedId};
    if (!srtListenerAvailable(demands))
        QSKIP("the SRT library's headers weren't there when the tests were built");
    SrtListener listener;
    QVERIFY2(listener.start(demands), qPrintable(listener.error()));
    OnAir air(path);
    air.engine().addSrtOutputFull(air.id(), listener.url() + query, 120, passphrase, streamId, 25, -1);

    air.start();
    QVERIFY2(waitUntil([&] { return listener.bytesRecorded() > 0; }), qPrintable(air.engine().log()));
    QVERIFY2(air.transmitFor(seconds + 0.8), qPrintable(air.engine().log()));
    QCOMPARE(air.state(), u"running"_s);
    const QStringList bridges = air.linesWith(u"[srt] srt-live-transmit udp://"_s);
    air.stop();
    listener.stop();

    const QString target = listener.url() + parameters;
    if (path == SrtPath::Bridge) {
        QCOMPARE(bridges.size(), 1);
        QVERIFY2(bridges.constFirst().endsWith(u' ' + target + "&mode=caller"_L1),
                 qPrintable(bridges.constFirst()));
    } else {
        QCOMPARE(bridges, QStringList());
        const QString command = air.linesWith(u"ffmpeg -hide_banner"_s).constLast();
        QVERIFY2(command.endsWith(" -f mpegts "_L1 + target), qPrintable(command));
    }
    const Recording received = inspectRecording(listener.recording());
    QCOMPARE(received.videoCodec, u"h264"_s);
    QCOMPARE(received.audioCodec, u"aac"_s);
    QCOMPARE_GE(received.seconds, seconds);
}

void tst_SrtOutput::wrongStreamIdIsTurnedAway()
{
    const SrtListener::Demands demands{{}, u"right"_s};
    if (!srtListenerAvailable(demands))
        QSKIP("the SRT library's headers weren't there when the tests were built");
    SrtListener listener;
    QVERIFY2(listener.start(demands), qPrintable(listener.error()));
    OnAir air(SrtPath::Bridge);
    air.engine().addSrtOutputFull(air.id(), listener.url(), 120, QString(), u"wrong"_s, 25, -1);

    air.start();
    QVERIFY(waitUntil([&] { return listener.said().contains("rejected wrong\n"_L1); }));
    QVERIFY(air.transmitFor(1));

    QCOMPARE(air.state(), u"running"_s); // whatever becomes of the bridge
    QCOMPARE(listener.bytesRecorded(), 0);
}

void tst_SrtOutput::latency_data()
{
    QTest::addColumn<SrtPath>("path");
    QTest::addColumn<QString>("query");
    QTest::addColumn<int>("agreedMs");

    // The same number is sent in both ways. The bridge counts milliseconds, ffmpeg microseconds, and SRT's
    // own 120 ms are the minimum on which the two ends agree.
    QTest::newRow("bridge counts milliseconds") << SrtPath::Bridge << QString() << 400;
    QTest::newRow("ffmpeg counts microseconds") << SrtPath::Direct << QString() << 120;
    QTest::newRow("microseconds in the URL come first") << SrtPath::Direct << u"?latency=300000"_s << 300;
}

void tst_SrtOutput::latency()
{
    QFETCH(const SrtPath, path);
    QFETCH(const QString, query);
    QFETCH(const int, agreedMs);
    const SrtListener::Demands demands{{}, u"x"_s};
    if (!srtListenerAvailable(demands))
        QSKIP("the SRT library's headers weren't there when the tests were built");
    SrtListener listener;
    QVERIFY2(listener.start(demands), qPrintable(listener.error()));
    OnAir air(path);
    air.engine().addSrtOutputFull(air.id(), listener.url() + query, 400, QString(), u"x"_s, 25, -1);

    air.start();
    QVERIFY(waitUntil([&] { return listener.said().contains("accepted"_L1); }));

    const QString target =
        listener.url() + query + (query.isEmpty() ? u'?' : u'&') + "latency=400&streamid=x"_L1;
    QVERIFY(!air.linesWith(target).isEmpty());
    QCOMPARE(listener.said(), u"accepted x, latency %1\n"_s.arg(agreedMs));
}

CORVANE_TEST(tst_SrtOutput, QCoreApplication)
#include "tst_SrtOutput.moc"
