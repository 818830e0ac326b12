#include "tests/support/Runner.h"
#include "tests/update/UpdateTestSupport.h"

#include <QDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// A publisher, or whoever speaks in his name, who writes versions that lead elsewhere.
class tst_UpdateHostile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void versionsThatLeadElsewhere_data();
    void versionsThatLeadElsewhere();
    void filesInTheirWay_data();
    void filesInTheirWay();
    void oddButHarmless_data();
    void oddButHarmless();
    void largeManifest();
    void manifestBeyondAllMeasure_data();
    void manifestBeyondAllMeasure();
    void deepManifest();
};

void tst_UpdateHostile::initTestCase()
{
    if (const QString problem = tlsProblem(); !problem.isEmpty())
        QSKIP(qPrintable(problem));
    trustTestAuthority();
}

void tst_UpdateHostile::init()
{
    pinKey({});
}

void tst_UpdateHostile::versionsThatLeadElsewhere_data()
{
    QTest::addColumn<QString>("version");

    QTest::newRow("slash") << u"0.2.0/x"_s;
    QTest::newRow("slash alone") << u"9.0/"_s;
    QTest::newRow("up one") << u"9.0/../x"_s;
    QTest::newRow("up two") << u"9.0/../../x"_s;
    QTest::newRow("up three") << u"9.0/../../../x"_s;
    QTest::newRow("up to the root") << u"9.0/../../../../../../../../../../../../tmp/x"_s;
    QTest::newRow("an absolute path") << u"9.0//etc/x"_s;
    QTest::newRow("backslash") << u"9.0\\x"_s;
    QTest::newRow("up, backslashes") << u"9.0\\..\\..\\x"_s;
    QTest::newRow("up, both") << u"9.0\\../..\\x"_s;
    QTest::newRow("drive letter") << u"9.0C:x"_s;
    QTest::newRow("drive letter and path") << u"9.0/C:\\Windows\\x"_s;
    QTest::newRow("another stream of the file") << u"9.0:x"_s;
    QTest::newRow("a share") << u"9.0\\\\host\\share\\x"_s;
    QTest::newRow("NUL") << QString(u"9.0"_s + QChar(0) + u"x"_s);
    QTest::newRow("NUL before a way up") << QString(u"9.0"_s + QChar(0) + u"/../../x"_s);
    QTest::newRow("line feed") << u"9.0\nx"_s;
    QTest::newRow("5,000 characters") << u"9."_s + QString(4998, u'1');
    QTest::newRow("5,000 ways up") << u"9.0"_s + u"/.."_s.repeated(1666) + u"/x"_s;
}

void tst_UpdateHostile::versionsThatLeadElsewhere()
{
    QFETCH(const QString, version);

    UpdateBench bench;
    // Directories that would let a way up lead somewhere.
    QVERIFY(QDir().mkpath(bench.runtimeDir() + "/update/CORVANE-9.0"_L1));
    bench.publish(version, "a package");
    QVERIFY(bench.check());

    QCOMPARE(bench.updater.latestVersion(), version);
    QCOMPARE(bench.updater.status(), u"não gravou "_s + bench.package(version));
    QCOMPARE(bench.files(), QStringList());
    QCOMPARE(bench.events.filter(u"readyToApply"_s), QStringList());
    QCOMPARE(bench.events.filter(u"checkFailed"_s), QStringList());
    QVERIFY(!apply(bench.updater).answer);
}

void tst_UpdateHostile::filesInTheirWay_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("victim"); // as a file below the directory above the runtime directory

    QTest::newRow("beside the package") << u"9.0/../victim"_s << u"runtime/update/victim.zip"_s;
    QTest::newRow("in the runtime directory") << u"9.0/../../victim"_s << u"runtime/victim.zip"_s;
    QTest::newRow("above it") << u"9.0/../../../victim"_s << u"victim.zip"_s;
    QTest::newRow("in the directory of the version")
        << u"9.0/victim"_s << u"runtime/update/CORVANE-9.0/victim.zip"_s;
}

void tst_UpdateHostile::filesInTheirWay()
{
    QFETCH(const QString, version);
    QFETCH(const QString, victim);

    for (const int status : {200, 404}) { // to be written over, to be removed
        UpdateBench bench;
        QVERIFY(QDir().mkpath(bench.runtimeDir() + "/update/CORVANE-9.0"_L1));
        const QString path = QDir::cleanPath(bench.runtimeDir() + "/../"_L1 + victim);
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("untouched");
        file.close();

        bench.publish(version, "a package");
        HttpAnswer answer;
        answer.body = "a package";
        answer.status = status;
        bench.server.put(u"/package.zip"_s, answer);
        QVERIFY(bench.check());

        QCOMPARE(bench.files(), QStringList{victim});
        QCOMPARE(bench.content(victim), QByteArray("untouched"));
    }
}

void tst_UpdateHostile::oddButHarmless_data()
{
    QTest::addColumn<QString>("version");

    QTest::newRow("points") << u"9..."_s;
    QTest::newRow("a space") << u"9.0 beta"_s;
    QTest::newRow("accents") << u"9-versão"_s;
    QTest::newRow("what a shell would read") << u"9.0;$(x)`x`&'\""_s;
    QTest::newRow("percent signs") << u"9.0%1%2%00%2F"_s;
}

void tst_UpdateHostile::oddButHarmless()
{
    QFETCH(const QString, version);
#ifdef Q_OS_WIN
    if (version.contains(u'"'))
        QSKIP("no character of a file name here");
#endif
    UpdateBench bench;
    bench.publish(version, "a package");
    QVERIFY(bench.check());
    QCOMPARE(bench.events.constLast(), u"readyToApply DIR/update/CORVANE-%1.zip %1"_s.arg(version));
    QCOMPARE(bench.files(), QStringList({"runtime/update/CORVANE-"_L1 + version + ".zip"_L1,
                                         u"runtime/update/update-ready.json"_s}));
}

void tst_UpdateHostile::largeManifest()
{
    UpdateBench bench;
    bench.publishText("{\"more\":\"" + QByteArray(20'000'000, 'm') + "\",\"version\":\"0.1.0\"}");
    QVERIFY(bench.check());
    QCOMPARE(bench.events.constLast(), u"upToDate"_s);
}

void tst_UpdateHostile::manifestBeyondAllMeasure_data()
{
    QTest::addColumn<int>("bytes");
    QTest::addColumn<bool>("ends");
    QTest::addColumn<bool>("taken");
    constexpr int limit = 64 << 20;
    QTest::newRow("up to the limit") << limit << true << true;
    QTest::newRow("beyond it") << limit + 1 << true << false;
    QTest::newRow("without an end") << 2 * limit + 65'536 << false << false;
}

void tst_UpdateHostile::manifestBeyondAllMeasure()
{
    QFETCH(const int, bytes);
    QFETCH(const bool, ends);
    QFETCH(const bool, taken);

    UpdateBench bench;
    HttpAnswer answer;
    answer.body = R"({"version":"0.1.0"})";
    answer.body.append(bytes - answer.body.size(), ' ');
    answer.end = ends ? HttpAnswer::End::Orderly : HttpAnswer::End::Held; // at its half
    bench.server.put(u"/latest.json"_s, answer);
    QVERIFY(bench.check());
    if (taken) {
        QCOMPARE(bench.events.constLast(), u"upToDate"_s);
        return;
    }
    QCOMPARE(bench.updater.status(), u"manifesto inválido: mais de 64 MiB"_s);
    QCOMPARE(bench.events.mid(2),
             QStringList({u"changed"_s, u"log [update] manifesto inválido: mais de 64 MiB"_s,
                          u"checkFailed mais de 64 MiB"_s}));
    QCOMPARE(bench.updater.latestVersion(), QString());

    // The next check is one like any other.
    bench.publish(u"0.2.0"_s, "a package");
    QVERIFY(bench.check());
    QCOMPARE(bench.events.constLast(), readyEvent());
}

void tst_UpdateHostile::deepManifest()
{
    UpdateBench bench;
    bench.publishText("{\"version\":\"0.2.0\",\"platforms\":" + QByteArray(100'000, '[') + '}');
    QVERIFY(bench.check());
    QVERIFY2(bench.updater.status().startsWith(u"manifesto inválido: JSON inválido: "_s),
             qPrintable(bench.updater.status()));
}

CORVANE_TEST(tst_UpdateHostile, QCoreApplication)
#include "tst_UpdateHostile.moc"
