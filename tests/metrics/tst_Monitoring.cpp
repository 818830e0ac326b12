#include "engine/MetricsText.h"
#include "tests/metrics/MetricsTestSupport.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

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

QJsonObject dashboard()
{
    return QJsonDocument::fromJson(sourceFile(u"packaging/monitoring/corvane-dashboard.json"_s)).object();
}

/// Every query of every panel.
QStringList expressions()
{
    QStringList found;
    const QJsonArray panels = dashboard().value("panels"_L1).toArray();
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

} // namespace

/// The exposition and the files delivered for monitoring, checked by the monitors' own tools.
class tst_Monitoring : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void whatPromtoolSaysOfTheText();
    void dashboardIdentity();
    void dashboardTakesItsDataSourceFromTheVariable();
    void dashboardShowsTheFiguresOfEachPipeline();
    void dashboardQueriesAreWellFormed();
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

void tst_Monitoring::dashboardIdentity()
{
    const QJsonObject board = dashboard();
    QCOMPARE(board.value("uid"_L1).toString(), u"corvane-pipelines"_s); // links lead to it
    QVERIFY(!board.contains("id"_L1));                                  // a number of one installation
    QSet<int> ids;
    const QJsonArray panels = board.value("panels"_L1).toArray();
    for (const QJsonValue panel : panels)
        ids << panel["id"_L1].toInt();
    QCOMPARE(ids.size(), panels.size());
}

void tst_Monitoring::dashboardTakesItsDataSourceFromTheVariable()
{
    const QJsonArray variables = dashboard()["templating"_L1].toObject()["list"_L1].toArray();
    QCOMPARE(variables.at(0)["name"_L1].toString(), u"datasource"_s);
    QCOMPARE(variables.at(0)["type"_L1].toString(), u"datasource"_s);
    QCOMPARE(variables.at(0)["query"_L1].toString(), u"prometheus"_s);

    const QByteArray text = sourceFile(u"packaging/monitoring/corvane-dashboard.json"_s);
    static const QRegularExpression uid(uR"re("uid": "([^"]*)")re"_s);
    int uses = 0;
    for (auto match = uid.globalMatch(QString::fromUtf8(text)); match.hasNext();) {
        const QString value = match.next().captured(1);
        QVERIFY2(value == u"corvane-pipelines"_s || value == u"${datasource}"_s, qPrintable(value));
        uses += value == u"${datasource}"_s;
    }
    QCOMPARE(uses, 11); // panels, their queries, the variable of pipelines
}

void tst_Monitoring::dashboardShowsTheFiguresOfEachPipeline()
{
    const QStringList queries = expressions();
    for (const auto &name : {u"corvane_pipeline_up"_s, u"corvane_fps"_s, u"corvane_bitrate_kbps"_s,
                             u"corvane_dropped_frames"_s, u"corvane_degradation_level"_s})
        QCOMPARE(queries.filter(name).size(), 1);
    QCOMPARE(queries.filter(u"{pipeline=~\"$pipeline\"}"_s).size(), queries.size());
}

void tst_Monitoring::dashboardQueriesAreWellFormed()
{
    const QString promtool = machineTool(u"promtool"_s);
    if (promtool.isEmpty())
        QSKIP("promtool isn't installed");

    // Checked as rules, for there is no other check of a query.
    QByteArray rules = "groups:\n  - name: dashboard\n    rules:\n";
    int number = 0;
    const QStringList queries = expressions();
    for (QString query : queries) {
        query.replace(u"$pipeline"_s, u".*"_s);
        rules += "      - record: dashboard:query" + QByteArray::number(++number) + "\n        expr: '" +
                 query.toUtf8() + "'\n";
    }
    const QTemporaryDir dir;
    QFile file(dir.filePath(u"rules.yml"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(rules);
    file.close();
    const ToolRun run = runTool(promtool, {u"check"_s, u"rules"_s, file.fileName()});
    QVERIFY2(run.exitCode == 0, run.output.constData());
    QVERIFY2(run.output.contains("SUCCESS: 5 rules found"), run.output.constData());
}

void tst_Monitoring::namesOnlyWhatThereIs_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<bool>("allOfThem");

    QTest::newRow("dashboard") << u"packaging/monitoring/corvane-dashboard.json"_s << false;
    QTest::newRow("alert rules") << u"packaging/monitoring/corvane-alerts.yml"_s << false;
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
