#include "tests/guardian/GuardedFolder.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tools/guardian/DirectorySwap.h"
#include "tools/guardian/FileNames.h"
#include "tools/guardian/ProgramProcesses.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMap>
#include <QProcess>
#include <QRandomGenerator>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::guardian;
using test::GuardedFolder;
using test::waitUntil;

namespace {

constexpr int wholeParts = 20;

/// Version of the installation in `folder` if every part of it is that version's, else "none" or "torn".
QByteArray wholeVersionIn(const QString &folder)
{
    if (!QFileInfo::exists(folder))
        return "none";
    const QByteArray version = GuardedFolder::versionIn(folder);
    bool isWhole = !version.isEmpty() && QFile(folder + u'/' + programFileName()).size() ==
                                             QFile(QStringLiteral(CORVANE_FAKE_CORVANE)).size();
    for (int i = 0; i < wholeParts; ++i)
        isWhole =
            isWhole && test::contentsOf(folder + u"/lib/part%1"_s.arg(i)) == QByteArray(2000, version.at(2));
    return isWhole ? version : "torn";
}

/// Kills a process, and the host of a console that it was about to get, on Windows: that would wait for it
/// for ever.
void killWithConsole(qint64 id)
{
    if (id == 0)
        return; // it has ended already
    test::killProcess(id);
    const QList<qint64> left = test::childProcesses(id);
    for (const qint64 child : left)
        test::killProcess(child);
}

/// Ends the runs of `program`, those included that the killed guardian was about to start: so far they run
/// the guardian's own file.
void endRunsOf(const QString &program)
{
    QVERIFY(waitUntil([&] {
        const QList<ProgramProcess> runs =
            processesOf(QStringLiteral(CORVANE_GUARDIAN_VICTIM)) + processesOf(program);
        for (const ProgramProcess &run : runs)
            killWithConsole(run.id);
        return runs.isEmpty();
    }));
}

} // namespace

/// The guardian is killed in the middle of an update, and the installation is whole: the old one or the new
/// one.
class tst_KilledGuardian : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void atRandomMoments();

private:
    /// Has a guardian update 0.1.0 to 0.2.0, killed after `killAfterMs`; -1: when it is through. Answers how
    /// long it has lived.
    static qint64 update(const GuardedFolder &folder, qint64 killAfterMs);
};

qint64 tst_KilledGuardian::update(const GuardedFolder &folder, qint64 killAfterMs)
{
    const Installation at = folder.installation();
    for (int i = 0; i < wholeParts; ++i)
        test::writeFile(at.directory + u"/lib/part%1"_s.arg(i), QByteArray(2000, '1'));
    QList<test::ZipItem> items = GuardedFolder::packageOf("0.2.0", "beats");
    for (int i = 0; i < wholeParts; ++i)
        items.append({"lib/part" + QByteArray::number(i), QByteArray(2000, '2')});
    folder.stage("0.2.0", items);
    folder.request();
    test::writeFile(folder.path(u"latest.json"_s), folder.manifestOf("0.2.0"));

    QProcess guardian;
    QElapsedTimer clock;
    guardian.start(QStringLiteral(CORVANE_GUARDIAN_VICTIM),
                   {at.directory, folder.runtimeDir(), folder.path(u"latest.json"_s)});
    clock.start();
    const auto isOver = [&] {
        return killAfterMs >= 0 ? clock.elapsed() >= killAfterMs
                                : test::contentsOf(at.log()).contains("version 0.2.0 is up");
    };
    while (!isOver() && clock.elapsed() < 30'000 && !guardian.waitForFinished(1)) {
    }
    const qint64 lived = clock.elapsed();
    killWithConsole(guardian.processId());
    guardian.waitForFinished();
    endRunsOf(at.programPath());
    return lived;
}

void tst_KilledGuardian::atRandomMoments()
{
    // A few at each run of the tests; CORVANE_KILLS asks for more.
    constexpr int few = 40;
    bool isNumber = false;
    const int asked = qEnvironmentVariableIntValue("CORVANE_KILLS", &isNumber);
    const int kills = isNumber ? asked : few;
    constexpr quint32 seed = 20;
    QRandomGenerator random(seed);
    qint64 whole = 0;
    {
        const GuardedFolder folder;
        whole = update(folder, -1);
        QCOMPARE(wholeVersionIn(folder.installation().directory), QByteArray("0.2.0"));
    }
    QMap<QByteArray, int> found;
    for (int kill = 0; kill < kills; ++kill) {
        const GuardedFolder folder;
        // The first as soon as it is there: on a busy machine every other one may come too late.
        const qint64 moment = kill == 0 ? 0 : random.bounded(static_cast<int>(whole) + 1);
        update(folder, moment);
        if (QTest::currentTestFailed())
            return;
        const Installation at = folder.installation();
#ifndef Q_OS_WIN // where there is a moment without any, which the next guardian ends
        QVERIFY2(wholeVersionIn(at.directory).startsWith("0."),
                 qPrintable(u"killed after %1 ms"_s.arg(moment)));
#endif
        QVERIFY(DirectorySwap(at).recover() != DirectorySwap::Found::Broken);
        const QByteArray version = wholeVersionIn(at.directory);
        QVERIFY2(version.startsWith("0."),
                 qPrintable(u"killed after %1 ms: %2"_s.arg(moment).arg(QString::fromLatin1(version))));
        ++found[version];
    }
    qInfo("%d kills within %lld ms: %d times the old one, %d times the new one, whole each time", kills,
          whole, found.value("0.1.0"), found.value("0.2.0"));
    QCOMPARE(found.value("0.1.0") + found.value("0.2.0"), kills);
    QVERIFY(found.value("0.1.0") > 0);
    QVERIFY(found.value("0.2.0") > 0);
}

CORVANE_TEST(tst_KilledGuardian, QCoreApplication)
#include "tst_KilledGuardian.moc"
