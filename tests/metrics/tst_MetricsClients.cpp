#include "engine/MetricsText.h"
#include "metrics/MetricsServer.h"
#include "tests/metrics/MetricsTestSupport.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QElapsedTimer>
#include <QTest>

#include <memory>
#include <vector>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

constexpr int pipelineCount = 100;
constexpr qint64 answerLimitMs = 1000;
#ifdef Q_OS_WIN
// Under Wine every call waits for one server, with those of all other programs.
constexpr qint64 turnLimitMs = 2000;
#else
constexpr qint64 turnLimitMs = 500;
#endif

} // namespace

/// Clients of all kinds on the event loop that also serves the window.
class tst_MetricsClients : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void curl_data();
    void curl();
    void oneByteASecond();
    void manyIdleConnections();
    void aMegabyteOfGarbage();
    void closesMidResponse();

private:
    void expectNextScrapeInTime();

    std::vector<std::unique_ptr<Pipeline>> m_pipelines;
    std::unique_ptr<MetricsServer> m_server;
    std::unique_ptr<LoopWatch> m_watch;
    QByteArray m_text;
};

void tst_MetricsClients::init()
{
    QList<Pipeline *> list;
    for (int i = 0; i < pipelineCount; ++i) {
        PipelineConfig config = fakeConfig(u""_s);
        config.id = QString::number(0xcafe0000U + static_cast<unsigned>(i), 16);
        m_pipelines.push_back(std::make_unique<Pipeline>(config, fakeFfmpeg(), false));
        list << m_pipelines.back().get();
    }
    m_server = std::make_unique<MetricsServer>();
    QVERIFY(m_server->start([list] { return metricsText(list); }, 0));
    m_text = metricsText(list).toUtf8();
    QCOMPARE(m_text.count('\n'), 2 + pipelineCount * 9);
    m_watch = std::make_unique<LoopWatch>();
}

void tst_MetricsClients::cleanup()
{
    const qint64 longest = m_watch->longestTurnMs();
    m_watch.reset();
    m_server.reset();
    m_pipelines.clear();
    QVERIFY2(longest < turnLimitMs, qPrintable(u"the loop stood still for %1 ms"_s.arg(longest)));
}

void tst_MetricsClients::expectNextScrapeInTime()
{
    QElapsedTimer timer;
    timer.start();
    const QByteArray response = ask(m_server->port());
    const qint64 elapsed = timer.elapsed();
    QCOMPARE(bodyOf(response), m_text);
    QVERIFY2(elapsed < answerLimitMs, qPrintable(u"%1 ms"_s.arg(elapsed)));
}

void tst_MetricsClients::curl_data()
{
    QTest::addColumn<QStringList>("options");

    QTest::newRow("HTTP/1.1") << QStringList();
    QTest::newRow("HTTP/1.0") << QStringList{u"--http1.0"_s};
    QTest::newRow("asks for compression") << QStringList{u"--compressed"_s};
    QTest::newRow("posts") << QStringList({u"--data"_s, u"a=b"_s});
}

void tst_MetricsClients::curl()
{
    QFETCH(QStringList, options);
    const QString curl = machineTool(u"curl"_s);
    if (curl.isEmpty())
        QSKIP("curl isn't installed");

    const QString url = u"http://127.0.0.1:%1/metrics"_s.arg(m_server->port());
    const ToolRun run = runTool(curl, QStringList{u"-q"_s, u"-sS"_s, u"--fail"_s, u"--noproxy"_s, u"*"_s} +
                                          options + QStringList{url});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.output, m_text);
    expectNextScrapeInTime();
}

void tst_MetricsClients::oneByteASecond()
{
    // The first byte is answered, the later ones find the connection closed. Each comes a second after the
    // last.
    const QByteArray request(scrapeRequest);
    Client slow(m_server->port());
    qsizetype sent = 0;
    QTimer pace;
    connect(&pace, &QTimer::timeout, &slow, [&] {
        if (slow.state() == QTcpSocket::ConnectedState)
            slow.write(request.constData() + sent, 1);
        ++sent;
    });
    pace.start(1000);
    QCOMPARE(slow.received(), QByteArray());
    expectNextScrapeInTime(); // before its first byte

    QVERIFY(waitUntil([&] { return sent == 3; }));
    QCOMPARE(bodyOf(slow.received()), m_text);
    expectNextScrapeInTime();
}

void tst_MetricsClients::manyIdleConnections()
{
    std::vector<std::unique_ptr<Client>> idle;
    for (int i = 0; i < 200; ++i) {
        idle.push_back(std::make_unique<Client>(m_server->port()));
        QCOMPARE(idle.back()->state(), QTcpSocket::ConnectedState);
    }
    expectNextScrapeInTime();
    for (const auto &client : idle)
        QCOMPARE(client->received(), QByteArray());
}

void tst_MetricsClients::aMegabyteOfGarbage()
{
    QByteArray garbage(qsizetype(1024) * 1024, '\0');
    quint32 state = 1;
    for (char &byte : garbage) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    Client client(m_server->port());
    client.write(garbage);
    expectNextScrapeInTime(); // while it is on its way
    if (!resetsAreTold())
        QSKIP("Wine doesn't tell a client that its connection was reset, so it waits for the end in vain");
    QVERIFY(client.waitForEnd());
    expectNextScrapeInTime();
}

void tst_MetricsClients::closesMidResponse()
{
    Client client(m_server->port());
    client.setReadBufferSize(100);
    QVERIFY(client.write(scrapeRequest) > 0);
    QVERIFY(waitUntil([&] { return !client.received().isEmpty(); }));
    client.abort();
    expectNextScrapeInTime();
}

CORVANE_TEST(tst_MetricsClients, QCoreApplication)
#include "tst_MetricsClients.moc"
