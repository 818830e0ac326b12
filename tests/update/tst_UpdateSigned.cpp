#include "tests/support/Runner.h"
#include "tests/update/UpdateTestSupport.h"
#include "update/UpdateSignature.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

using Change = std::function<void(UpdateManifest &)>;

/// With a pinned key: which manifests are believed, and that nothing else is ever fetched.
class tst_UpdateSigned : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void pinnedKeys_data();
    void pinnedKeys();
    void signedRoad();
    void believed_data();
    void believed();
    void refused_data();
    void refused();
    void signatureVouchesForNoOtherPackage();
    void olderVersionValidlySigned();
    void withoutAKeyNoSignatureIsLookedAt();
};

namespace {

const auto noSignature = u"manifesto sem assinatura ed25519 válida — rejeitado"_s;
const auto wrongSignature = u"assinatura ed25519 do manifesto NÃO confere — update rejeitado"_s;

Publisher &publisher()
{
    static Publisher made;
    return made;
}

/// A manifest that `before` changes, that then is signed, and that `after` changes.
Change signedThen(const Change &after, const Change &before = {})
{
    return [=](UpdateManifest &manifest) {
        if (before)
            before(manifest);
        manifest.ed25519_sig = publisher().signatureOf(manifest);
        if (after)
            after(manifest);
    };
}

} // namespace

void tst_UpdateSigned::initTestCase()
{
    if (const QString problem = tlsProblem(); !problem.isEmpty())
        QSKIP(qPrintable(problem));
    trustTestAuthority();
}

void tst_UpdateSigned::pinnedKeys_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QString>("said");

    const QByteArray key = publisher().key();
    const QString good = u"assinatura ed25519 do manifesto OK"_s;
    const QString off = u"ed25519 desativado (sem chave pinada) — usando HTTPS+sha256"_s;
    const QString noKey = u"chave ed25519 pinada inválida"_s;
    QTest::newRow("the publisher's") << key << good;
    QTest::newRow("in capitals") << key.toUpper() << good;
    QTest::newRow("with space around") << " \t" + key + "\n" << good;
    QTest::newRow("none") << QByteArray() << off;
    QTest::newRow("space alone") << QByteArray(" \n") << off;
    QTest::newRow("a digit short") << key.chopped(2) << noKey;
    QTest::newRow("a digit long") << key + "00" << noKey;
    QTest::newRow("no digits") << QByteArray("not a key") << noKey;
    QTest::newRow("another one") << Publisher('x').key() << wrongSignature;
}

void tst_UpdateSigned::pinnedKeys()
{
    QFETCH(const QByteArray, key);
    QFETCH(const QString, said);

    pinKey(key);
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package", signedThen({}));
    QVERIFY(bench.check());

    QCOMPARE(bench.events.count(u"log [update] "_s + said), 1);
    const bool accepted = said.endsWith("OK"_L1) || said.contains("desativado"_L1);
    QCOMPARE(bench.events.contains(readyEvent()), accepted);
    QCOMPARE(bench.events.contains(u"checkFailed assinatura ed25519 inválida"_s), !accepted);
    if (!accepted)
        QCOMPARE(bench.updater.status(), said);
}

void tst_UpdateSigned::signedRoad()
{
    pinKey(publisher().key());
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package", signedThen({}));
    QVERIFY(bench.check());

    QCOMPARE(bench.events.mid(2, 4),
             QStringList({u"changed 0.2.0 available"_s,
                          // a line of the log alone, with no status of its own
                          u"log [update] assinatura ed25519 do manifesto OK"_s, u"changed 0.2.0 available"_s,
                          u"log [update] nova versão disponível: 0.2.0 — baixando..."_s}));
    QCOMPARE(bench.events.constLast(), readyEvent());
}

void tst_UpdateSigned::believed_data()
{
    QTest::addColumn<Change>("change");

    QTest::newRow("as signed") << signedThen({});
    QTest::newRow("a line feed behind the signature")
        << signedThen([](UpdateManifest &manifest) { manifest.ed25519_sig += u'\n'; });
    QTest::newRow("the signature in lines")
        << signedThen([](UpdateManifest &manifest) { manifest.ed25519_sig.insert(40, u"\r\n "_s); });
    QTest::newRow("no padding behind the signature")
        << signedThen([](UpdateManifest &manifest) { manifest.ed25519_sig.remove(u'='); });
    QTest::newRow("digest in capitals when it was signed")
        << signedThen({}, [](UpdateManifest &manifest) { manifest.sha256 = manifest.sha256.toUpper(); });
    QTest::newRow("what isn't signed changes") << signedThen([](UpdateManifest &manifest) {
        manifest.min_version = u"0.9.0"_s;
        manifest.notes_url = u"https://elsewhere.example"_s;
        manifest.rollout_percent = 1;
        manifest.team_id = u"other"_s;
        manifest.min_os = u"11"_s;
    });
}

void tst_UpdateSigned::believed()
{
    QFETCH(const Change, change);

    pinKey(publisher().key());
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package", change);
    QVERIFY(bench.check());
    QCOMPARE(bench.events.constLast(), readyEvent());
}

void tst_UpdateSigned::refused_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("status");

    const auto row = [](const char *name, const QString &status, const Change &after,
                        const Change &before = {}) {
        QTest::newRow(name) << signedThen(after, before) << status;
    };
    row("another version", wrongSignature, [](UpdateManifest &m) { m.version = u"0.2.1"_s; });
    row("the same version, written otherwise", wrongSignature,
        [](UpdateManifest &m) { m.version = u"v0.2.0"_s; });
    row("another address", wrongSignature, [](UpdateManifest &m) { m.url += u"?mirror"_s; });
    row("the same address, written otherwise", wrongSignature,
        [](UpdateManifest &m) { m.url.replace("https"_L1, "HTTPS"_L1); });
    row("another digest", wrongSignature, [](UpdateManifest &m) { m.sha256 = sha256Of("other"); });
    row(
        "digest signed in capitals, sent in small letters", wrongSignature,
        [](UpdateManifest &m) { m.sha256 = m.sha256.toLower(); },
        [](UpdateManifest &m) { m.sha256 = m.sha256.toUpper(); });
    row("digest signed in small letters, sent in capitals", wrongSignature,
        [](UpdateManifest &m) { m.sha256 = m.sha256.toUpper(); });
    row("digest taken away", wrongSignature, [](UpdateManifest &m) { m.sha256.clear(); });
    row("fields that run into each other", wrongSignature, [](UpdateManifest &m) {
        m.sha256 = m.url + u'\n' + m.sha256;
        m.url = m.version;
    });

    row("signature of another key", wrongSignature,
        [](UpdateManifest &m) { m.ed25519_sig = Publisher('x').signatureOf(m); });
    row("signature of another message", wrongSignature, [](UpdateManifest &m) {
        m.ed25519_sig = QString::fromLatin1(publisher().signature("corvane-update-v1").toBase64());
    });
    row("message with a line feed at its end", wrongSignature, [](UpdateManifest &m) {
        m.ed25519_sig = QString::fromLatin1(publisher().signature(updateMessage(m) + '\n').toBase64());
    });
    row("one bit of the signature", wrongSignature, [](UpdateManifest &m) {
        QByteArray bytes = QByteArray::fromBase64(m.ed25519_sig.toLatin1());
        bytes[40] = static_cast<char>(bytes.at(40) ^ 4);
        m.ed25519_sig = QString::fromLatin1(bytes.toBase64());
    });
    row("signature of nothing but zeros", wrongSignature, [](UpdateManifest &m) {
        m.ed25519_sig = QString::fromLatin1(QByteArray(updateSignatureSize, '\0').toBase64());
    });

    row("signature stripped", noSignature, [](UpdateManifest &m) { m.ed25519_sig.clear(); });
    row("signature too short", noSignature, [](UpdateManifest &m) {
        m.ed25519_sig = QString::fromLatin1(QByteArray(updateSignatureSize - 1, 's').toBase64());
    });
    row("signature too long", noSignature, [](UpdateManifest &m) {
        m.ed25519_sig = QString::fromLatin1(QByteArray(updateSignatureSize + 1, 's').toBase64());
    });
    row("signature in hexadecimal", noSignature, [](UpdateManifest &m) {
        m.ed25519_sig = QString::fromLatin1(QByteArray::fromBase64(m.ed25519_sig.toLatin1()).toHex());
    });
    row("a word for a signature", noSignature, [](UpdateManifest &m) { m.ed25519_sig = u"trust me"_s; });
}

void tst_UpdateSigned::refused()
{
    QFETCH(const Change, change);
    QFETCH(const QString, status);

    pinKey(publisher().key());
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package", change);
    QVERIFY(bench.check());

    QCOMPARE(bench.updater.status(), status);
    QCOMPARE(bench.events.last(), u"checkFailed assinatura ed25519 inválida"_s);
    QCOMPARE(bench.events.filter(u"checkFailed"_s).size(), 1);
    QVERIFY(!bench.updater.updateAvailable());
    QCOMPARE(bench.server.asked(), QStringList{u"/latest.json"_s}); // not a byte of the package
    QVERIFY(!QFile::exists(bench.runtimeDir()));
    const Application application = apply(bench.updater);
    QVERIFY(!application.answer);
    QVERIFY(!application.quits);
}

void tst_UpdateSigned::signatureVouchesForNoOtherPackage()
{
    pinKey(publisher().key());
    UpdateBench bench;
    bench.publish(u"0.2.0"_s, "a package", signedThen({}));
    HttpAnswer other;
    other.body = "another package";
    bench.server.put(u"/package.zip"_s, other);
    QVERIFY(bench.check());
    QCOMPARE(bench.updater.status(), u"sha256 NÃO confere — pacote rejeitado"_s);
    QCOMPARE(bench.files(), QStringList());
}

void tst_UpdateSigned::olderVersionValidlySigned()
{
    pinKey(publisher().key());
    UpdateBench bench;
    bench.publish(u"0.0.9"_s, "an old package with known holes", signedThen({}));
    QVERIFY(bench.check());
    QCOMPARE(bench.events.constLast(), u"upToDate"_s);
    QCOMPARE(bench.updater.latestVersion(), u"0.0.9"_s);
    QCOMPARE(bench.server.asked(), QStringList{u"/latest.json"_s});
    QCOMPARE(bench.files(), QStringList());
}

void tst_UpdateSigned::withoutAKeyNoSignatureIsLookedAt()
{
    pinKey({});
    for (const QString &signature : {QString(), u"trust me"_s, Publisher('x').signatureOf({})}) {
        UpdateBench bench;
        bench.publish(u"0.2.0"_s, "a package",
                      [&](UpdateManifest &manifest) { manifest.ed25519_sig = signature; });
        QVERIFY(bench.check());
        QCOMPARE(bench.events.constLast(), readyEvent());
    }
}

CORVANE_TEST(tst_UpdateSigned, QCoreApplication)
#include "tst_UpdateSigned.moc"
