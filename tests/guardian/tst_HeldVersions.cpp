#include "tests/guardian/GuardedFolder.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/update/UpdateTestSupport.h"
#include "tools/guardian/HeldVersions.h"
#include "update/UpdateFiles.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <chrono>

#ifdef Q_OS_UNIX
#include <sys/time.h>
#endif

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace corvane;
using guardian::HeldVersions;
using test::writeFile;

/// Versions that the program can't stage, and all others that it can.
class tst_HeldVersions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void holdsAndReleases();
    void onlyWhatIsOldIsReleased();
    void aClockSetBackReleases();
    void whatIsStagedGoes();
    void versionsThatCantBeHeld_data();
    void versionsThatCantBeHeld();
    void theProgramPassesAHeldVersionBy();
};

void tst_HeldVersions::holdsAndReleases()
{
    const QTemporaryDir folder;
    const HeldVersions held{folder.path()};
    QVERIFY(!held.isHeld(u"0.2.0"_s));
    QVERIFY(held.hold(u"0.2.0"_s));
    QVERIFY(held.hold(u"0.2.0"_s));
    QVERIFY(held.hold(u"0.3.0"_s));
    QVERIFY(held.isHeld(u"0.2.0"_s));
    QVERIFY(HeldVersions{folder.path()}.isHeld(u"0.3.0"_s));

    held.letGo(u"0.4.0"_s);
    held.letGo(u"0.3.0"_s);
    QVERIFY(held.isHeld(u"0.2.0"_s));
    QVERIFY(!held.isHeld(u"0.3.0"_s));
    QVERIFY(held.hold(u"0.3.0"_s));

    held.release(0ms, u"0.3.0"_s);
    QVERIFY(!held.isHeld(u"0.2.0"_s));
    QVERIFY(held.isHeld(u"0.3.0"_s));
    held.release(0ms, {});
    QVERIFY(!held.isHeld(u"0.3.0"_s));
}

void tst_HeldVersions::onlyWhatIsOldIsReleased()
{
    const QTemporaryDir folder;
    const HeldVersions held{folder.path()};
    QVERIFY(held.hold(u"0.2.0"_s));
    // Nor is anything else in that directory touched.
    writeFile(updateDirectory(folder.path()) + "/CORVANE-0.3.0.zip"_L1, "package");
    QVERIFY(QDir(updateDirectory(folder.path())).mkdir(u"pictures"_s));
    held.release(1h, {});
    QVERIFY(held.isHeld(u"0.2.0"_s));
    held.release(0ms, {});
    QCOMPARE(QDir(updateDirectory(folder.path())).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList({u"CORVANE-0.3.0.zip"_s, u"pictures"_s}));
}

/// Held by a clock that was ahead: it isn't held until that time comes.
void tst_HeldVersions::aClockSetBackReleases()
{
#ifdef Q_OS_UNIX
    const QTemporaryDir folder;
    const HeldVersions held{folder.path()};
    const auto heldIn = [&](std::chrono::seconds future) {
        QVERIFY(held.hold(u"0.2.0"_s));
        const QByteArray path = QFile::encodeName(updateDirectory(folder.path()) + "/CORVANE-0.2.0.zip"_L1);
        const struct timeval at = {static_cast<time_t>(QDateTime::currentSecsSinceEpoch() + future.count()),
                                   0};
        const struct timeval times[2] = {at, at};
        QCOMPARE(::utimes(path.constData(), times), 0);
        held.release(5h, {});
    };
    heldIn(std::chrono::minutes(1));
    QVERIFY(held.isHeld(u"0.2.0"_s));
    heldIn(std::chrono::hours(24 * 365));
    QVERIFY(!held.isHeld(u"0.2.0"_s));

    // Held anew, it is held from now on.
    heldIn(std::chrono::minutes(-299));
    QVERIFY(held.isHeld(u"0.2.0"_s));
    QVERIFY(held.hold(u"0.2.0"_s));
    held.release(1h, {});
    QVERIFY(held.isHeld(u"0.2.0"_s));
#else
    QSKIP("a folder's time isn't set so here");
#endif
}

void tst_HeldVersions::whatIsStagedGoes()
{
    const QTemporaryDir folder;
    writeFile(updateDirectory(folder.path()) + "/CORVANE-0.2.0.zip"_L1, "package");
    QVERIFY(HeldVersions{folder.path()}.hold(u"0.2.0"_s));
    QVERIFY(QFileInfo(updateDirectory(folder.path()) + "/CORVANE-0.2.0.zip"_L1).isDir());
}

void tst_HeldVersions::versionsThatCantBeHeld_data()
{
    QTest::addColumn<QString>("version");
    QTest::newRow("none") << QString();
    QTest::newRow("out of the directory") << u"/../../evil"_s;
    QTest::newRow("in another") << u"a/b"_s;
    QTest::newRow("a backslash") << u"..\\evil"_s;
    QTest::newRow("a stream") << u"0.2.0:evil"_s;
    QTest::newRow("a NUL") << u"0.2.0"_s + QChar(0);
    QTest::newRow("5,000 characters") << QString(5000, u'1');
}

void tst_HeldVersions::versionsThatCantBeHeld()
{
    QFETCH(const QString, version);
    const QTemporaryDir folder;
    const HeldVersions held{folder.filePath(u"in/runtime"_s)};
    QVERIFY(!held.hold(version));
    QVERIFY(!held.isHeld(version));
    QVERIFY(QDir(updateDirectory(held.runtimeDirectory)).isEmpty());
    QVERIFY(!QFileInfo::exists(folder.filePath(u"evil.zip"_s)));
}

void tst_HeldVersions::theProgramPassesAHeldVersionBy()
{
    if (const QString problem = test::tlsProblem(); !problem.isEmpty())
        QSKIP(qPrintable(problem));
    test::trustTestAuthority();
    test::UpdateBench bench;
    const HeldVersions held{bench.runtimeDir()};
    QVERIFY(held.hold(u"0.2.0"_s));
    const auto staged = [&bench](const QString &version) {
        return bench.events.contains("readyToApply DIR/update/CORVANE-"_L1 + version + ".zip "_L1 + version);
    };

    bench.publish(u"0.2.0"_s, "package");
    QVERIFY(bench.check());
    QVERIFY2(bench.events.contains(u"log [update] não gravou DIR/update/CORVANE-0.2.0.zip"_s),
             qPrintable(bench.events.join(u'\n')));
    QVERIFY(!staged(u"0.2.0"_s));
    QVERIFY(!QFile::exists(readyFilePath(bench.runtimeDir())));
    QVERIFY(held.isHeld(u"0.2.0"_s));

    bench.publish(u"0.2.1"_s, "mended");
    QVERIFY(bench.check());
    QVERIFY(staged(u"0.2.1"_s));

    held.release(0ms, {});
    bench.publish(u"0.2.0"_s, "package");
    QVERIFY(bench.check());
    QVERIFY(staged(u"0.2.0"_s));
}

CORVANE_TEST(tst_HeldVersions, QCoreApplication)
#include "tst_HeldVersions.moc"
