#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/update/UpdateTestSupport.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

using Identity = HttpServer::Identity;
using End = HttpAnswer::End;

/// The way of a manifest and of a package over the network: who is believed, what breaks off, where redirects
/// may lead.
class tst_UpdateTransport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void manifestFails_data();
    void manifestFails();
    void nobodyThere();
    void manifestRedirected_data();
    void manifestRedirected();
    void endlessRedirects();
    void slowManifest();

    void packageFrom_data();
    void packageFrom();
    void packageFails_data();
    void packageFails();
    void packageServerNotBelieved_data();
    void packageServerNotBelieved();
    void packageRedirected_data();
    void packageRedirected();
    void slowPackage();
};

namespace {

constexpr auto manifestPath = "/latest.json"_L1;

HttpAnswer answerOf(int status, const QByteArray &body = {}, End end = End::Orderly, qint64 announced = -1)
{
    HttpAnswer answer;
    answer.status = status;
    answer.body = body;
    answer.end = end;
    answer.announced = announced;
    return answer;
}

/// In milliseconds, 0 for none: that of everything that is fetched, and that of the one request under way. A
/// slow road is no reason to give up.
QList<int> timeOutsOf(const UpdateChecker &updater)
{
    QList<int> found{updater.findChild<QNetworkAccessManager *>()->transferTimeout()};
    for (const QNetworkReply *reply : updater.findChildren<QNetworkReply *>())
        found << reply->request().transferTimeout();
    return found;
}

HttpAnswer redirect(int status, const QString &to)
{
    HttpAnswer answer;
    answer.status = status;
    answer.location = to;
    return answer;
}

} // namespace

void tst_UpdateTransport::initTestCase()
{
    if (const QString problem = tlsProblem(); !problem.isEmpty())
        QSKIP(qPrintable(problem));
    trustTestAuthority();
}

void tst_UpdateTransport::init()
{
    pinKey({});
}

// --- Manifest

void tst_UpdateTransport::manifestFails_data()
{
    QTest::addColumn<Identity>("identity");
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<QString>("reason"); // a pattern: the words are the network library's

    const HttpAnswer good = answerOf(200, R"({"version":"0.2.0"})");
    QTest::newRow("authority that isn't trusted")
        << Identity::Stranger << good << u"SSL handshake failed: .*(issuer|self.signed|root).*"_s;
    QTest::newRow("expired certificate")
        << Identity::Expired << good << u"SSL handshake failed: .*expired.*"_s;
    QTest::newRow("certificate of another host")
        << Identity::Elsewhere << good << u"SSL handshake failed: .*host name.*"_s;
    QTest::newRow("not found") << Identity::Trusted << answerOf(404, "gone") << u".*server replied: Answer"_s;
    QTest::newRow("not allowed") << Identity::Trusted << answerOf(403) << u".*server replied: Answer"_s;
    QTest::newRow("server error with a manifest")
        << Identity::Trusted << answerOf(500, good.body) << u".*server replied: Answer"_s;
    QTest::newRow("cut in the middle")
        << Identity::Trusted << answerOf(200, R"({"version":"0.2.0",)", End::Cut, 400)
        << u"Connection closed|.*closed the connection"_s;
    QTest::newRow("ended in the middle")
        << Identity::Trusted << answerOf(200, R"({"version":"0.2.0"})", End::Orderly, 400)
        << u"Connection closed|.*closed the connection"_s;
    QTest::newRow("cut before the first byte") << Identity::Trusted << answerOf(200, {}, End::Cut, 400)
                                               << u"Connection closed|.*closed the connection"_s;
}

void tst_UpdateTransport::manifestFails()
{
    QFETCH(const Identity, identity);
    QFETCH(const HttpAnswer, answer);
    QFETCH(const QString, reason);

    UpdateBench bench(identity);
    bench.server.put(manifestPath, answer);
    QVERIFY(bench.check());

    QCOMPARE(bench.events.size(), 5);
    const QString failed = bench.events.constLast();
    QVERIFY2(failed.startsWith("checkFailed "_L1), qPrintable(failed));
    const QString words = failed.sliced(12);
    QCOMPARE(bench.events,
             QStringList({u"changed"_s, u"log [update] checando atualizações..."_s, u"changed"_s,
                          u"log [update] erro de rede: "_s + words, u"checkFailed "_s + words}));
    QCOMPARE(bench.neutral(bench.updater.status()), u"erro de rede: "_s + words);
    const QRegularExpression pattern(QRegularExpression::anchoredPattern(reason),
                                     QRegularExpression::DotMatchesEverythingOption);
    QVERIFY2(pattern.match(words).hasMatch(), qPrintable(words));
    QVERIFY(!bench.updater.updateAvailable());
    QCOMPARE(bench.updater.latestVersion(), QString());
}

void tst_UpdateTransport::nobodyThere()
{
    UpdateBench bench;
    bench.server.close();
    QVERIFY(bench.check());
    QCOMPARE(bench.updater.status(), u"erro de rede: Connection refused"_s);
    QCOMPARE(bench.events.constLast(), u"checkFailed Connection refused"_s);
}

void tst_UpdateTransport::manifestRedirected_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<Identity>("target");
    QTest::addColumn<bool>("followed");

    for (const int status : {301, 302, 303, 307, 308}) {
        QTest::addRow("%d to HTTPS", status) << status << Identity::Trusted << true;
        QTest::addRow("%d to plain HTTP", status) << status << Identity::Plain << false;
    }
    QTest::newRow("to a server that isn't believed") << 302 << Identity::Stranger << false;
}

void tst_UpdateTransport::manifestRedirected()
{
    QFETCH(const int, status);
    QFETCH(const Identity, target);
    QFETCH(const bool, followed);

    HttpServer other(target);
    other.put(u"/there.json"_s, answerOf(200, R"({"version":"0.1.0"})"));
    UpdateBench bench;
    bench.server.put(manifestPath, redirect(status, other.url(u"/there.json"_s)));
    QVERIFY(bench.check());

    QCOMPARE(other.asked(), followed ? QStringList{u"/there.json"_s} : QStringList());
    QCOMPARE(bench.events.constLast() == "upToDate"_L1, followed);
    if (!followed)
        QVERIFY(bench.updater.status().startsWith("erro de rede: "_L1));
    if (target == Identity::Plain)
        QCOMPARE(bench.updater.status(), u"erro de rede: Insecure redirect"_s);
}

void tst_UpdateTransport::endlessRedirects()
{
    UpdateBench bench;
    bench.server.put(manifestPath, redirect(302, bench.server.url(manifestPath)));
    QVERIFY(bench.check());
    QCOMPARE(bench.updater.status(), u"erro de rede: Too many redirects"_s);
    QCOMPARE(bench.events.constLast(), u"checkFailed Too many redirects"_s);
}

void tst_UpdateTransport::slowManifest()
{
    UpdateBench bench;
    bench.server.put(manifestPath, answerOf(200, R"({"version":"0.1.0"})", End::Held));
    bench.updater.checkNow();
    QVERIFY(waitUntil([&] { return !bench.server.asked().isEmpty(); }));
    // Half of it is under way: nothing is said, and the event loop is free.
    passTimersOf(50);
    QCOMPARE(bench.updater.status(), u"checando atualizações..."_s);
    QCOMPARE(bench.events.size(), 2);
    QCOMPARE(timeOutsOf(bench.updater), QList<int>({0, 0}));

    bench.server.release();
    QVERIFY(bench.settle());
    QCOMPARE(bench.events.constLast(), u"upToDate"_s);
}

// --- Package

void tst_UpdateTransport::packageFrom_data()
{
    QTest::addColumn<Identity>("identity");

    QTest::newRow("HTTPS") << Identity::Trusted;
    QTest::newRow("plain HTTP, guarded by the digest") << Identity::Plain;
}

void tst_UpdateTransport::packageFrom()
{
    QFETCH(const Identity, identity);

    const QByteArray package(3'000'000, 'p');
    HttpServer other(identity);
    other.put(packagePath, answerOf(200, package));
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, package,
                  [&](UpdateManifest &manifest) { manifest.url = other.url(packagePath); });
    QVERIFY(bench.check());

    QCOMPARE(other.asked(), QStringList{packagePath});
    QCOMPARE(bench.events.constLast(), u"readyToApply DIR/update/CORVANE-0.2.0.zip 0.2.0"_s);
    QCOMPARE(sha256Of(bench.content(u"runtime/update/CORVANE-0.2.0.zip"_s)), sha256Of(package));
}

void tst_UpdateTransport::packageFails_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<QString>("status");

    const QString noMatch = u"sha256 NÃO confere — pacote rejeitado"_s;
    const QString cut = u"download falhou: Connection closed"_s;
    QTest::newRow("not found")
        << answerOf(404)
        << u"download falhou: Error transferring http://HOST/package.zip - server replied: Answer"_s;
    QTest::newRow("an error page with the package in it")
        << answerOf(503, "a package")
        << u"download falhou: Error transferring http://HOST/package.zip - server replied: Answer"_s;
    QTest::newRow("cut in the middle") << answerOf(200, "a pac", End::Cut, 9) << cut;
    QTest::newRow("ended in the middle") << answerOf(200, "a pac", End::Orderly, 9) << cut;
    QTest::newRow("whole, but more was announced") << answerOf(200, "a package", End::Orderly, 10) << cut;
    QTest::newRow("less was announced") << answerOf(200, "a package", End::Orderly, 5) << noMatch;
    QTest::newRow("shorter") << answerOf(200, "a packag") << noMatch;
    QTest::newRow("longer") << answerOf(200, "a package!") << noMatch;
    QTest::newRow("another of the same length") << answerOf(200, "A package") << noMatch;
    QTest::newRow("nothing") << answerOf(200) << noMatch;
}

void tst_UpdateTransport::packageFails()
{
    QFETCH(const HttpAnswer, answer);
    QFETCH(const QString, status);

    HttpServer other(Identity::Plain);
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package",
                  [&](UpdateManifest &manifest) { manifest.url = other.url(packagePath); });
    other.put(packagePath, answer);
    QVERIFY(bench.check());

    QString said = bench.updater.status();
    said.replace(u"127.0.0.1:%1"_s.arg(other.serverPort()), "HOST"_L1);
    QCOMPARE(said, status);
    QCOMPARE(bench.events.size(), 10); // up to the status: no checkFailed, no upToDate, no readyToApply
    QCOMPARE(bench.events.at(7), u"log [update] baixando 0.2.0..."_s);
    QCOMPARE(bench.events.at(8), u"changed 0.2.0 available"_s);
    QCOMPARE(bench.files(), QStringList());
    QVERIFY(bench.updater.updateAvailable());

    // Nothing is staged, and the next check tries again.
    QVERIFY(!apply(bench.updater).answer);
    other.put(packagePath, answerOf(200, "a package"));
    QVERIFY(bench.check());
    QCOMPARE(bench.events.constLast(), u"readyToApply DIR/update/CORVANE-0.2.0.zip 0.2.0"_s);
}

void tst_UpdateTransport::packageServerNotBelieved_data()
{
    QTest::addColumn<Identity>("identity");

    QTest::newRow("authority that isn't trusted") << Identity::Stranger;
    QTest::newRow("expired certificate") << Identity::Expired;
    QTest::newRow("certificate of another host") << Identity::Elsewhere;
}

void tst_UpdateTransport::packageServerNotBelieved()
{
    QFETCH(const Identity, identity);

    HttpServer other(identity);
    other.put(packagePath, answerOf(200, "a package"));
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package",
                  [&](UpdateManifest &manifest) { manifest.url = other.url(packagePath); });
    QVERIFY(bench.check());

    QVERIFY2(bench.updater.status().startsWith("download falhou: SSL handshake failed: "_L1),
             qPrintable(bench.updater.status()));
    QCOMPARE(other.asked(), QStringList());
    QCOMPARE(bench.files(), QStringList());
}

void tst_UpdateTransport::packageRedirected_data()
{
    QTest::addColumn<Identity>("from");
    QTest::addColumn<Identity>("to");
    QTest::addColumn<bool>("followed");

    QTest::newRow("HTTPS to HTTPS") << Identity::Trusted << Identity::Trusted << true;
    QTest::newRow("HTTPS to plain HTTP") << Identity::Trusted << Identity::Plain << false;
    QTest::newRow("plain HTTP to HTTPS") << Identity::Plain << Identity::Trusted << true;
    QTest::newRow("plain HTTP to plain HTTP") << Identity::Plain << Identity::Plain << true;
}

void tst_UpdateTransport::packageRedirected()
{
    QFETCH(const Identity, from);
    QFETCH(const Identity, to);
    QFETCH(const bool, followed);

    HttpServer last(to);
    last.put(packagePath, answerOf(200, "a package"));
    HttpServer first(from);
    first.put(packagePath, redirect(302, last.url(packagePath)));
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package",
                  [&](UpdateManifest &manifest) { manifest.url = first.url(packagePath); });
    QVERIFY(bench.check());

    QCOMPARE(last.asked(), followed ? QStringList{packagePath} : QStringList());
    QCOMPARE(QFile::exists(bench.package(u"0.2.0"_s)), followed);
    if (!followed)
        QCOMPARE(bench.updater.status(), u"download falhou: Insecure redirect"_s);
}

void tst_UpdateTransport::slowPackage()
{
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package");
    bench.server.put(packagePath, answerOf(200, "a package", End::Held));
    bench.updater.checkNow();
    QVERIFY(waitUntil([&] { return bench.server.asked().contains(packagePath); }));
    passTimersOf(50);
    QCOMPARE(bench.updater.status(), u"baixando 0.2.0..."_s);
    QCOMPARE(bench.files(), QStringList()); // nothing is on disk before all of it is there
    QCOMPARE(timeOutsOf(bench.updater), QList<int>({0, 0}));

    // The button, pressed too early, does no harm.
    const Application early = apply(bench.updater);
    QVERIFY(!early.answer);
    QVERIFY(!early.quits);
    QCOMPARE(bench.updater.status(), u"nenhum update staged"_s);

    bench.server.release();
    QVERIFY(bench.settle());
    QCOMPARE(bench.events.constLast(), u"readyToApply DIR/update/CORVANE-0.2.0.zip 0.2.0"_s);
}

CORVANE_TEST(tst_UpdateTransport, QCoreApplication)
#include "tst_UpdateTransport.moc"
