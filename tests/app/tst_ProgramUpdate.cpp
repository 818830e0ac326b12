#include "tests/support/Files.h"
#include "tests/support/HttpServer.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/ProgramSandbox.h"
#include "tests/support/Recording.h"
#include "tests/support/RtmpServer.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"
#include "tests/support/XServer.h"
#include "update/PinnedUpdateKey.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <cstring>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The built program and a newer version of it: staged by its own timer, applied when nothing is on air, at
/// an exit like any other.
class tst_ProgramUpdate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void appliesAtOnceWhenNothingIsOnAir();
    void waitsForTheEndOfTheStream();

private:
    XServer m_display;
};

namespace {

const QByteArray package = QByteArray(5'000'000, 'p');
const auto deferral = u"[update] transmissão ativa — update adiado (regra de ouro: não derrubar a stream)"_s;
const auto applying = u"[update] aplicando update — reiniciando via guardião..."_s;

/// The program with a feed that offers 9.0.0 and the plugin that operates it.
class Run
{
public:
    explicit Run(const XServer &display)
        : m_server(HttpServer::Identity::Trusted)
        , m_run((prepare(), m_sandbox), display)
    {
    }

    ProgramSandbox &sandbox() { return m_sandbox; }
    ProgramRun &program() { return m_run; }

    [[nodiscard]] QString runtimeFile(const QString &name) const
    {
        return m_sandbox.runtimeDir() + u'/' + name;
    }

    /// Has the plugin carry out the order that the file stands for.
    void order(const QString &name, const QByteArray &content = "x") const
    {
        writeFile(m_sandbox.path("operate/new"_L1), content);
        QVERIFY(QFile::rename(m_sandbox.path("operate/new"_L1), m_sandbox.path("operate/"_L1 + name)));
    }

    [[nodiscard]] qsizetype said(const QString &line) const
    {
        return fileLines(m_sandbox.path(u"operate/said"_s)).count(line);
    }

    /// Waits for the program's end by itself; its exit code, or -1.
    [[nodiscard]] int waitForEnd()
    {
        const bool ended = waitUntil([&] { return m_run.program.state() == QProcess::NotRunning; });
        return ended && m_run.program.exitStatus() == QProcess::NormalExit ? m_run.program.exitCode() : -1;
    }

private:
    void prepare()
    {
        const QJsonObject entry{
            {u"url"_s, m_server.url(u"/package.zip"_s)},
            {u"sha256"_s,
             QString::fromLatin1(QCryptographicHash::hash(package, QCryptographicHash::Sha256).toHex())}};
        HttpAnswer manifest;
        manifest.body = QJsonDocument(QJsonObject{{u"version"_s, u"9.0.0"_s},
                                                  {u"platforms"_s, QJsonObject{{u"windows-x64"_s, entry}}}})
                            .toJson();
        m_server.put(u"/latest.json"_s, manifest);
        HttpAnswer answer;
        answer.body = package;
        m_server.put(u"/package.zip"_s, answer);

        writeFile(m_sandbox.path(u"operate/ca.pem"_s), testAuthority());
        QProcessEnvironment &environment = m_sandbox.environment();
        environment.insert(u"CORVANE_UPDATE_FEED"_s, m_server.url(u"/latest.json"_s));
        environment.insert(u"CORVANE_OPERATE"_s, m_sandbox.path(u"operate"_s));
        environment.insert(u"QT_PLUGIN_PATH"_s, QStringLiteral(CORVANE_TEST_PLUGINS));
        environment.insert(u"QT_QPA_GENERIC_PLUGINS"_s, u"corvane_operator"_s);
    }

    HttpServer m_server;
    ProgramSandbox m_sandbox;
    ProgramRun m_run;
};

} // namespace

void tst_ProgramUpdate::initTestCase()
{
    if (!m_display.problem().isEmpty())
        QSKIP(qPrintable(m_display.problem()));
    if (const QString problem = tlsProblem(); !problem.isEmpty())
        QSKIP(qPrintable(problem));
    if (std::strlen(pinnedUpdateKey()) > 0)
        QSKIP("this build believes one publisher, whose private key isn't here");
}

void tst_ProgramUpdate::appliesAtOnceWhenNothingIsOnAir()
{
    Run run(m_display);
    QVERIFY(run.program().start());
    // The first check comes by itself, a few seconds after the start.
    QCOMPARE(run.waitForEnd(), 0);

    QCOMPARE(run.said(applying), 1);
    QCOMPARE(run.said(deferral), 0);
    QVERIFY(QFileInfo(run.runtimeFile(u"update/apply-now"_s)).isFile());
    QCOMPARE(QFileInfo(run.runtimeFile(u"update/apply-now"_s)).size(), 0);
    QCOMPARE(contentsOf(run.runtimeFile(u"update/CORVANE-9.0.0.zip"_s)), package);
    QCOMPARE(
        contentsOf(run.runtimeFile(u"update/update-ready.json"_s)),
        u"{\"install_dir\":\"%1\",\"package\":\"%2\",\"version\":\"9.0.0\"}"_s
            .arg(QFileInfo(corvaneProgram()).canonicalPath(), run.runtimeFile(u"update/CORVANE-9.0.0.zip"_s))
            .toUtf8());
    QVERIFY(QFile::exists(run.runtimeFile(u".cleanexit"_s)));
    QVERIFY(!QFile::exists(run.runtimeFile(u"crashes/.running"_s)));
    QCOMPARE(run.program().standardError(), QString());
}

void tst_ProgramUpdate::waitsForTheEndOfTheStream()
{
    if (machineTool(u"ffmpeg"_s).isEmpty() || machineTool(u"ffprobe"_s).isEmpty())
        QSKIP("ffmpeg or ffprobe isn't installed");
    if (const QString missing = RtmpServer::missing(); !missing.isEmpty())
        QSKIP(qPrintable(missing));
    RtmpServer rtmp;
    QVERIFY2(rtmp.start(), qPrintable(rtmp.error()));
    Run run(m_display);
    const QString ffmpeg = run.sandbox().path(u"bin/ffmpeg"_s);
    QVERIFY(QFile::remove(ffmpeg));
    QVERIFY(QFile::link(machineTool(u"ffmpeg"_s), ffmpeg));

    const QString request = run.runtimeFile(u"update/apply-now"_s);
    QVERIFY(run.program().start());
    run.order(u"air"_s, rtmp.url(u"key"_s).toUtf8());
    const auto recorded = [&] { return QFileInfo(rtmp.recording(u"key"_s)).size(); };
    QVERIFY2(waitUntil([&] { return recorded() > 0; }), qPrintable(run.program().standardError()));

    QVERIFY(waitUntil([&] { return run.said(deferral) == 1; }));
    run.order(u"button"_s);
    QVERIFY(waitUntil([&] { return run.said(deferral) == 2; }));
    const qint64 soFar = recorded();
    QVERIFY(waitUntil([&] { return recorded() > soFar; })); // still on air
    QVERIFY(!QFile::exists(request));

    run.order(u"off"_s);
    QVERIFY(waitUntil([&] { return !QFile::exists(run.sandbox().path(u"operate/off"_s)); }));
    QCOMPARE(run.program().program.state(), QProcess::Running);
    QVERIFY(!QFile::exists(request)); // the end of the stream starts nothing
    rtmp.stop();
    const Recording recording = inspectRecording(rtmp.recording(u"key"_s));
    QCOMPARE(recording.error, QString());
    QCOMPARE(recording.videoCodec, u"h264"_s);
    QVERIFY2(recording.seconds > 2, qPrintable(QString::number(recording.seconds)));
    QVERIFY2(recording.largestGap < 0.05, qPrintable(QString::number(recording.largestGap)));

    run.order(u"button"_s);
    QCOMPARE(run.waitForEnd(), 0);
    QCOMPARE(run.said(applying), 1);
    QVERIFY(QFile::exists(request));
    QVERIFY(QFile::exists(run.runtimeFile(u".cleanexit"_s)));
    QVERIFY(!QFile::exists(run.runtimeFile(u"crashes/.running"_s)));
    QCOMPARE(run.program().standardError(), QString());
}

CORVANE_TEST(tst_ProgramUpdate, QCoreApplication)
#include "tst_ProgramUpdate.moc"
