#include "pipeline/SrtlaLauncher.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

class tst_SrtlaLauncher : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void arguments_data();
    void arguments();
};

void tst_SrtlaLauncher::arguments_data()
{
    QTest::addColumn<int>("localPort");
    QTest::addColumn<int>("localPort2");
    QTest::addColumn<QString>("host");
    QTest::addColumn<int>("port");
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("bond port, host, port")
        << 8900 << 8950 << u"bond.example"_s << 5000 << QStringList{u"8950"_s, u"bond.example"_s, u"5000"_s};
    QTest::newRow("no second port: the one after the first")
        << 8900 << 0 << u"bond.example"_s << 5000 << QStringList{u"8901"_s, u"bond.example"_s, u"5000"_s};
    QTest::newRow("second port below zero counts as none")
        << 8900 << -1 << u"bond.example"_s << 5000 << QStringList{u"8901"_s, u"bond.example"_s, u"5000"_s};
    QTest::newRow("second port of one")
        << 8900 << 1 << u"bond.example"_s << 5000 << QStringList{u"1"_s, u"bond.example"_s, u"5000"_s};
    QTest::newRow("receiver port 0 is passed on")
        << 8900 << 8901 << u"bond.example"_s << 0 << QStringList{u"8901"_s, u"bond.example"_s, u"0"_s};
    QTest::newRow("an odd host is one argument")
        << 8900 << 8901 << u"não é um host & #1"_s << 5000
        << QStringList{u"8901"_s, u"não é um host & #1"_s, u"5000"_s};
}

void tst_SrtlaLauncher::arguments()
{
    QFETCH(const int, localPort);
    QFETCH(const int, localPort2);
    QFETCH(const QString, host);
    QFETCH(const int, port);
    QFETCH(const QStringList, arguments);
    ToolPath tools;
    QVERIFY(!tools.addCopy(u"srtla_send"_s, fakeTransport()).isEmpty());
    const QString seen = tools.filePath(u"arguments"_s);
    qputenv("FAKE_TRANSPORT", "args=" + stepText(seen.toUtf8()).toUtf8() + ",exit=0");

    OutputConfig output;
    output.kind = OutputKind::Srtla;
    output.url = u"srt://not-used:1"_s;
    output.passphrase = u"not used either"_s;
    output.localPort = localPort;
    output.localPort2 = localPort2;
    output.receiverHost = host;
    output.receiverPort = port;
    output.extraSrtlaList = QStringList{u"10.0.0.1"_s, u"10.0.0.2"_s};
    SrtlaLauncher launcher(output);
    QSignalSpy lines(&launcher, &SrtlaLauncher::logLine);
    launcher.start();

    QVERIFY(waitUntil([&] { return fileLines(seen).size() >= 3; }));
    QCOMPARE(fileLines(seen), arguments);
    QCOMPARE(lines.first().first().toString(), "srtla_send "_L1 + arguments.join(u' '));
    qunsetenv("FAKE_TRANSPORT");
}

CORVANE_TEST(tst_SrtlaLauncher, QCoreApplication)
#include "tst_SrtlaLauncher.moc"
