#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/SmallDisk.h"
#include "tools/publish/PublishKey.h"
#include "update/UpdateSignature.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

void writeWith(const QString &path, const QByteArray &text, QFile::Permissions permissions)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(text), text.size());
    QVERIFY(file.setPermissions(permissions));
}

constexpr auto ownerOnly = QFile::ReadOwner | QFile::WriteOwner;

} // namespace

/// The publisher's keys, in memory and on disk.
class tst_PublishKey : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keysAndSignaturesAreThoseOfEd25519_data();
    void keysAndSignaturesAreThoseOfEd25519();
    void everyKeyIsAnother();
    void aSavedKeyComesBack();
    void thePrivateFileIsItsOwnersAlone();
    void nothingIsOverwritten_data();
    void nothingIsOverwritten();
    void aFailureLeavesNothingBehind();
    void onAFullDiskNothingIsLeft();
    void weakKeys_data();
    void weakKeys();
    void whatIsNoKeyIsRefused_data();
    void whatIsNoKeyIsRefused();
    void aKeyThatOthersMayReadIsRefused();
};

// The first three vectors of RFC 8032, 7.1.
void tst_PublishKey::keysAndSignaturesAreThoseOfEd25519_data()
{
    QTest::addColumn<QByteArray>("seed");
    QTest::addColumn<QByteArray>("publicKey");
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QByteArray>("signature");

    QTest::newRow("empty message")
        << QByteArray("9d61b19deffd5a60ba844af492ec2cc44449c5697b326919703bac031cae7f60")
        << QByteArray("d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a") << QByteArray()
        << QByteArray(
               "e5564300c360ac729086e2cc806e828a84877f1eb8e5d974d873e065224901555fb8821590a33bacc61e3970"
               "1cf9b46bd25bf5f0595bbe24655141438e7a100b");
    QTest::newRow("one byte")
        << QByteArray("4ccd089b28ff96da9db6c346ec114e0f5b8a319f35aba624da8cf6ed4fb8a6fb")
        << QByteArray("3d4017c3e843895a92b70aa74d1b7ebc9c982ccf2ec4968cc0cd55f12af4660c") << QByteArray("72")
        << QByteArray(
               "92a009a9f0d4cab8720e820b5f642540a2b27b5416503f8fb3762223ebdb69da085ac1e43e15996e458f3613"
               "d0f11d8c387b2eaeb4302aeeb00d291612bb0c00");
    QTest::newRow("two bytes")
        << QByteArray("c5aa8df43f9f837bedb7442f31dcb7b166d38535076f094b85ce3a2e0b4458f7")
        << QByteArray("fc51cd8e6218a1a38da47ed00230f0580816ed13ba3303ac5deb911548908025")
        << QByteArray("af82")
        << QByteArray(
               "6291d657deec24024827e69c3abe01a30ce548a284743a445e3680d7db5ac3ac18ff9b538d16f290ae67f760"
               "984dc6594a7c15e9716ed28dc027beceea1ec40a");
}

void tst_PublishKey::keysAndSignaturesAreThoseOfEd25519()
{
    QFETCH(const QByteArray, seed);
    QFETCH(const QByteArray, publicKey);
    QFETCH(const QByteArray, message);
    QFETCH(const QByteArray, signature);

    const PublishKey key = PublishKey::fromSeed(QByteArray::fromHex(seed));
    QCOMPARE(key.publicKey().toHex(), publicKey);
    QCOMPARE(key.sign(QByteArray::fromHex(message)).toHex(), signature);
}

void tst_PublishKey::everyKeyIsAnother()
{
    const PublishKey one = PublishKey::generate();
    const PublishKey other = PublishKey::generate();
    QVERIFY(one.publicKey() != other.publicKey());
    QVERIFY(checkUpdateSignature(one.sign("texto"), one.publicKey(), "texto"));
    QVERIFY(!checkUpdateSignature(one.sign("texto"), other.publicKey(), "texto"));
}

void tst_PublishKey::aSavedKeyComesBack()
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"key"_s);
    const PublishKey key = PublishKey::generate();
    QString error;
    QVERIFY2(key.save(path, error), qPrintable(error));
    QCOMPARE(contentsOf(path + ".pub"_L1), key.publicKey().toHex() + '\n');

    const std::optional<PublishKey> loaded = PublishKey::load(path, error);
    QVERIFY2(loaded, qPrintable(error));
    QCOMPARE(loaded->publicKey(), key.publicKey());
    QCOMPARE(loaded->sign("texto"), key.sign("texto"));
}

void tst_PublishKey::thePrivateFileIsItsOwnersAlone()
{
#ifdef Q_OS_WIN
    QSKIP("the file system's rights aren't the permissions that Qt shows here");
#endif
    const QTemporaryDir folder;
    QString error;
    QVERIFY(PublishKey::generate().save(folder.filePath(u"key"_s), error));
    const QFile::Permissions permissions = QFile::permissions(folder.filePath(u"key"_s));
    QVERIFY(permissions & QFile::ReadOwner);
    QVERIFY(!(permissions & (QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup | QFile::ReadOther |
                             QFile::WriteOther | QFile::ExeOther)));
}

void tst_PublishKey::nothingIsOverwritten_data()
{
    QTest::addColumn<QString>("existing");
    QTest::newRow("the private key") << u"key"_s;
    QTest::newRow("the public key") << u"key.pub"_s;
}

void tst_PublishKey::nothingIsOverwritten()
{
    QFETCH(const QString, existing);
    const QTemporaryDir folder;
    writeWith(folder.filePath(existing), "precious", ownerOnly);

    QString error;
    QVERIFY(!PublishKey::generate().save(folder.filePath(u"key"_s), error));
    QCOMPARE(error, u"%1 exists, and keys aren't overwritten"_s.arg(folder.filePath(existing)));
    QCOMPARE(contentsOf(folder.filePath(existing)), QByteArray("precious"));
    QCOMPARE(QDir(folder.path()).entryList(QDir::Files), QStringList{existing});
}

/// The public half can't be written: a link that leads nowhere has its name.
void tst_PublishKey::aFailureLeavesNothingBehind()
{
#ifdef Q_OS_WIN
    QSKIP("links take a right here that a user doesn't have");
#endif
    const QTemporaryDir folder;
    QVERIFY(QFile::link(folder.filePath(u"nowhere/x"_s), folder.filePath(u"key.pub"_s)));
    QString error;
    QVERIFY(!PublishKey::generate().save(folder.filePath(u"key"_s), error));
    QVERIFY(!error.isEmpty());
    QVERIFY(!QFile::exists(folder.filePath(u"key"_s)));
    QVERIFY(!QFile::exists(folder.filePath(u"nowhere/x"_s)));
}

void tst_PublishKey::onAFullDiskNothingIsLeft()
{
    const QTemporaryDir folder;
    const SmallDisk disk(folder.path(), 64);
    if (!disk.isMounted())
        QSKIP("this system lets the test mount no file system of its own");
    QVERIFY(disk.fill());
    QString error;
    QVERIFY(!PublishKey::generate().save(folder.filePath(u"key"_s), error));
    QCOMPARE(error, u"can't write %1: No space left on device"_s.arg(folder.filePath(u"key"_s)));
    QCOMPARE(QDir(folder.path()).entryList(QDir::Files), QStringList{u"filling"_s});
}

void tst_PublishKey::weakKeys_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<bool>("isWeak");
    const QByteArray zeros(62, '0');
    const QByteArray ones(60, 'f');
    QTest::newRow("zeros") << QByteArray(64, '0') << true;
    QTest::newRow("zeros with a sign") << zeros + "80" << true;
    QTest::newRow("one") << "01" + zeros << true;
    QTest::newRow("minus one") << "ec" + ones + "7f" << true;
    QTest::newRow("zero, not reduced") << "ed" + ones + "7f" << true;
    QTest::newRow("one, not reduced, with a sign") << "ee" + ones + "ff" << true;
    QTest::newRow("order 8") << QByteArray("26e8958fc2b227b045c3f489f2ef98f0d5dfac05d3c63339b13802886d53fc05")
                             << true;
    QTest::newRow("the other one") << QByteArray(
                                          "c7176a703d4dd84fba3c0b760d10670f2a2053fa2c39ccc64ec7fd7792ac03fa")
                                   << true;
    QTest::newRow("two") << "02" + zeros << false;
    QTest::newRow("a key") << PublishKey::generate().publicKey().toHex() << false;
    QTest::newRow("too short to be one") << QByteArray(62, '1') << true;
}

/// Points of small order, in every form.
void tst_PublishKey::weakKeys()
{
    QFETCH(const QByteArray, key);
    QTEST(isWeakUpdateKey(QByteArray::fromHex(key)), "isWeak");
}

void tst_PublishKey::whatIsNoKeyIsRefused_data()
{
    QTest::addColumn<QByteArray>("text");
    const QByteArray digits(64, 'a');
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("the digits alone") << digits + '\n';
    QTest::newRow("another heading") << "corvane private key v2\n" + digits + '\n';
    QTest::newRow("a digit short") << "corvane private key v1\n" + digits.chopped(1) + '\n';
    QTest::newRow("a digit long") << "corvane private key v1\n" + digits + "a\n";
    QTest::newRow("more behind it") << "corvane private key v1\n" + digits + "\r\nb";
    QTest::newRow("no digits") << "corvane private key v1\n" + QByteArray(64, 'x') + '\n';
    QTest::newRow("a cut heading") << QByteArray("corvane priv");
}

void tst_PublishKey::whatIsNoKeyIsRefused()
{
    QFETCH(const QByteArray, text);
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"key"_s);
    writeWith(path, text, ownerOnly);

    QString error;
    QVERIFY(!PublishKey::load(path, error));
    QCOMPARE(error, u"%1 isn't a private key of corvane-publish"_s.arg(path));
}

void tst_PublishKey::aKeyThatOthersMayReadIsRefused()
{
#ifdef Q_OS_WIN
    QSKIP("the file system's rights aren't the permissions that Qt shows here");
#endif
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"key"_s);
    QString error;
    QVERIFY(PublishKey::generate().save(path, error));
    QVERIFY(QFile::setPermissions(path, ownerOnly | QFile::ReadGroup));
    QVERIFY(!PublishKey::load(path, error));
    QVERIFY2(error.contains("open to others"_L1), qPrintable(error));
}

CORVANE_TEST(tst_PublishKey, QCoreApplication)
#include "tst_PublishKey.moc"
