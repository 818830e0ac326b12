#include "tests/support/Runner.h"
#include "update/Sha256.h"

#include <QBuffer>
#include <QFile>
#include <QLibrary>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;

/// The digest of what a device holds, whoever computes it.
class tst_Sha256 : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase_data();
    void published_data();
    void published();
    void whatIsLeft();
    void deviceThatFails_data();
    void deviceThatFails();
    void deviceThatIsClosed();
    void theLibraryIsUsed();
    void inPieces();

private:
    /// Whose code it is in this pass over the tests.
    [[nodiscard]] static Sha256::Code code()
    {
        QFETCH_GLOBAL(const int, code);
        return static_cast<Sha256::Code>(code);
    }
};

namespace {

/// Gives some bytes, and then fails.
class Failing : public QIODevice
{
public:
    explicit Failing(qint64 bytes)
        : m_left(bytes)
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    [[nodiscard]] bool isSequential() const override { return true; }

protected:
    qint64 readData(char *data, qint64 size) override
    {
        if (m_left == 0)
            return -1;
        const qint64 given = std::min(size, m_left);
        std::fill_n(data, given, 'x');
        m_left -= given;
        return given;
    }
    qint64 writeData(const char * /*data*/, qint64 /*size*/) override { return -1; }

private:
    qint64 m_left;
};

[[maybe_unused]] bool isLibraryLoaded() // used where the library may be
{
    QFile maps(u"/proc/self/maps"_s);
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains("/libcrypto.so.3");
}

} // namespace

void tst_Sha256::initTestCase_data()
{
    QTest::addColumn<int>("code");
    QTest::newRow("the fastest") << static_cast<int>(Sha256::Code::Fastest);
    QTest::newRow("Qt") << static_cast<int>(Sha256::Code::Qt);
}

void tst_Sha256::published_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("expected");

    // The examples of FIPS 180-4 and their long ones.
    QTest::newRow("nothing") << QByteArray()
                             << "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"_ba;
    QTest::newRow("one block") << "abc"_ba
                               << "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"_ba;
    QTest::newRow("two blocks") << "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"_ba
                                << "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"_ba;
    QTest::newRow("a million letters")
        << QByteArray(1'000'000, 'a')
        << "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"_ba;
}

void tst_Sha256::published()
{
    QFETCH(QByteArray, bytes);
    QFETCH(const QByteArray, expected);
    QBuffer device(&bytes);
    QVERIFY(device.open(QIODevice::ReadOnly));
    const auto digest = sha256Of(device, code());
    QVERIFY(digest);
    QCOMPARE(digest->toHex(), expected);
}

void tst_Sha256::whatIsLeft()
{
    QByteArray bytes = "before abc"_ba;
    QBuffer device(&bytes);
    QVERIFY(device.open(QIODevice::ReadOnly));
    QVERIFY(device.seek(7));
    QCOMPARE(sha256Of(device, code())->toHex(),
             "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"_ba);
    QVERIFY(device.atEnd());
}

void tst_Sha256::deviceThatFails_data()
{
    QTest::addColumn<qint64>("before");

    QTest::newRow("at once") << qint64{0};
    QTest::newRow("after some bytes") << qint64{5};
    QTest::newRow("after some pieces") << qint64{1'000'000};
}

void tst_Sha256::deviceThatFails()
{
    QFETCH(const qint64, before);
    Failing device(before);
    QVERIFY(!sha256Of(device, code()));
}

void tst_Sha256::deviceThatIsClosed()
{
    QBuffer closed;
    QTest::ignoreMessage(QtWarningMsg, "QIODevice::read (QBuffer): device not open");
    QVERIFY(!sha256Of(closed, code()));
}

void tst_Sha256::theLibraryIsUsed()
{
    const Sha256 hash(code());
    if (code() == Sha256::Code::Qt) {
        QVERIFY(hash.isQt());
        return;
    }
#ifdef Q_OS_LINUX
    if (!QLibrary(u"crypto"_s, 3).load())
        QSKIP("OpenSSL 3 isn't installed");
    QVERIFY(!hash.isQt());
    QVERIFY(isLibraryLoaded());
#else
    QVERIFY(hash.isQt());
#endif
}

void tst_Sha256::inPieces()
{
    Sha256 hash(code());
    hash.add("a");
    hash.add({});
    hash.add("bc");
    QCOMPARE(hash.result().toHex(), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"_ba);
}

CORVANE_TEST(tst_Sha256, QCoreApplication)
#include "tst_Sha256.moc"
