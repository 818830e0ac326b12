#include "tests/support/Runner.h"
#include "tools/publish/PublishKey.h"
#include "tools/publish/SignedManifest.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

PublishKey knownKey()
{
    return PublishKey::fromSeed(
        QByteArray::fromHex("9d61b19deffd5a60ba844af492ec2cc44449c5697b326919703bac031cae7f60"));
}

UpdateManifest offered()
{
    UpdateManifest manifest;
    manifest.version = u"0.2.0"_s;
    manifest.url = u"https://host.example/CORVANE-0.2.0.zip"_s;
    manifest.sha256 = u"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"_s;
    return manifest;
}

} // namespace

/// What sign writes, read as the program reads it.
class tst_SignedManifest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void theSignatureIsThatOfTheMessage();
    void theProgramReadsWhatIsWritten();
    void thePageOfNotesMayBeLeftOut();
    void aChangedFieldBreaksTheSignature_data();
    void aChangedFieldBreaksTheSignature();
    void versions_data();
    void versions();
    void urls_data();
    void urls();
};

void tst_SignedManifest::theSignatureIsThatOfTheMessage()
{
    // Made by another implementation, from the five lines of the message.
    QCOMPARE(signedManifest(offered(), knownKey()).ed25519_sig,
             u"jikrATs8+s8JFcpp0Lqh9/jpHD71o1+4UvSyPyQIuFqDmQlKfLr2S6/rd06ZF2Lms0793OObivkwrPyvJFGoAg=="_s);
}

void tst_SignedManifest::theProgramReadsWhatIsWritten()
{
    UpdateManifest manifest = offered();
    manifest.notes_url = u"https://host.example/notas"_s;
    const UpdateManifest read =
        parseManifest(manifestText(signedManifest(manifest, knownKey())), platformKey);
    QVERIFY(read.valid);
    QVERIFY(read.hasPackage);
    QCOMPARE(read.version, u"0.2.0"_s);
    QCOMPARE(read.url, u"https://host.example/CORVANE-0.2.0.zip"_s);
    QCOMPARE(read.sha256, u"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"_s);
    QCOMPARE(read.notes_url, u"https://host.example/notas"_s);
    QCOMPARE(read.rollout_percent, 100);
    QVERIFY(manifestIsSigned(read, knownKey().publicKey()));
    QVERIFY(!manifestIsSigned(read, PublishKey::generate().publicKey()));
}

void tst_SignedManifest::thePageOfNotesMayBeLeftOut()
{
    const QJsonObject json = QJsonDocument::fromJson(manifestText(offered())).object();
    QCOMPARE(json.keys(), QStringList({u"platforms"_s, u"version"_s}));
    QCOMPARE(json[u"platforms"_s].toObject().keys(), QStringList{u"windows-x64"_s});
}

void tst_SignedManifest::aChangedFieldBreaksTheSignature_data()
{
    QTest::addColumn<QByteArray>("from");
    QTest::addColumn<QByteArray>("to");
    QTest::addColumn<bool>("holds");
    QTest::newRow("nothing") << QByteArray("0.2.0") << QByteArray("0.2.0") << true;
    QTest::newRow("version") << QByteArray("\"0.2.0\"") << QByteArray("\"0.3.0\"") << false;
    QTest::newRow("url") << QByteArray("host.example") << QByteArray("evil.example") << false;
    QTest::newRow("digest") << QByteArray("ba7816") << QByteArray("ba7817") << false;
    QTest::newRow("letter case of the digest") << QByteArray("ba7816") << QByteArray("BA7816") << false;
    QTest::newRow("page of notes, which isn't signed")
        << QByteArray("/notas") << QByteArray("/notes") << true;
}

void tst_SignedManifest::aChangedFieldBreaksTheSignature()
{
    QFETCH(const QByteArray, from);
    QFETCH(const QByteArray, to);
    QFETCH(const bool, holds);
    UpdateManifest manifest = offered();
    manifest.notes_url = u"https://host.example/notas"_s;
    QByteArray text = manifestText(signedManifest(manifest, knownKey()));
    QVERIFY(text.contains(from));
    text.replace(from, to);
    QCOMPARE(manifestIsSigned(parseManifest(text, platformKey), knownKey().publicKey()), holds);
}

void tst_SignedManifest::versions_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<bool>("good");
    for (const char *good : {"1", "0.2.0", "v1.2.3", "1.2.0-rc1", "1.2.0-rc1+build.7", "1.999999999"})
        QTest::newRow(good) << QString::fromLatin1(good) << true;
    for (const char *bad : {"", "rc1", "1.", ".1", "1..2", "1/2", "1\\2", "../1", "C:1", "1.0-", "1.0 ",
                            "1.0\n", "1.0-é", "1.2.0+build.7", "1.2.3.4", "1.9999999999"})
        QTest::newRow(qPrintable("bad: "_L1 + QString::fromUtf8(bad))) << QString::fromUtf8(bad) << false;
    QTest::newRow("64 characters") << "1-"_L1 + QString(62, u'a') << true;
    QTest::newRow("bad: 65 characters") << "1-"_L1 + QString(63, u'a') << false;
    QTest::newRow("bad: 5,000 digits") << QString(5000, u'1') << false;
}

void tst_SignedManifest::versions()
{
    QFETCH(const QString, version);
    QTEST(versionProblem(version).isEmpty(), "good");
}

void tst_SignedManifest::urls_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("good");
    QTest::newRow("https") << u"https://host.example/a.zip"_s << true;
    QTest::newRow("http, guarded by the digest") << u"http://host.example/a.zip"_s << true;
    QTest::newRow("empty") << QString() << false;
    QTest::newRow("a path") << u"/srv/a.zip"_s << false;
    QTest::newRow("a file") << u"file:///srv/a.zip"_s << false;
    QTest::newRow("no host") << u"https:///a.zip"_s << false;
    QTest::newRow("a space") << u"https://host.example/a b.zip"_s << false;
    QTest::newRow("ftp") << u"ftp://host.example/a.zip"_s << false;
}

void tst_SignedManifest::urls()
{
    QFETCH(const QString, url);
    QTEST(urlProblem(url).isEmpty(), "good");
}

CORVANE_TEST(tst_SignedManifest, QCoreApplication)
#include "tst_SignedManifest.moc"
