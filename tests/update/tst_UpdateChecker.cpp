#include "tests/support/Runner.h"
#include "tests/update/UpdateTestSupport.h"

#include <QMetaMethod>
#include <QMetaProperty>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The updater's face, and what it refuses before anything is fetched.
class tst_UpdateChecker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void atFirst();
    void face();
    void feedsThatAreRefused_data();
    void feedsThatAreRefused();
    void plainFeedIsNotEvenAsked();
    void nothingToDownload();
};

void tst_UpdateChecker::atFirst()
{
    const UpdateBench bench(HttpServer::Identity::Plain);
    QVERIFY(!bench.updater.updateAvailable());
    QCOMPARE(bench.updater.latestVersion(), QString());
    QCOMPARE(bench.updater.status(), QString());
    QVERIFY(!bench.updater.isStreamActive);
    QVERIFY(bench.updater.findChild<QNetworkAccessManager *>());
    QVERIFY(bench.updater.findChildren<QNetworkReply *>().isEmpty());
    QCOMPARE(bench.events, QStringList());
    QCOMPARE(bench.files(), QStringList());
    QVERIFY(!QFile::exists(bench.runtimeDir()));
}

void tst_UpdateChecker::face()
{
    const QMetaObject &meta = UpdateChecker::staticMetaObject;
    QStringList signalNames;
    QStringList slotNames;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        (method.methodType() == QMetaMethod::Signal ? signalNames : slotNames)
            << QString::fromLatin1(method.methodSignature());
    }
    QCOMPARE(signalNames, QStringList({u"changed()"_s, u"readyToApply(QString,QString)"_s,
                                       u"logLine(QString)"_s, u"upToDate()"_s, u"checkFailed(QString)"_s}));
    QCOMPARE(slotNames, QStringList({u"checkNow()"_s, u"downloadAndStage()"_s, u"applyIfSafe()"_s}));
    QCOMPARE(meta.method(meta.indexOfSignal("readyToApply(QString,QString)")).parameterNames(),
             QList<QByteArray>({"dmgPath", "version"}));
    QCOMPARE(meta.method(meta.indexOfSlot("applyIfSafe()")).returnMetaType(), QMetaType::fromType<bool>());

    QStringList properties;
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
        const QMetaProperty property = meta.property(i);
        properties << QString::fromLatin1(property.typeName()) + u' ' + QString::fromLatin1(property.name());
        QVERIFY(!property.isWritable());
        QCOMPARE(property.notifySignal().methodSignature(), QByteArray("changed()"));
    }
    QCOMPARE(properties,
             QStringList({u"bool updateAvailable"_s, u"QString latestVersion"_s, u"QString status"_s}));
}

void tst_UpdateChecker::feedsThatAreRefused_data()
{
    QTest::addColumn<QString>("feed");
    QTest::addColumn<QString>("status");

    const QString noHttps = u"feed precisa ser HTTPS (anti-MITM)"_s;
    QTest::newRow("none") << QString() << u"feed de update não configurado"_s;
    QTest::newRow("plain HTTP") << u"http://updates.example/latest.json"_s << noHttps;
    QTest::newRow("plain HTTP on this machine") << u"http://127.0.0.1/latest.json"_s << noHttps;
    QTest::newRow("plain HTTP on localhost") << u"http://localhost/latest.json"_s << noHttps;
    QTest::newRow("in capitals") << u"HTTP://updates.example/latest.json"_s << noHttps;
    QTest::newRow("a file") << u"file:///latest.json"_s << noHttps;
    QTest::newRow("a resource") << u"qrc:/latest.json"_s << noHttps;
    QTest::newRow("FTP") << u"ftp://updates.example/latest.json"_s << noHttps;
    QTest::newRow("data") << u"data:application/json,{}"_s << noHttps;
    QTest::newRow("no scheme") << u"updates.example/latest.json"_s << noHttps;
    QTest::newRow("a space") << u" "_s << noHttps;
}

void tst_UpdateChecker::feedsThatAreRefused()
{
    QFETCH(const QString, feed);
    QFETCH(const QString, status);
    const QTemporaryDir directory;
    UpdateChecker updater(u"0.1.0"_s, feed, directory.path());
    QStringList events;
    connect(&updater, &UpdateChecker::changed, this, [&] { events << u"changed "_s + updater.status(); });
    connect(&updater, &UpdateChecker::logLine, this, [&](const QString &line) { events << line; });
    connect(&updater, &UpdateChecker::upToDate, this, [&] { events << u"upToDate"_s; });
    connect(&updater, &UpdateChecker::checkFailed, this, [&] { events << u"checkFailed"_s; });

    updater.checkNow();
    QVERIFY(updater.findChildren<QNetworkReply *>().isEmpty());
    QCOMPARE(events, QStringList({u"changed "_s + status, u"[update] "_s + status}));
    QCOMPARE(updater.status(), status);
}

void tst_UpdateChecker::plainFeedIsNotEvenAsked()
{
    UpdateBench bench(HttpServer::Identity::Plain);
    bench.publish(u"0.2.0"_s, "package");
    QVERIFY(bench.check());
    QCOMPARE(bench.updater.status(), u"feed precisa ser HTTPS (anti-MITM)"_s);
    QVERIFY(!bench.server.hasPendingConnections());
    QCOMPARE(bench.server.asked(), QStringList());
}

void tst_UpdateChecker::nothingToDownload()
{
    UpdateBench bench(HttpServer::Identity::Plain);
    bench.updater.downloadAndStage();
    QVERIFY(bench.updater.findChildren<QNetworkReply *>().isEmpty());
    QCOMPARE(bench.updater.status(), u"nada para baixar"_s);
    QCOMPARE(bench.events, QStringList({u"changed"_s, u"log [update] nada para baixar"_s}));
    QCOMPARE(bench.files(), QStringList());
    QVERIFY(!QFile::exists(bench.runtimeDir()));
}

CORVANE_TEST(tst_UpdateChecker, QCoreApplication)
#include "tst_UpdateChecker.moc"
