#include "tests/support/Runner.h"
#include "update/UpdateManifest.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;

/// A manifest's bytes into a record, and the order of versions.
class tst_UpdateManifest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fresh();
    void platform();
    void everyField();
    void topLevel_data();
    void topLevel();
    void package_data();
    void package();
    void invalid_data();
    void invalid();
    void unnamedVersionKeepsWhatWasRead();
    void otherPlatform();
    void versions_data();
    void versions();
    void comparison_data();
    void comparison();
};

namespace {

constexpr auto platformName = "windows-x64"_L1;

UpdateManifest parsed(const QByteArray &text)
{
    return parseManifest(text, platformName);
}

} // namespace

void tst_UpdateManifest::fresh()
{
    const UpdateManifest manifest;
    QCOMPARE(manifest.rollout_percent, 100);
    QVERIFY(!manifest.hasPackage);
    QVERIFY(!manifest.valid);
    for (const QString &text :
         {manifest.version, manifest.min_version, manifest.notes_url, manifest.url, manifest.sha256,
          manifest.ed25519_sig, manifest.team_id, manifest.min_os, manifest.error})
        QCOMPARE(text, QString());
}

void tst_UpdateManifest::platform()
{
    QCOMPARE(QString(platformKey), u"windows-x64"_s);
}

void tst_UpdateManifest::everyField()
{
    const UpdateManifest manifest = parsed(R"({
        "version": "0.2.0", "min_version": "0.1.0", "notes_url": "https://notes.example/0.2.0",
        "rollout_percent": 25,
        "platforms": {
            "windows-x64": {"url": "https://packages.example/c.zip", "sha256": "AbCd",
                            "ed25519_sig": "c2ln", "team_id": "TEAM", "min_os": "10.0.19041"},
            "linux-x64": {"url": "https://packages.example/other", "sha256": "ee"}}})");

    QVERIFY(manifest.valid);
    QCOMPARE(manifest.error, QString());
    QCOMPARE(manifest.version, u"0.2.0"_s);
    QCOMPARE(manifest.min_version, u"0.1.0"_s);
    QCOMPARE(manifest.notes_url, u"https://notes.example/0.2.0"_s);
    QCOMPARE(manifest.rollout_percent, 25);
    QVERIFY(manifest.hasPackage);
    QCOMPARE(manifest.url, u"https://packages.example/c.zip"_s);
    QCOMPARE(manifest.sha256, u"AbCd"_s);
    QCOMPARE(manifest.ed25519_sig, u"c2ln"_s);
    QCOMPARE(manifest.team_id, u"TEAM"_s);
    QCOMPARE(manifest.min_os, u"10.0.19041"_s);
}

void tst_UpdateManifest::topLevel_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("notes");
    QTest::addColumn<int>("rollout");

    QTest::newRow("a version alone") << QByteArray(R"({"version":"1"})") << u"1"_s << QString() << 100;
    QTest::newRow("as written") << QByteArray(R"({"version":" v1.0-rc1 "})") << u" v1.0-rc1 "_s << QString()
                                << 100;
    QTest::newRow("UTF-8 and escapes")
        << QByteArray(R"({"version":"é\u0000\u2014"})") << u"é"_s + QChar(0) + u'—' << QString() << 100;
    QTest::newRow("unknown keys") << QByteArray(R"({"version":"1","channel":"beta","more":{"a":[1]}})")
                                  << u"1"_s << QString() << 100;
    QTest::newRow("a number for a text")
        << QByteArray(R"({"version":"1","notes_url":7})") << u"1"_s << QString() << 100;
    QTest::newRow("rollout of none") << QByteArray(R"({"version":"1","rollout_percent":0})") << u"1"_s
                                     << QString() << 0;
    QTest::newRow("rollout below none")
        << QByteArray(R"({"version":"1","rollout_percent":-5})") << u"1"_s << QString() << -5;
    QTest::newRow("rollout as text") << QByteArray(R"({"version":"1","rollout_percent":"20"})") << u"1"_s
                                     << QString() << 100;
    QTest::newRow("rollout with a fraction")
        << QByteArray(R"({"version":"1","rollout_percent":20.5})") << u"1"_s << QString() << 100;
    QTest::newRow("rollout beyond an integer")
        << QByteArray(R"({"version":"1","rollout_percent":1e12})") << u"1"_s << QString() << 100;
    QTest::newRow("rollout null") << QByteArray(R"({"version":"1","rollout_percent":null})") << u"1"_s
                                  << QString() << 100;
    QTest::newRow("the last of two") << QByteArray(R"({"version":"1","version":"2","notes_url":"n"})")
                                     << u"2"_s << u"n"_s << 100;
}

void tst_UpdateManifest::topLevel()
{
    QFETCH(const QByteArray, text);
    const UpdateManifest manifest = parsed(text);

    QVERIFY(manifest.valid);
    QVERIFY(!manifest.hasPackage);
    QCOMPARE(manifest.error, QString());
    QTEST(manifest.version, "version");
    QTEST(manifest.notes_url, "notes");
    QTEST(manifest.rollout_percent, "rollout");
}

void tst_UpdateManifest::package_data()
{
    QTest::addColumn<QByteArray>("platforms");
    QTest::addColumn<bool>("hasPackage");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("digest");

    QTest::newRow("an address and a digest")
        << QByteArray(R"({"windows-x64":{"url":"u","sha256":"d"}})") << true << u"u"_s << u"d"_s;
    QTest::newRow("an address alone")
        << QByteArray(R"({"windows-x64":{"url":"u"}})") << true << u"u"_s << QString();
    QTest::newRow("an empty address")
        << QByteArray(R"({"windows-x64":{"url":"","sha256":"d"}})") << false << QString() << u"d"_s;
    QTest::newRow("no address") << QByteArray(R"({"windows-x64":{"sha256":"d"}})") << false << QString()
                                << u"d"_s;
    QTest::newRow("a number for an address")
        << QByteArray(R"({"windows-x64":{"url":1,"sha256":true}})") << false << QString() << QString();
    QTest::newRow("another platform alone")
        << QByteArray(R"({"linux-x64":{"url":"u","sha256":"d"}})") << false << QString() << QString();
    QTest::newRow("the platform in other letters")
        << QByteArray(R"({"Windows-x64":{"url":"u","sha256":"d"}})") << false << QString() << QString();
    QTest::newRow("no platform") << QByteArray("{}") << false << QString() << QString();
    QTest::newRow("an entry of another type")
        << QByteArray(R"({"windows-x64":["u"]})") << false << QString() << QString();
    QTest::newRow("an entry that is null")
        << QByteArray(R"({"windows-x64":null})") << false << QString() << QString();
    QTest::newRow("platforms as a list")
        << QByteArray(R"(["windows-x64"])") << false << QString() << QString();
    QTest::newRow("platforms as text") << QByteArray(R"("windows-x64")") << false << QString() << QString();
}

void tst_UpdateManifest::package()
{
    QFETCH(const QByteArray, platforms);
    const UpdateManifest manifest = parsed(R"({"version":"1","platforms":)" + platforms + '}');

    QVERIFY(manifest.valid);
    QTEST(manifest.hasPackage, "hasPackage");
    QTEST(manifest.url, "url");
    QTEST(manifest.sha256, "digest");
}

void tst_UpdateManifest::invalid_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("error");

    QTest::newRow("nothing") << QByteArray() << u"JSON inválido: illegal value"_s;
    QTest::newRow("no JSON") << QByteArray("<html>") << u"JSON inválido: illegal value"_s;
    QTest::newRow("cut off") << QByteArray(R"({"version":"0.2.0","platf)")
                             << u"JSON inválido: unterminated string"_s;
    QTest::newRow("cut off after a value")
        << QByteArray(R"({"version":"0.2.0" )") << u"JSON inválido: unterminated object"_s;
    QTest::newRow("more after the end")
        << QByteArray(R"({"version":"1"} x)") << u"JSON inválido: garbage at the end of the document"_s;
    QTest::newRow("bytes that are no UTF-8")
        << QByteArray("{\"version\":\"\xff\"}") << u"JSON inválido: invalid UTF8 string"_s;
    QTest::newRow("a list") << QByteArray(R"([{"version":"1"}])") << u"JSON inválido: no error occurred"_s;
    QTest::newRow("no version") << QByteArray(R"({"platforms":{}})") << u"campo 'version' ausente"_s;
    QTest::newRow("an empty object") << QByteArray("{}") << u"campo 'version' ausente"_s;
    QTest::newRow("an empty version") << QByteArray(R"({"version":""})") << u"campo 'version' ausente"_s;
    QTest::newRow("a number for the version")
        << QByteArray(R"({"version":2})") << u"campo 'version' ausente"_s;
}

void tst_UpdateManifest::invalid()
{
    QFETCH(const QByteArray, text);
    const UpdateManifest manifest = parsed(text);

    QVERIFY(!manifest.valid);
    QVERIFY(!manifest.hasPackage);
    QTEST(manifest.error, "error");
}

void tst_UpdateManifest::unnamedVersionKeepsWhatWasRead()
{
    const UpdateManifest manifest = parsed(
        R"({"min_version":"3","notes_url":"n","rollout_percent":5,"platforms":{"windows-x64":{"url":"u"}}})");
    QVERIFY(!manifest.valid);
    QCOMPARE(manifest.min_version, u"3"_s);
    QCOMPARE(manifest.notes_url, u"n"_s);
    QCOMPARE(manifest.rollout_percent, 5);
    QCOMPARE(manifest.url, QString()); // the packages aren't reached
}

void tst_UpdateManifest::otherPlatform()
{
    const QByteArray text =
        R"({"version":"1","platforms":{"linux-x64":{"url":"l"},"windows-x64":{"url":"w"}}})";
    QCOMPARE(parseManifest(text, u"linux-x64"_s).url, u"l"_s);
    QCOMPARE(parseManifest(text, u"windows-x64"_s).url, u"w"_s);
}

void tst_UpdateManifest::versions_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QList<int>>("numbers");

    QTest::newRow("three numbers") << u"1.2.3"_s << QList<int>{1, 2, 3};
    QTest::newRow("two") << u"1.2"_s << QList<int>{1, 2};
    QTest::newRow("four") << u"0.1.0.9"_s << QList<int>{0, 1, 0, 9};
    QTest::newRow("v before") << u"v1.2.3"_s << QList<int>{1, 2, 3};
    QTest::newRow("V before") << u"V1.2.3"_s << QList<int>{1, 2, 3};
    QTest::newRow("one v alone is dropped") << u"vv1.2"_s << QList<int>{0, 2};
    QTest::newRow("space around") << u" \t1.2.3\n"_s << QList<int>{1, 2, 3};
    QTest::newRow("space before v") << u"  v2.0"_s << QList<int>{2, 0};
    QTest::newRow("a suffix") << u"0.2.0-rc1"_s << QList<int>{0, 2, 0};
    QTest::newRow("two suffixes") << u"0.2.0-rc1-5"_s << QList<int>{0, 2, 0};
    QTest::newRow("a suffix with a point") << u"1.2-rc.3"_s << QList<int>{1, 2};
    QTest::newRow("nothing but a suffix") << u"-rc1"_s << QList<int>{0};
    QTest::newRow("a negative part is a suffix") << u"1.-2.3"_s << QList<int>{1, 0};
    QTest::newRow("letters") << u"abc"_s << QList<int>{0};
    QTest::newRow("a part with a letter") << u"1.2b.3"_s << QList<int>{1, 0, 3};
    QTest::newRow("empty parts") << u"1..3."_s << QList<int>{1, 0, 3, 0};
    QTest::newRow("nothing") << QString() << QList<int>{0};
    QTest::newRow("in base ten") << u"010.0x10.9"_s << QList<int>{10, 0, 9};
    QTest::newRow("more than a number holds") << u"1.2147483648.2147483647"_s << QList<int>{1, 0, 2147483647};
}

void tst_UpdateManifest::versions()
{
    QFETCH(const QString, text);
    QTEST(parseVersion(text), "numbers");
}

void tst_UpdateManifest::comparison_data()
{
    QTest::addColumn<QString>("offered");
    QTest::addColumn<QString>("current");
    QTest::addColumn<bool>("newer");

    QTest::newRow("the same") << u"0.1.0"_s << u"0.1.0"_s << false;
    QTest::newRow("a higher patch") << u"0.1.1"_s << u"0.1.0"_s << true;
    QTest::newRow("a lower patch") << u"0.1.0"_s << u"0.1.1"_s << false;
    QTest::newRow("a higher minor with a lower patch") << u"0.2.0"_s << u"0.1.9"_s << true;
    QTest::newRow("a higher major with lower others") << u"1.0.0"_s << u"0.9.9"_s << true;
    QTest::newRow("a lower major with higher others") << u"0.9.9"_s << u"1.0.0"_s << false;
    QTest::newRow("missing numbers are none") << u"1.2"_s << u"1.2.0"_s << false;
    QTest::newRow("missing numbers of the current one") << u"1.2.0"_s << u"1.2"_s << false;
    QTest::newRow("missing numbers against one") << u"1.2.1"_s << u"1.2"_s << true;
    QTest::newRow("a leading v") << u"v1.2.3"_s << u"1.2.3"_s << false;
    QTest::newRow("a pre-release of a newer one") << u"0.2.0-rc1"_s << u"0.1.0"_s << true;
    QTest::newRow("a pre-release of the running one") << u"0.1.0-rc1"_s << u"0.1.0"_s << false;
    QTest::newRow("the release of a running pre-release") << u"0.1.0"_s << u"0.1.0-rc1"_s << false;
    QTest::newRow("numbers, not text") << u"1.10.0"_s << u"1.9.0"_s << true;
    QTest::newRow("numbers, not text, the other way") << u"1.9.0"_s << u"1.10.0"_s << false;
    QTest::newRow("the fourth isn't looked at") << u"0.1.0.9"_s << u"0.1.0"_s << false;
    QTest::newRow("letters") << u"abc"_s << u"0.1.0"_s << false;
    QTest::newRow("against letters") << u"0.0.1"_s << u"abc"_s << true;
}

void tst_UpdateManifest::comparison()
{
    QFETCH(const QString, offered);
    QFETCH(const QString, current);
    QTEST(isNewer(offered, current), "newer");
}

CORVANE_TEST(tst_UpdateManifest, QCoreApplication)
#include "tst_UpdateManifest.moc"
