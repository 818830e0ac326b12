#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "update/Sha256.h"

#include <QBuffer>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

bool isCryptoMapped()
{
    return contentsOf(u"/proc/self/maps"_s).contains("/libcrypto.so.3");
}

} // namespace

/// The library for digests at the start of a program: only the first digest loads it.
class tst_Sha256Start : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void theFirstDigestLoadsTheLibrary();
};

void tst_Sha256Start::theFirstDigestLoadsTheLibrary()
{
    // Debian 13: Qt's network library needs libproxy, which needs libcurl, which needs it.
    if (isCryptoMapped() && contentsOf(u"/proc/self/maps"_s).contains("/libproxy"))
        QSKIP("libproxy, which Qt's network library needs here, has loaded libcrypto itself");
    QVERIFY2(!isCryptoMapped(), "libcrypto is there from the start");
    const Sha256 hash;
    QVERIFY(hash.isQt() || isCryptoMapped());
}

CORVANE_TEST(tst_Sha256Start, QCoreApplication)
#include "tst_Sha256Start.moc"
