#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tools/guardian/Installation.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane::guardian;
using corvane::test::giveAway;

/// Where a guardian may be.
class tst_Installation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void places_data();
    void places();
    void aFileSystemsRoot();
    void anotherUsersRuntimeDirectory();
};

void tst_Installation::places_data()
{
    QTest::addColumn<QString>("guardian");
    QTest::addColumn<QString>("runtime");
    QTest::addColumn<QString>("problem");
    const QString in =
        u"the guardian lies in the installation that it would replace, APP: it belongs beside it"_s;
    const QString runtimeIn =
        u"the runtime directory RUNTIME lies in the installation, which an update replaces"_s;
    QTest::newRow("beside it") << u"guardian"_s << u"runtime"_s << QString();
    QTest::newRow("in the folder above") << u"."_s << u"runtime"_s << QString();
    QTest::newRow("in a folder whose name begins the same")
        << u"app.guardian"_s << u"app-data/runtime"_s << QString();
    QTest::newRow("in it") << u"app"_s << u"runtime"_s << in;
    QTest::newRow("deeper in it") << u"app/tools/x"_s << u"runtime"_s << in;
    QTest::newRow("in it by a detour") << u"guardian/../app"_s << u"runtime"_s << in;
    QTest::newRow("the runtime directory in it") << u"guardian"_s << u"app/runtime"_s << runtimeIn;
    QTest::newRow("the runtime directory in it, not made yet")
        << u"guardian"_s << u"app/not/there/yet"_s << runtimeIn;
#ifndef Q_OS_WIN // where Qt makes a shortcut of the shell's, which is no link of the file system
    QTest::newRow("in it by a link") << u"link"_s << u"runtime"_s << in;
    QTest::newRow("the runtime directory in it by a link") << u"guardian"_s << u"link/runtime"_s << runtimeIn;
#endif
}

void tst_Installation::places()
{
    QFETCH(const QString, guardian);
    QFETCH(const QString, runtime);
    QFETCH(QString, problem);
    const QTemporaryDir folder;
    QDir top(folder.path());
    for (const QString &name : {u"app/tools/x"_s, u"guardian"_s, u"app.guardian"_s})
        QVERIFY(top.mkpath(name));
    QVERIFY(QFile::link(top.filePath(u"app"_s), top.filePath(u"link"_s)));
    const Installation installation{QFileInfo(top.filePath(u"app"_s)).canonicalFilePath(), u"corvane"_s, {}};

    problem.replace("APP"_L1, installation.directory).replace("RUNTIME"_L1, top.filePath(runtime));
    QCOMPARE(placeProblem(installation, top.filePath(guardian), top.filePath(runtime)), problem);
}

void tst_Installation::aFileSystemsRoot()
{
    const QTemporaryDir folder;
    const Installation root{QDir::rootPath(), u"corvane"_s, {}};
    QCOMPARE(placeProblem(root, folder.path(), folder.filePath(u"runtime"_s)),
             u"the root of a file system can't be replaced by an update"_s);
}

/// The guardian would start the program as its own user.
void tst_Installation::anotherUsersRuntimeDirectory()
{
    const QTemporaryDir folder;
    const QDir top(folder.path());
    QVERIFY(top.mkpath(u"app"_s) && top.mkpath(u"runtime"_s));
    const Installation installation{QFileInfo(top.filePath(u"app"_s)).canonicalFilePath(), u"corvane"_s, {}};
    const QString runtime = top.filePath(u"runtime"_s);
    QCOMPARE(placeProblem(installation, folder.path(), runtime), QString());
    if (!giveAway(runtime))
        QSKIP("this user can't give folders away");
    QCOMPARE(
        placeProblem(installation, folder.path(), runtime),
        u"the runtime directory %1 belongs to another user: the guardian starts CORVANE as its own user, so the one who runs CORVANE has to run it"_s
            .arg(runtime));
}

CORVANE_TEST(tst_Installation, QCoreApplication)
#include "tst_Installation.moc"
