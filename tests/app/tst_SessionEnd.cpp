#include "tests/support/Files.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/ProgramSandbox.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/XServer.h"

#include <QProcess>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

/// A session manager of the test's own.
class SessionManager
{
public:
    SessionManager()
    {
        m_process.start(QStringLiteral(CORVANE_SESSION_MANAGER), QStringList());
        if (!waitUntil([this] { return !events(u"address "_s).isEmpty(); }))
            qFatal("no session manager: %s", m_process.readAllStandardError().constData());
    }
    ~SessionManager()
    {
        m_process.closeWriteChannel();
        m_process.waitForFinished();
    }
    Q_DISABLE_COPY_MOVE(SessionManager)

    [[nodiscard]] QString address() { return events(u"address "_s).constFirst().section(u' ', 1); }

    void announceShutdown() { m_process.write("shutdown\n"); }

    /// All events so far that begin with `prefix`.
    [[nodiscard]] QStringList events(const QString &prefix = {})
    {
        m_output += m_process.readAllStandardOutput();
        const QStringList lines = QString::fromUtf8(m_output.first(m_output.lastIndexOf('\n') + 1))
                                      .split(u'\n', Qt::SkipEmptyParts);
        QStringList found;
        for (const QString &line : lines) {
            if (line.startsWith(prefix))
                found << line;
        }
        return found;
    }

private:
    QProcess m_process;
    QByteArray m_output;
};

} // namespace

/// The end of an X11 session, announced to the built program: refused while it is on air, and only then.
class tst_SessionEnd : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void isRefusedOnAirAlone();

private:
    XServer m_display;
};

void tst_SessionEnd::initTestCase()
{
    if (!m_display.problem().isEmpty())
        QSKIP(qPrintable(m_display.problem()));
}

void tst_SessionEnd::isRefusedOnAirAlone()
{
    SessionManager session;
    ProgramSandbox sandbox;
    QProcessEnvironment &environment = sandbox.environment();
    environment.insert(u"SESSION_MANAGER"_s, session.address());
    environment.insert(u"CORVANE_OPERATE"_s, sandbox.path(u"operate"_s));
    environment.insert(u"QT_PLUGIN_PATH"_s, QStringLiteral(CORVANE_TEST_PLUGINS));
    environment.insert(u"QT_QPA_GENERIC_PLUGINS"_s, u"corvane_operator"_s);
    const QString started = sandbox.path(u"started"_s); // by the encoder, as is the other
    const QString left = sandbox.path(u"left"_s);
    ProgramRun run(sandbox, m_display);
    const auto order = [&sandbox](const QString &name, const QByteArray &content) {
        writeFile(sandbox.path(u"operate/new"_s), content);
        QVERIFY(QFile::rename(sandbox.path(u"operate/new"_s), sandbox.path("operate/"_L1 + name)));
    };

    QVERIFY(run.start());
    QVERIFY(waitUntil([&] { return session.events().contains(u"ready"_s); }));

    // Idle: nothing is said against it.
    session.announceShutdown();
    QVERIFY(waitUntil([&] { return session.events(u"saved"_s).size() == 1; }));
    QCOMPARE(session.events(u"interact"_s), QStringList());

    order(u"air"_s,
          u"fake:append=%1,death=%2,progress"_s.arg(stepText(started.toUtf8()), stepText(left.toUtf8()))
              .toUtf8());
    QVERIFY(waitUntil([&] { return !fileLines(started).isEmpty(); }));
    session.announceShutdown();
    QVERIFY(waitUntil([&] { return session.events(u"cancelled"_s).size() == 1; }));
    QCOMPARE(session.events(u"interact"_s).size(), 1);
    QCOMPARE(run.program.state(), QProcess::Running);
    QVERIFY(m_display.showsWindow(u"CORVANE"_s));

    // Its refusal ends with the transmission.
    order(u"off"_s, "x");
    QVERIFY(waitUntil([&] { return !fileLines(left).isEmpty(); }));
    session.announceShutdown();
    QVERIFY(waitUntil([&] { return session.events(u"saved"_s).size() == 2; }));
    QCOMPARE(session.events(u"cancelled"_s).size(), 1);
    QCOMPARE(run.close(), 0);
    QCOMPARE(run.standardError(), QString());
}

CORVANE_TEST(tst_SessionEnd, QCoreApplication)
#include "tst_SessionEnd.moc"
