#include "tests/guardian/GuardianBench.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tools/publish/PublishKey.h"
#include "tools/publish/SignedManifest.h"
#include "update/UpdateFiles.h"

#include <QProcess>
#include <QTest>

#include <chrono>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::guardian;
using test::GuardedFolder;
using test::GuardianBenchTest;
using test::waitUntil;

namespace {

// For the first heartbeat: longer than a program takes to be there at all on a machine under load.
constexpr std::chrono::seconds shortPatience(3);

} // namespace

/// A staged update from its request to the new program's heartbeat, or back.
class tst_GuardianUpdate : public GuardianBenchTest
{
    Q_OBJECT

private Q_SLOTS:
    void anUpdateIsApplied();
    void aRequestFromBeforeIsTakenUp();
    void nothingIsStartedWhileARequestStands();
    void aRunThatOnlyItsMarksTellOf();
    void aCrashDuringARequestIsNoReasonToRestart();
    void rolledBack_data();
    void rolledBack();
    void refused_data();
    void refused();
    void thePackageIsSwappedAfterItsDigest();
    void aPublishersSignature_data();
    void aPublishersSignature();
    void aTrialThatWasCutOff_data();
    void aTrialThatWasCutOff();
};

void tst_GuardianUpdate::anUpdateIsApplied()
{
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForBeats());
    m_bench->stageAndRequest("0.2.0", "beats");
    QVERIFY(m_bench->waitForLine(u"an update is requested; waiting for the program to end"_s));
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
    m_bench->order(u"quit"_s);

    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    QCOMPARE(m_bench->installed(), QByteArray("0.2.0"));
    QCOMPARE(GuardedFolder::versionIn(m_bench->installation().previous()), QByteArray("0.1.0"));
    QVERIFY(!m_bench->isRequested());
    QCOMPARE(m_bench->record().result, u"applied"_s);
    QCOMPARE(m_bench->record().version, u"0.2.0"_s);
    QCOMPARE(readStamp(m_bench->installation().directory).version, u"0.2.0"_s);
    QVERIFY(m_bench->lines().contains(u"unpacking version 0.2.0, sha256 %1"_s.arg(m_bench->record().sha256)));
    QVERIFY(!QFile::exists(m_bench->installation().package()));
    QVERIFY(!QFile::exists(m_bench->installation().journal()));

    // It is guarded like any other.
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForFinish());
    QCOMPARE(m_bench->exitCode(), 0);
    QCOMPARE(m_bench->starts(), QStringList({u"0.1.0 https://feed.example/latest.json"_s,
                                             u"0.2.0 https://feed.example/latest.json"_s}));
}

void tst_GuardianUpdate::aRequestFromBeforeIsTakenUp()
{
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    QCOMPARE(m_bench->starts(), QStringList{u"0.2.0 https://feed.example/latest.json"_s});
}

void tst_GuardianUpdate::nothingIsStartedWhileARequestStands()
{
    // Somebody else's run of the same program: it may be on air.
    const GuardianSettings settings = m_bench->settings();
    QProcess other;
    other.setEnvironment({"CORVANE_RUNTIME_DIR="_L1 + m_bench->path(u"other"_s)});
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForBeats());
    other.start(settings.installation.programPath(), QStringList());
    QVERIFY(waitUntil([&] { return QFile::exists(m_bench->path(u"other/starts"_s)); }));

    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForLine(u"waiting for every run of the program to end"_s));
    test::passTimersOf(10 * static_cast<int>(settings.lookInterval.count()));
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
    QCOMPARE(m_bench->starts().size(), 1);
    QVERIFY(m_bench->isRequested());

    test::writeFile(m_bench->path(u"other/do-quit"_s), {});
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    QCOMPARE(m_bench->starts().size(), 2);
    QVERIFY(other.state() == QProcess::NotRunning || other.waitForFinished());
}

/// Another user's, whose processes can't be seen: a copy of the program is one that the guardian doesn't
/// know.
void tst_GuardianUpdate::aRunThatOnlyItsMarksTellOf()
{
    GuardianSettings settings = m_bench->settings();
    settings.silence = std::chrono::seconds(2); // longer than a beat may take on a machine under load
    GuardedFolder::install(m_bench->path(u"elsewhere"_s), "0.1.0", "beats");
    QProcess other;
    other.setEnvironment({"CORVANE_RUNTIME_DIR="_L1 + settings.runtimeDirectory});
    other.start(m_bench->path("elsewhere/"_L1 + settings.installation.program), QStringList());
    QVERIFY(m_bench->waitForBeats());

    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(u"waiting for every run of the program to end"_s));
    test::passTimersOf(10 * static_cast<int>(settings.lookInterval.count()));
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
    QVERIFY(m_bench->isRequested());
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    QVERIFY(other.state() == QProcess::NotRunning || other.waitForFinished());
}

void tst_GuardianUpdate::aCrashDuringARequestIsNoReasonToRestart()
{
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForBeats());
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->order(u"crash"_s);
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    QCOMPARE(m_bench->starts().size(), 2);
    QVERIFY(m_bench->lines().filter(u"started again"_s).isEmpty());
    QVERIFY(m_bench->lines().contains(u"the run that asked for the update didn't end in order"_s));
}

void tst_GuardianUpdate::rolledBack_data()
{
    QTest::addColumn<QByteArray>("behaviour");
    QTest::addColumn<QString>("reason");
    QTest::newRow("crashes at start") << QByteArray("crashes") << u"it crashed or was killed"_s;
    QTest::newRow("has no window") << QByteArray("fails") << u"it ended with exit code 255"_s;
    QTest::newRow("lives without a heartbeat") << QByteArray("mute") << u"no heartbeat for"_s;
}

void tst_GuardianUpdate::rolledBack()
{
    QFETCH(const QByteArray, behaviour);
    QFETCH(const QString, reason);
    GuardianSettings settings = m_bench->settings();
    if (behaviour == "mute")
        settings.trial.patience = shortPatience;
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForBeats());
    m_bench->stageAndRequest("0.2.0", behaviour);
    m_bench->order(u"quit"_s);

    QVERIFY(m_bench->waitForLine(u"rolled back to the former installation"_s));
    QVERIFY(m_bench->waitForStarts(3));
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
    QCOMPARE(GuardedFolder::versionIn(m_bench->installation().failed()), QByteArray("0.2.0"));
    QVERIFY(!m_bench->isRequested());
    QCOMPARE(m_bench->record().result, u"rolled back"_s);
    QCOMPARE(m_bench->record().version, u"0.2.0"_s);
    QVERIFY2(m_bench->record().reason.contains(reason), qPrintable(m_bench->record().reason));
    QVERIFY(QFileInfo(m_bench->stagedPath("0.2.0")).isDir()); // held back
    QCOMPARE(m_bench->starts(), QStringList({u"0.1.0 https://feed.example/latest.json"_s,
                                             u"0.2.0 https://feed.example/latest.json"_s,
                                             u"0.1.0 https://feed.example/latest.json"_s}));
}

void tst_GuardianUpdate::refused_data()
{
    using Spoil = void (*)(const GuardedFolder &, QByteArray &, QString &);
    QTest::addColumn<Spoil>("spoil");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char *title, Spoil spoil, const QString &reason) {
        QTest::newRow(title) << spoil << reason;
    };

    row(
        "the package was swapped on disk",
        [](const GuardedFolder &folder, QByteArray &, QString &) {
            QVERIFY(test::writeZip(folder.stagedPath("0.2.0"), GuardedFolder::packageOf("0.2.0", "evil")));
        },
        u"the package on disk isn't the one that the feed offers"_s);
    row(
        "a byte of the package was changed",
        [](const GuardedFolder &folder, QByteArray &, QString &) {
            QByteArray bytes = test::contentsOf(folder.stagedPath("0.2.0"));
            bytes[bytes.size() / 2] = static_cast<char>(~bytes[bytes.size() / 2]);
            test::writeFile(folder.stagedPath("0.2.0"), bytes);
        },
        u"the package on disk isn't the one that the feed offers"_s);
    row(
        "the feed doesn't answer",
        [](const GuardedFolder &, QByteArray &, QString &error) { error = u"no road"_s; }, u"no road"_s);
    row(
        "the feed gives no manifest",
        [](const GuardedFolder &, QByteArray &manifest, QString &) { manifest = "<html>"; },
        u"the feed's manifest is none"_s);
    row(
        "the feed offers another version",
        [](const GuardedFolder &, QByteArray &manifest, QString &) { manifest.replace("0.2.0", "0.3.0"); },
        u"version 0.2.0 is staged, and the feed offers 0.3.0"_s);
    row(
        "the feed gives no digest",
        [](const GuardedFolder &, QByteArray &manifest, QString &) { manifest.replace("sha256", "sha512"); },
        u"or no digest of it"_s);
    row(
        "no ready file",
        [](const GuardedFolder &folder, QByteArray &, QString &) {
            QVERIFY(QFile::remove(readyFilePath(folder.runtimeDir())));
        },
        u"update-ready.json can't be read"_s);
    row(
        "a ready file of garbage",
        [](const GuardedFolder &folder, QByteArray &, QString &) {
            test::writeFile(readyFilePath(folder.runtimeDir()), "{");
        },
        u"update-ready.json doesn't say what is staged"_s);
    row(
        "a package elsewhere",
        [](const GuardedFolder &folder, QByteArray &, QString &) {
            QVERIFY(QFile::rename(folder.stagedPath("0.2.0"), folder.path(u"p.zip"_s)));
            test::writeFile(
                readyFilePath(folder.runtimeDir()),
                readyUpdateText({folder.path(u"p.zip"_s), u"0.2.0"_s, folder.installation().directory}));
        },
        u"which is no file in the update directory"_s);
#ifndef Q_OS_WIN // where Qt makes a shortcut of the shell's, which is no link of the file system
    row(
        "a package that is a link",
        [](const GuardedFolder &folder, QByteArray &, QString &) {
            QVERIFY(QFile::rename(folder.stagedPath("0.2.0"), folder.path(u"p.zip"_s)));
            QVERIFY(QFile::link(folder.path(u"p.zip"_s), folder.stagedPath("0.2.0")));
        },
        u"the package can't be read: it is a link"_s);
#endif
    row(
        "another installation",
        [](const GuardedFolder &folder, QByteArray &, QString &) {
            QVERIFY(QDir().mkpath(folder.path(u"home"_s)));
            test::writeFile(
                readyFilePath(folder.runtimeDir()),
                readyUpdateText({folder.stagedPath("0.2.0"), u"0.2.0"_s, folder.path(u"home"_s)}));
        },
        u"it is for the installation in"_s);
    row(
        "a package that leads out",
        [](const GuardedFolder &folder, QByteArray &manifest, QString &) {
            folder.stage("0.2.0",
                         GuardedFolder::packageOf("0.2.0", "beats") + QList<test::ZipItem>{{"../evil", "x"}});
            manifest = folder.manifestOf("0.2.0");
        },
        u"the package can't be unpacked: its entry “../evil” leads out of its folder"_s);
    row(
        "a package without the program",
        [](const GuardedFolder &folder, QByteArray &manifest, QString &) {
            folder.stage("0.2.0", {{"version", "0.2.0"}});
            manifest = folder.manifestOf("0.2.0");
        },
        u"isn't in it"_s);
}

void tst_GuardianUpdate::refused()
{
    using Spoil = void (*)(const GuardedFolder &, QByteArray &, QString &);
    QFETCH(const Spoil, spoil);
    QFETCH(const QString, reason);
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForBeats());
    m_bench->stageAndRequest("0.2.0", "beats");
    spoil(*m_bench, m_bench->manifest, m_bench->feedError);
    m_bench->order(u"quit"_s);

    QVERIFY(m_bench->waitForStarts(2));
    QVERIFY2(!m_bench->lines().filter(reason).isEmpty(), qPrintable(m_bench->lines().join(u'\n')));
    QCOMPARE(m_bench->starts().last(), u"0.1.0 https://feed.example/latest.json"_s);
    QVERIFY(!m_bench->isRequested());
    QCOMPARE(m_bench->record().result, u"refused"_s);
    const QStringList left =
        QDir(m_bench->installation().own()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name);
    QCOMPARE(left, QStringList({u"guardian.log"_s, u"last-update.json"_s}));
    QVERIFY(!QFile::exists(m_bench->path(u"evil"_s)));
    QVERIFY(!QFile::exists(m_bench->installation().own() + "/evil"_L1));
}

/// What is unpacked is what was hashed, whatever becomes of the staged file meanwhile.
void tst_GuardianUpdate::thePackageIsSwappedAfterItsDigest()
{
    m_bench->stageAndRequest("0.2.0", "beats");
    bool swapped = false;
    m_bench->onLine = [&](const QString &line) {
        if (line.startsWith("unpacking version 0.2.0"_L1)) {
            swapped = test::writeZip(m_bench->stagedPath("0.2.0"), GuardedFolder::packageOf("0.2.0", "evil"));
        }
    };
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    QVERIFY(swapped);
    QCOMPARE(test::contentsOf(m_bench->path(u"app/behaviour"_s)), QByteArray("beats"));
}

void tst_GuardianUpdate::aPublishersSignature_data()
{
    QTest::addColumn<QString>("signer");
    QTest::addColumn<bool>("taken");
    QTest::newRow("the pinned key's") << u"publisher"_s << true;
    QTest::newRow("another key's") << u"another"_s << false;
    QTest::newRow("none") << QString() << false;
}

void tst_GuardianUpdate::aPublishersSignature()
{
    QFETCH(const QString, signer);
    QFETCH(const bool, taken);
    const PublishKey publisher = PublishKey::generate();
    const PublishKey another = PublishKey::generate();
    GuardianSettings settings = m_bench->settings();
    settings.pinnedKey = QString::fromLatin1(publisher.publicKey().toHex());
    m_bench->stageAndRequest("0.2.0", "beats");
    if (!signer.isEmpty()) {
        const UpdateManifest plain = parseManifest(m_bench->manifest, platformKey);
        m_bench->manifest =
            manifestText(signedManifest(plain, signer == "publisher"_L1 ? publisher : another));
    }
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(
        taken ? u"version 0.2.0 is up"_s
              : u"refused: the feed's manifest doesn't bear the publisher's signature"_s));
    QCOMPARE(m_bench->installed(), taken ? QByteArray("0.2.0") : QByteArray("0.1.0"));
}

void tst_GuardianUpdate::aTrialThatWasCutOff_data()
{
    QTest::addColumn<QByteArray>("behaviour");
    QTest::addColumn<bool>("running");
    QTest::addColumn<QByteArray>("installed");
    QTest::newRow("before the start") << QByteArray("beats") << false << QByteArray("0.2.0");
    QTest::newRow("after the start") << QByteArray("beats") << true << QByteArray("0.2.0");
    QTest::newRow("before the start of what crashes")
        << QByteArray("crashes") << false << QByteArray("0.1.0");
    QTest::newRow("after the start of what is mute") << QByteArray("mute") << true << QByteArray("0.1.0");
}

/// As a guardian leaves it that is killed between the swap and the first heartbeat.
void tst_GuardianUpdate::aTrialThatWasCutOff()
{
    QFETCH(const QByteArray, behaviour);
    QFETCH(const bool, running);
    GuardianSettings settings = m_bench->settings();
    if (behaviour == "mute")
        settings.trial.patience = shortPatience;
    GuardedFolder::install(settings.installation.next(), "0.2.0", behaviour);
    const Stamp stamp{u"id"_s, u"0.2.0"_s, u"digest"_s};
    QCOMPARE(writeStamp(settings.installation.next(), stamp), QString());
    QCOMPARE(DirectorySwap(settings.installation).install(stamp), QString());
    m_bench->request(); // granted, but not removed

    QProcess run;
    if (running) {
        run.setEnvironment({"CORVANE_RUNTIME_DIR="_L1 + settings.runtimeDirectory});
        run.start(settings.installation.programPath(), QStringList());
        QVERIFY(m_bench->waitForStarts(1));
    }
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(behaviour == "beats" ? u"version 0.2.0 is up"_s : u"rolled back"_s));
    QTEST(m_bench->installed(), "installed");
    QVERIFY(!m_bench->isRequested());
    QVERIFY(!QFile::exists(settings.installation.journal()));
    if (running && behaviour == "beats") {
        m_bench->order(u"quit"_s);
        QVERIFY(run.state() == QProcess::NotRunning || run.waitForFinished());
    }
}

CORVANE_TEST(tst_GuardianUpdate, QCoreApplication)
#include "tst_GuardianUpdate.moc"
