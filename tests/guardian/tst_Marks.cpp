#include "tests/guardian/GuardedFolder.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tools/guardian/Marks.h"

#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane::guardian;
using corvane::test::writeFile;

/// The program's files as the guardian understands them.
class tst_Marks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void heartbeat_data();
    void heartbeat();
    void cleanEnd_data();
    void cleanEnd();
    void request();
};

void tst_Marks::heartbeat_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<qint64>("beat");
    QTest::newRow("a time") << QByteArray("1790000000123") << qint64(1790000000123);
    QTest::newRow("being written") << QByteArray("") << qint64(-1);
    QTest::newRow("no number") << QByteArray("soon") << qint64(-1);
    QTest::newRow("endless") << QByteArray(1'000'000, '1') << qint64(-1);
}

void tst_Marks::heartbeat()
{
    QFETCH(const QByteArray, text);
    const QTemporaryDir folder;
    const Marks marks{folder.path()};
    QVERIFY(!marks.heartbeat());
    writeFile(folder.filePath(u".heartbeat"_s), text);
    QTEST(marks.heartbeat().value_or(-1), "beat");
}

void tst_Marks::cleanEnd_data()
{
    QTest::addColumn<bool>("markBefore");
    QTest::addColumn<bool>("sentinel");
    QTest::addColumn<bool>("markNow");
    QTest::addColumn<bool>("cleanly");
    QTest::newRow("the first run, in order") << false << false << true << true;
    QTest::newRow("a later run, in order") << true << false << true << true;
    QTest::newRow("the mark is as it was") << true << false << false << true;
    QTest::newRow("no mark could be made") << false << false << false << true;
    QTest::newRow("the sentinel stands") << true << true << false << false;
    QTest::newRow("the sentinel stands, and no mark at all") << false << true << false << false;
    QTest::newRow("the sentinel can't be removed, but the mark is new") << true << true << true << true;
}

void tst_Marks::cleanEnd()
{
    QFETCH(const bool, markBefore);
    QFETCH(const bool, sentinel);
    QFETCH(const bool, markNow);
    const QTemporaryDir folder;
    const Marks marks{folder.path()};
    const QString mark = folder.filePath(u".cleanexit"_s);
    if (markBefore) {
        writeFile(mark, {});
        QFile file(mark);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(QDateTime::currentDateTime().addDays(-1), QFile::FileModificationTime));
    }
    const QDateTime before = marks.cleanExit();
    QCOMPARE(before.isValid(), markBefore);
    if (sentinel)
        writeFile(folder.filePath(u"crashes/.running"_s), "running\n");
    if (markNow)
        writeFile(mark, {});
    QTEST(marks.endedCleanlySince(before), "cleanly");
}

void tst_Marks::request()
{
    const QTemporaryDir folder;
    const Marks marks{folder.path()};
    QVERIFY(!marks.updateRequested());
    QString error;
    QVERIFY(marks.removeRequest(error));
    writeFile(folder.filePath(u"update/apply-now"_s), {});
    QVERIFY(marks.updateRequested());
    QVERIFY(marks.removeRequest(error));
    QVERIFY(!marks.updateRequested());
}

CORVANE_TEST(tst_Marks, QCoreApplication)
#include "tst_Marks.moc"
