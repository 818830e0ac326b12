#include "tests/support/Runner.h"
#include "update/UpdateManifest.h"
#include "update/UpdateSignature.h"

#include <QTest>

#include <monocypher-ed25519.h>

using namespace Qt::StringLiterals;
using namespace corvane;

/// The signed message, byte for byte, and the check of a signature.
class tst_UpdateSignature : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void message_data();
    void message();
    void vectors_data();
    void vectors();
    void wrongSizes_data();
    void wrongSizes();
    void keyPairFromASeed();
    void signsWhatItChecks();
};

namespace {

const std::uint8_t *bytes(const QByteArray &array)
{
    return reinterpret_cast<const std::uint8_t *>(array.constData());
}

std::uint8_t *bytes(QByteArray &array)
{
    return reinterpret_cast<std::uint8_t *>(array.data());
}

/// `array` with one bit changed.
QByteArray spoilt(QByteArray array, qsizetype at)
{
    array[at] = static_cast<char>(array.at(at) ^ 1);
    return array;
}

} // namespace

void tst_UpdateSignature::message_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("digest");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("plain") << u"0.2.0"_s << u"https://packages.example/c.zip"_s << u"ab12"_s
                           << QByteArray("corvane-update-v1\n0.2.0\nwindows-x64\n"
                                         "https://packages.example/c.zip\nab12");
    QTest::newRow("as written") << u" v0.2.0-rc1 "_s << u"HTTP://Packages.example/%20a"_s << u"AB12"_s
                                << QByteArray("corvane-update-v1\n v0.2.0-rc1 \nwindows-x64\n"
                                              "HTTP://Packages.example/%20a\nAB12");
    QTest::newRow("what looks like a place to fill")
        << u"%2%3"_s << u"https://packages.example/%4/%1"_s << u"%1"_s
        << QByteArray("corvane-update-v1\n%2%3\nwindows-x64\nhttps://packages.example/%4/%1\n%1");
    QTest::newRow("in UTF-8") << u"0.2.0-ção"_s << u"https://é.example/—"_s << u"ab"_s
                              << QByteArray("corvane-update-v1\n0.2.0-\xC3\xA7\xC3\xA3o\nwindows-x64\n"
                                            "https://\xC3\xA9.example/\xE2\x80\x94\nab");
    QTest::newRow("no digest") << u"0.2.0"_s << u"u"_s << QString()
                               << QByteArray("corvane-update-v1\n0.2.0\nwindows-x64\nu\n");
}

void tst_UpdateSignature::message()
{
    QFETCH(const QString, version);
    QFETCH(const QString, url);
    QFETCH(const QString, digest);
    UpdateManifest manifest;
    manifest.version = version;
    manifest.url = url;
    manifest.sha256 = digest;
    QTEST(updateMessage(manifest), "expected");

    // What isn't signed may change.
    manifest.min_version = u"9"_s;
    manifest.notes_url = u"n"_s;
    manifest.rollout_percent = 0;
    manifest.team_id = u"t"_s;
    manifest.min_os = u"m"_s;
    manifest.ed25519_sig = u"s"_s;
    QTEST(updateMessage(manifest), "expected");
}

void tst_UpdateSignature::vectors_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QByteArray>("signature");

    // The test vectors of RFC 8032, section 7.1.
    QTest::newRow("no message")
        << QByteArray("d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a") << QByteArray("")
        << QByteArray("e5564300c360ac729086e2cc806e828a84877f1eb8e5d974d873e065224901555fb8821590a33bacc61e"
                      "39701cf9b46bd25bf5f0595bbe24655141438e7a100b");
    QTest::newRow("one byte")
        << QByteArray("3d4017c3e843895a92b70aa74d1b7ebc9c982ccf2ec4968cc0cd55f12af4660c") << QByteArray("72")
        << QByteArray("92a009a9f0d4cab8720e820b5f642540a2b27b5416503f8fb3762223ebdb69da085ac1e43e15996e458f"
                      "3613d0f11d8c387b2eaeb4302aeeb00d291612bb0c00");
    QTest::newRow("two bytes")
        << QByteArray("fc51cd8e6218a1a38da47ed00230f0580816ed13ba3303ac5deb911548908025")
        << QByteArray("af82")
        << QByteArray("6291d657deec24024827e69c3abe01a30ce548a284743a445e3680d7db5ac3ac18ff9b538d16f290ae67"
                      "f760984dc6594a7c15e9716ed28dc027beceea1ec40a");
    QTest::newRow("a long message")
        << QByteArray("278117fc144c72340f67d0f2316e8386ceffbf2b2428c9c51fef7c597f1d426e")
        << QByteArray("08b8b2b733424243760fe426a4b54908632110a66c2f6591eabd3345e3e4eb98fa6e264bf09efe12ee50"
                      "f8f54e9f77b1e355f6c50544e23fb1433ddf73be84d879de7c0046dc4996d9e773f4bc9efe5738829adb"
                      "26c81b37c93a1b270b20329d658675fc6ea534e0810a4432826bf58c941efb65d57a338bbd2e26640f89"
                      "ffbc1a858efcb8550ee3a5e1998bd177e93a7363c344fe6b199ee5d02e82d522c4feba15452f80288a82"
                      "1a579116ec6dad2b3b310da903401aa62100ab5d1a36553e06203b33890cc9b832f79ef80560ccb9a39c"
                      "e767967ed628c6ad573cb116dbefefd75499da96bd68a8a97b928a8bbc103b6621fcde2beca1231d206b"
                      "e6cd9ec7aff6f6c94fcd7204ed3455c68c83f4a41da4af2b74ef5c53f1d8ac70bdcb7ed185ce81bd8435"
                      "9d44254d95629e9855a94a7c1958d1f8ada5d0532ed8a5aa3fb2d17ba70eb6248e594e1a2297acbbb39d"
                      "502f1a8c6eb6f1ce22b3de1a1f40cc24554119a831a9aad6079cad88425de6bde1a9187ebb6092cf67bf"
                      "2b13fd65f27088d78b7e883c8759d2c4f5c65adb7553878ad575f9fad878e80a0c9ba63bcbcc2732e694"
                      "85bbc9c90bfbd62481d9089beccf80cfe2df16a2cf65bd92dd597b0707e0917af48bbb75fed413d238f5"
                      "555a7a569d80c3414a8d0859dc65a46128bab27af87a71314f318c782b23ebfe808b82b0ce26401d2e22"
                      "f04d83d1255dc51addd3b75a2b1ae0784504df543af8969be3ea7082ff7fc9888c144da2af58429ec960"
                      "31dbcad3dad9af0dcbaaaf268cb8fcffead94f3c7ca495e056a9b47acdb751fb73e666c6c655ade82972"
                      "97d07ad1ba5e43f1bca32301651339e22904cc8c42f58c30c04aafdb038dda0847dd988dcda6f3bfd15c"
                      "4b4c4525004aa06eeff8ca61783aacec57fb3d1f92b0fe2fd1a85f6724517b65e614ad6808d6f6ee34df"
                      "f7310fdc82aebfd904b01e1dc54b2927094b2db68d6f903b68401adebf5a7e08d78ff4ef5d63653a6504"
                      "0cf9bfd4aca7984a74d37145986780fc0b16ac451649de6188a7dbdf191f64b5fc5e2ab47b57f7f7276c"
                      "d419c17a3ca8e1b939ae49e488acba6b965610b5480109c8b17b80e1b7b750dfc7598d5d5011fd2dcc56"
                      "00a32ef5b52a1ecc820e308aa342721aac0943bf6686b64b2579376504ccc493d97e6aed3fb0f9cd71a4"
                      "3dd497f01f17c0e2cb3797aa2a2f256656168e6c496afc5fb93246f6b1116398a346f1a641f3b041e989"
                      "f7914f90cc2c7fff357876e506b50d334ba77c225bc307ba537152f3f1610e4eafe595f6d9d90d11faa9"
                      "33a15ef1369546868a7f3a45a96768d40fd9d03412c091c6315cf4fde7cb68606937380db2eaaa707b4c"
                      "4185c32eddcdd306705e4dc1ffc872eeee475a64dfac86aba41c0618983f8741c5ef68d3a101e8a3b8ca"
                      "c60c905c15fc910840b94c00a0b9d0")
        << QByteArray("0aab4c900501b3e24d7cdf4663326a3a87df5e4843b2cbdb67cbf6e460fec350aa5371b1508f9f4528ec"
                      "ea23c436d94b5e8fcd4f681e30a6ac00a9704a188a03");
    QTest::newRow("the digest of a text")
        << QByteArray("ec172b93ad5e563bf4932c70e1245034c35467ef2efd4d64ebf819683467e2bf")
        << QByteArray("ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a836ba"
                      "3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f")
        << QByteArray("dc2a4459e7369633a52b1bf277839a00201009a3efbf3ecb69bea2186c26b58909351fc9ac90b3ecfdfb"
                      "c7c66431e0303dca179c138ac17ad9bef1177331a704");
}

void tst_UpdateSignature::vectors()
{
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, message);
    QFETCH(QByteArray, signature);
    key = QByteArray::fromHex(key);
    message = QByteArray::fromHex(message);
    signature = QByteArray::fromHex(signature);

    QCOMPARE(crypto_ed25519_check(bytes(signature), bytes(key), bytes(message),
                                  static_cast<std::size_t>(message.size())),
             0);
    QVERIFY(checkUpdateSignature(signature, key, message));

    QVERIFY(!checkUpdateSignature(spoilt(signature, 0), key, message));
    QVERIFY(!checkUpdateSignature(spoilt(signature, 63), key, message));
    QVERIFY(!checkUpdateSignature(signature, spoilt(key, 5), message));
    QVERIFY(!checkUpdateSignature(signature, key, message + '\n'));
    if (!message.isEmpty())
        QVERIFY(!checkUpdateSignature(signature, key, spoilt(message, message.size() - 1)));
}

void tst_UpdateSignature::wrongSizes_data()
{
    QTest::addColumn<qsizetype>("signatureSize");
    QTest::addColumn<qsizetype>("keySize");

    QTest::newRow("no signature") << qsizetype(0) << qsizetype(32);
    QTest::newRow("a short signature") << qsizetype(63) << qsizetype(32);
    QTest::newRow("a long signature") << qsizetype(65) << qsizetype(32);
    QTest::newRow("no key") << qsizetype(64) << qsizetype(0);
    QTest::newRow("a short key") << qsizetype(64) << qsizetype(31);
    QTest::newRow("a long key") << qsizetype(64) << qsizetype(33);
}

void tst_UpdateSignature::wrongSizes()
{
    QFETCH(const qsizetype, signatureSize);
    QFETCH(const qsizetype, keySize);
    QVERIFY(!checkUpdateSignature(QByteArray(signatureSize, '\0'), QByteArray(keySize, '\0'), "message"));
}

void tst_UpdateSignature::keyPairFromASeed()
{
    QByteArray seed = QByteArray::fromHex("9d61b19deffd5a60ba844af492ec2cc44449c5697b326919703bac031cae7f60");
    const QByteArray given = seed;
    QByteArray secret(64, '\0');
    QByteArray key(32, '\0');
    crypto_ed25519_key_pair(bytes(secret), bytes(key), bytes(seed));

    QCOMPARE(key.toHex(), QByteArray("d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a"));
    QCOMPARE(secret, given + key);
    QCOMPARE(seed, QByteArray(32, '\0')); // wiped
}

void tst_UpdateSignature::signsWhatItChecks()
{
    QByteArray seed = QByteArray::fromHex("4ccd089b28ff96da9db6c346ec114e0f5b8a319f35aba624da8cf6ed4fb8a6fb");
    QByteArray secret(64, '\0');
    QByteArray key(32, '\0');
    crypto_ed25519_key_pair(bytes(secret), bytes(key), bytes(seed));
    const QByteArray message("\x72");
    QByteArray signature(64, '\0');
    crypto_ed25519_sign(bytes(signature), bytes(secret), bytes(message),
                        static_cast<std::size_t>(message.size()));

    QCOMPARE(signature.toHex(),
             QByteArray("92a009a9f0d4cab8720e820b5f642540a2b27b5416503f8fb3762223ebdb69da"
                        "085ac1e43e15996e458f3613d0f11d8c387b2eaeb4302aeeb00d291612bb0c00"));
    QVERIFY(checkUpdateSignature(signature, key, message));
}

CORVANE_TEST(tst_UpdateSignature, QCoreApplication)
#include "tst_UpdateSignature.moc"
