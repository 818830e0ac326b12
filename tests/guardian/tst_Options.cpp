#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/ToolPath.h"
#include "tools/guardian/FileNames.h"
#include "tools/guardian/Options.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <chrono>
#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace corvane::guardian;
using corvane::test::writeFile;

/// Settings from a command line.
class tst_Options : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void help();
    void nothingButThePlace();
    void everything();
    void patience_data();
    void patience();
    void places_data();
    void places();
    void withoutUpdatesInTheMiddleOfOne();

private:
    [[nodiscard]] QString path(const QString &name) const { return m_top + u'/' + name; }
    [[nodiscard]] Options read(const QStringList &arguments) const
    {
        return readOptions(QStringList{u"corvane-guardian"_s} + arguments, path(u"marks"_s));
    }

    std::unique_ptr<QTemporaryDir> m_folder;
    QString m_top;
};

void tst_Options::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    m_top = QFileInfo(m_folder->path()).canonicalFilePath();
    writeFile(path("app/"_L1 + programFileName()), "x");
}

void tst_Options::help()
{
    for (const QString &asked : {u"-h"_s, u"--help"_s}) {
        const Options options = read({asked});
        QVERIFY(!options.settings);
        QCOMPARE(options.exitCode, EndedCleanly);
        for (const char *part :
             {"its log is in \"guardian\" of the runtime directory.\n",
              "Exit codes: 0 CORVANE ended in order; 1 it can't be kept up; 2 wrong command line;\n",
              "3 wrong place, elevated, or another guardian is at work; 4 nothing to attach to.\n",
              " [options] [-- arguments]\n"}) {
            QVERIFY2(options.text.contains(QLatin1StringView(part)), part);
        }
        const QString text = options.text.simplified(); // however its lines are broken
        QVERIFY2(text.endsWith(
                     R"( Options: -h, --help shows this --install-dir <DIR> where CORVANE is installed )"
                     R"((default: the folder "corvane" beside the guardian's own) --runtime-dir <DIR> )"
                     R"(where CORVANE leaves its marks (default: where it does by itself) --attach )"
                     R"(watch a run that is there already; leave if there is none )"
                     R"(--heartbeat-timeout <SECONDS> how long a new version may take to its first )"
                     R"(heartbeat (default: 60) --without-updates keep CORVANE up with its update check )"
                     R"(off, where its folder can't be written to Arguments: arguments for CORVANE, )"
                     R"(after --)"_L1),
                 qPrintable(text));
    }
}

void tst_Options::nothingButThePlace()
{
    const Options options = read({u"--install-dir"_s, path(u"app"_s)});
    QVERIFY2(options.settings, qPrintable(options.text));
    QCOMPARE(options.settings->installation.directory, path(u"app"_s));
    QCOMPARE(options.settings->installation.program, corvane::test::executableName(u"corvane"_s));
    QCOMPARE(options.settings->installation.own(), path(u"app.guardian"_s));
    QCOMPARE(options.settings->runtimeDirectory, path(u"marks"_s));
    QCOMPARE(options.settings->arguments, QStringList());
    QCOMPARE(options.settings->trial.patience, 60s);
    QVERIFY(!options.settings->attachOnly);
    QVERIFY(options.settings->updates);
}

void tst_Options::everything()
{
    const Options options = read({u"--attach"_s, u"--without-updates"_s, u"--heartbeat-timeout"_s, u"5"_s,
                                  u"--runtime-dir"_s, path(u"a/../other"_s), u"--install-dir"_s,
                                  path(u"app/../app/"_s), u"--"_s, u"--attach"_s, u"x y"_s});
    QVERIFY2(options.settings, qPrintable(options.text));
    QCOMPARE(options.settings->installation.directory, path(u"app"_s));
    QCOMPARE(options.settings->runtimeDirectory, path(u"other"_s));
    QCOMPARE(options.settings->installation.own(), path(u"other/guardian"_s));
    QCOMPARE(options.settings->arguments, QStringList({u"--attach"_s, u"x y"_s}));
    QCOMPARE(options.settings->trial.patience, 5s);
    QVERIFY(options.settings->attachOnly);
    QVERIFY(!options.settings->updates);
    QVERIFY(QDir::isAbsolutePath(read({u"--install-dir"_s, path(u"app"_s), u"--runtime-dir"_s, u"marks"_s})
                                     .settings->runtimeDirectory));
}

void tst_Options::patience_data()
{
    QTest::addColumn<QString>("seconds");
    QTest::addColumn<bool>("taken");
    QTest::newRow("one") << u"1"_s << true;
    QTest::newRow("many") << u"86400"_s << true;
    QTest::newRow("none") << u"0"_s << false;
    QTest::newRow("before") << u"-1"_s << false;
    QTest::newRow("a part") << u"1.5"_s << false;
    QTest::newRow("a unit") << u"60s"_s << false;
    QTest::newRow("empty") << QString() << false;
    QTest::newRow("beyond numbers") << u"99999999999"_s << false;
}

void tst_Options::patience()
{
    QFETCH(const QString, seconds);
    QFETCH(const bool, taken);
    const Options options = read({u"--install-dir"_s, path(u"app"_s), "--heartbeat-timeout="_L1 + seconds});
    QCOMPARE(options.settings.has_value(), taken);
    if (taken) {
        QCOMPARE(options.settings->trial.patience, std::chrono::seconds(seconds.toInt()));
    } else {
        QCOMPARE(options.text, u"--heartbeat-timeout takes a number of seconds"_s);
        QCOMPARE(options.exitCode, WrongUsage);
    }
}

void tst_Options::places_data()
{
    QTest::addColumn<QString>("place");
    QTest::addColumn<QString>("directory"); // empty: refused
    QTest::newRow("an installation") << u"app"_s << u"app"_s;
    QTest::newRow("with a separator at its end") << u"app/"_s << u"app"_s;
    QTest::newRow("in the middle of an update") << u"moved"_s << u"moved"_s;
    QTest::newRow("in the middle of an update, by a detour") << u"app/../moved/"_s << u"moved"_s;
    QTest::newRow("a folder without the program") << u"empty"_s << QString();
    QTest::newRow("nothing") << u"missing"_s << QString();
    QTest::newRow("nothing in nothing") << u"missing/app"_s << QString();
#ifndef Q_OS_WIN
    QTest::newRow("by a link") << u"link"_s << u"app"_s;
    QTest::newRow("in the middle of an update, in a folder by a link") << u"above/moved"_s << u"moved"_s;
#endif
}

void tst_Options::places()
{
    QFETCH(const QString, place);
    QFETCH(const QString, directory);
    QVERIFY(QDir(m_top).mkpath(u"empty"_s));
    writeFile(path(u"moved.guardian/journal.json"_s), "{}");
#ifndef Q_OS_WIN
    QVERIFY(QFile::link(path(u"app"_s), path(u"link"_s)));
    QVERIFY(QFile::link(m_top, path(u"above"_s)));
#endif
    const Options options = read({u"--install-dir"_s, path(place)});
    QCOMPARE(options.settings.has_value(), !directory.isEmpty());
    if (options.settings) {
        QCOMPARE(options.settings->installation.directory, path(directory));
    } else {
        QCOMPARE(options.text, u"there is no %1 in %2"_s.arg(programFileName(), path(place)));
        QCOMPARE(options.exitCode, WrongPlace);
    }
}

/// It has no say in the update of another guardian.
void tst_Options::withoutUpdatesInTheMiddleOfOne()
{
    writeFile(path(u"moved.guardian/journal.json"_s), "{}");
    const Options options = read({u"--install-dir"_s, path(u"moved"_s), u"--without-updates"_s});
    QVERIFY(!options.settings);
    QCOMPARE(options.exitCode, WrongPlace);
}

CORVANE_TEST(tst_Options, QCoreApplication)
#include "tst_Options.moc"
