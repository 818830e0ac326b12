#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tools/guardian/RotatingLog.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>

using namespace Qt::StringLiterals;
using corvane::guardian::RotatingLog;
using corvane::test::contentsOf;

namespace {

const QDateTime someTime = QDateTime(QDate(2026, 11, 21), QTime(7, 30, 5), QTimeZone::utc()).toUTC();

} // namespace

/// The guardian's log file.
class tst_RotatingLog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void linesBearTheirTime();
    void aTextStaysOneLine();
    void anotherRunGoesOn();
    void fullFilesAreKeptByNumber();
    void oneLineLongerThanAFile();
    void whereNothingCanBeWritten();
};

void tst_RotatingLog::linesBearTheirTime()
{
    const QTemporaryDir folder;
    RotatingLog log(folder.filePath(u"g.log"_s));
    log.append(someTime, u"começou"_s);
    QCOMPARE(contentsOf(log.path()), QByteArray("2026-11-21T07:30:05Z começou\n"));
}

void tst_RotatingLog::aTextStaysOneLine()
{
    const QTemporaryDir folder;
    RotatingLog log(folder.filePath(u"g.log"_s));
    log.append(someTime, u"a\nb\rc\x1b[2Jd"_s);
    QCOMPARE(contentsOf(log.path()), QByteArray("2026-11-21T07:30:05Z a?b?c?[2Jd\n"));
}

void tst_RotatingLog::anotherRunGoesOn()
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"g.log"_s);
    RotatingLog(path).append(someTime, u"1"_s);
    RotatingLog(path).append(someTime, u"2"_s);
    QCOMPARE(contentsOf(path), QByteArray("2026-11-21T07:30:05Z 1\n2026-11-21T07:30:05Z 2\n"));
}

void tst_RotatingLog::fullFilesAreKeptByNumber()
{
    const QTemporaryDir folder;
    RotatingLog log(folder.filePath(u"g.log"_s), 50, 2); // two lines of 23 bytes each
    for (int i = 1; i <= 9; ++i)
        log.append(someTime, QString::number(i));
    QCOMPARE(QDir(folder.path()).entryList(QDir::Files, QDir::Name),
             QStringList({u"g.log"_s, u"g.log.1"_s, u"g.log.2"_s}));
    QCOMPARE(contentsOf(log.path()), QByteArray("2026-11-21T07:30:05Z 9\n"));
    QCOMPARE(contentsOf(log.path() + ".1"_L1),
             QByteArray("2026-11-21T07:30:05Z 7\n2026-11-21T07:30:05Z 8\n"));
    QCOMPARE(contentsOf(log.path() + ".2"_L1),
             QByteArray("2026-11-21T07:30:05Z 5\n2026-11-21T07:30:05Z 6\n"));
}

void tst_RotatingLog::oneLineLongerThanAFile()
{
    const QTemporaryDir folder;
    RotatingLog log(folder.filePath(u"g.log"_s), 10, 2);
    log.append(someTime, u"longa"_s);
    QCOMPARE(contentsOf(log.path()), QByteArray("2026-11-21T07:30:05Z longa\n"));
    QCOMPARE(QDir(folder.path()).entryList(QDir::Files), QStringList{u"g.log"_s});
}

void tst_RotatingLog::whereNothingCanBeWritten()
{
    const QTemporaryDir folder;
    RotatingLog log(folder.filePath(u"missing/g.log"_s));
    log.append(someTime, u"lost"_s);
    QVERIFY(!QFile::exists(log.path()));
}

CORVANE_TEST(tst_RotatingLog, QCoreApplication)
#include "tst_RotatingLog.moc"
