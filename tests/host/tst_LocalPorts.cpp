#include "engine/Engine.h"
#include "engine/host/LocalPorts.h"
#include "tests/support/Runner.h"
#include "tests/support/ToolPath.h"

#include <QSet>
#include <QSignalSpy>
#include <QUdpSocket>

#include <QTest>

#include <memory>
#include <vector>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

const QString exhaustedLine = u"AVISO: nenhuma porta UDP local livre na faixa 8900-9200"_s;

/// A loopback UDP port that is taken while the object lives; null if another process has it.
std::unique_ptr<QUdpSocket> takePort(int port)
{
    auto socket = std::make_unique<QUdpSocket>();
    if (!socket->bind(QHostAddress::LocalHost, static_cast<quint16>(port), QUdpSocket::DontShareAddress))
        return nullptr;
    return socket;
}

/// Takes every port of the range. Ports that another process is just probing are tried again, and those that
/// it keeps count as taken.
std::vector<std::unique_ptr<QUdpSocket>> takeAllPorts()
{
    std::vector<std::unique_ptr<QUdpSocket>> taken;
    QList<int> missing;
    for (int port = 8900; port <= 9200; ++port)
        missing << port;
    for (int round = 0; round < 20 && !missing.isEmpty(); ++round) {
        erase_if(missing, [&](int port) {
            if (auto socket = takePort(port))
                taken.push_back(std::move(socket));
            else
                return false;
            return true;
        });
    }
    return taken;
}

} // namespace

/// The range of local ports: the number that comes next, and the effect of a port that is taken.
class tst_LocalPorts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void triesInOrder_data();
    void triesInOrder();
    void givesUpAfter300Attempts_data();
    void givesUpAfter300Attempts();
    void goesRoundTheRange();
    void probesWithASocket();
    void probesTheLoopbackAddressAlone();
    void passesOverAPortThatIsTaken();
    void givesOutputsTheirPorts();
    void unknownPipelineTakesNoPort();
    void handsOutNoPortTwiceInARow();
    void warnsWhenTheRangeIsTaken();
};

void tst_LocalPorts::triesInOrder_data()
{
    QTest::addColumn<int>("counter");
    QTest::addColumn<QList<int>>("taken");
    QTest::addColumn<bool>("sockets"); // false: the system creates none
    QTest::addColumn<int>("port");
    QTest::addColumn<QList<int>>("asked");
    QTest::addColumn<int>("counterAfter");

    const auto row = [](const char *name, int counter, const QList<int> &taken, bool sockets, int port,
                        const QList<int> &asked, int counterAfter) {
        QTest::newRow(name) << counter << taken << sockets << port << asked << counterAfter;
    };
    row("the first of all", 8900, {}, true, 8900, {8900}, 8901);
    row("the next", 8901, {}, true, 8901, {8901}, 8902);
    row("the last of the range", 9200, {}, true, 9200, {9200}, 9201);
    row("wraps around behind the last", 9201, {}, true, 8900, {8900}, 8901);
    row("wraps around from far behind", 12000, {}, true, 8900, {8900}, 8901);
    row("passes over a port that is taken", 8900, {8900}, true, 8901, {8900, 8901}, 8902);
    row("passes over several", 8950, {8950, 8951, 8952}, true, 8953, {8950, 8951, 8952, 8953}, 8954);
    row("wraps around within one call", 9200, {9200}, true, 8900, {9200, 8900}, 8901);
    row("wraps around over one that is taken", 9201, {8900}, true, 8901, {8900, 8901}, 8902);
    row("without sockets, unverified", 8900, {8900}, false, 8900, {8900}, 8901);
    row("without sockets, wraps around", 9201, {}, false, 8900, {8900}, 8901);
}

void tst_LocalPorts::triesInOrder()
{
    QFETCH(int, counter);
    QFETCH(QList<int>, taken);
    QFETCH(bool, sockets);

    QList<int> asked;
    const LocalPort found = allocateLocalPort(counter, [&](int port) {
        asked << port;
        if (!sockets)
            return UdpPortProbe::NoSocket;
        return taken.contains(port) ? UdpPortProbe::Taken : UdpPortProbe::Free;
    });
    QTEST(found.port, "port");
    QVERIFY(!found.exhausted);
    QTEST(asked, "asked");
    QTEST(counter, "counterAfter");
}

void tst_LocalPorts::givesUpAfter300Attempts_data()
{
    QTest::addColumn<int>("counter");
    QTest::addColumn<int>("neverAsked"); // the one port of the 301 that the attempts don't reach
    QTest::addColumn<int>("port");
    QTest::addColumn<int>("counterAfter");

    QTest::newRow("from the first") << 8900 << 9200 << 9200 << 9201;
    QTest::newRow("from the second, to beyond the range") << 8901 << 8900 << 9201 << 9202;
    QTest::newRow("from the third") << 8902 << 8901 << 8901 << 8902;
    QTest::newRow("from the middle") << 9000 << 8999 << 8999 << 9000;
    QTest::newRow("from the last") << 9200 << 9199 << 9199 << 9200;
    QTest::newRow("from behind the last") << 9201 << 9200 << 9200 << 9201;
    QTest::newRow("from further behind") << 9202 << 9200 << 9200 << 9201;
}

void tst_LocalPorts::givesUpAfter300Attempts()
{
    QFETCH(int, counter);
    QFETCH(int, neverAsked);

    QList<int> asked;
    const LocalPort found = allocateLocalPort(counter, [&](int port) {
        asked << port;
        return UdpPortProbe::Taken;
    });
    QVERIFY(found.exhausted);
    QTEST(found.port, "port");
    QTEST(counter, "counterAfter");

    QCOMPARE(asked.size(), 300);
    const QSet<int> different(asked.begin(), asked.end());
    QCOMPARE(different.size(), 300);
    QVERIFY(!different.contains(neverAsked));
    QCOMPARE(*std::min_element(asked.begin(), asked.end()), neverAsked == 8900 ? 8901 : 8900);
    QCOMPARE(*std::max_element(asked.begin(), asked.end()), neverAsked == 9200 ? 9199 : 9200);
}

void tst_LocalPorts::goesRoundTheRange()
{
    int counter = 8900;
    QList<int> ports;
    for (int i = 0; i < 302; ++i)
        ports << allocateLocalPort(counter, [](int) { return UdpPortProbe::Free; }).port;
    QCOMPARE(ports.at(0), 8900);
    QCOMPARE(ports.at(300), 9200);
    QCOMPARE(ports.at(301), 8900);
    QCOMPARE(QSet<int>(ports.begin(), ports.end()).size(), 301);
}

void tst_LocalPorts::probesWithASocket()
{
    QUdpSocket socket;
    QVERIFY(socket.bind(QHostAddress::LocalHost, 0, QUdpSocket::DontShareAddress));
    const int port = socket.localPort();
    QCOMPARE(probeUdpPort(port), UdpPortProbe::Taken);
    QCOMPARE(probeUdpPort(port), UdpPortProbe::Taken);

    // No socket is kept: a probed port can be bound, and probed again.
    socket.close();
    QCOMPARE(probeUdpPort(port), UdpPortProbe::Free);
    QCOMPARE(probeUdpPort(port), UdpPortProbe::Free);
    QVERIFY(takePort(port));
}

void tst_LocalPorts::probesTheLoopbackAddressAlone()
{
    QUdpSocket everywhere;
    QVERIFY(everywhere.bind(QHostAddress::AnyIPv4, 0, QUdpSocket::DontShareAddress));
    QCOMPARE(probeUdpPort(everywhere.localPort()), UdpPortProbe::Taken);

    QUdpSocket elsewhere;
    if (elsewhere.bind(QHostAddress(u"127.0.0.2"_s), 0, QUdpSocket::DontShareAddress)) // not on every system
        QCOMPARE(probeUdpPort(elsewhere.localPort()), UdpPortProbe::Free);
}

void tst_LocalPorts::passesOverAPortThatIsTaken()
{
    const ToolPath path;
    Engine engine;
    const int first = engine.allocateLocalPort();
    QVERIFY(first >= 8900 && first < 9190);

    // Ports held by others may shift the numbers: our own ports are passed over, and the counter doesn't go
    // back.
    const auto next = takePort(first + 1);
    const auto afterNext = takePort(first + 2);
    const int second = engine.allocateLocalPort();
    QVERIFY(second > first + 2);
    QVERIFY(second <= 9200);
    QVERIFY(!engine.log().contains(exhaustedLine));
}

void tst_LocalPorts::givesOutputsTheirPorts()
{
    const ToolPath path;
    Engine engine;
    const QString id = engine.addPipeline(u"a"_s);
    engine.addRtmpOutput(id, u"rtmp://a"_s);
    engine.addSrtOutput(id, u"srt://a:1"_s, 120, u""_s);
    engine.addRtmpOutput(id, u"rtmp://b"_s);
    engine.addSrtlaOutput(id, u"h"_s, 1);
    engine.addSrtOutputFull(id, u"srt://b:1"_s, 120, u""_s, u""_s, 25, -1);
    engine.removeOutput(id, 1); // gives nothing back
    engine.addSrtOutput(id, u"srt://c:1"_s, 120, u""_s);

    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    const QList<Pipeline *> all = engine.findChildren<Pipeline *>();
    QCOMPARE(all.size(), 1);
    const QList<OutputConfig> outputs = all.first()->config().outputs;
    QCOMPARE(outputs.size(), 5);

    // rtmp, rtmp, bonded, SRT, SRT
    QCOMPARE(outputs.at(0).localPort, 0);
    QCOMPARE(outputs.at(1).localPort, 0);
    const QList<int> ports{outputs.at(2).localPort, outputs.at(2).localPort2, outputs.at(3).localPort,
                           outputs.at(4).localPort};
    QVERIFY(ports.first() > 8900); // the first one went to the output that is gone
    QVERIFY(ports.last() <= 9200);
    QVERIFY(std::is_sorted(ports.begin(), ports.end()));
    QCOMPARE(QSet<int>(ports.begin(), ports.end()).size(), 4);
    for (const int index : {0, 1, 3, 4})
        QCOMPARE(outputs.at(index).localPort2, 0);
}

void tst_LocalPorts::unknownPipelineTakesNoPort()
{
    const ToolPath path;
    Engine engine;
    // Another process may hold the very next port, but not those of so many attempts.
    for (int attempt = 0; attempt < 20; ++attempt) {
        const int before = engine.allocateLocalPort();
        engine.addSrtOutput(u"00000000"_s, u"srt://a:1"_s, 120, u""_s);
        engine.addSrtOutputFull(u"00000000"_s, u"srt://a:1"_s, 120, u""_s, u""_s, 25, -1);
        engine.addSrtlaOutput(u"00000000"_s, u"h"_s, 1);
        if (engine.allocateLocalPort() == before + 1)
            return;
    }
    QFAIL("each time the next port was taken");
}

void tst_LocalPorts::handsOutNoPortTwiceInARow()
{
    const ToolPath path;
    Engine engine;
    QSet<int> ports;
    for (int i = 0; i < 200; ++i)
        ports << engine.allocateLocalPort();
    QCOMPARE(ports.size(), 200); // though every one of them is free again
}

void tst_LocalPorts::warnsWhenTheRangeIsTaken()
{
    const ToolPath path;
    Engine engine;
    const QString id = engine.addPipeline(u"a"_s);
    auto taken = takeAllPorts();
    engine.clearLog();
    QSignalSpy logged(&engine, &Engine::logChanged);

    QCOMPARE(engine.allocateLocalPort(), 9200); // unverified
    QCOMPARE(engine.log().sliced(9), exhaustedLine + u'\n');
    QCOMPARE(logged.size(), 1);

    // A bonded output asks twice. It is added all the same.
    engine.addSrtlaOutput(id, u"h"_s, 1);
    QCOMPARE(engine.log().count(exhaustedLine), 3);
    QCOMPARE(engine.outputsView(id).size(), 1);
    engine.addRtmpOutput(id, u"rtmp://a"_s);
    QCOMPARE(engine.log().count(exhaustedLine), 3);

    taken.clear();
    const int port = engine.allocateLocalPort();
    QVERIFY(port >= 8900 && port <= 9200);
    QCOMPARE(engine.log().count(exhaustedLine), 3);
}

CORVANE_TEST(tst_LocalPorts, QCoreApplication)
#include "tst_LocalPorts.moc"
