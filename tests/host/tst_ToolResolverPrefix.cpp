#include "tests/support/Runner.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QUuid>

#include <QTest>

using namespace Qt::StringLiterals;

/// The place of locally installed programs, with a file of a name that nobody else has, taken away
/// afterwards.
class tst_ToolResolverPrefix : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void looksInUsrLocalBeforePath();
};

void tst_ToolResolverPrefix::looksInUsrLocalBeforePath()
{
    const QString name = u"corvane-test-tool-"_s + QUuid::createUuid().toString(QUuid::WithoutBraces);
    QFile local(u"/usr/local/bin/"_s + name);
    if (!local.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        QSKIP("/usr/local/bin is not writable for this user");
    const auto cleanUp = qScopeGuard([&] { local.remove(); });
    local.close();

    QTemporaryDir dir;
    QFile onPath(dir.filePath(name));
    QVERIFY(onPath.open(QIODevice::WriteOnly));
    onPath.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    onPath.close();

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"PATH"_s, dir.path());
    const auto found = [&](const QString &program) {
        QProcess probe;
        probe.setProcessEnvironment(environment);
        probe.start(program, {name});
        return probe.waitForFinished() ? QFile::decodeName(probe.readAllStandardOutput()) : u"(no answer)"_s;
    };
    QCOMPARE(found(QStringLiteral(CORVANE_TOOL_PROBE)), local.fileName());

    // A tool beside the program comes before it.
    const QString moved = QFileInfo(dir.path()).canonicalFilePath() + u"/bin/"_s;
    QVERIFY(QDir().mkpath(moved));
    QVERIFY(QFile::copy(QStringLiteral(CORVANE_TOOL_PROBE), moved + u"probe"_s));
    QVERIFY(QFile::copy(onPath.fileName(), moved + name));
    QCOMPARE(found(moved + u"probe"_s), moved + name);

    QVERIFY(local.remove());
    QCOMPARE(found(QStringLiteral(CORVANE_TOOL_PROBE)), onPath.fileName());
}

CORVANE_TEST(tst_ToolResolverPrefix, QCoreApplication)
#include "tst_ToolResolverPrefix.moc"
