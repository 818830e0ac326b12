#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/update/UpdateTestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// What becomes of a package on disk: verified and named in the ready file, or gone.
class tst_UpdateStaging : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void readyFile();
    void readyFileIsWrittenBeforeAnyoneHears();
    void digests_data();
    void digests();
    void digestIsMissedAfterTheDownload();
    void sameVersionAgain();
    void sameVersionThatFails_data();
    void sameVersionThatFails();
    void newerOneTakesOver();
    void failureLeavesTheStagedOne_data();
    void failureLeavesTheStagedOne();
    void updateDirectoryCannotBeMade();
    void packageCannotBeWritten();
    void diskIsFull();
#ifdef Q_OS_UNIX
    void packageCannotBeReadBack();
    void readingFails();
#endif
    void readyFileCannotBeWritten();
    void longerReadyFileIsReplaced();
    void manifestThatComesMeanwhile_data();
    void manifestThatComesMeanwhile();
};

namespace {

const auto readyName = u"runtime/update/update-ready.json"_s;
const auto packageName = u"runtime/update/CORVANE-0.2.0.zip"_s;

QByteArray readyText(const UpdateBench &bench, const QString &version)
{
    return u"{\"install_dir\":\"%1\",\"package\":\"%2\",\"version\":\"%3\"}"_s
        .arg(QCoreApplication::applicationDirPath(), bench.package(version), version)
        .toUtf8();
}

HttpAnswer answerWith(const QByteArray &body, HttpAnswer::End end = HttpAnswer::End::Orderly)
{
    HttpAnswer answer;
    answer.body = body;
    answer.end = end;
    return answer;
}

} // namespace

void tst_UpdateStaging::initTestCase()
{
    if (const QString problem = tlsProblem(); !problem.isEmpty())
        QSKIP(qPrintable(problem));
    trustTestAuthority();
}

void tst_UpdateStaging::init()
{
    pinKey({});
}

// --- Ready file

void tst_UpdateStaging::readyFile()
{
    UpdateBench bench;
    bench.publish(u"v0.2.0-rc1"_s, "a package");
    QVERIFY(bench.check());
    // With the version as the manifest has it, and nothing around the one line.
    QCOMPARE(bench.content(readyName), readyText(bench, u"v0.2.0-rc1"_s));
    QCOMPARE(bench.files(), QStringList({u"runtime/update/CORVANE-v0.2.0-rc1.zip"_s, readyName}));
}

void tst_UpdateStaging::readyFileIsWrittenBeforeAnyoneHears()
{
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package");
    QStringList seen;
    connect(&bench.updater, &UpdateChecker::changed, this, [&] {
        seen << bench.updater.status().section(u' ', 0, 0) + u' ' + QString::number(bench.files().size());
    });
    connect(&bench.updater, &UpdateChecker::readyToApply, this, [&] { seen << u"ready"_s; });
    QVERIFY(bench.check());
    QCOMPARE(seen.mid(seen.size() - 3),
             QStringList({u"baixando 0"_s, u"update 2"_s, u"ready"_s})); // both files, or none
}

// --- Digest

void tst_UpdateStaging::digests_data()
{
    QTest::addColumn<QString>("digest");
    QTest::addColumn<QString>("status");

    const QString good = sha256Of("a package");
    const QString noMatch = u"sha256 NÃO confere — pacote rejeitado"_s;
    const QString staged = u"update 0.2.0 baixado e validado — aplica na próxima janela segura"_s;
    QTest::newRow("lower case") << good << staged;
    QTest::newRow("upper case") << good.toUpper() << staged;
    QTest::newRow("none") << QString() << u"manifesto sem sha256 — pacote rejeitado"_s;
    QTest::newRow("of something else") << sha256Of("another") << noMatch;
    QTest::newRow("without its last digit") << good.chopped(1) << noMatch;
    QTest::newRow("with a digit more") << good + u'0' << noMatch;
    QTest::newRow("with a space before") << u' ' + good << noMatch;
    QTest::newRow("with a line feed behind") << good + u'\n' << noMatch;
    QTest::newRow("a space alone") << u" "_s << noMatch;
    QTest::newRow("no digits") << u"sha256"_s << noMatch;
}

void tst_UpdateStaging::digests()
{
    QFETCH(const QString, digest);
    QFETCH(const QString, status);

    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package", [&](UpdateManifest &manifest) { manifest.sha256 = digest; });
    QVERIFY(bench.check());

    QCOMPARE(bench.updater.status(), status);
    const bool staged = status.startsWith("update "_L1);
    QCOMPARE(bench.events.contains(readyEvent()), staged);
    QCOMPARE(bench.files(), staged ? QStringList({packageName, readyName}) : QStringList());
    QVERIFY(bench.updater.updateAvailable());
    QCOMPARE(bench.events.filter(u"checkFailed"_s), QStringList());
    QCOMPARE(bench.events.filter(u"upToDate"_s), QStringList());
}

void tst_UpdateStaging::digestIsMissedAfterTheDownload()
{
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package", [](UpdateManifest &manifest) { manifest.sha256.clear(); });
    QVERIFY(bench.check());
    QCOMPARE(bench.server.asked(), QStringList({u"/latest.json"_s, packagePath}));
    QCOMPARE(bench.events.mid(7),
             QStringList({u"log [update] baixando 0.2.0..."_s, u"changed 0.2.0 available"_s,
                          u"log [update] manifesto sem sha256 — pacote rejeitado"_s}));
}

// --- One after the other

void tst_UpdateStaging::sameVersionAgain()
{
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a first, longer package");
    QVERIFY(bench.check());
    bench.publish(u"0.2.0"_s, "a second");
    QVERIFY(bench.check());
    QCOMPARE(bench.content(packageName), QByteArray("a second"));
    QCOMPARE(bench.events.count(readyEvent()), 2);
}

void tst_UpdateStaging::sameVersionThatFails_data()
{
    QTest::addColumn<HttpAnswer>("package");
    QTest::addColumn<QString>("status");

    HttpAnswer gone;
    gone.status = 404;
    QTest::newRow("not there") << gone << u"download falhou: "_s;
    QTest::newRow("cut off") << answerWith("a pac", HttpAnswer::End::Cut) << u"download falhou: "_s;
    QTest::newRow("of another digest") << answerWith("another one") << u"sha256 NÃO confere"_s;
}

/// What lies there under its name was vouched for by an earlier manifest, and goes.
void tst_UpdateStaging::sameVersionThatFails()
{
    QFETCH(HttpAnswer, package);
    QFETCH(const QString, status);

    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package");
    QVERIFY(bench.check());
    QCOMPARE(bench.files(), QStringList({packageName, readyName}));

    if (package.end == HttpAnswer::End::Cut)
        package.announced = 9;
    bench.server.put(packagePath, package);
    QVERIFY(bench.check());
    QVERIFY2(bench.updater.status().startsWith(status), qPrintable(bench.updater.status()));
    QCOMPARE(bench.files(), QStringList{readyName});
    QCOMPARE(bench.events.count(readyEvent()), 1);
}

void tst_UpdateStaging::newerOneTakesOver()
{
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package");
    QVERIFY(bench.check());
    bench.publish(u"0.3.0"_s, "a newer one");
    QVERIFY(bench.check());
    QCOMPARE(bench.content(readyName), readyText(bench, u"0.3.0"_s));
    // The older package isn't tidied away.
    QCOMPARE(bench.files(), QStringList({packageName, u"runtime/update/CORVANE-0.3.0.zip"_s, readyName}));
}

void tst_UpdateStaging::failureLeavesTheStagedOne_data()
{
    QTest::addColumn<QString>("digest");
    QTest::addColumn<HttpAnswer>("package");

    HttpAnswer gone;
    gone.status = 404;
    QTest::newRow("digest of the newer one is wrong") << sha256Of("other") << answerWith("a newer one");
    QTest::newRow("newer one has no digest") << QString() << answerWith("a newer one");
    QTest::newRow("newer one isn't there") << sha256Of("a newer one") << gone;
}

void tst_UpdateStaging::failureLeavesTheStagedOne()
{
    QFETCH(const QString, digest);
    QFETCH(const HttpAnswer, package);

    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package");
    QVERIFY(bench.check());
    bench.publish(u"0.3.0"_s, "a newer one", [&](UpdateManifest &manifest) { manifest.sha256 = digest; });
    bench.server.put(packagePath, package);
    QVERIFY(bench.check());

    QCOMPARE(bench.files(), QStringList({packageName, readyName}));
    QCOMPARE(bench.content(packageName), QByteArray("a package"));
    QCOMPARE(bench.content(readyName), readyText(bench, u"0.2.0"_s));
    QVERIFY(apply(bench.updater).answer);
}

// --- Disk

void tst_UpdateStaging::updateDirectoryCannotBeMade()
{
    UpdateBench bench;
    QVERIFY(QDir().mkpath(bench.runtimeDir()));
    createFile(bench.runtimeDir() + "/update"_L1);
    bench.publish(u"0.2.0"_s, "a package");
    QVERIFY(bench.check());
    QCOMPARE(bench.updater.status(), u"não gravou "_s + bench.package(u"0.2.0"_s));
    QCOMPARE(bench.files(), QStringList{u"runtime/update"_s});
}

void tst_UpdateStaging::packageCannotBeWritten()
{
    UpdateBench bench;
    QVERIFY(QDir().mkpath(bench.package(u"0.2.0"_s)));
    bench.publish(u"0.2.0"_s, "a package");
    QVERIFY(bench.check());
    QCOMPARE(bench.updater.status(), u"não gravou "_s + bench.package(u"0.2.0"_s));
    QVERIFY(QFileInfo(bench.package(u"0.2.0"_s)).isDir()); // nothing was written, nothing is removed
    QVERIFY(!bench.events.contains(readyEvent()));
}

void tst_UpdateStaging::diskIsFull()
{
    if (!QFile::exists(u"/dev/full"_s))
        QSKIP("no device that is always full");
    UpdateBench bench;
    QVERIFY(QDir().mkpath(bench.runtimeDir() + "/update"_L1));
    QVERIFY(QFile::link(u"/dev/full"_s, bench.package(u"0.2.0"_s)));
    bench.publish(u"0.2.0"_s, QByteArray(100'000, 'p'));
    QVERIFY(bench.check());
    QCOMPARE(bench.updater.status(), u"erro ao gravar pacote"_s);
    QCOMPARE(bench.files(), QStringList());
    QVERIFY(QFile::exists(u"/dev/full"_s));
}

#ifdef Q_OS_UNIX
void tst_UpdateStaging::packageCannotBeReadBack()
{
    UpdateBench bench;
    QVERIFY(QDir().mkpath(bench.runtimeDir() + "/update"_L1));
    {
        const Unprivileged user;
        createFile(bench.package(u"0.2.0"_s));
        QVERIFY(QFile::setPermissions(bench.package(u"0.2.0"_s), QFile::WriteOwner));
        bench.publish(u"0.2.0"_s, "a package");
        QVERIFY(bench.check());
    }
    QCOMPARE(bench.updater.status(), u"não abriu p/ hash"_s);
    QCOMPARE(bench.files(), QStringList());
    QVERIFY(!bench.events.contains(readyEvent()));
}

void tst_UpdateStaging::readingFails()
{
    // A file that takes a 5 and can't be read; who isn't root can't even open it for that.
    const QString unreadable = u"/proc/self/clear_refs"_s;
    if (!QFile::exists(unreadable))
        QSKIP("no such file on this system");
    UpdateBench bench;
    QVERIFY(QDir().mkpath(bench.runtimeDir() + "/update"_L1));
    QVERIFY(QFile::link(unreadable, bench.package(u"0.2.0"_s)));
    const bool opens = QFile(unreadable).open(QIODevice::ReadOnly);
    bench.publish(u"0.2.0"_s, "5");
    QVERIFY(bench.check());
    QCOMPARE(bench.updater.status(), opens ? u"falha no hash"_s : u"não abriu p/ hash"_s);
    QCOMPARE(bench.files(), QStringList());
    QVERIFY(!bench.events.contains(readyEvent()));
}
#endif

void tst_UpdateStaging::readyFileCannotBeWritten()
{
    UpdateBench bench;
    QVERIFY(QDir().mkpath(bench.runtimeDir() + "/update/update-ready.json"_L1));
    bench.publish(u"0.2.0"_s, "a package");
    QVERIFY(bench.check());
    // The run goes on as if it were there.
    QCOMPARE(bench.events.constLast(), readyEvent());
    QVERIFY(apply(bench.updater).quits);
}

void tst_UpdateStaging::longerReadyFileIsReplaced()
{
    UpdateBench bench;
    QVERIFY(QDir().mkpath(bench.runtimeDir() + "/update"_L1));
    QFile earlier(bench.runtimeDir() + "/update/update-ready.json"_L1);
    QVERIFY(earlier.open(QIODevice::WriteOnly));
    earlier.write(QByteArray(5000, 'x'));
    earlier.close();
    bench.publish(u"0.2.0"_s, "a package");
    QVERIFY(bench.check());
    QCOMPARE(bench.content(readyName), readyText(bench, u"0.2.0"_s));
}

// --- Checks that overlap

void tst_UpdateStaging::manifestThatComesMeanwhile_data()
{
    QTest::addColumn<QByteArray>("manifest");

    // Nothing vouches for any of these, and the package under way has been vouched for.
    QTest::newRow("no manifest") << QByteArray("<html>");
    QTest::newRow("of the running version") << QByteArray(R"({"version":"0.1.0"})");
    QTest::newRow("with the digest of something else")
        << QByteArray(R"({"version":"0.1.0","platforms":{"windows-x64":{"url":"u","sha256":")" +
                      sha256Of("something else").toLatin1() + "\"}}}");
}

void tst_UpdateStaging::manifestThatComesMeanwhile()
{
    QFETCH(const QByteArray, manifest);

    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package");
    bench.server.put(packagePath, answerWith("a package", HttpAnswer::End::Held));
    bench.updater.checkNow();
    QVERIFY(waitUntil([&] { return bench.server.asked().contains(packagePath); }));

    bench.publishText(manifest);
    bench.updater.checkNow();
    QVERIFY(waitUntil([&] { return bench.server.asked().count(u"/latest.json"_s) == 2; }));
    QVERIFY(waitUntil([&] {
        return bench.events.contains(u"upToDate"_s) || !bench.events.filter(u"checkFailed"_s).isEmpty();
    }));

    bench.server.release();
    QVERIFY(bench.settle());
    QCOMPARE(bench.events.constLast(), readyEvent());
    QCOMPARE(bench.content(packageName), QByteArray("a package"));
    QCOMPARE(bench.content(readyName), readyText(bench, u"0.2.0"_s));
}

CORVANE_TEST(tst_UpdateStaging, QCoreApplication)
#include "tst_UpdateStaging.moc"
