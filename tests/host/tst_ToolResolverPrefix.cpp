#include "tests/support/Runner.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <QTest>

using namespace Qt::StringLiterals;

/// The place of locally installed programs, in one of the test's own (tests/support/own_network.sh).
class tst_ToolResolverPrefix : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void looksInUsrLocalBeforePath();
};

void tst_ToolResolverPrefix::looksInUsrLocalBeforePath()
{
    if (!QFileInfo::exists(u"/usr/local/bin/.corvane-test"_s))
        QSKIP("/usr/local/bin is the machine's: ctest gives the test one of its own where the system grants "
              "that");
    const QString name = u"corvane-test-tool"_s;
    QFile local(u"/usr/local/bin/"_s + name);
    QVERIFY2(local.open(QIODevice::WriteOnly | QIODevice::NewOnly), qPrintable(local.errorString()));
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
