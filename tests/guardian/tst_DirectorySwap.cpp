#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tools/guardian/DirectorySwap.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
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
    void aJournalThatCantBeWritten_data();
    void aJournalThatCantBeWritten();

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
    m_at = {m_folder->filePath(u"app"_s), u"corvane"_s};
    QVERIFY(QDir().mkpath(m_at.own()));
    makeInstallation(m_at.directory, "0.1.0");
}

void tst_DirectorySwap::stageNext(const QByteArray &version) const
{
    makeInstallation(m_at.next(), version);
    QVERIFY(writeStamp(m_at.next(), {"id of "_L1 + QString::fromLatin1(version), QString::fromLatin1(version),
                                     u"digest"_s}));
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
    QVERIFY(swap.install(readStamp(m_at.next())));
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
    QVERIFY(swap.install(readStamp(m_at.next())));
    QVERIFY(swap.rollBack());
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
        QVERIFY(swap.install(readStamp(m_at.next())));
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
    QVERIFY(!swap.rollBack());
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
                QVERIFY(swap.rollBack());
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
            QVERIFY(DirectorySwap(m_at).install(readStamp(m_at.next())));
            code = victim(u"roll-back"_s, way, step);
            const int recovered = victim(u"recover"_s, way, recoveryStep);

            DirectorySwap swap(m_at);
            const DirectorySwap::Found found = swap.recover();
            QVERIFY2(found != DirectorySwap::Found::Broken, qPrintable(QString::number(step)));
            if (found == DirectorySwap::Found::Trial) {
                QCOMPARE(versionIn(m_at.directory), QByteArray("0.2.0"));
                QVERIFY(swap.rollBack());
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
    QVERIFY(!swap.install({u"id"_s, u"0.2.0"_s, u"digest"_s}));
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
    swap.mayExchange = false;
    QVERIFY(!swap.install({u"id"_s, u"0.2.0"_s, u"digest"_s}));
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
    QCOMPARE(DirectorySwap(m_at).recover(), DirectorySwap::Found::Idle);
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
    QVERIFY(!swap.install(readStamp(m_at.next())));
    QCOMPARE(versionIn(m_at.directory), QByteArray("0.1.0"));
    QCOMPARE(kept(), QStringList{u"journal.json"_s});
}

CORVANE_TEST(tst_DirectorySwap, QCoreApplication)
#include "tst_DirectorySwap.moc"
