#include "tests/support/Runner.h"
#include "update/RuntimeFiles.h"

#include <QCoreApplication>
#include <QStandardPaths>
#include <QTest>

#include <chrono>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace corvane;

/// The names by which the program and its guardian find each other.
class tst_RuntimeFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void identity();
    void directory_data();
    void directory();
    void feed_data();
    void feed();
    void marks();
};

void tst_RuntimeFiles::identity()
{
    setApplicationIdentity();
    QCOMPARE(QCoreApplication::applicationName(), u"CORVANE"_s);
    QCOMPARE(QCoreApplication::organizationName(), u"halvorndev"_s);
    QVERIFY(!QCoreApplication::organizationDomain().isEmpty());
}

void tst_RuntimeFiles::directory_data()
{
    QTest::addColumn<QByteArray>("given");
    QTest::addColumn<QString>("expected");
    const QString usual = u"DATA/halvorndev/CORVANE/runtime"_s;
    QTest::newRow("none given") << QByteArray() << usual;
    QTest::newRow("an empty one given") << QByteArray("") << usual;
    QTest::newRow("as it stands") << QByteArray("../a b/") << u"../a b/"_s;
}

void tst_RuntimeFiles::directory()
{
    QFETCH(const QByteArray, given);
    QFETCH(QString, expected);
    setApplicationIdentity();
    expected.replace("DATA"_L1, QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation));
    if (given.isNull())
        qunsetenv("CORVANE_RUNTIME_DIR");
    else
        qputenv("CORVANE_RUNTIME_DIR", given);
    const QString found = runtimeDirectory();
    qunsetenv("CORVANE_RUNTIME_DIR");
#ifdef Q_OS_WIN // where data that roam with the user are elsewhere
    if (given.isEmpty()) {
        QVERIFY2(found.endsWith("/halvorndev/CORVANE/runtime"_L1), qPrintable(found));
        return;
    }
#endif
    QCOMPARE(found, expected);
}

void tst_RuntimeFiles::feed_data()
{
    QTest::addColumn<QByteArray>("given");
    QTest::addColumn<bool>("isBuilds");
    QTest::newRow("none given") << QByteArray() << true;
#ifndef Q_OS_WIN // which has no empty variables
    QTest::newRow("an empty one given") << QByteArray("") << false;
#endif
    QTest::newRow("given") << QByteArray("https://host.example/x.json") << false;
}

void tst_RuntimeFiles::feed()
{
    QFETCH(const QByteArray, given);
    if (given.isNull())
        qunsetenv("CORVANE_UPDATE_FEED");
    else
        qputenv("CORVANE_UPDATE_FEED", given);
    const QString found = updateFeed();
    qunsetenv("CORVANE_UPDATE_FEED");
    QTEST(found.startsWith("https://"_L1) && found.endsWith("/latest.json"_L1), "isBuilds");
    QCOMPARE(found, given.isNull() ? QStringLiteral(CORVANE_BUILD_FEED) : QString::fromLatin1(given));
}

void tst_RuntimeFiles::marks()
{
    QCOMPARE(heartbeatInterval, 2s);
    QCOMPARE(heartbeatPath(u"R"_s), u"R/.heartbeat"_s);
    QCOMPARE(cleanExitPath(u"R"_s), u"R/.cleanexit"_s);
    QCOMPARE(crashDirectory(u"R"_s), u"R/crashes"_s);
    QCOMPARE(sentinelPath(u"R/crashes"_s), u"R/crashes/.running"_s);
}

CORVANE_TEST(tst_RuntimeFiles, QCoreApplication)
#include "tst_RuntimeFiles.moc"
