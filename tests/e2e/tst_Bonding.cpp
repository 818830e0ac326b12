#include "tests/e2e/OnAir.h"
#include "tests/support/Processes.h"
#include "tests/support/Recording.h"
#include "tests/support/Runner.h"
#include "tests/support/SrtListener.h"
#include "tests/support/TestSupport.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

qint64 launcher()
{
    return OnAir::childWith(u"srtla_send "_s);
}

qint64 bridge()
{
    return OnAir::childWith(u"srt-live-transmit udp://"_s);
}

} // namespace

/// A bonded output through the stand-in for srtla_send to a real SRT listener behind it.
class tst_Bonding : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void arrives_data();
    void arrives();
    void comesBackOnlyWithTheOperator();
};

void tst_Bonding::initTestCase()
{
    if (!OnAir::toolsInstalled())
        QSKIP("ffmpeg, ffprobe or srt-live-transmit isn't installed");
}

void tst_Bonding::arrives_data()
{
    QTest::addColumn<SrtPath>("path");

    QTest::newRow("bridge") << SrtPath::Bridge;
    QTest::newRow("direct") << SrtPath::Direct;
}

void tst_Bonding::arrives()
{
    QFETCH(const SrtPath, path);
    SrtListener listener;
    QVERIFY2(listener.start(), qPrintable(listener.error()));
    OnAir air(path);
    air.engine().addSrtlaOutput(air.id(), u"127.0.0.1"_s, listener.port());

    air.start();
    QVERIFY2(waitUntil([&] { return listener.bytesRecorded() > 0; }), qPrintable(air.engine().log()));
    QVERIFY(air.transmitFor(3));
    QCOMPARE(air.state(), u"running"_s);

    const QStringList command = processCommand(launcher());
    QCOMPARE(command.size(), 4); // the program and three arguments
    const QString &bondPort = command.at(1);
    QCOMPARE(command.mid(2), QStringList({u"127.0.0.1"_s, QString::number(listener.port())}));
    QVERIFY(air.hasLine(u"[srtla] srtla_send %1 127.0.0.1 %2"_s.arg(bondPort).arg(listener.port())));
    QCOMPARE(bridge() != 0, path == SrtPath::Bridge);
    QCOMPARE(air.linesWith(u"[srtla-bridge] srt-live-transmit udp://:"_s).size(),
             path == SrtPath::Bridge ? 1 : 0);
    if (path == SrtPath::Direct)
        QVERIFY(air.linesWith(u"ffmpeg -hide_banner"_s)
                    .constLast()
                    .endsWith(u" -f mpegts srt://127.0.0.1:%1?mode=caller"_s.arg(bondPort)));
    air.stop();
    listener.stop();

    const Recording received = inspectRecording(listener.recording());
    QCOMPARE(received.videoCodec, u"h264"_s);
    QCOMPARE(received.audioCodec, u"aac"_s);
    QCOMPARE_GE(received.seconds, 2.0);
}

void tst_Bonding::comesBackOnlyWithTheOperator()
{
    SrtListener listener;
    QVERIFY2(listener.start(), qPrintable(listener.error()));
    OnAir air(SrtPath::Bridge);
    air.engine().addSrtlaOutput(air.id(), u"127.0.0.1"_s, listener.port());
    air.start();
    QVERIFY2(waitUntil([&] { return listener.bytesRecorded() > 0; }), qPrintable(air.engine().log()));

    killProcess(OnAir::childWith(u" -f mpegts udp://"_s));
    QVERIFY(waitUntil([&] { return air.linesWith(u"ffmpeg rodando"_s).size() == 2; }));
    const qint64 recorded = listener.bytesRecorded();
    QVERIFY(air.transmitFor(2));

    QCOMPARE(air.state(), u"running"_s);
    QCOMPARE(launcher(), 0);
    QCOMPARE(bridge(), 0);
    QCOMPARE(air.linesWith(u"[srtla] srtla_send "_s).size(), 1);
    QCOMPARE(listener.bytesRecorded(), recorded);

    air.stop();
    air.start();
    QVERIFY2(waitUntil([&] { return listener.bytesRecorded() > recorded; }), qPrintable(air.engine().log()));
    QVERIFY(launcher() != 0);
    QVERIFY(bridge() != 0);
    QCOMPARE(air.linesWith(u"[srtla] srtla_send "_s).size(), 2);
}

CORVANE_TEST(tst_Bonding, QCoreApplication)
#include "tst_Bonding.moc"
