#include "tests/e2e/OnAir.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/SrtListener.h"
#include "tests/support/TestSupport.h"

#include <QRegularExpression>
#include <QTest>
#include <QUdpSocket>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Fate of a pipeline whose real bridge dies or can't work.
class tst_SrtBridgeFailure : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void killedBridge();
    void localPortTaken();
    void badInput_data();
    void badInput();
    void oddButValid_data();
    void oddButValid();
    void badInputOnTheDirectWay_data();
    void badInputOnTheDirectWay();
};

namespace {

constexpr auto bridgeDied = "[srt] MORREU "_L1;

/// The one "[srt] MORREU" line, once it is there.
QString wordsOfDeath(const OnAir &air)
{
    return waitUntil([&] { return !air.linesWith(bridgeDied).isEmpty(); })
               ? air.linesWith(bridgeDied).join(u'|')
               : QString();
}

/// Local UDP port of the first output, as the preview shows it.
quint16 localPort(OnAir &air)
{
    static const QRegularExpression target(u"udp://127\\.0\\.0\\.1:(\\d+)"_s);
    return target.match(air.engine().previewCommand(air.id())).captured(1).toUShort();
}

} // namespace

void tst_SrtBridgeFailure::initTestCase()
{
    if (!OnAir::toolsInstalled())
        QSKIP("ffmpeg, ffprobe or srt-live-transmit isn't installed");
}

void tst_SrtBridgeFailure::killedBridge()
{
    SrtListener listener;
    QVERIFY2(listener.start(), qPrintable(listener.error()));
    OnAir air(SrtPath::Bridge);
    air.engine().addSrtOutput(air.id(), listener.url(), 120, QString());
    air.start();
    QVERIFY2(waitUntil([&] { return listener.bytesRecorded() > 0; }), qPrintable(air.engine().log()));
    const qint64 encoder = OnAir::childWith(u" -f mpegts udp://"_s);
    QVERIFY(encoder != 0);

    killProcess(OnAir::childWith(u"srt-live-transmit udp://"_s));
    QCOMPARE(wordsOfDeath(air), u"[srt] MORREU (code=9, crash) — SRT interrompido"_s);
    QVERIFY(air.transmitFor(2));

    QCOMPARE(air.state(), u"running"_s);
    QCOMPARE(OnAir::childWith(u" -f mpegts udp://"_s), encoder);
    QCOMPARE(OnAir::childWith(u"srt-live-transmit udp://"_s), 0);
    QCOMPARE(air.linesWith(u"[srt] srt-live-transmit "_s).size(), 1);
    QCOMPARE(air.linesWith(bridgeDied).size(), 1);
    QCOMPARE(air.linesWith(u"auto-restart"_s), QStringList());
}

void tst_SrtBridgeFailure::localPortTaken()
{
    OnAir air(SrtPath::Bridge);
    air.engine().addSrtOutput(air.id(), u"srt://127.0.0.1:%1"_s.arg(freeUdpPort()), 120, QString());
    QUdpSocket other;
    QVERIFY(other.bind(QHostAddress::AnyIPv4, localPort(air), QUdpSocket::DontShareAddress));

    air.start();

    QCOMPARE(wordsOfDeath(air), u"[srt] MORREU (code=255, erro) — SRT interrompido"_s);
    QVERIFY2(air.engine().log().contains("Address already in use"_L1), qPrintable(air.engine().log()));
    QVERIFY(air.transmitFor(1));
    QCOMPARE(air.state(), u"running"_s);
}

void tst_SrtBridgeFailure::badInput_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("passphrase");
    QTest::addColumn<QString>("target");    ///< as it reaches the tool
    QTest::addColumn<QString>("complaint"); ///< part of the tool's message
    QTest::addColumn<int>("exitCode");

    const QString url = u"srt://127.0.0.1:%1"_s.arg(freeUdpPort());
    const auto secret = [&](const QString &passphrase) {
        return url + "?latency=120&passphrase="_L1 + passphrase + "&pbkeylen=16&mode=caller"_L1;
    };
    const auto bare = [](const QString &text) { return QString(text + "?latency=120&mode=caller"_L1); };
    QTest::newRow("passphrase of five")
        << url << u"abcde"_s << secret(u"abcde"_s) << u"Bad parameters"_s << 255;
    QTest::newRow("passphrase of two hundred")
        << url << QString(200, u'x') << secret(QString(200, u'x')) << u"Bad parameters"_s << 255;
    QTest::newRow("passphrase cut by an ampersand")
        << url << u"abc&defghijkl"_s << secret(u"abc&defghijkl"_s) << u"Bad parameters"_s << 255;
    QTest::newRow("URL that isn't SRT")
        << u"http://127.0.0.1/live"_s << QString() << bare(u"http://127.0.0.1/live"_s)
        << u"Unsupported target type"_s << 1;
    QTest::newRow("host that doesn't resolve")
        << u"srt://no-such-host.invalid:9000"_s << QString() << bare(u"srt://no-such-host.invalid:9000"_s)
        << u"srt_connect"_s << 255;
    QTest::newRow("port 0") << u"srt://127.0.0.1:0"_s << QString() << bare(u"srt://127.0.0.1:0"_s)
                            << u"Invalid port number"_s << 255;
}

void tst_SrtBridgeFailure::badInput()
{
    QFETCH(const QString, url);
    QFETCH(const QString, passphrase);
    QFETCH(const QString, target);
    QFETCH(const QString, complaint);
    QFETCH(const int, exitCode);
    OnAir air(SrtPath::Bridge);
    air.engine().addSrtOutput(air.id(), url, 120, passphrase);

    air.start();

    QCOMPARE(wordsOfDeath(air), u"[srt] MORREU (code=%1, erro) — SRT interrompido"_s.arg(exitCode));
    QVERIFY2(air.engine().log().contains(complaint), qPrintable(air.engine().log()));
    QVERIFY(
        air.hasLine(u"[srt] srt-live-transmit udp://:%1 %2"_s.arg(QString::number(localPort(air)), target)));
    QVERIFY(air.transmitFor(0.5));
    QCOMPARE(air.state(), u"running"_s);
}

void tst_SrtBridgeFailure::oddButValid_data()
{
    QTest::addColumn<QString>("passphrase");
    QTest::addColumn<QString>("streamId");
    QTest::addColumn<QString>("parameters");

    QTest::newRow("blanks and umlauts in the passphrase")
        << u"olá mundo größe"_s << QString() << u"passphrase=olá mundo größe&pbkeylen=16"_s;
    QTest::newRow("number sign in the passphrase")
        << u"0123456789#x"_s << QString() << u"passphrase=0123456789#x&pbkeylen=16"_s;
    QTest::newRow("everything in the stream id")
        << QString() << u"a&b#c d=é%20"_s << u"streamid=a%26b%23c%20d%3D%C3%A9%2520"_s;
}

void tst_SrtBridgeFailure::oddButValid()
{
    QFETCH(const QString, passphrase);
    QFETCH(const QString, streamId);
    QFETCH(const QString, parameters);
    OnAir air(SrtPath::Bridge);
    const QString url = u"srt://127.0.0.1:%1"_s.arg(freeUdpPort());
    air.engine().addSrtOutputFull(air.id(), url, 120, passphrase, streamId, 25, -1);

    air.start();
    QVERIFY(air.transmitFor(0.5));

    // The tool receives the text as one argument, and waits for the other end in its own way.
    const QString target = url + "?latency=120&"_L1 + parameters + "&mode=caller"_L1;
    const qint64 bridge = OnAir::childWith(u"srt-live-transmit udp://"_s);
    QVERIFY(bridge != 0);
    QCOMPARE(processCommand(bridge).mid(1), QStringList({u"udp://:%1"_s.arg(localPort(air)), target}));
    QCOMPARE(air.linesWith(bridgeDied), QStringList());
    QCOMPARE(air.state(), u"running"_s);
}

void tst_SrtBridgeFailure::badInputOnTheDirectWay_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("passphrase");
    QTest::addColumn<QString>("target");

    const QString url = u"srt://127.0.0.1:%1"_s.arg(freeUdpPort());
    QTest::newRow("passphrase of five")
        << url << u"abcde"_s << QString(url + "?latency=120&passphrase=abcde&pbkeylen=16"_L1);
    QTest::newRow("passphrase of two hundred")
        << url << QString(200, u'x')
        << QString(url + "?latency=120&passphrase="_L1 + QString(200, u'x') + "&pbkeylen=16"_L1);
    QTest::newRow("URL that isn't SRT")
        << u"nonsense://127.0.0.1/live"_s << QString() << u"nonsense://127.0.0.1/live?latency=120"_s;
    QTest::newRow("host that doesn't resolve") << u"srt://no-such-host.invalid:9000"_s << QString()
                                               << u"srt://no-such-host.invalid:9000?latency=120"_s;
    QTest::newRow("port 0") << u"srt://127.0.0.1:0"_s << QString() << u"srt://127.0.0.1:0?latency=120"_s;
}

void tst_SrtBridgeFailure::badInputOnTheDirectWay()
{
    QFETCH(const QString, url);
    QFETCH(const QString, passphrase);
    QFETCH(const QString, target);
    OnAir air(SrtPath::Direct);
    air.engine().addSrtOutput(air.id(), url, 120, passphrase);

    air.start();
    QVERIFY2(waitUntil([&] { return air.state() == "failed"_L1; }), qPrintable(air.engine().log()));

    // The encoder itself reports an error and exits here, which counts as a failure.
    QVERIFY2(!encoderFailures(air.logLines()).isEmpty(), qPrintable(air.engine().log()));
    QVERIFY(air.hasLine(u"auto-restart em 1000ms (tentativa 1 na janela)"_s));
    const QString command = air.linesWith(u"ffmpeg -hide_banner"_s).constLast();
    QVERIFY2(command.endsWith(" -f mpegts "_L1 + target), qPrintable(command));
    QVERIFY2(!air.linesWith(target + ": "_L1).isEmpty(), qPrintable(air.engine().log()));
}

CORVANE_TEST(tst_SrtBridgeFailure, QCoreApplication)
#include "tst_SrtBridgeFailure.moc"
