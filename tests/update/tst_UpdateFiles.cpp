#include "tests/support/Runner.h"
#include "update/UpdateFiles.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;

/// Names and content of the files that program and guardian share.
class tst_UpdateFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void places();
    void packageName();
    void plainNames_data();
    void plainNames();
    void readyText();
    void readyTextIsReadBack_data();
    void readyTextIsReadBack();
    void otherTextsAreNone_data();
    void otherTextsAreNone();
};

void tst_UpdateFiles::places()
{
    QCOMPARE(updateDirectory(u"/r t"_s), u"/r t/update"_s);
    QCOMPARE(readyFilePath(u"/r t"_s), u"/r t/update/update-ready.json"_s);
    QCOMPARE(applyRequestPath(u"/r t"_s), u"/r t/update/apply-now"_s);
}

void tst_UpdateFiles::packageName()
{
    QCOMPARE(packageFileName(u"0.2.0"_s), u"CORVANE-0.2.0.zip"_s);
    QCOMPARE(packageFileName(u"v1-rc 1"_s), u"CORVANE-v1-rc 1.zip"_s);
}

void tst_UpdateFiles::plainNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("plain");

    QTest::newRow("a package") << u"CORVANE-0.2.0.zip"_s << true;
    QTest::newRow("points alone between letters") << u"CORVANE-...zip"_s << true;
    QTest::newRow("letters of any script") << u"CORVANE-ção—1.zip"_s << true;
    QTest::newRow("slash") << u"CORVANE-1/2.zip"_s << false;
    QTest::newRow("backslash") << u"CORVANE-1\\2.zip"_s << false;
    QTest::newRow("up") << u"CORVANE-/../../x.zip"_s << false;
    QTest::newRow("up, backslashes") << u"CORVANE-\\..\\..\\x.zip"_s << false;
    QTest::newRow("drive letter") << u"C:x.zip"_s << false;
    QTest::newRow("stream of a file") << u"CORVANE-1:x.zip"_s << false;
    QTest::newRow("NUL") << QString(u"CORVANE-1"_s + QChar(0) + u".zip"_s) << false;
    QTest::newRow("line feed") << u"CORVANE-1\n.zip"_s << false;
    QTest::newRow("nothing") << QString() << false;
    QTest::newRow("this directory") << u"."_s << false;
    QTest::newRow("the one above") << u".."_s << false;
}

void tst_UpdateFiles::plainNames()
{
    QFETCH(const QString, name);
    QTEST(isPlainFileName(name), "plain");
}

void tst_UpdateFiles::readyText()
{
    QCOMPARE(
        readyUpdateText({u"/r/update/CORVANE-0.2.0.zip"_s, u"0.2.0"_s, u"/opt/corvane"_s}),
        QByteArray(
            R"({"install_dir":"/opt/corvane","package":"/r/update/CORVANE-0.2.0.zip","version":"0.2.0"})"));
}

void tst_UpdateFiles::readyTextIsReadBack_data()
{
    QTest::addColumn<QString>("package");
    QTest::addColumn<QString>("version");

    QTest::newRow("plain") << u"/r/CORVANE-0.2.0.zip"_s << u"0.2.0"_s;
    QTest::newRow("quotes, backslashes and accents") << uR"(C:\r "é"\x.zip)"_s << u"0.2.0-\"ç\""_s;
}

void tst_UpdateFiles::readyTextIsReadBack()
{
    QFETCH(const QString, package);
    QFETCH(const QString, version);
    const auto read = parseReadyUpdate(readyUpdateText({package, version, u"/i"_s}));
    QVERIFY(read.has_value());
    QCOMPARE(read->package, package);
    QCOMPARE(read->version, version);
    QCOMPARE(read->install_dir, u"/i"_s);
}

void tst_UpdateFiles::otherTextsAreNone_data()
{
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("cut off") << QByteArray(R"({"install_dir":"/opt","package":"/r/p.zip","vers)");
    QTest::newRow("no package") << QByteArray(R"({"install_dir":"/opt","version":"1"})");
    QTest::newRow("empty version") << QByteArray(R"({"install_dir":"/opt","package":"/p","version":""})");
    QTest::newRow("a number for a directory")
        << QByteArray(R"({"install_dir":1,"package":"/p","version":"1"})");
    QTest::newRow("a list") << QByteArray(R"(["/opt","/p","1"])");
}

void tst_UpdateFiles::otherTextsAreNone()
{
    QFETCH(const QByteArray, text);
    QVERIFY(!parseReadyUpdate(text).has_value());
}

CORVANE_TEST(tst_UpdateFiles, QCoreApplication)
#include "tst_UpdateFiles.moc"
