#include "tests/guardian/GuardedFolder.h"
#include "tests/support/Files.h"
#include "tests/support/HttpServer.h"
#include "tests/support/ProgramSandbox.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tools/publish/PublishKey.h"
#include "tools/publish/SignedManifest.h"
#include "update/UpdateFiles.h"
#include "update/UpdateManifest.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

/// The key whose public half these builds pin: the first vector of RFC 8032.
PublishKey pinnedKey()
{
    return PublishKey::fromSeed(
        QByteArray::fromHex("9d61b19deffd5a60ba844af492ec2cc44449c5697b326919703bac031cae7f60"));
}

QString pinnedBuild(const QString &path)
{
    return QStringLiteral(CORVANE_VERSIONS) + u'/' + path;
}

/// The manifest of a package, signed by "publisher", by "another", or by nobody.
QByteArray manifestBy(const QString &signer, const QString &version, const QByteArray &package,
                      const QString &url)
{
    UpdateManifest manifest;
    manifest.version = version;
    manifest.url = url;
    manifest.sha256 =
        QString::fromLatin1(QCryptographicHash::hash(package, QCryptographicHash::Sha256).toHex());
    if (signer.isEmpty())
        return manifestText(manifest);
    return manifestText(
        signedManifest(manifest, signer == "publisher"_L1 ? pinnedKey() : PublishKey::generate()));
}

HttpAnswer answerOf(const QByteArray &body)
{
    HttpAnswer answer;
    answer.body = body;
    return answer;
}

} // namespace

/// Program and guardian as a publisher builds them, with a key pinned, and manifests that aren't the
/// publisher's or are old ones.
class tst_PinnedKey : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void program_data();
    void program();
    void guardian_data();
    void guardian();
};

void tst_PinnedKey::initTestCase()
{
    if (const QString problem = tlsProblem(); !problem.isEmpty())
        QSKIP(qPrintable(problem));
}

void tst_PinnedKey::program_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("signer");
    QTest::addColumn<bool>("taken");
    QTest::newRow("the publisher's") << u"0.2.0"_s << u"publisher"_s << true;
    QTest::newRow("unsigned") << u"0.2.0"_s << QString() << false;
    QTest::newRow("somebody else's") << u"0.2.0"_s << u"another"_s << false;
    QTest::newRow("an old one of the publisher's") << u"0.0.9"_s << u"publisher"_s << false;
}

/// 0.1.0 fetches the package, or goes on as if there were none.
void tst_PinnedKey::program()
{
    QFETCH(const QString, version);
    QFETCH(const QString, signer);
    QFETCH(const bool, taken);
    const QByteArray package(1000, 'p');
    HttpServer server(HttpServer::Identity::Trusted);
    server.put(u"/latest.json"_s, answerOf(manifestBy(signer, version, package, server.url(u"/p.zip"_s))));
    server.put(u"/p.zip"_s, answerOf(package));
    ProgramSandbox sandbox;
    writeFile(sandbox.path(u"ca.pem"_s), testAuthority());
    QProcessEnvironment environment = sandbox.environment();
    environment.insert(u"CORVANE_UPDATE_FEED"_s, server.url(u"/latest.json"_s));
    environment.insert(u"CORVANE_DEMO_AUTHORITY"_s, sandbox.path(u"ca.pem"_s));
    environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    QProcess program;
    program.setProcessEnvironment(environment);
    program.start(pinnedBuild(u"0.1.0/corvane"_s), QStringList());
    QVERIFY(waitUntil([&] { return server.asked().contains("/latest.json"_L1); }, 60'000));

    if (taken) {
        QVERIFY(waitUntil([&] { return program.state() == QProcess::NotRunning; }));
        QVERIFY(QFile::exists(applyRequestPath(sandbox.runtimeDir())));
        return;
    }
    // The answer has been dealt with long before two beats have passed.
    const QByteArray beat = contentsOf(sandbox.runtimeDir() + "/.heartbeat"_L1);
    QByteArray next;
    QVERIFY(waitUntil([&] {
        next = contentsOf(sandbox.runtimeDir() + "/.heartbeat"_L1);
        return !next.isEmpty() && next != beat;
    }));
    QVERIFY(waitUntil([&] {
        const QByteArray last = contentsOf(sandbox.runtimeDir() + "/.heartbeat"_L1);
        return !last.isEmpty() && last != next;
    }));
    QCOMPARE(server.asked(), QStringList{u"/latest.json"_s});
    QCOMPARE(program.state(), QProcess::Running);
    QVERIFY(!QFile::exists(updateDirectory(sandbox.runtimeDir())));
    program.kill();
    QVERIFY(program.waitForFinished());
}

void tst_PinnedKey::guardian_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("signer");
    QTest::addColumn<QByteArray>("line");
    const QByteArray unsignedLine = "refused: the feed's manifest doesn't bear the publisher's signature";
    QTest::newRow("the publisher's") << u"0.2.0"_s << u"publisher"_s << QByteArray("version 0.2.0 is up");
    QTest::newRow("unsigned") << u"0.2.0"_s << QString() << unsignedLine;
    QTest::newRow("somebody else's") << u"0.2.0"_s << u"another"_s << unsignedLine;
    QTest::newRow("an old one of the publisher's")
        << u"0.0.9"_s << u"publisher"_s
        << QByteArray("refused: version 0.0.9 is staged, and 0.1.0 is installed");
}

/// Marks that ask for what the feed offers, whoever left them.
void tst_PinnedKey::guardian()
{
    QFETCH(const QString, version);
    QFETCH(const QString, signer);
    QFETCH(const QByteArray, line);
    const GuardedFolder folder;
    folder.stage(version.toLatin1(), GuardedFolder::packageOf(version.toLatin1(), "beats"));
    folder.request();
    HttpServer server(HttpServer::Identity::Trusted);
    server.put(u"/latest.json"_s,
               answerOf(manifestBy(signer, version, contentsOf(folder.stagedPath(version.toLatin1())),
                                   server.url(u"/p.zip"_s))));
    writeFile(folder.path(u"ca.pem"_s), testAuthority());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"CORVANE_UPDATE_FEED"_s, server.url(u"/latest.json"_s));
    environment.insert(u"CORVANE_DEMO_AUTHORITY"_s, folder.path(u"ca.pem"_s));
    QProcess guardian;
    guardian.setProcessEnvironment(environment);
    guardian.start(pinnedBuild(u"guardian/corvane-guardian"_s),
                   {u"--install-dir"_s, folder.path(u"app"_s), u"--runtime-dir"_s, folder.runtimeDir()});
    const auto log = [&] { return contentsOf(folder.installation().log()); };
    QVERIFY2(waitUntil([&] { return log().contains(line); }), log().constData());
    QVERIFY(waitUntil([&] { return !folder.starts().isEmpty(); }));
    folder.order(u"quit"_s);
    QVERIFY(guardian.waitForFinished());
}

CORVANE_TEST(tst_PinnedKey, QCoreApplication)
#include "tst_PinnedKey.moc"
