#include "tests/guardian/GuardedFolder.h"
#include "tests/support/TestSupport.h"
#include "tools/guardian/Guardian.h"
#include "tools/guardian/UpdateRecord.h"
#include "tools/publish/PublishKey.h"
#include "tools/publish/SignedManifest.h"
#include "update/UpdateFiles.h"

#include <QProcess>
#include <QSignalSpy>
#include <QTimer>
#include <QtTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::guardian;
using test::GuardedFolder;
using test::waitUntil;

/// A staged update from its request to the new program's heartbeat, or back.
class tst_GuardianUpdate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void anUpdateIsApplied();
    void aRequestFromBeforeIsTakenUp();
    void nothingIsStartedWhileARequestStands();
    void aCrashDuringARequestIsNoReasonToRestart();
    void rolledBack_data();
    void rolledBack();
    void whatWasRolledBackIsntTriedAgain();
    void refused_data();
    void refused();
    void aPublishersSignature_data();
    void aPublishersSignature();
    void aTrialThatWasCutOff_data();
    void aTrialThatWasCutOff();

private:
    void guard(const GuardianSettings &settings);
    void stageAndRequest(const QByteArray &version, const QByteArray &behaviour);
    [[nodiscard]] bool waitForLine(const QString &part);
    [[nodiscard]] bool waitForBeats() const;
    [[nodiscard]] QStringList lines() const;
    [[nodiscard]] UpdateRecord record() const { return readRecord(m_folder->installation().record()); }
    [[nodiscard]] QByteArray installed() const
    {
        return GuardedFolder::versionIn(m_folder->installation().directory);
    }

    std::unique_ptr<GuardedFolder> m_folder;
    std::unique_ptr<Guardian> m_guardian;
    std::unique_ptr<QSignalSpy> m_finished;
    std::unique_ptr<QSignalSpy> m_lines;
    QByteArray m_manifest;
    QString m_feedError;
};

void tst_GuardianUpdate::init()
{
    m_folder = std::make_unique<GuardedFolder>();
    m_manifest.clear();
    m_feedError.clear();
    qputenv("CORVANE_UPDATE_FEED", "https://feed.example/latest.json");
}

void tst_GuardianUpdate::cleanup()
{
    if (QTest::currentTestFailed())
        qInfo().noquote() << lines().join(u'\n');
    m_guardian.reset();
}

void tst_GuardianUpdate::guard(const GuardianSettings &settings)
{
    m_guardian = std::make_unique<Guardian>(settings, [this](const ManifestAnswer &answer) {
        QTimer::singleShot(0, this, [this, answer] { answer(m_manifest, m_feedError); });
    });
    m_finished = std::make_unique<QSignalSpy>(m_guardian.get(), &Guardian::finished);
    m_lines = std::make_unique<QSignalSpy>(m_guardian.get(), &Guardian::logged);
    m_guardian->run();
}

void tst_GuardianUpdate::stageAndRequest(const QByteArray &version, const QByteArray &behaviour)
{
    m_folder->stage(version, GuardedFolder::packageOf(version, behaviour));
    m_manifest = m_folder->manifest(version);
    m_folder->request();
}

bool tst_GuardianUpdate::waitForLine(const QString &part)
{
    return waitUntil([&] { return !lines().filter(part).isEmpty(); });
}

bool tst_GuardianUpdate::waitForBeats() const
{
    return waitUntil([&] { return QFile::exists(m_folder->runtimeDir() + "/.heartbeat"_L1); });
}

QStringList tst_GuardianUpdate::lines() const
{
    QStringList lines;
    if (m_lines) {
        for (const QList<QVariant> &line : *m_lines)
            lines << line.first().toString();
    }
    return lines;
}

void tst_GuardianUpdate::anUpdateIsApplied()
{
    guard(m_folder->settings());
    QVERIFY(waitForBeats());
    stageAndRequest("0.2.0", "beats");
    QVERIFY(waitForLine(u"an update is requested; waiting for the program to end"_s));
    QCOMPARE(installed(), QByteArray("0.1.0"));
    m_folder->order(u"quit"_s);

    QVERIFY(waitForLine(u"version 0.2.0 is up"_s));
    QCOMPARE(installed(), QByteArray("0.2.0"));
    QCOMPARE(GuardedFolder::versionIn(m_folder->installation().previous()), QByteArray("0.1.0"));
    QVERIFY(!m_folder->isRequested());
    QCOMPARE(record().result, u"applied"_s);
    QCOMPARE(record().version, u"0.2.0"_s);
    QCOMPARE(readStamp(m_folder->installation().directory).version, u"0.2.0"_s);
    QVERIFY(!QFile::exists(m_folder->installation().package()));
    QVERIFY(!QFile::exists(m_folder->installation().journal()));

    // It is guarded like any other.
    m_folder->order(u"quit"_s);
    QVERIFY(waitUntil([&] { return !m_finished->isEmpty(); }));
    QCOMPARE(m_finished->first().first().toInt(), 0);
    QCOMPARE(m_folder->starts(), QStringList({u"0.1.0 https://feed.example/latest.json"_s,
                                              u"0.2.0 https://feed.example/latest.json"_s}));
}

void tst_GuardianUpdate::aRequestFromBeforeIsTakenUp()
{
    stageAndRequest("0.2.0", "beats");
    guard(m_folder->settings());
    QVERIFY(waitForLine(u"version 0.2.0 is up"_s));
    QCOMPARE(m_folder->starts(), QStringList{u"0.2.0 https://feed.example/latest.json"_s});
}

void tst_GuardianUpdate::nothingIsStartedWhileARequestStands()
{
    // Somebody else's run of the same program: it may be on air.
    const GuardianSettings settings = m_folder->settings();
    QProcess other;
    other.setEnvironment({"CORVANE_RUNTIME_DIR="_L1 + m_folder->path(u"other"_s)});
    guard(settings);
    QVERIFY(waitForBeats());
    other.start(settings.installation.programPath(), QStringList());
    QVERIFY(waitUntil([&] { return QFile::exists(m_folder->path(u"other/starts"_s)); }));

    stageAndRequest("0.2.0", "beats");
    m_folder->order(u"quit"_s);
    QVERIFY(waitForLine(u"waiting for every run of the program to end"_s));
    test::passTimersOf(10 * static_cast<int>(settings.lookInterval.count()));
    QCOMPARE(installed(), QByteArray("0.1.0"));
    QCOMPARE(m_folder->starts().size(), 1);
    QVERIFY(m_folder->isRequested());

    test::writeFile(m_folder->path(u"other/do-quit"_s), {});
    QVERIFY(waitForLine(u"version 0.2.0 is up"_s));
    QCOMPARE(m_folder->starts().size(), 2);
    QVERIFY(other.state() == QProcess::NotRunning || other.waitForFinished());
}

void tst_GuardianUpdate::aCrashDuringARequestIsNoReasonToRestart()
{
    guard(m_folder->settings());
    QVERIFY(waitForBeats());
    stageAndRequest("0.2.0", "beats");
    m_folder->order(u"crash"_s);
    QVERIFY(waitForLine(u"version 0.2.0 is up"_s));
    QCOMPARE(m_folder->starts().size(), 2);
    QVERIFY(lines().filter(u"started again"_s).isEmpty());
    QVERIFY(lines().contains(u"the run that asked for the update didn't end in order"_s));
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
    GuardianSettings settings = m_folder->settings();
    if (behaviour == "mute")
        settings.heartbeatPatience = std::chrono::milliseconds(500);
    guard(settings);
    QVERIFY(waitForBeats());
    stageAndRequest("0.2.0", behaviour);
    m_folder->order(u"quit"_s);

    QVERIFY(waitForLine(u"rolled back to the former installation"_s));
    QVERIFY(waitUntil([&] { return m_folder->starts().size() >= 3; }));
    QCOMPARE(installed(), QByteArray("0.1.0"));
    QCOMPARE(GuardedFolder::versionIn(m_folder->installation().failed()), QByteArray("0.2.0"));
    QVERIFY(!m_folder->isRequested());
    QCOMPARE(record().result, u"rolled back"_s);
    QCOMPARE(record().version, u"0.2.0"_s);
    QVERIFY2(record().reason.contains(reason), qPrintable(record().reason));
    // Without its feed: it would ask for the same update again at once.
    QCOMPARE(m_folder->starts(), QStringList({u"0.1.0 https://feed.example/latest.json"_s,
                                              u"0.2.0 https://feed.example/latest.json"_s, u"0.1.0 -"_s}));
}

void tst_GuardianUpdate::whatWasRolledBackIsntTriedAgain()
{
    stageAndRequest("0.2.0", "crashes");
    guard(m_folder->settings());
    QVERIFY(waitForLine(u"rolled back"_s));
    QVERIFY(waitUntil([&] { return m_folder->starts().size() == 2; }));
    m_folder->request();
    m_folder->order(u"quit"_s);
    QVERIFY(waitForLine(u"update 0.2.0 refused: this package has been rolled back before"_s));
    QVERIFY(waitUntil([&] { return m_folder->starts().size() == 3; }));
    QCOMPARE(record().result, u"rolled back"_s);

    // Another package of the same version is another matter.
    stageAndRequest("0.2.0", "beats");
    m_folder->order(u"quit"_s);
    QVERIFY(waitForLine(u"version 0.2.0 is up"_s));
    QCOMPARE(installed(), QByteArray("0.2.0"));
    QCOMPARE(record().result, u"applied"_s);
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
    row(
        "a package that is a link",
        [](const GuardedFolder &folder, QByteArray &, QString &) {
            QVERIFY(QFile::rename(folder.stagedPath("0.2.0"), folder.path(u"p.zip"_s)));
            QVERIFY(QFile::link(folder.path(u"p.zip"_s), folder.stagedPath("0.2.0")));
        },
        u"which is no file in the update directory"_s);
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
            manifest = folder.manifest("0.2.0");
        },
        u"the package can't be unpacked: its entry “../evil” leads out of its folder"_s);
    row(
        "a package without the program",
        [](const GuardedFolder &folder, QByteArray &manifest, QString &) {
            folder.stage("0.2.0", {{"version", "0.2.0"}});
            manifest = folder.manifest("0.2.0");
        },
        u"isn't in it"_s);
}

void tst_GuardianUpdate::refused()
{
    using Spoil = void (*)(const GuardedFolder &, QByteArray &, QString &);
    QFETCH(const Spoil, spoil);
    QFETCH(const QString, reason);
    guard(m_folder->settings());
    QVERIFY(waitForBeats());
    stageAndRequest("0.2.0", "beats");
    spoil(*m_folder, m_manifest, m_feedError);
    m_folder->order(u"quit"_s);

    QVERIFY(waitUntil([&] { return m_folder->starts().size() == 2; }));
    QVERIFY2(!lines().filter(reason).isEmpty(), qPrintable(lines().join(u'\n')));
    QCOMPARE(m_folder->starts().last(), u"0.1.0 -"_s);
    QVERIFY(!m_folder->isRequested());
    QCOMPARE(record().result, u"refused"_s);
    const QStringList left =
        QDir(m_folder->installation().own()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name);
    QCOMPARE(left, QStringList({u"guardian.log"_s, u"last-update.json"_s}));
    QVERIFY(!QFile::exists(m_folder->path(u"evil"_s)));
    QVERIFY(!QFile::exists(m_folder->installation().own() + "/evil"_L1));
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
    GuardianSettings settings = m_folder->settings();
    settings.pinnedKey = QString::fromLatin1(publisher.publicKey().toHex());
    stageAndRequest("0.2.0", "beats");
    if (!signer.isEmpty()) {
        const UpdateManifest plain = parseManifest(m_manifest, platformKey);
        m_manifest = manifestText(signedManifest(plain, signer == "publisher"_L1 ? publisher : another));
    }
    guard(settings);
    QVERIFY(waitForLine(taken ? u"version 0.2.0 is up"_s
                              : u"refused: the feed's manifest doesn't bear the publisher's signature"_s));
    QCOMPARE(installed(), taken ? QByteArray("0.2.0") : QByteArray("0.1.0"));
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
    GuardianSettings settings = m_folder->settings();
    if (behaviour == "mute")
        settings.heartbeatPatience = std::chrono::milliseconds(500);
    GuardedFolder::install(settings.installation.next(), "0.2.0", behaviour);
    const Stamp stamp{u"id"_s, u"0.2.0"_s, u"digest"_s};
    QVERIFY(writeStamp(settings.installation.next(), stamp));
    QVERIFY(DirectorySwap(settings.installation).install(stamp));
    m_folder->request(); // granted, but not removed

    QProcess run;
    if (running) {
        run.setEnvironment({"CORVANE_RUNTIME_DIR="_L1 + settings.runtimeDirectory});
        run.start(settings.installation.programPath(), QStringList());
        QVERIFY(waitUntil([&] { return m_folder->starts().size() == 1; }));
    }
    guard(settings);
    QVERIFY(waitForLine(behaviour == "beats" ? u"version 0.2.0 is up"_s : u"rolled back"_s));
    QTEST(installed(), "installed");
    QVERIFY(!m_folder->isRequested());
    QVERIFY(!QFile::exists(settings.installation.journal()));
    if (running && behaviour == "beats") {
        m_folder->order(u"quit"_s);
        QVERIFY(run.state() == QProcess::NotRunning || run.waitForFinished());
    }
}

QTEST_GUILESS_MAIN(tst_GuardianUpdate)
#include "tst_GuardianUpdate.moc"
