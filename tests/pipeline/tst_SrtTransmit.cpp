#include "pipeline/SrtTransmit.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// A bridge's source and target on its command line.
class tst_SrtTransmit : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void targetUrl_data();
    void targetUrl();
    void arguments_data();
    void arguments();
};

void tst_SrtTransmit::targetUrl_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<int>("latencyMs");
    QTest::addColumn<QString>("passphrase");
    QTest::addColumn<QString>("streamId");
    QTest::addColumn<int>("groupMode");
    QTest::addColumn<QString>("target");

    const auto row = [](const char *name, const QString &url, const QString &target) {
        QTest::newRow(name) << url << 120 << QString() << QString() << 0 << target;
    };
    row("a bare URL calls", u"srt://host:9000"_s, u"srt://host:9000?latency=120&mode=caller"_s);
    row("a query is continued", u"srt://host:9000?tlpktdrop=1"_s,
        u"srt://host:9000?tlpktdrop=1&latency=120&mode=caller"_s);
    row("a listener stays one", u"srt://:9000?mode=listener"_s, u"srt://:9000?mode=listener&latency=120"_s);
    row("a rendezvous stays one", u"srt://host:9000?mode=rendezvous"_s,
        u"srt://host:9000?mode=rendezvous&latency=120"_s);
    row("an empty mode is a mode", u"srt://host:9000?mode="_s, u"srt://host:9000?mode=&latency=120"_s);
    row("a mode in the path counts", u"srt://host:9000/mode=x"_s, u"srt://host:9000/mode=x?latency=120"_s);
    row("the end of another name counts", u"srt://host:9000?transmode=live"_s,
        u"srt://host:9000?transmode=live&latency=120"_s);
    row("capitals don't count", u"srt://host:9000?Mode=listener"_s,
        u"srt://host:9000?Mode=listener&latency=120&mode=caller"_s);
    row("a URL that isn't SRT is passed on", u"http://host/path"_s,
        u"http://host/path?latency=120&mode=caller"_s);
    row("port 0 is passed on", u"srt://host:0"_s, u"srt://host:0?latency=120&mode=caller"_s);
    row("an empty URL gets its parameters", QString(), u"?latency=120&mode=caller"_s);
    row("blanks and umlauts stay", u"srt://münchen host:9000"_s,
        u"srt://münchen host:9000?latency=120&mode=caller"_s);
    row("a fragment swallows the parameters", u"srt://host:9000#x"_s,
        u"srt://host:9000#x?latency=120&mode=caller"_s);

    QTest::newRow("latency in milliseconds") << u"srt://host:9000"_s << 800 << QString() << QString() << 0
                                             << u"srt://host:9000?latency=800&mode=caller"_s;
    QTest::newRow("passphrase with its key length")
        << u"srt://host:9000"_s << 120 << u"0123456789"_s << QString() << 0
        << u"srt://host:9000?latency=120&passphrase=0123456789&pbkeylen=16&mode=caller"_s;
    QTest::newRow("passphrase of five")
        << u"srt://host:9000"_s << 120 << u"abcde"_s << QString() << 0
        << u"srt://host:9000?latency=120&passphrase=abcde&pbkeylen=16&mode=caller"_s;
    QTest::newRow("passphrase of two hundred")
        << u"srt://host:9000"_s << 120 << QString(200, u'x') << QString() << 0
        << QString("srt://host:9000?latency=120&passphrase="_L1 + QString(200, u'x') +
                   "&pbkeylen=16&mode=caller"_L1);
    QTest::newRow("passphrase goes in raw")
        << u"srt://host:9000"_s << 120 << u"a&b#c dé%20"_s << QString() << 0
        << u"srt://host:9000?latency=120&passphrase=a&b#c dé%20&pbkeylen=16&mode=caller"_s;
    QTest::newRow("passphrase that names a mode")
        << u"srt://host:9000"_s << 120 << u"mode=x"_s << QString() << 0
        << u"srt://host:9000?latency=120&passphrase=mode=x&pbkeylen=16"_s;
    QTest::newRow("stream id is encoded")
        << u"srt://host:9000"_s << 120 << QString() << u"live/cam 1&#é"_s << 0
        << u"srt://host:9000?latency=120&streamid=live%2Fcam%201%26%23%C3%A9&mode=caller"_s;
    QTest::newRow("stream id that names a mode")
        << u"srt://host:9000"_s << 120 << QString() << u"mode=x"_s << 0
        << u"srt://host:9000?latency=120&streamid=mode%3Dx&mode=caller"_s;
    QTest::newRow("a group is a caller already")
        << u"srt://host:9000"_s << 120 << QString() << QString() << 1
        << u"srt://host:9000?latency=120&mode=caller&groupconnect=1"_s;
}

void tst_SrtTransmit::targetUrl()
{
    QFETCH(const QString, url);
    QFETCH(const int, latencyMs);
    QFETCH(const QString, passphrase);
    QFETCH(const QString, streamId);
    QFETCH(const int, groupMode);
    QFETCH(const QString, target);

    OutputConfig output;
    output.kind = OutputKind::Srt;
    output.url = url;
    output.srtLatencyMs = latencyMs;
    output.passphrase = passphrase;
    output.streamId = streamId;
    output.groupMode = groupMode;

    QCOMPARE(SrtTransmit(output).targetUrl(), target);
}

void tst_SrtTransmit::arguments_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<int>("localPort");
    QTest::addColumn<QString>("passphrase");
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("input and target")
        << u"srt://host:9000"_s << 8900 << QString()
        << QStringList{u"udp://:8900"_s, u"srt://host:9000?latency=120&mode=caller"_s};
    QTest::newRow("blanks and quotes are part of an argument")
        << u"srt://host:9000"_s << 9200 << u"one \"two\" 'three'"_s
        << QStringList{
               u"udp://:9200"_s,
               u"srt://host:9000?latency=120&passphrase=one \"two\" 'three'&pbkeylen=16&mode=caller"_s};
    QTest::newRow("no port was allocated")
        << u"srt://host:9000"_s << 0 << QString()
        << QStringList{u"udp://:0"_s, u"srt://host:9000?latency=120&mode=caller"_s};
}

void tst_SrtTransmit::arguments()
{
    QFETCH(const QString, url);
    QFETCH(const int, localPort);
    QFETCH(const QString, passphrase);
    QFETCH(const QStringList, arguments);
    ToolPath tools;
    QVERIFY(!tools.addCopy(u"srt-live-transmit"_s, fakeTransport()).isEmpty());
    const QString seen = tools.filePath(u"arguments"_s);
    qputenv("FAKE_TRANSPORT", "args=" + stepText(seen.toUtf8()).toUtf8() + ",exit=0");

    OutputConfig output;
    output.kind = OutputKind::Srt;
    output.url = url;
    output.localPort = localPort;
    output.passphrase = passphrase;
    SrtTransmit bridge(output);
    QSignalSpy lines(&bridge, &SrtTransmit::logLine);
    bridge.start();

    QVERIFY(waitUntil([&] { return fileLines(seen).size() >= 2; }));
    QCOMPARE(fileLines(seen), arguments);
    QCOMPARE(lines.first().first().toString(), "srt-live-transmit "_L1 + arguments.join(u' '));
    qunsetenv("FAKE_TRANSPORT");
}

CORVANE_TEST(tst_SrtTransmit, QCoreApplication)
#include "tst_SrtTransmit.moc"
