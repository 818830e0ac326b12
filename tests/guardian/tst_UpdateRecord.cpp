#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tools/guardian/UpdateRecord.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane::guardian;

/// What became of the last update, on the disk.
class tst_UpdateRecord : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writtenAndRead_data();
    void writtenAndRead();
    void whatCantBeRead_data();
    void whatCantBeRead();
    void aFolderThatIsntThere();
    void theVeryPackage_data();
    void theVeryPackage();
};

void tst_UpdateRecord::writtenAndRead_data()
{
    QTest::addColumn<QString>("result");
    QTest::addColumn<bool>("proven");
    QTest::newRow("applied") << u"applied"_s << false;
    QTest::newRow("applied, and holds") << u"applied"_s << true;
    QTest::newRow("rolled back") << u"rolled back"_s << false;
}

void tst_UpdateRecord::writtenAndRead()
{
    QFETCH(const QString, result);
    QFETCH(const bool, proven);
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"last-update.json"_s);
    const QDateTime at(QDate(2026, 11, 22), QTime(8, 30)); // the machine's own time
    QVERIFY(writeRecord(path, {u"refused"_s, u"0.1.9"_s, {}, {}, false}, at.addDays(-1)));
    QVERIFY(writeRecord(path, {result, u"0.2.0"_s, u"ab12"_s, u"it “fell”"_s, proven}, at));

    const UpdateRecord read = readRecord(path);
    QCOMPARE(read.result, result);
    QCOMPARE(read.version, u"0.2.0"_s);
    QCOMPARE(read.sha256, u"ab12"_s);
    QCOMPARE(read.reason, u"it “fell”"_s);
    QCOMPARE(read.proven, proven);

    const QJsonObject json = QJsonDocument::fromJson(corvane::test::contentsOf(path)).object();
    QCOMPARE(json["at"_L1].toString(), u"2026-11-22T08:30:00"_s);
    QCOMPARE(json["result"_L1].toString(), result);
    QCOMPARE(json["version"_L1].toString(), u"0.2.0"_s);
    QCOMPARE(json["sha256"_L1].toString(), u"ab12"_s);
    QCOMPARE(json["reason"_L1].toString(), u"it “fell”"_s);
    QCOMPARE(json.contains("proven"_L1), result == "applied"_L1);
    QCOMPARE(json["proven"_L1].toBool(), proven);
}

void tst_UpdateRecord::whatCantBeRead_data()
{
    QTest::addColumn<QByteArray>("text"); // null: there is no file
    QTest::newRow("no file") << QByteArray();
    QTest::newRow("an empty one") << QByteArray("");
    QTest::newRow("no JSON") << QByteArray("{");
    QTest::newRow("a list") << QByteArray("[1]");
    QTest::newRow("other types") << QByteArray(
        R"({"result":1,"version":[],"sha256":{},"reason":null,"proven":1})");
}

void tst_UpdateRecord::whatCantBeRead()
{
    QFETCH(const QByteArray, text);
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"last-update.json"_s);
    if (!text.isNull())
        corvane::test::writeFile(path, text);
    const UpdateRecord read = readRecord(path);
    QCOMPARE(read.result + read.version + read.sha256 + read.reason, QString());
    QVERIFY(!read.proven);
}

void tst_UpdateRecord::aFolderThatIsntThere()
{
    const QTemporaryDir folder;
    QVERIFY(!writeRecord(folder.filePath(u"missing/last-update.json"_s), {}, QDateTime::currentDateTime()));
}

void tst_UpdateRecord::theVeryPackage_data()
{
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("digest");
    QTest::addColumn<bool>("rolledBack");
    QTest::newRow("it") << u"rolled back"_s << u"ab12"_s << true;
    QTest::newRow("it, in capitals") << u"rolled back"_s << u"AB12"_s << true;
    QTest::newRow("another") << u"rolled back"_s << u"ab13"_s << false;
    QTest::newRow("applied") << u"applied"_s << u"ab12"_s << false;
    QTest::newRow("refused") << u"refused"_s << u"ab12"_s << false;
    QTest::newRow("put back") << u"put back"_s << u"ab12"_s << false;
}

void tst_UpdateRecord::theVeryPackage()
{
    QFETCH(const QString, result);
    QFETCH(const QString, digest);
    const UpdateRecord record{result, u"0.2.0"_s, u"ab12"_s, {}, false};
    QTEST(record.rolledBack(digest), "rolledBack");
}

CORVANE_TEST(tst_UpdateRecord, QCoreApplication)
#include "tst_UpdateRecord.moc"
