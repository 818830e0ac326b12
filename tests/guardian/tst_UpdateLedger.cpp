#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tools/guardian/UpdateLedger.h"
#include "update/UpdateFiles.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <chrono>
#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace corvane;
using namespace corvane::guardian;
using test::writeFile;

/// Requests for updates and what is written of them, without a program that makes them.
class tst_UpdateLedger : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void requests();
    void noRequestsWithoutUpdates();
    void aRequestIsReportedOnceForARun();
    void whatIsNoRequestIsReportedOnceForARun();
    void aRequestThatCantBeRemoved();
    void refusedForWhatItIs();
    void refusedButMayDoBetter();
    void attemptsCountInARow_data();
    void attemptsCountInARow();
    void refusedWithoutAVersion();
    void aRefusalKeepsTheRecordOfARollBack();
    void rolledBack();
    void rolledBackOfAnUnknownVersion();
    void putBack();
    void applied();
    void whatWasRolledBackIsTakenUp_data();
    void whatWasRolledBackIsTakenUp();
    void aRecordThatCantBeWritten();

private:
    void make(bool updates = true, std::chrono::milliseconds holdTime = 5h);
    [[nodiscard]] QString requestPath() const { return applyRequestPath(m_marks.runtimeDirectory); }
    void request() const { writeFile(requestPath(), {}); }
    [[nodiscard]] bool isHeld(const QString &version = u"0.2.0"_s) const
    {
        return HeldVersions{m_marks.runtimeDirectory}.isHeld(version);
    }
    [[nodiscard]] UpdateRecord record() const { return readRecord(m_at.record()); }
    [[nodiscard]] static UpdateOutcome refusal(bool mayDoBetter, const QString &version = u"0.2.0"_s)
    {
        return {UpdateOutcome::Refused, {{}, version, {}}, u"ab12"_s, u"it is bad"_s, mayDoBetter};
    }

    std::unique_ptr<QTemporaryDir> m_folder;
    Installation m_at;
    Marks m_marks;
    std::unique_ptr<UpdateLedger> m_ledger;
    QStringList m_lines;
};

void tst_UpdateLedger::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    m_at = {m_folder->filePath(u"app"_s), u"corvane"_s, {}};
    m_marks = {m_folder->filePath(u"runtime"_s)};
    QVERIFY(QDir().mkpath(m_at.own()));
    QVERIFY(QDir().mkpath(updateDirectory(m_marks.runtimeDirectory)));
    make();
}

void tst_UpdateLedger::make(bool updates, std::chrono::milliseconds holdTime)
{
    m_ledger = std::make_unique<UpdateLedger>(UpdateLedger::Settings{m_at, m_marks, updates, holdTime, 3});
    m_lines.clear();
    connect(m_ledger.get(), &UpdateLedger::logged, this, [this](const QString &line) { m_lines << line; });
}

void tst_UpdateLedger::requests()
{
    QVERIFY(!m_ledger->isRequested());
    request();
    QVERIFY(m_ledger->isRequested());
    QVERIFY(m_ledger->isRequested());
    m_ledger->removeRequest();
    QVERIFY(!m_ledger->isRequested());
    QVERIFY(!QFile::exists(requestPath()));
    QCOMPARE(m_lines, QStringList());

    request();
    m_ledger->granted();
    QVERIFY(!QFile::exists(requestPath()));
}

void tst_UpdateLedger::noRequestsWithoutUpdates()
{
    make(false);
    request();
    QVERIFY(!m_ledger->isRequested());
    m_ledger->reportRequests();
    QCOMPARE(m_lines, QStringList());
    QVERIFY(QFile::exists(requestPath()));
}

void tst_UpdateLedger::aRequestIsReportedOnceForARun()
{
    const QString line = u"an update is requested; waiting for the program to end"_s;
    m_ledger->reportRequests();
    QCOMPARE(m_lines, QStringList());
    request();
    for (int run = 1; run <= 2; ++run) {
        m_ledger->beginRun();
        m_ledger->reportRequests();
        m_ledger->reportRequests();
        QCOMPARE(m_lines, QStringList(run, line));
    }
}

void tst_UpdateLedger::whatIsNoRequestIsReportedOnceForARun()
{
    const QString line = u"apply-now is no file of this user's: it asks for nothing"_s;
    QVERIFY(QDir().mkpath(requestPath()));
    for (int run = 1; run <= 2; ++run) {
        m_ledger->beginRun();
        m_ledger->reportRequests();
        m_ledger->reportRequests();
        QCOMPARE(m_lines, QStringList(run, line));
    }
    QVERIFY(!m_ledger->isRequested());
}

/// It has been dealt with; only one that is made anew counts.
void tst_UpdateLedger::aRequestThatCantBeRemoved()
{
#ifdef Q_OS_LINUX
    request();
    const QString folder = updateDirectory(m_marks.runtimeDirectory);
    const QFile::Permissions former = QFile::permissions(folder);
    {
        QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner));
        const test::Unprivileged user;
        m_ledger->removeRequest();
        QCOMPARE(m_lines, QStringList{u"apply-now can't be removed (Permission denied); until it is gone, no "
                                      "update is applied"_s});
        QVERIFY(!m_ledger->isRequested());
        QVERIFY(QFile::exists(requestPath()));
    }
    QVERIFY(QFile::setPermissions(folder, former));
    QVERIFY(!m_ledger->isRequested()); // and now it is gone
    QVERIFY(!QFile::exists(requestPath()));
    request();
    QVERIFY(m_ledger->isRequested());
#else
    QSKIP("whoever may write a file here may remove it");
#endif
}

void tst_UpdateLedger::refusedForWhatItIs()
{
    request();
    m_ledger->refused(refusal(false));
    QCOMPARE(m_lines, QStringList({u"update 0.2.0 refused: it is bad"_s, u"version 0.2.0 is held back"_s}));
    QCOMPARE(record().result, u"refused"_s);
    QCOMPARE(record().version, u"0.2.0"_s);
    QCOMPARE(record().sha256, u"ab12"_s);
    QCOMPARE(record().reason, u"it is bad"_s);
    QVERIFY(isHeld());
    QVERIFY(!QFile::exists(requestPath()));
    QVERIFY(!m_ledger->takeFeedOff());
}

void tst_UpdateLedger::refusedButMayDoBetter()
{
    for (int attempt = 1; attempt <= 3; ++attempt) {
        request();
        m_ledger->refused(refusal(true));
        QVERIFY(!QFile::exists(requestPath()));
        QCOMPARE(isHeld(), attempt == 3);
    }
    QCOMPARE(m_lines.count(u"version 0.2.0 is held back"_s), 1);
}

void tst_UpdateLedger::attemptsCountInARow_data()
{
    QTest::addColumn<bool>("granted");
    QTest::newRow("broken by one that was granted") << true;
    QTest::newRow("broken by one that was refused for what it is") << false;
}

void tst_UpdateLedger::attemptsCountInARow()
{
    QFETCH(const bool, granted);
    m_ledger->refused(refusal(true));
    m_ledger->refused(refusal(true));
    if (granted)
        m_ledger->granted();
    else
        m_ledger->refused(refusal(false, u"0.1.9"_s));
    m_ledger->refused(refusal(true));
    m_ledger->refused(refusal(true));
    QVERIFY(!isHeld());
    m_ledger->refused(refusal(true));
    QVERIFY(isHeld());
}

/// Nothing can be held back: the next run goes without its check, and only that one.
void tst_UpdateLedger::refusedWithoutAVersion()
{
    m_ledger->refused(refusal(false, QString()));
    QCOMPARE(m_lines, QStringList{u"update of an unknown version refused: it is bad"_s});
    QVERIFY(m_ledger->takeFeedOff());
    QVERIFY(!m_ledger->takeFeedOff());
    // Which counts for the last word alone.
    m_ledger->refused(refusal(false, QString()));
    m_ledger->refused(refusal(false));
    QVERIFY(!m_ledger->takeFeedOff());
}

void tst_UpdateLedger::aRefusalKeepsTheRecordOfARollBack()
{
    m_ledger->rolledBack({{}, u"0.2.0"_s, u"cd34"_s}, u"it fell"_s);
    m_ledger->refused(refusal(false, u"0.3.0"_s));
    QCOMPARE(record().result, u"rolled back"_s);
    QCOMPARE(record().sha256, u"cd34"_s);
    QVERIFY(isHeld(u"0.3.0"_s));
}

void tst_UpdateLedger::rolledBack()
{
    request();
    m_ledger->rolledBack({u"id"_s, u"0.2.0"_s, u"ab12"_s}, u"it fell"_s);
    QCOMPARE(record().result, u"rolled back"_s);
    QCOMPARE(record().version, u"0.2.0"_s);
    QCOMPARE(record().sha256, u"ab12"_s);
    QCOMPARE(record().reason, u"it fell"_s);
    QVERIFY(!record().proven);
    QVERIFY(isHeld());
    QVERIFY(!QFile::exists(requestPath()));
    QCOMPARE(m_lines, QStringList{u"version 0.2.0 is held back"_s});
}

void tst_UpdateLedger::rolledBackOfAnUnknownVersion()
{
    m_ledger->rolledBack({}, u"it fell"_s);
    QCOMPARE(m_lines, QStringList());
    QVERIFY(m_ledger->takeFeedOff());
}

void tst_UpdateLedger::putBack()
{
    const Stamp stamp{u"id"_s, u"0.2.0"_s, u"ab12"_s};
    m_ledger->rolledBack(stamp, u"it was silent"_s);
    m_ledger->putBack(stamp);
    QCOMPARE(record().result, u"put back"_s);
    QCOMPARE(record().reason, u"neither this version nor the former one shows a heartbeat here"_s);
    QVERIFY(!isHeld());
}

void tst_UpdateLedger::applied()
{
    m_ledger->applied({u"id"_s, u"0.2.0"_s, u"ab12"_s});
    QCOMPARE(m_ledger->last().result, u"applied"_s);
    QCOMPARE(m_ledger->last().version, u"0.2.0"_s);
    QCOMPARE(m_ledger->last().sha256, u"ab12"_s);
    QVERIFY(!m_ledger->last().proven);
    m_ledger->showsProof();
    QVERIFY(m_ledger->last().proven);
    QCOMPARE(m_ledger->last().version, u"0.2.0"_s);
}

void tst_UpdateLedger::whatWasRolledBackIsTakenUp_data()
{
    QTest::addColumn<QString>("result");
    QTest::addColumn<bool>("held");
    QTest::newRow("rolled back") << u"rolled back"_s << true;
    QTest::newRow("refused") << u"refused"_s << false;
    QTest::newRow("put back") << u"put back"_s << false;
}

/// However long ago; the others have been held for long enough.
void tst_UpdateLedger::whatWasRolledBackIsTakenUp()
{
    QFETCH(const QString, result);
    QFETCH(const bool, held);
    QVERIFY(
        writeRecord(m_at.record(), {result, u"0.2.0"_s, u"ab12"_s, {}, false}, QDateTime::currentDateTime()));
    QVERIFY(HeldVersions{m_marks.runtimeDirectory}.hold(u"0.1.9"_s));
    make(true, 0ms);
    m_ledger->takeUp();
    QCOMPARE(isHeld(), held);
    QVERIFY(!isHeld(u"0.1.9"_s));
    QCOMPARE(m_lines, held ? QStringList{u"version 0.2.0 is held back"_s} : QStringList());

    // It is held already: nothing is to be said.
    make(true, 0ms);
    m_ledger->takeUp();
    QCOMPARE(isHeld(), held);
    QCOMPARE(m_lines, QStringList());
}

void tst_UpdateLedger::aRecordThatCantBeWritten()
{
    QVERIFY(QDir().mkpath(m_at.record()));
    m_ledger->applied({u"id"_s, u"0.2.0"_s, u"ab12"_s});
    QCOMPARE(m_lines, QStringList{u"%1 can't be written"_s.arg(m_at.record())});
}

CORVANE_TEST(tst_UpdateLedger, QCoreApplication)
#include "tst_UpdateLedger.moc"
