#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/update/UpdateTestSupport.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// From the call of a check to its answer, over HTTPS: every way in which one ends, word by word.
class tst_UpdateCheck : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void wholeRoad();
    void nothingToDo_data();
    void nothingToDo();
    void badManifests_data();
    void badManifests();
    void badManifestLeavesWhatWasKnown();
    void refusedSignature();
    void withdrawnUpdate();
    void storedFieldsDecideNothing_data();
    void storedFieldsDecideNothing();
    void everyCheckAsksAnew();
    void overlappingChecks();
    void gone();
};

namespace {

const auto checking = u"log [update] checando atualizações..."_s;
const auto unpinned = u"log [update] ed25519 desativado (sem chave pinada) — usando HTTPS+sha256"_s;

} // namespace

void tst_UpdateCheck::initTestCase()
{
    if (const QString problem = tlsProblem(); !problem.isEmpty())
        QSKIP(qPrintable(problem));
    trustTestAuthority();
}

void tst_UpdateCheck::init()
{
    pinKey({});
}

void tst_UpdateCheck::wholeRoad()
{
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package");
    QVERIFY(bench.check());

    QCOMPARE(bench.events,
             QStringList({
                 u"changed"_s,
                 checking,
                 u"changed 0.2.0 available"_s,
                 unpinned,
                 u"changed 0.2.0 available"_s,
                 u"log [update] nova versão disponível: 0.2.0 — baixando..."_s,
                 u"changed 0.2.0 available"_s,
                 u"log [update] baixando 0.2.0..."_s,
                 u"changed 0.2.0 available"_s,
                 u"log [update] update 0.2.0 baixado e validado — aplica na próxima janela segura"_s,
                 u"readyToApply DIR/update/CORVANE-0.2.0.zip 0.2.0"_s,
             }));
    QCOMPARE(bench.updater.status(), u"update 0.2.0 baixado e validado — aplica na próxima janela segura"_s);
    QCOMPARE(bench.server.asked(), QStringList({u"/latest.json"_s, u"/package.zip"_s}));
    QCOMPARE(bench.files(),
             QStringList({u"runtime/update/CORVANE-0.2.0.zip"_s, u"runtime/update/update-ready.json"_s}));
    QCOMPARE(bench.content(u"runtime/update/CORVANE-0.2.0.zip"_s), QByteArray("a package"));
}

void tst_UpdateCheck::nothingToDo_data()
{
    QTest::addColumn<QByteArray>("manifest");
    QTest::addColumn<QString>("latest");
    QTest::addColumn<QString>("before"); // what the status says on the way

    const QByteArray package = R"("platforms":{"windows-x64":{"url":"https://127.0.0.1:1/p","sha256":"00"}})";
    const auto row = [&](const char *name, const QByteArray &version) {
        QTest::newRow(name) << QByteArray(R"({"version":")" + version + "\"," + package + '}')
                            << QString::fromUtf8(version) << QString();
    };
    row("the running version", "0.1.0");
    row("the running version with a v", "v0.1.0");
    row("two numbers", "0.1");
    row("a pre-release of it", "0.1.0-rc1");
    row("a fourth number", "0.1.0.9");
    row("an older one, which is named all the same", "0.0.9");
    row("no version at all", "abc");

    const auto packageless = [](const char *name, const QByteArray &platforms) {
        QTest::newRow(name) << QByteArray(R"({"version":"0.2.0")" + platforms + '}') << u"0.2.0"_s
                            << u"log [update] nova versão 0.2.0 mas sem pacote p/ windows-x64"_s;
    };
    packageless("newer, no platforms", {});
    packageless("newer, for another platform", R"(,"platforms":{"linux-x64":{"url":"u","sha256":"d"}})");
    packageless("newer, an empty address", R"(,"platforms":{"windows-x64":{"url":"","sha256":"d"}})");
}

void tst_UpdateCheck::nothingToDo()
{
    QFETCH(const QByteArray, manifest);
    QFETCH(const QString, latest);
    QFETCH(const QString, before);

    UpdateBench bench;
    bench.publishText(manifest);
    QVERIFY(bench.check());

    QStringList expected{u"changed"_s, checking};
    if (!before.isEmpty())
        expected << "changed %1 available"_L1.arg(latest) << before;
    expected << u"changed "_s + latest << u"changed "_s + latest << u"log [update] já atualizado (0.1.0)"_s
             << u"upToDate"_s;
    QCOMPARE(bench.events, expected);
    QCOMPARE(bench.updater.status(), u"já atualizado (0.1.0)"_s);
    QCOMPARE(bench.server.asked(), QStringList{u"/latest.json"_s});
    QVERIFY(!QFile::exists(bench.runtimeDir()));
}

void tst_UpdateCheck::badManifests_data()
{
    QTest::addColumn<QByteArray>("manifest");
    QTest::addColumn<QString>("error");

    QTest::newRow("nothing") << QByteArray() << u"JSON inválido: illegal value"_s;
    QTest::newRow("a page") << QByteArray("<!DOCTYPE html><title>Login</title>")
                            << u"JSON inválido: illegal value"_s;
    QTest::newRow("a list") << QByteArray("[]") << u"JSON inválido: no error occurred"_s;
    QTest::newRow("no version") << QByteArray(R"({"platforms":{}})") << u"campo 'version' ausente"_s;
}

void tst_UpdateCheck::badManifests()
{
    QFETCH(const QByteArray, manifest);
    QFETCH(const QString, error);

    UpdateBench bench;
    bench.publishText(manifest);
    QVERIFY(bench.check());

    QCOMPARE(bench.events,
             QStringList({u"changed"_s, checking, u"changed"_s,
                          u"log [update] manifesto inválido: "_s + error, u"checkFailed "_s + error}));
    QCOMPARE(bench.server.asked(), QStringList{u"/latest.json"_s});
}

void tst_UpdateCheck::badManifestLeavesWhatWasKnown()
{
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package");
    QVERIFY(bench.check());
    bench.publishText("{}");
    QVERIFY(bench.check());
    QVERIFY(bench.updater.updateAvailable());
    QCOMPARE(bench.updater.latestVersion(), u"0.2.0"_s);

    // But its package is that of the last manifest, and that has none.
    bench.events.clear();
    bench.updater.downloadAndStage();
    QCOMPARE(bench.events, QStringList({u"changed 0.2.0 available"_s, u"log [update] nada para baixar"_s}));
}

void tst_UpdateCheck::refusedSignature()
{
    pinKey(Publisher().key());
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package");
    QVERIFY(bench.check());

    QCOMPARE(bench.events,
             QStringList({u"changed"_s, checking, u"changed 0.2.0 available"_s, u"changed 0.2.0 available"_s,
                          u"log [update] manifesto sem assinatura ed25519 válida — rejeitado"_s,
                          u"changed 0.2.0"_s, u"checkFailed assinatura ed25519 inválida"_s}));
    QCOMPARE(bench.updater.status(), u"manifesto sem assinatura ed25519 válida — rejeitado"_s);
    QVERIFY(!bench.updater.updateAvailable());
    QCOMPARE(bench.server.asked(), QStringList{u"/latest.json"_s});

    bench.updater.downloadAndStage();
    QCOMPARE(bench.updater.status(), u"nada para baixar"_s);
    QVERIFY(!QFile::exists(bench.runtimeDir()));
}

void tst_UpdateCheck::withdrawnUpdate()
{
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package");
    QVERIFY(bench.check());
    bench.publish(u"0.1.0"_s, "the running one");
    QVERIFY(bench.check());

    QVERIFY(!bench.updater.updateAvailable());
    QCOMPARE(bench.updater.latestVersion(), u"0.1.0"_s);
    QVERIFY(QFile::exists(bench.package(u"0.2.0"_s))); // what is staged stays so
    const Application application = apply(bench.updater);
    QVERIFY(application.answer);
}

void tst_UpdateCheck::storedFieldsDecideNothing_data()
{
    QTest::addColumn<QString>("minVersion");
    QTest::addColumn<int>("rollout");
    QTest::addColumn<QString>("minOs");

    QTest::newRow("rollout of none") << u"0.1.0"_s << 0 << QString();
    QTest::newRow("rollout below none") << u"0.1.0"_s << -1 << QString();
    QTest::newRow("least version above the running one") << u"0.1.9"_s << 100 << QString();
    QTest::newRow("a system that doesn't exist yet") << u"0.1.0"_s << 100 << u"99.0"_s;
}

void tst_UpdateCheck::storedFieldsDecideNothing()
{
    QFETCH(const QString, minVersion);
    QFETCH(const int, rollout);
    QFETCH(const QString, minOs);

    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package", [&](UpdateManifest &manifest) {
        manifest.min_version = minVersion;
        manifest.rollout_percent = rollout;
        manifest.min_os = minOs;
    });
    QVERIFY(bench.check());
    QCOMPARE(bench.events.constLast(), u"readyToApply DIR/update/CORVANE-0.2.0.zip 0.2.0"_s);
}

void tst_UpdateCheck::everyCheckAsksAnew()
{
    UpdateBench bench;
    QVERIFY(bench.check()); // nothing is published yet
    QVERIFY(bench.events.constLast().startsWith("checkFailed"_L1));
    bench.publish(u"0.1.0"_s, "the running one");
    QVERIFY(bench.check());
    QCOMPARE(bench.events.constLast(), u"upToDate"_s);
    bench.publish(u"0.2.0"_s, "a package");
    QVERIFY(bench.check());
    QVERIFY(bench.events.constLast().startsWith("readyToApply"_L1));
    QVERIFY(bench.check()); // fetched and staged again
    QCOMPARE(bench.events.filter(u"readyToApply"_s).size(), 2);
    QCOMPARE(bench.server.asked().count(u"/latest.json"_s), 4);
    QCOMPARE(bench.server.asked().count(u"/package.zip"_s), 2);
}

void tst_UpdateCheck::overlappingChecks()
{
    UpdateBench bench;
    bench.publish(u"0.1.0"_s, "the running one");
    bench.updater.checkNow();
    bench.updater.checkNow();
    QVERIFY(bench.settle());
    QCOMPARE(bench.events.count(checking), 2);
    QCOMPARE(bench.events.count(u"upToDate"_s), 2);
}

void tst_UpdateCheck::gone()
{
    // An updater that goes while it asks leaves nothing that could come back to it.
    HttpServer server(HttpServer::Identity::Trusted);
    HttpAnswer held;
    held.body = "{\"version\":\"0.2.0\"}";
    held.end = HttpAnswer::End::Held;
    server.put(u"/latest.json"_s, held);
    {
        const QTemporaryDir directory;
        UpdateChecker updater(u"0.1.0"_s, server.url(u"/latest.json"_s), directory.path());
        updater.checkNow();
        QVERIFY(waitUntil([&] { return !server.asked().isEmpty(); }));
    }
    server.release();
    UpdateBench other;
    QVERIFY(other.check());
    QVERIFY(!other.events.isEmpty());
}

CORVANE_TEST(tst_UpdateCheck, QCoreApplication)
#include "tst_UpdateCheck.moc"
