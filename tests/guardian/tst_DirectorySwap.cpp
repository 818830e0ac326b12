#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tools/guardian/DirectorySwap.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::guardian;
using namespace corvane::test;

namespace {

constexpr int parts = 5;

void makeInstallation(const QString &folder, const QByteArray &version)
{
    writeFile(folder + "/corvane"_L1, version);
    for (int i = 0; i < parts; ++i)
        writeFile(folder + u"/lib/part%1"_s.arg(i), version);
}

/// The version of the installation in `folder` if it is whole, and "none" or "torn" otherwise.
QByteArray versionIn(const QString &folder)
{
    if (!QFileInfo::exists(folder))
        return "none";
    QByteArray version = contentsOf(folder + "/corvane"_L1);
    for (int i = 0; i < parts; ++i) {
        if (version.isEmpty() || contentsOf(folder + u"/lib/part%1"_s.arg(i)) != version)
            return "torn";
    }
    return version;
}

} // namespace

/// The installation changes hands, and whatever happens meanwhile, one is there and is found.
class tst_DirectorySwap : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void installConfirm_data();
    void installConfirm();
    void installRollBack_data();
    void installRollBack();
    void theSecondUpdateKeepsTheFirst();
    void nothingToRecover();
    void nothingToRollBackTo();
    void killedOnTheWayForward_data();
    void killedOnTheWayForward();
    void killedOnTheWayBack_data();
    void killedOnTheWayBack();
    void whatIsInPlaceStaysIfTheOtherIsMissing();
    void theSystemsWordsForWhatFails();
    void everyNameReachesTheDisk();
    void aJournalThatCantBeWritten_data();
    void aJournalThatCantBeWritten();
    void aJournalThatDoesntReachTheDisk();
    void stepsToStopAt_data();
    void stepsToStopAt();
    void startedAtTheLastMoment_data();
    void startedAtTheLastMoment();
    void startedWhileARollBackIsCompleted();

private:
    void stageNext(const QByteArray &version) const;
    /// Exit code of swap_victim; -1 if it died.
    [[nodiscard]] int victim(const QString &action, const QString &way, int step) const;
    /// Folders of the guardian, without files.
    [[nodiscard]] QStringList kept() const;

    std::unique_ptr<QTemporaryDir> m_folder;
    Installation m_at;
};

void tst_DirectorySwap::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    m_at = {m_folder->filePath(u"app"_s), u"corvane"_s, {}};
    QVERIFY(QDir().mkpath(m_at.own()));
    makeInstallation(m_at.directory, "0.1.0");
}

void tst_DirectorySwap::stageNext(const QByteArray &version) const
{
    makeInstallation(m_at.next(), version);
    QCOMPARE(writeStamp(m_at.next(), {"id of "_L1 + QString::fromLatin1(version),
                                      QString::fromLatin1(version), u"digest"_s}),
             QString());
}

int tst_DirectorySwap::victim(const QString &action, const QString &way, int step) const
{
    QProcess process;
    process.start(QStringLiteral(CORVANE_SWAP_VICTIM), {m_at.directory, action, way, QString::number(step)});
    if (!process.waitForFinished(60'000))
        return -2;
    if (process.exitStatus() != QProcess::NormalExit)
        return -3;
    constexpr int died = 9;
    return process.exitCode() == died ? -1 : process.exitCode();
}

QStringList tst_DirectorySwap::kept() const
{
    return QDir(m_at.own()).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
}

void tst_DirectorySwap::installConfirm_data()
{
    QTest::addColumn<bool>("exchange");
    QTest::newRow("by exchange") << true;
    QTest::newRow("by two renames") << false;
}

void tst_DirectorySwap::installConfirm()
{
    QFETCH(const bool, exchange);
    stageNext("0.2.0");
    DirectorySwap swap(m_at);
    swap.mayExchange = exchange;
    QCOMPARE(swap.install(readStamp(m_at.next())), QString());
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.2.0"));
    QCOMPARE(versionIn(m_at.previous()), QByteArray("0.1.0"));
    QCOMPARE(swap.onTrial().version, u"0.2.0"_s);
    QCOMPARE(DirectorySwap(m_at).recover(), DirectorySwap::Found::Trial);

    swap.confirm();
    QCOMPARE(DirectorySwap(m_at).recover(), DirectorySwap::Found::Idle);
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.2.0"));
    QCOMPARE(kept(), QStringList{u"previous"_s});
}

void tst_DirectorySwap::installRollBack_data()
{
    installConfirm_data();
}

void tst_DirectorySwap::installRollBack()
{
    QFETCH(const bool, exchange);
    stageNext("0.2.0");
    DirectorySwap swap(m_at);
    swap.mayExchange = exchange;
    QCOMPARE(swap.install(readStamp(m_at.next())), QString());
    QCOMPARE(swap.rollBack(), QString());
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
    QCOMPARE(versionIn(m_at.failed()), QByteArray("0.2.0"));
    QCOMPARE(kept(), QStringList{u"failed"_s});
    QCOMPARE(DirectorySwap(m_at).recover(), DirectorySwap::Found::Idle);
}

void tst_DirectorySwap::theSecondUpdateKeepsTheFirst()
{
    DirectorySwap swap(m_at);
    for (const QByteArray &version : {QByteArray("0.2.0"), QByteArray("0.3.0")}) {
        stageNext(version);
        QCOMPARE(swap.install(readStamp(m_at.next())), QString());
        swap.confirm();
    }
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.3.0"));
    QCOMPARE(versionIn(m_at.previous()), QByteArray("0.2.0"));
    QCOMPARE(kept(), QStringList{u"previous"_s});
}

void tst_DirectorySwap::nothingToRecover()
{
    stageNext("0.2.0"); // unpacked, and then the machine stopped
    QCOMPARE(DirectorySwap(m_at).recover(), DirectorySwap::Found::Idle);
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
    QCOMPARE(kept(), QStringList());

    QVERIFY(QDir(m_at.directory).removeRecursively());
    QCOMPARE(DirectorySwap(m_at).recover(), DirectorySwap::Found::Broken);
}

void tst_DirectorySwap::nothingToRollBackTo()
{
    DirectorySwap swap(m_at);
    QVERIFY(!swap.rollBack().isEmpty());
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
}

void tst_DirectorySwap::killedOnTheWayForward_data()
{
    QTest::addColumn<QString>("way");
#ifndef Q_OS_WIN // which has none
    QTest::newRow("by exchange") << u"exchange"_s;
#endif
    QTest::newRow("by two renames") << u"rename"_s;
}

/// Killed before each step of an update, and then before each step of the recovery as well.
void tst_DirectorySwap::killedOnTheWayForward()
{
    QFETCH(const QString, way);
    int step = 0;
    for (int code = -1; code == -1; ++step) {
        for (int recoveryStep = 0; recoveryStep < 20; ++recoveryStep) {
            init();
            stageNext("0.2.0");
            code = victim(u"install"_s, way, step);
            if (way == "exchange"_L1)
                QVERIFY2(versionIn(m_at.directory).startsWith("0."), qPrintable(QString::number(step)));
            const int recovered = victim(u"recover"_s, way, recoveryStep);
            if (way == "exchange"_L1)
                QVERIFY2(versionIn(m_at.directory).startsWith("0."), qPrintable(QString::number(step)));

            DirectorySwap swap(m_at);
            const DirectorySwap::Found found = swap.recover();
            if (found == DirectorySwap::Found::Trial) {
                QCOMPARE(versionIn(m_at.directory), QByteArray("0.2.0"));
                QCOMPARE(versionIn(m_at.previous()), QByteArray("0.1.0"));
                QCOMPARE(swap.rollBack(), QString());
            }
            QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
            QVERIFY(!QFileInfo::exists(m_at.next()));
            QVERIFY(!QFileInfo::exists(m_at.journal()));
            if (recovered == 0)
                break;
            QCOMPARE(recovered, -1);
        }
        QVERIFY(code == 0 || code == -1);
    }
    QVERIFY2(step >= 5, "an update has more steps than that");
}

void tst_DirectorySwap::killedOnTheWayBack_data()
{
    killedOnTheWayForward_data();
}

void tst_DirectorySwap::killedOnTheWayBack()
{
    QFETCH(const QString, way);
    int step = 0;
    for (int code = -1; code == -1; ++step) {
        for (int recoveryStep = 0; recoveryStep < 20; ++recoveryStep) {
            init();
            stageNext("0.2.0");
            QCOMPARE(DirectorySwap(m_at).install(readStamp(m_at.next())), QString());
            code = victim(u"roll-back"_s, way, step);
            const int recovered = victim(u"recover"_s, way, recoveryStep);

            DirectorySwap swap(m_at);
            const DirectorySwap::Found found = swap.recover();
            QVERIFY2(found != DirectorySwap::Found::Broken, qPrintable(QString::number(step)));
            if (found == DirectorySwap::Found::Trial) {
                QCOMPARE(versionIn(m_at.directory), QByteArray("0.2.0"));
                QCOMPARE(swap.rollBack(), QString());
            }
            QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
            QCOMPARE(versionIn(m_at.failed()), QByteArray("0.2.0"));
            QVERIFY(!QFileInfo::exists(m_at.journal()));
            if (recovered == 0)
                break;
            QCOMPARE(recovered, -1);
        }
        QVERIFY(code == 0 || code == -1);
    }
    QVERIFY2(step >= 4, "a roll-back has more steps than that");
}

void tst_DirectorySwap::whatIsInPlaceStaysIfTheOtherIsMissing()
{
    DirectorySwap swap(m_at); // nothing has been unpacked
    QVERIFY(!swap.install({u"id"_s, u"0.2.0"_s, u"digest"_s}).isEmpty());
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
    swap.mayExchange = false;
    QVERIFY(!swap.install({u"id"_s, u"0.2.0"_s, u"digest"_s}).isEmpty());
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
    QCOMPARE(DirectorySwap(m_at).recover(), DirectorySwap::Found::Idle);
}

void tst_DirectorySwap::theSystemsWordsForWhatFails()
{
#ifdef Q_OS_WIN
    constexpr auto notThere = "not found"_L1;
#else
    constexpr auto notThere = "No such file"_L1;
#endif
    DirectorySwap swap(m_at); // nothing has been unpacked
    for (const bool mayExchange : {true, false}) {
        swap.mayExchange = mayExchange;
        const QString error = swap.install({u"id"_s, u"0.2.0"_s, u"digest"_s});
        QVERIFY2(error.contains(m_at.next()) && error.contains(notThere, Qt::CaseInsensitive),
                 qPrintable(error));
    }
    stageNext("0.2.0");
    test::writeFile(m_at.previous() + "/in use"_L1, "x");
    swap.whyNotRemove = [](const QString &) { return u"somebody needs it"_s; };
    QCOMPARE(swap.install(readStamp(m_at.next())),
             u"%1 can't be removed: somebody needs it"_s.arg(m_at.previous()));
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
}

/// In the order of the system's calls: a journal is on the disk before what it announces is done, and a name
/// before the journal says that it is.
void tst_DirectorySwap::everyNameReachesTheDisk()
{
#ifndef Q_OS_LINUX
    QSKIP("the calls are traced on Linux alone");
#endif
    const QString strace = QStandardPaths::findExecutable(u"strace"_s);
    if (strace.isEmpty())
        QSKIP("strace isn't installed");
    stageNext("0.2.0");
    const QString trace = m_folder->filePath(u"trace"_s);
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"LSAN_OPTIONS"_s, u"detect_leaks=0"_s); // it can't look at a process that is traced
    process.setProcessEnvironment(environment);
    process.start(strace, {u"-f"_s, u"-y"_s, u"-qq"_s, u"-e"_s,
                           u"trace=fsync,fdatasync,linkat,rename,renameat,renameat2,unlink,unlinkat"_s,
                           u"-o"_s, trace, QStringLiteral(CORVANE_SWAP_VICTIM), m_at.directory, u"install"_s,
                           u"exchange"_s, u"1000"_s});
    QVERIFY(process.waitForFinished(60'000));
    if (test::contentsOf(trace).isEmpty())
        QSKIP("this process may not trace another");
    QCOMPARE(process.exitCode(), 0);

    // "PID fsync(3</path>) = 0", "PID renameat2(AT_FDCWD</cwd>, "/from", AT_FDCWD</cwd>, "/to", FLAG) = 0"
    static const QRegularExpression call(u"^\\d+ +(\\w+)\\((.*)\\) += 0"_s);
    static const QRegularExpression descriptor(u"^\\d+<([^>]*)>"_s);
    static const QRegularExpression quoted(u"\"([^\"]*)\""_s);
    QStringList seen;
    const QStringList traced = test::fileLines(trace);
    for (const QString &line : traced) {
        const QRegularExpressionMatch match = call.match(line);
        QString name = match.captured(1);
        QStringList paths;
        for (const QRegularExpressionMatch &path : quoted.globalMatch(match.captured(2)))
            paths << path.captured(1);
        if (name.endsWith("sync"_L1)) {
            name = u"sync"_s;
            paths = {descriptor.match(match.captured(2)).captured(1)};
        } else if (name.startsWith("rename"_L1)) {
            name = line.contains("RENAME_EXCHANGE"_L1) ? u"exchange"_s : u"rename"_s;
        }
        // A file that is being written has no name, or one of its own, before it takes the journal's.
        static const QRegularExpression unnamed(u"journal\\.json\\.\\w+|#\\d+"_s);
        QString event;
        if (!paths.isEmpty() && paths.last() == m_at.journal())
            event = u"the journal takes its name"_s;
        else if (name != "linkat"_L1)
            event = name + u' ' + paths.join(u' ');
        event.replace(m_at.own(), "OWN"_L1)
            .replace(m_at.directory, "APP"_L1)
            .replace(m_folder->path(), "TOP"_L1);
        event.replace(unnamed, u"journal.new"_s);
        if (!event.trimmed().isEmpty())
            seen << event;
    }
    const QStringList journal{u"sync OWN/journal.new"_s, u"the journal takes its name"_s, u"sync OWN"_s};
    const QStringList moves{u"exchange OWN/next APP"_s, u"rename OWN/next OWN/previous"_s, u"sync OWN"_s,
                            u"sync TOP"_s};
    QCOMPARE(seen, journal + moves + journal);
}

void tst_DirectorySwap::aJournalThatCantBeWritten_data()
{
    installConfirm_data();
}

/// When everything else is done: what nobody would know to be on trial doesn't stay.
void tst_DirectorySwap::aJournalThatCantBeWritten()
{
    QFETCH(const bool, exchange);
    stageNext("0.2.0");
    DirectorySwap swap(m_at);
    swap.mayExchange = exchange;
    swap.beforeStep = [this](const char *step) {
        if (QByteArrayView(step) == "journal: trial") {
            QVERIFY(QFile::remove(m_at.journal()));
            QVERIFY(QDir().mkpath(m_at.journal() + "/in the way"_L1));
        }
    };
    QVERIFY(!swap.install(readStamp(m_at.next())).isEmpty());
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
    QCOMPARE(kept(), QStringList{u"journal.json"_s});
}

void tst_DirectorySwap::aJournalThatDoesntReachTheDisk()
{
#ifdef Q_OS_LINUX
    stageNext("0.2.0");
    // Names can be changed in it, but it can't be opened to be brought to the disk.
    QVERIFY(QFile::setPermissions(m_at.own(), QFile::WriteOwner | QFile::ExeOwner));
    const auto restored = qScopeGuard([this] {
        QFile::setPermissions(m_at.own(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    });
    const Unprivileged bound;
    QCOMPARE(DirectorySwap(m_at).install({u"id"_s, u"0.2.0"_s, u"digest"_s}),
             u"%1 can't be brought to the disk"_s.arg(m_at.journal()));
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
#else
    QSKIP("a folder that may be written to is brought to the disk here");
#endif
}

void tst_DirectorySwap::stepsToStopAt_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<int>("cutAt"); // the step before which an earlier one was cut off; -1: none was
    QTest::addColumn<QStringList>("steps");
    QTest::newRow("an update") << u"install"_s << -1 << QStringList{u"journal: installing"_s,
                                                                    u"remove what was kept"_s,
                                                                    u"exchange"_s,
                                                                    u"move out"_s,
                                                                    u"move in"_s,
                                                                    u"journal: trial"_s};
    QTest::newRow("a roll-back") << u"roll-back"_s << -1 << QStringList{u"journal: rolling back"_s,
                                                                        u"remove what failed before"_s,
                                                                        u"exchange"_s,
                                                                        u"move out"_s,
                                                                        u"move in"_s,
                                                                        u"journal: done"_s};
    QTest::newRow("nothing to complete")
        << u"install"_s << 0 << QStringList{u"remove what wasn't put in place"_s};
    QTest::newRow("an update that is undone") << u"install"_s << 1 << QStringList{u"undo"_s};
    QTest::newRow("an update that is completed")
        << u"install"_s << 4 << QStringList{u"complete"_s, u"journal: trial"_s};
    QTest::newRow("a roll-back that is begun anew")
        << u"roll-back"_s << 1 << QStringList{u"exchange"_s, u"move out"_s, u"move in"_s, u"journal: done"_s};
    QTest::newRow("a roll-back that is completed")
        << u"roll-back"_s << 4 << QStringList{u"complete"_s, u"journal: done"_s};
}

/// Those at which the tests above kill it: each change on the disk has one before it.
void tst_DirectorySwap::stepsToStopAt()
{
    QFETCH(const QString, action);
    QFETCH(const int, cutAt);
    stageNext("0.2.0");
    DirectorySwap swap(m_at);
    swap.mayExchange = false;
    if (action == "roll-back"_L1)
        QCOMPARE(swap.install(readStamp(m_at.next())), QString());
    if (cutAt >= 0)
        QCOMPARE(victim(action, u"rename"_s, cutAt), -1);

    QStringList steps;
    swap.beforeStep = [&steps](const char *step) { steps << QString::fromLatin1(step); };
    if (cutAt >= 0)
        QVERIFY(swap.recover() != DirectorySwap::Found::Broken);
    else
        QCOMPARE(action == "install"_L1 ? swap.install(readStamp(m_at.next())) : swap.rollBack(), QString());
    QTEST(steps, "steps");
}

void tst_DirectorySwap::startedAtTheLastMoment_data()
{
    installConfirm_data();
}

/// What has left its place is somebody's run, and comes back, on the way forward and on the way back.
void tst_DirectorySwap::startedAtTheLastMoment()
{
    QFETCH(const bool, exchange);
    stageNext("0.2.0");
    DirectorySwap swap(m_at);
    swap.mayExchange = exchange;
    QString left;
    bool isStarted = true;
    swap.whyNotLeave = [&](const QString &folder) {
        left = folder;
        return isStarted ? u"somebody runs it"_s : QString();
    };
    QCOMPARE(swap.install(readStamp(m_at.next())),
             u"%1 can't be replaced: somebody runs it"_s.arg(m_at.directory));
    QCOMPARE(left, m_at.previous());
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
    QCOMPARE(versionIn(m_at.next()), QByteArray("0.2.0"));
    QCOMPARE(kept(), QStringList{u"next"_s});
    QVERIFY(!QFileInfo::exists(m_at.journal()));

    isStarted = false;
    QCOMPARE(swap.install(readStamp(m_at.next())), QString());
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.2.0"));

    isStarted = true;
    QCOMPARE(swap.rollBack(), u"%1 can't be replaced: somebody runs it"_s.arg(m_at.directory));
    QCOMPARE(left, m_at.failed());
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.2.0"));
    QCOMPARE(versionIn(m_at.previous()), QByteArray("0.1.0"));
    QCOMPARE(swap.onTrial().version, u"0.2.0"_s);
    QCOMPARE(DirectorySwap(m_at).recover(), DirectorySwap::Found::Trial);

    isStarted = false;
    QCOMPARE(swap.rollBack(), QString());
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
    QCOMPARE(versionIn(m_at.failed()), QByteArray("0.2.0"));
}

void tst_DirectorySwap::startedWhileARollBackIsCompleted()
{
    stageNext("0.2.0");
    QCOMPARE(DirectorySwap(m_at).install(readStamp(m_at.next())), QString());
    // Killed with the journal written, before anything was moved.
    QCOMPARE(victim(u"roll-back"_s, u"exchange"_s, 1), -1);
    DirectorySwap swap(m_at);
    bool isStarted = false;
    swap.whyNotLeave = [&isStarted](const QString &) {
        isStarted = true;
        return u"somebody runs it"_s;
    };
    swap.whyNotReplace = [&isStarted] { return isStarted ? u"somebody runs it"_s : QString(); };
    QCOMPARE(swap.recover(), DirectorySwap::Found::RollBackDue);
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.2.0"));
    QCOMPARE(versionIn(m_at.previous()), QByteArray("0.1.0"));

    swap.whyNotLeave = nullptr;
    swap.whyNotReplace = nullptr;
    QCOMPARE(swap.recover(), DirectorySwap::Found::RolledBack);
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
}

CORVANE_TEST(tst_DirectorySwap, QCoreApplication)
#include "tst_DirectorySwap.moc"
