#include "engine/MetricsText.h"
#include "tests/metrics/MetricsTestSupport.h"
#include "tests/support/ChildLife.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

const QStringList series = {
    u"corvane_pipeline_up"_s,     u"corvane_fps"_s,
    u"corvane_bitrate_kbps"_s,    u"corvane_dropped_frames"_s,
    u"corvane_srt_rtt_ms"_s,      u"corvane_srt_pkt_snd_drop"_s,
    u"corvane_srt_pkt_retrans"_s, u"corvane_degradation_level"_s,
    u"corvane_thermal_state"_s,
};

QByteArray sourceFile(const QString &name)
{
    QFile file(QStringLiteral(CORVANE_SOURCE_DIR "/") + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

const auto ofPipelines = u"packaging/monitoring/corvane-dashboard.json"_s;
const auto ofMachines = u"packaging/monitoring/corvane-fleet-dashboard.json"_s;

QJsonObject dashboard(const QString &file)
{
    return QJsonDocument::fromJson(sourceFile(file)).object();
}

/// Every query of every panel.
QStringList expressions(const QString &file)
{
    QStringList found;
    const QJsonArray panels = dashboard(file).value("panels"_L1).toArray();
    for (const QJsonValue panel : panels) {
        const QJsonArray targets = panel["targets"_L1].toArray();
        for (const QJsonValue target : targets)
            found << target["expr"_L1].toString();
    }
    return found;
}

QSet<QString> namesIn(const QString &text)
{
    static const QRegularExpression name(u"\\bcorvane_[a-z_]+"_s);
    QSet<QString> names;
    for (auto match = name.globalMatch(text); match.hasNext();)
        names << match.next().captured();
    return names;
}

/// An alert in the eyes of Alertmanager.
struct Alert
{
    QString name;
    QString machine; ///< empty: without the label, and so is the pipeline
    QString pipeline;
    bool heldBack = false;
};

QJsonObject labelsOf(const Alert &alert)
{
    QJsonObject labels{{u"alertname"_s, alert.name}};
    if (!alert.machine.isEmpty())
        labels.insert(u"machine"_s, alert.machine);
    if (!alert.pipeline.isEmpty())
        labels.insert(u"pipeline"_s, alert.pipeline);
    return labels;
}

QByteArray request(const QByteArray &method, const QByteArray &body = {})
{
    return method +
           " /api/v2/alerts HTTP/1.0\r\n" // no chunks
           "Content-Type: application/json\r\nContent-Length: " +
           QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

/// Starts an Alertmanager with the shipped configuration; the port that the system gave it, 0 if it doesn't
/// come up.
quint16 startAlertmanager(QProcess &process, const QString &folder)
{
    endWithParent(process);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(machineTool(u"prometheus-alertmanager"_s),
                  {u"--config.file=" CORVANE_SOURCE_DIR "/packaging/monitoring/alertmanager.yml"_s,
                   u"--storage.path="_s + folder, u"--web.listen-address=127.0.0.1:0"_s,
                   u"--cluster.listen-address="_s});
    static const QRegularExpression listening(uR"(msg="Listening on" address=127\.0\.0\.1:(\d+))"_s);
    QString log;
    quint16 port = 0;
    waitUntil([&] {
        log += QString::fromUtf8(process.readAll());
        port = listening.match(log).captured(1).toUShort();
        return port != 0 || process.state() == QProcess::NotRunning;
    });
    if (port == 0)
        qWarning().noquote() << log;
    return port;
}

} // namespace

/// The exposition and the files delivered for monitoring, checked by the monitors' own tools.
class tst_Monitoring : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void whatPromtoolSaysOfTheText();
    void dashboardIdentity_data();
    void dashboardIdentity();
    void dashboardTakesItsDataSourceFromTheVariable_data();
    void dashboardTakesItsDataSourceFromTheVariable();
    void dashboardShowsTheFiguresOfEachPipeline();
    void overviewAsksByMachine();
    void dashboardQueriesAreWellFormed_data();
    void dashboardQueriesAreWellFormed();
    void alertmanagerHoldsBackWhatAnotherAlertExplains();
    void namesOnlyWhatThereIs_data();
    void namesOnlyWhatThereIs();
};

void tst_Monitoring::whatPromtoolSaysOfTheText()
{
    const QString promtool = machineTool(u"promtool"_s);
    if (promtool.isEmpty())
        QSKIP("promtool isn't installed");

    PipelineConfig second = fakeConfig(u""_s);
    second.id = u"cafe0002"_s;
    Pipeline one(fakeConfig(u""_s), fakeFfmpeg(), false);
    Pipeline two(second, fakeFfmpeg(), false);
    const ToolRun run =
        runTool(promtool, {u"check"_s, u"metrics"_s}, corvane::metricsText({&one, &two}).toUtf8());
    QCOMPARE(run.output, sourceFile(u"tests/metrics/promtool-check-metrics.txt"_s));
    QCOMPARE(run.exitCode, 3); // well-formed, with remarks
}

void tst_Monitoring::dashboardIdentity_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("uid"); // links lead to it

    QTest::newRow("pipelines") << ofPipelines << u"corvane-pipelines"_s;
    QTest::newRow("machines") << ofMachines << u"corvane-machines"_s;
}

void tst_Monitoring::dashboardIdentity()
{
    QFETCH(QString, file);
    QFETCH(QString, uid);
    const QJsonObject board = dashboard(file);
    QCOMPARE(board.value("uid"_L1).toString(), uid);
    QVERIFY(!board.contains("id"_L1)); // a number of one installation
    QSet<int> ids;
    const QJsonArray panels = board.value("panels"_L1).toArray();
    for (const QJsonValue panel : panels)
        ids << panel["id"_L1].toInt();
    QCOMPARE(ids.size(), panels.size());
}

void tst_Monitoring::dashboardTakesItsDataSourceFromTheVariable_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("ownUid");
    QTest::addColumn<int>("uses"); // panels, their queries, the variables of machines and pipelines

    QTest::newRow("pipelines") << ofPipelines << u"corvane-pipelines"_s << 12;
    QTest::newRow("machines") << ofMachines << u"corvane-machines"_s << 19;
}

void tst_Monitoring::dashboardTakesItsDataSourceFromTheVariable()
{
    QFETCH(QString, file);
    QFETCH(QString, ownUid);
    QFETCH(int, uses);
    const QJsonArray variables = dashboard(file)["templating"_L1].toObject()["list"_L1].toArray();
    QCOMPARE(variables.at(0)["name"_L1].toString(), u"datasource"_s);
    QCOMPARE(variables.at(0)["type"_L1].toString(), u"datasource"_s);
    QCOMPARE(variables.at(0)["query"_L1].toString(), u"prometheus"_s);

    const QByteArray text = sourceFile(file);
    static const QRegularExpression uid(uR"re("uid": "([^"]*)")re"_s);
    int found = 0;
    for (auto match = uid.globalMatch(QString::fromUtf8(text)); match.hasNext();) {
        const QString value = match.next().captured(1);
        QVERIFY2(value == ownUid || value == u"${datasource}"_s, qPrintable(value));
        found += value == u"${datasource}"_s;
    }
    QCOMPARE(found, uses);
}

void tst_Monitoring::dashboardShowsTheFiguresOfEachPipeline()
{
    const QStringList queries = expressions(ofPipelines);
    for (const auto &name : {u"corvane_pipeline_up"_s, u"corvane_fps"_s, u"corvane_bitrate_kbps"_s,
                             u"corvane_dropped_frames"_s, u"corvane_degradation_level"_s})
        QCOMPARE(queries.filter(name).size(), 1);
    const auto chosen = u"{machine=~\"$machine\", pipeline=~\"$pipeline\"}"_s;
    QCOMPARE(queries.filter(chosen).size(), queries.size());
}

void tst_Monitoring::overviewAsksByMachine()
{
    const QStringList queries = expressions(ofMachines);
    QVERIFY(!queries.isEmpty());
    QCOMPARE(queries.filter(u"machine=~\"$machine\""_s).size(), queries.size());
    // Each row of the table leads to the pipelines of its machine.
    QVERIFY(sourceFile(ofMachines).contains("/d/corvane-pipelines?var-machine=${__value.raw}"));
}

void tst_Monitoring::dashboardQueriesAreWellFormed_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("count");

    QTest::newRow("pipelines") << ofPipelines << 5;
    QTest::newRow("machines") << ofMachines << 11;
}

void tst_Monitoring::dashboardQueriesAreWellFormed()
{
    QFETCH(QString, file);
    QFETCH(int, count);
    const QString promtool = machineTool(u"promtool"_s);
    if (promtool.isEmpty())
        QSKIP("promtool isn't installed");

    // Checked as rules, for there is no other check of a query.
    QByteArray rules = "groups:\n  - name: dashboard\n    rules:\n";
    int number = 0;
    const QStringList queries = expressions(file);
    for (QString query : queries) {
        query.replace(u"$pipeline"_s, u".*"_s);
        query.replace(u"$machine"_s, u".*"_s);
        rules += "      - record: dashboard:query" + QByteArray::number(++number) + "\n        expr: '" +
                 query.toUtf8() + "'\n";
    }
    const QTemporaryDir dir;
    QFile written(dir.filePath(u"rules.yml"_s));
    QVERIFY(written.open(QIODevice::WriteOnly));
    written.write(rules);
    written.close();
    const ToolRun run = runTool(promtool, {u"check"_s, u"rules"_s, written.fileName()});
    QVERIFY2(run.exitCode == 0, run.output.constData());
    QVERIFY2(run.output.contains("SUCCESS: " + QByteArray::number(count) + " rules found"),
             run.output.constData());
}

void tst_Monitoring::alertmanagerHoldsBackWhatAnotherAlertExplains()
{
    if (machineTool(u"prometheus-alertmanager"_s).isEmpty())
        QSKIP("prometheus-alertmanager isn't installed");
    const QTemporaryDir dir;
    QProcess process;
    const quint16 port = startAlertmanager(process, dir.path());
    QVERIFY(port != 0);

    const QList<Alert> alerts = {
        // A machine that is gone takes everything of its own along, and the absence of the last target.
        {u"CorvaneMachineGone"_s, u"norte"_s, u""_s, false},
        {u"CorvaneMachineTwice"_s, u"norte"_s, u""_s, true},
        {u"CorvaneTargetGone"_s, u"norte"_s, u""_s, true},
        {u"CorvanePipelineDown"_s, u"norte"_s, u"a"_s, true},
        {u"CorvaneStandstill"_s, u"norte"_s, u"b"_s, true},
        {u"CorvaneTargetGone"_s, u""_s, u""_s, true},
        // A program that doesn't answer takes its pipelines along.
        {u"CorvaneTargetGone"_s, u"oeste"_s, u""_s, false},
        {u"CorvanePipelineDown"_s, u"oeste"_s, u"a"_s, true},
        {u"CorvaneStandstill"_s, u"oeste"_s, u"b"_s, true},
        {u"CorvaneMachineTwice"_s, u"oeste"_s, u""_s, false},
        // A standstill explains what came before it, of the same pipeline.
        {u"CorvaneStandstill"_s, u"sul"_s, u"a"_s, false},
        {u"CorvaneDropsRising"_s, u"sul"_s, u"a"_s, true},
        {u"CorvaneQualityReduced"_s, u"sul"_s, u"a"_s, true},
        {u"CorvaneQualityReduced"_s, u"sul"_s, u"b"_s, false},
        {u"CorvanePipelineDown"_s, u"sul"_s, u"b"_s, false},
        {u"CorvanePipelineDown"_s, u"leste"_s, u"a"_s, false},
    };
    QJsonArray posted;
    for (const Alert &alert : alerts)
        posted << QJsonObject{{u"labels"_s, labelsOf(alert)}};
    const QByteArray answer = ask(port, request("POST", QJsonDocument(posted).toJson()));
    QVERIFY2(answer.startsWith("HTTP/1.0 200 "), answer.constData());

    const QJsonArray known = QJsonDocument::fromJson(bodyOf(ask(port, request("GET")))).array();
    QCOMPARE(known.size(), alerts.size());
    for (const Alert &alert : alerts) {
        const auto found = std::find_if(known.begin(), known.end(), [&](const QJsonValue &candidate) {
            return candidate["labels"_L1].toObject() == labelsOf(alert);
        });
        const QString who = alert.name + u' ' + alert.machine + u' ' + alert.pipeline;
        QVERIFY2(found != known.end(), qPrintable(who));
        const bool heldBack = !(*found)["status"_L1].toObject()["inhibitedBy"_L1].toArray().isEmpty();
        QVERIFY2(heldBack == alert.heldBack, qPrintable(who));
    }
    process.kill();
    process.waitForFinished();
}

void tst_Monitoring::namesOnlyWhatThereIs_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<bool>("allOfThem");

    QTest::newRow("dashboard of pipelines") << ofPipelines << false;
    QTest::newRow("dashboard of machines") << ofMachines << false;
    QTest::newRow("alert rules") << u"packaging/monitoring/corvane-alerts.yml"_s << false;
    QTest::newRow("alert rules of several machines")
        << u"packaging/monitoring/corvane-fleet-alerts.yml"_s << false;
    QTest::newRow("documentation") << u"docs/monitoring.md"_s << true;
}

void tst_Monitoring::namesOnlyWhatThereIs()
{
    QFETCH(QString, file);
    QFETCH(bool, allOfThem);

    const QSet<QString> known(series.begin(), series.end());
    const QSet<QString> named = namesIn(QString::fromUtf8(sourceFile(file)));
    QVERIFY(!named.isEmpty());
    QCOMPARE(named - known, QSet<QString>());
    if (allOfThem)
        QCOMPARE(named, known);
}

CORVANE_TEST(tst_Monitoring, QCoreApplication)
#include "tst_Monitoring.moc"
