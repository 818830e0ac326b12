#include "tests/support/Runner.h"
#include "tools/guardian/ManifestFetch.h"
#include "tools/publish/PublishKey.h"
#include "tools/publish/SignedManifest.h"
#include "update/UpdateManifest.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::guardian;

/// When a manifest vouches for what is staged.
class tst_ManifestTrust : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void versions_data();
    void versions();
    void signatures_data();
    void signatures();

private:
    [[nodiscard]] static UpdateManifest offered(const QString &version)
    {
        UpdateManifest manifest;
        manifest.version = version;
        manifest.url = u"https://host.example/p.zip"_s;
        manifest.sha256 = QString(64, u'a');
        manifest.hasPackage = true;
        manifest.valid = true;
        return manifest;
    }
};

void tst_ManifestTrust::versions_data()
{
    QTest::addColumn<QString>("offeredVersion");
    QTest::addColumn<QString>("staged");
    QTest::addColumn<QString>("installed");
    QTest::addColumn<QString>("problem");
    QTest::newRow("newer") << u"0.2.0"_s << u"0.2.0"_s << u"0.1.0"_s << QString();
    QTest::newRow("nobody knows what is installed") << u"0.2.0"_s << u"0.2.0"_s << QString() << QString();
    QTest::newRow("another than is staged")
        << u"0.3.0"_s << u"0.2.0"_s << u"0.1.0"_s << u"version 0.2.0 is staged, and the feed offers 0.3.0"_s;
    QTest::newRow("the same as is staged in other words")
        << u"v0.2.0"_s << u"0.2.0"_s << u"0.1.0"_s
        << u"version 0.2.0 is staged, and the feed offers v0.2.0"_s;
    QTest::newRow("older than is installed")
        << u"0.2.0"_s << u"0.2.0"_s << u"0.3.0"_s << u"version 0.2.0 is staged, and 0.3.0 is installed"_s;
    QTest::newRow("as is installed") << u"0.2.0"_s << u"0.2.0"_s << u"0.2.0"_s
                                     << u"version 0.2.0 is staged, and 0.2.0 is installed"_s;
}

void tst_ManifestTrust::versions()
{
    QFETCH(const QString, offeredVersion);
    QFETCH(const QString, staged);
    QFETCH(const QString, installed);
    QTEST(manifestProblem(offered(offeredVersion), {}, staged, installed), "problem");
}

void tst_ManifestTrust::signatures_data()
{
    QTest::addColumn<bool>("pinned");
    QTest::addColumn<QString>("signer");
    QTest::addColumn<QString>("digest");
    QTest::addColumn<bool>("trusted");
    const QString digest(64, u'a');
    QTest::newRow("no key, no signature") << false << QString() << digest << true;
    QTest::newRow("no key, another's signature") << false << u"another"_s << digest << true;
    QTest::newRow("no key, no digest") << false << QString() << QString() << false;
    QTest::newRow("a key and its signature") << true << u"publisher"_s << digest << true;
    QTest::newRow("a key, no signature") << true << QString() << digest << false;
    QTest::newRow("a key, another's signature") << true << u"another"_s << digest << false;
    QTest::newRow("a key, its signature for another digest")
        << true << u"publisher"_s << QString(64, u'b') << false;
    QTest::newRow("a key, its signature for the digest in capitals")
        << true << u"publisher"_s << QString(64, u'A') << false;
}

void tst_ManifestTrust::signatures()
{
    QFETCH(const bool, pinned);
    QFETCH(const QString, signer);
    QFETCH(const QString, digest);
    const PublishKey publisher = PublishKey::generate();
    const PublishKey another = PublishKey::generate();
    UpdateManifest manifest = offered(u"0.2.0"_s);
    if (!signer.isEmpty())
        manifest = signedManifest(manifest, signer == "publisher"_L1 ? publisher : another);
    manifest.sha256 = digest;
    const QString key = pinned ? QString::fromLatin1(publisher.publicKey().toHex()) : QString();
    QTEST(manifestProblem(manifest, key, u"0.2.0"_s, {}).isEmpty(), "trusted");
}

CORVANE_TEST(tst_ManifestTrust, QCoreApplication)
#include "tst_ManifestTrust.moc"
