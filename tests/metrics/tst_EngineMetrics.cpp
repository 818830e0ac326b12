#include "metrics/MetricsServer.h"
#include "tests/engine/EngineTestSupport.h"
#include "tests/metrics/MetricsTestSupport.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QElapsedTimer>
#include <QTcpServer>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

constexpr quint16 metricsPort = 9105;
const QString metricsLine = u"métricas Prometheus em http://127.0.0.1:9105/metrics"_s;
QString portProblem()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, metricsPort) ? QString() : probe.errorString();
}

QString scraped()
{
    return QString::fromUtf8(bodyOf(ask(metricsPort)));
}

/// The nine samples of a pipeline.
QString samples(const QString &id, const char *up, const char *fps, const char *bitrate, const char *dropped)
{
    const auto line = [&](const char *name, const char *value) {
        return QLatin1String(name) + "{pipeline=\""_L1 + id + "\"} "_L1 + QLatin1String(value) + u'\n';
    };
    return line("corvane_pipeline_up", up) + line("corvane_fps", fps) +
           line("corvane_bitrate_kbps", bitrate) + line("corvane_dropped_frames", dropped) +
           line("corvane_srt_rtt_ms", "0") + line("corvane_srt_pkt_snd_drop", "0") +
           line("corvane_srt_pkt_retrans", "0") + line("corvane_degradation_level", "0") +
           line("corvane_thermal_state", "0");
}

} // namespace

/// The endpoint as the Engine opens it, on its one port.
class tst_EngineMetrics : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void saysWhereItListens();
    void secondEngineRunsSilently();
    void figuresFollowThePipelines();
    void portIsFreeAfterTheEngine();
};

void tst_EngineMetrics::init()
{
    // Patience with a brief holder of the port, such as another test run.
    QElapsedTimer patience;
    patience.start();
    QString problem = portProblem();
    while (!problem.isEmpty() && patience.elapsed() < 10000) {
        passTimersOf(100);
        problem = portProblem();
    }
    if (!problem.isEmpty())
        QSKIP(qPrintable(u"port 9105 is taken from outside: %1"_s.arg(problem)));
}

void tst_EngineMetrics::saysWhereItListens()
{
    const EngineBench bench;
    QCOMPARE(bench.logCount(metricsLine), 1);
    QCOMPARE(bench.engine.metricsText(), metricsHeader());
    QCOMPARE(ask(metricsPort), "HTTP/1.1 200 OK\r\nContent-Type: text/plain; version=0.0.4\r\n"
                               "Content-Length: 99\r\nConnection: close\r\n\r\n" +
                                   metricsHeader().toUtf8());
}

void tst_EngineMetrics::secondEngineRunsSilently()
{
    EngineBench first;
    const QString id = first->addPipeline(u"a"_s);
    {
        EngineBench second;
        QVERIFY(!second.logHas(u"métricas"_s));
        QVERIFY(!second.logHas(u"9105"_s));
        QCOMPARE(second.engine.findChild<MetricsServer *>()->port(), quint16(0));
        const QString other = second.addFake(u"b"_s, u"progress"_s);
        second->startPipeline(other);
        QVERIFY(waitUntil([&] { return second.column(u"state"_s) == QStringList{u"running"_s}; }));
        QCOMPARE(scraped(), metricsHeader() + samples(id, "0", "0", "0", "0"));
    }
    QCOMPARE(scraped(), metricsHeader() + samples(id, "0", "0", "0", "0"));
}

void tst_EngineMetrics::figuresFollowThePipelines()
{
    EngineBench bench;
    const QString first = bench->addPipeline(u"a"_s);
    const QString second = bench.addFake(
        u"b"_s,
        u"stderr="_s + stepText("frame= 9 fps=29.97 q=28.0 bitrate=6012.3kbits/s drop=1234567 speed=1x\n"));
    QCOMPARE(scraped(),
             metricsHeader() + samples(first, "0", "0", "0", "0") + samples(second, "0", "0", "0", "0"));

    bench->startPipeline(second);
    QVERIFY(waitUntil([&] { return bench.pipeline(second)->telemetry().valid; }));
    QCOMPARE(scraped(), metricsHeader() + samples(first, "0", "0", "0", "0") +
                            samples(second, "1", "29.97", "6012.3", "1.23457e+06"));

    bench->stopPipeline(second); // the figures stay
    QCOMPARE(scraped(), metricsHeader() + samples(first, "0", "0", "0", "0") +
                            samples(second, "0", "29.97", "6012.3", "1.23457e+06"));

    bench->renamePipeline(second, u"c"_s); // a new object under the old id
    QCOMPARE(scraped(),
             metricsHeader() + samples(first, "0", "0", "0", "0") + samples(second, "0", "0", "0", "0"));

    bench->removePipeline(first);
    QCOMPARE(scraped(), metricsHeader() + samples(second, "0", "0", "0", "0"));
}

void tst_EngineMetrics::portIsFreeAfterTheEngine()
{
    {
        const EngineBench bench;
        QVERIFY(!scraped().isEmpty());
    }
    const EngineBench next;
    QCOMPARE(next.logCount(metricsLine), 1);
}

CORVANE_TEST(tst_EngineMetrics, QCoreApplication)
#include "tst_EngineMetrics.moc"
