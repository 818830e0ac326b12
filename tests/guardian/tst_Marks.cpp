#include "tests/guardian/GuardedFolder.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tools/guardian/Marks.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <optional>

using namespace Qt::StringLiterals;
using namespace corvane::guardian;
using corvane::test::giveAway;
using corvane::test::writeFile;

/// The program's files as the guardian understands them.
class tst_Marks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void heartbeat_data();
    void heartbeat();
    void anothersHeartbeat();
    void cleanEnd_data();
    void cleanEnd();
    void request();
    void whatIsNoRequest_data();
    void whatIsNoRequest();
    void whatIsStaged_data();
    void whatIsStaged();
};

void tst_Marks::heartbeat_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<qint64>("beat");
    QTest::newRow("a time") << QByteArray("1790000000123") << qint64(1790000000123);
    QTest::newRow("being written") << QByteArray("") << qint64(-1);
    QTest::newRow("no number") << QByteArray("soon") << qint64(-1);
    QTest::newRow("as long as one may be") << QByteArray("17").rightJustified(32, '0') << qint64(17);
    QTest::newRow("longer") << QByteArray("17").rightJustified(33, '0') << qint64(-1);
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

void tst_Marks::anothersHeartbeat()
{
    const QTemporaryDir folder;
    writeFile(folder.filePath(u".heartbeat"_s), "1790000000123");
    QVERIFY(Marks{folder.path()}.heartbeat());
    if (!giveAway(folder.filePath(u".heartbeat"_s)))
        QSKIP("this user can't give files away");
    QVERIFY(!Marks{folder.path()}.heartbeat());
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

void tst_Marks::whatIsNoRequest_data()
{
    using Make = void (*)(const QString &path);
    QTest::addColumn<Make>("make");
    QTest::newRow("a folder") << Make([](const QString &path) { QVERIFY(QDir().mkpath(path)); });
#ifdef Q_OS_UNIX
    QTest::newRow("a link to a file") << Make([](const QString &path) {
        writeFile(path + "-elsewhere"_L1, {});
        QVERIFY(QFile::link(path + "-elsewhere"_L1, path));
    });
    QTest::newRow("a link to nothing")
        << Make([](const QString &path) { QVERIFY(QFile::link(path + "-nowhere"_L1, path)); });
#endif
}

/// It asks for nothing, is reported, and stays.
void tst_Marks::whatIsNoRequest()
{
    using Make = void (*)(const QString &path);
    QFETCH(const Make, make);
    const QTemporaryDir folder;
    const Marks marks{folder.path()};
    const QString path = folder.filePath(u"update/apply-now"_s);
    QVERIFY(QDir(folder.path()).mkpath(u"update"_s));
    QVERIFY(!marks.requestIsBlocked());
    make(path);
    QVERIFY(!marks.updateRequested());
    QVERIFY(marks.requestIsBlocked());
    QString error;
    QVERIFY(marks.removeRequest(error));
    QVERIFY(marks.requestIsBlocked());

    const Marks plain{folder.filePath(u"plain"_s)};
    writeFile(folder.filePath(u"plain/update/apply-now"_s), {});
    QVERIFY(plain.updateRequested());
    QVERIFY(!plain.requestIsBlocked());
}

void tst_Marks::whatIsStaged_data()
{
    QTest::addColumn<QByteArray>("text"); // of the ready file; null: there is none
    QTest::addColumn<QString>("error");   // its beginning; empty: it says what is staged
    const auto ready = [](const QByteArray &package) {
        return R"({"install_dir":"/app","package":")" + package + R"(","version":"0.2.0"})";
    };
    const QString none = u"update-ready.json doesn't say what is staged"_s;
    QTest::newRow("a package") << ready("DIR/update/CORVANE-0.2.0.zip") << QString();
    QTest::newRow("a package by a detour") << ready("DIR/update/../update/p.zip") << QString();
    QTest::newRow("no file") << QByteArray() << u"update-ready.json can't be read: "_s;
    QTest::newRow("garbage") << QByteArray("{") << none;
    QTest::newRow("an endless file") << ready(QByteArray(65'536, 'x'))
                                     << u"update-ready.json can't be read: it is longer than 65536 bytes"_s;
    for (const char *elsewhere : {"DIR/CORVANE-0.2.0.zip", "DIR/update/in/p.zip", "/etc/passwd", "p.zip"}) {
        QTest::newRow(elsewhere)
            << ready(elsewhere)
            << u"update-ready.json names “%1”, which is no file in the update directory"_s.arg(
                   QLatin1StringView(elsewhere));
    }
}

void tst_Marks::whatIsStaged()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, error);
    const QTemporaryDir folder;
    QVERIFY(QDir(folder.path()).mkpath(u"update/in"_s));
    text.replace("DIR", folder.path().toUtf8());
    error.replace("DIR"_L1, folder.path());
    if (!text.isEmpty())
        writeFile(folder.filePath(u"update/update-ready.json"_s), text);
    QString found;
    const std::optional<corvane::ReadyUpdate> ready = Marks{folder.path()}.readyUpdate(found);
    QCOMPARE(ready.has_value(), error.isEmpty());
    // The system has words of its own for a file that isn't there.
    QCOMPARE(error.endsWith(": "_L1) ? found.first(error.size()) : found, error);
    if (ready) {
        QCOMPARE(ready->version, u"0.2.0"_s);
        QCOMPARE(ready->install_dir, u"/app"_s);
        QVERIFY(ready->package.endsWith(".zip"_L1));
    }
}

CORVANE_TEST(tst_Marks, QCoreApplication)
#include "tst_Marks.moc"
