#include "tests/engine/EngineTestSupport.h"
#include "tests/support/ChildLife.h"
#include "tests/support/Files.h"
#include "tests/support/ProgramSandbox.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QUrlQuery>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

constexpr quint16 metricsPort = 9105;

const QStringList series = {
    u"corvane_bitrate_kbps"_s,     u"corvane_degradation_level"_s,
    u"corvane_dropped_frames"_s,   u"corvane_fps"_s,
    u"corvane_pipeline_up"_s,      u"corvane_srt_pkt_retrans"_s,
    u"corvane_srt_pkt_snd_drop"_s, u"corvane_srt_rtt_ms"_s,
    u"corvane_thermal_state"_s,
};

bool metricsPortIsFree()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, metricsPort);
}

/// A Prometheus that scrapes the one port every second, on a port of the system's choice.
class Prometheus
{
public:
    /// True as soon as its interface answers.
    bool start()
    {
        const QString config = m_dir.filePath(u"prometheus.yml"_s);
        QFile file(config);
        if (!file.open(QIODevice::WriteOnly))
            return false;
        file.write("global:\n  scrape_interval: 1s\nscrape_configs:\n  - job_name: corvane\n"
                   "    static_configs:\n      - targets: [\"127.0.0.1:9105\"]\n");
        file.close();
        endWithParent(m_process);
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.start(machineTool(u"prometheus"_s),
                        {u"--config.file="_s + config, u"--storage.tsdb.path="_s + m_dir.filePath(u"data"_s),
                         u"--web.listen-address=127.0.0.1:0"_s});
        static const QRegularExpression listening(uR"(msg="Listening on" address=127\.0\.0\.1:(\d+))"_s);
        return waitUntil([&] {
                   m_log += QString::fromUtf8(m_process.readAll());
                   m_port = listening.match(m_log).captured(1);
                   return !m_port.isEmpty() || m_process.state() == QProcess::NotRunning;
               }) &&
               !m_port.isEmpty() && waitUntil([&] { return !get(u"/api/v1/targets"_s).isEmpty(); });
    }

    ~Prometheus()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    [[nodiscard]] QString log() const { return m_log; }

    /// Data of a response of its interface; empty if there is none or it isn't a success.
    QJsonObject get(const QString &path, const QString &query = {})
    {
        QUrl url(u"http://127.0.0.1:%1%2"_s.arg(m_port, path));
        if (!query.isEmpty()) {
            QUrlQuery arguments;
            arguments.addQueryItem(u"query"_s, QString::fromLatin1(QUrl::toPercentEncoding(query)));
            url.setQuery(arguments);
        }
        const std::unique_ptr<QNetworkReply> reply(m_network.get(QNetworkRequest(url)));
        if (!waitUntil([&] { return reply->isFinished(); }) || reply->error() != QNetworkReply::NoError)
            return {};
        return QJsonDocument::fromJson(reply->readAll()).object().value("data"_L1).toObject();
    }

    /// "up", "down" or "unknown".
    QString health()
    {
        return get(u"/api/v1/targets"_s)["activeTargets"_L1].toArray().at(0)["health"_L1].toString();
    }

    QJsonArray result(const QString &query) { return get(u"/api/v1/query"_s, query)["result"_L1].toArray(); }

    /// Value of a series of one pipeline; empty if there is none now.
    QString value(const QString &name, const QString &id)
    {
        const QJsonArray found = result(u"%1{pipeline=\"%2\"}"_s.arg(name, id));
        return found.size() == 1 ? found.at(0)["value"_L1].toArray().at(1).toString() : QString();
    }

    /// Names of the series of one pipeline, sorted.
    QStringList seriesOf(const QString &id)
    {
        QStringList names;
        const QJsonArray found = result(u"{pipeline=\"%1\"}"_s.arg(id));
        for (const QJsonValue sample : found)
            names << sample["metric"_L1].toObject().value("__name__"_L1).toString();
        names.sort();
        return names;
    }

private:
    QTemporaryDir m_dir;
    QNetworkAccessManager m_network;
    QString m_port;
    QString m_log;
    QProcess m_process;
};

} // namespace

/// A real Prometheus and what it finds.
class tst_Prometheus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void scrapesTheProgram();
    void valuesFollowTheEncoder();
};

void tst_Prometheus::init()
{
    if (machineTool(u"prometheus"_s).isEmpty())
        QSKIP("prometheus isn't installed");
    QElapsedTimer patience;
    patience.start();
    while (!metricsPortIsFree() && patience.elapsed() < 10000)
        passTimersOf(100);
    if (!metricsPortIsFree())
        QSKIP("port 9105 is taken from outside");
}

void tst_Prometheus::scrapesTheProgram()
{
    ProgramSandbox sandbox;
    sandbox.environment().insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    QVERIFY(QDir().mkpath(sandbox.path(u"config/halvorndev"_s)));
    QFile settings(sandbox.path(u"config/halvorndev/CORVANE.conf"_s));
    QVERIFY(settings.open(QIODevice::WriteOnly));
    settings.write("[pipelines]\nsize=2\n1\\id=0a1b2c3d\n1\\name=um\n2\\id=4e5f6071\n2\\name=dois\n");
    settings.close();

    QProcess program;
    sandbox.prepare(program);
    program.start();
    QVERIFY(program.waitForStarted());
    Prometheus prometheus;
    QVERIFY2(prometheus.start(), qPrintable(prometheus.log()));

    QVERIFY(waitUntil([&] { return prometheus.health() == u"up"_s; }, 60000));
    QVERIFY(waitUntil([&] { return prometheus.seriesOf(u"4e5f6071"_s).size() == 9; }));
    QCOMPARE(prometheus.seriesOf(u"0a1b2c3d"_s), series);
    QCOMPARE(prometheus.seriesOf(u"4e5f6071"_s), series);
    QCOMPARE(prometheus.value(u"corvane_pipeline_up"_s, u"0a1b2c3d"_s), u"0"_s);
    QCOMPARE(prometheus.result(u"count({__name__=~\"corvane_.*\"})"_s)
                 .at(0)["value"_L1]
                 .toArray()
                 .at(1)
                 .toString(),
             u"18"_s);

    program.kill();
    QVERIFY(waitUntil([&] { return program.state() == QProcess::NotRunning; }));
    QVERIFY(waitUntil([&] { return prometheus.health() == u"down"_s; }));
    QVERIFY(waitUntil([&] { return prometheus.seriesOf(u"0a1b2c3d"_s).isEmpty(); }));
}

void tst_Prometheus::valuesFollowTheEncoder()
{
    QTemporaryDir dir;
    const QString sign = dir.filePath(u"go-on"_s);
    EngineBench bench;
    const QString id =
        bench.addFake(u"a"_s, u"stderr="_s + stepText("fps=25 bitrate=4000.5kbits/s drop=3\n") +
                                  u",await="_s + stepText(QFile::encodeName(sign)) + u",stderr="_s +
                                  stepText("fps=29.97 bitrate=6012.3kbits/s drop=1234567\n"));
    const QString other = bench->addPipeline(u"b"_s);
    Prometheus prometheus;
    QVERIFY2(prometheus.start(), qPrintable(prometheus.log()));
    const auto becomes = [&](const QString &name, const QString &value) {
        return waitUntil([&] { return prometheus.value(name, id) == value; });
    };
    QVERIFY(becomes(u"corvane_pipeline_up"_s, u"0"_s));

    bench->startPipeline(id);
    QVERIFY(becomes(u"corvane_pipeline_up"_s, u"1"_s));
    QVERIFY(becomes(u"corvane_fps"_s, u"25"_s));
    QVERIFY(becomes(u"corvane_bitrate_kbps"_s, u"4000.5"_s));
    QVERIFY(becomes(u"corvane_dropped_frames"_s, u"3"_s));

    createFile(sign);
    QVERIFY(becomes(u"corvane_fps"_s, u"29.97"_s));
    QVERIFY(becomes(u"corvane_bitrate_kbps"_s, u"6012.3"_s));
    QVERIFY(becomes(u"corvane_dropped_frames"_s, u"1234570"_s)); // six digits are exposed

    bench->stopPipeline(id);
    QVERIFY(becomes(u"corvane_pipeline_up"_s, u"0"_s));
    QCOMPARE(prometheus.value(u"corvane_fps"_s, id), u"29.97"_s);

    bench->removePipeline(id);
    QVERIFY(waitUntil([&] { return prometheus.seriesOf(id).isEmpty(); }));
    QCOMPARE(prometheus.seriesOf(other), series);
}

CORVANE_TEST(tst_Prometheus, QCoreApplication)
#include "tst_Prometheus.moc"
