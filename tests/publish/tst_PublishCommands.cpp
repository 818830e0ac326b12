#include "tests/guardian/ZipMaker.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tools/publish/Commands.h"
#include "tools/publish/PackageDigest.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTextStream>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

struct Answer
{
    int exitCode = -1;
    QString output;
    QString errors;
};

Answer ask(const QStringList &arguments)
{
    Answer answer;
    QTextStream output(&answer.output);
    QTextStream errors(&answer.errors);
    answer.exitCode = publish::run(QStringList{u"corvane-publish"_s} + arguments, output, errors);
    return answer;
}

void write(const QString &path, const QByteArray &text)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(text), text.size());
}

/// Of verify, if package.zip holds `content`.
QString notThePackage(const QByteArray &content)
{
    return "package.zip isn't the package of the manifest: its sha256 is "_L1 +
           QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex());
}

} // namespace

Q_DECLARE_METATYPE(QList<corvane::test::ZipItem>)

/// corvane-publish from its command line.
class tst_PublishCommands : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void keySignVerify();
    void theDigestIsThatOfTheFile();
    void keygenNeverOverwrites();
    void verifyRefuses_data();
    void verifyRefuses();
    void wrongCommandLines_data();
    void wrongCommandLines();
    void signFails_data();
    void signFails();
    void signJudgesAsAGuardianDoes_data();
    void signJudgesAsAGuardianDoes();
    void aWeakKeyVerifiesNothing();
    void aManifestThatCantBeWritten();
    void aKeyThatOthersMayRead();
    void help_data();
    void help();
    void progressOfABigPackage();

private:
    [[nodiscard]] QString path(const QString &name) const { return m_folder->filePath(name); }
    [[nodiscard]] QStringList signArguments() const;

    std::unique_ptr<QTemporaryDir> m_folder;
};

void tst_PublishCommands::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(test::writeZip(path(u"package.zip"_s), {{"corvane.exe", "abc"}, {"lib/a.dll", "x"}}));
}

QStringList tst_PublishCommands::signArguments() const
{
    return {u"sign"_s,
            u"--key"_s,
            path(u"key"_s),
            u"--version"_s,
            u"0.2.0"_s,
            u"--url"_s,
            u"https://host.example/CORVANE-0.2.0.zip"_s,
            u"--package"_s,
            path(u"package.zip"_s),
            u"--out"_s,
            path(u"latest.json"_s)};
}

void tst_PublishCommands::keySignVerify()
{
    const Answer made = ask({u"keygen"_s, u"--out"_s, path(u"key"_s)});
    QCOMPARE(made.exitCode, 0);
    QVERIFY2(made.output.contains("-DCORVANE_UPDATE_KEY="_L1), qPrintable(made.output));

    const Answer signature =
        ask(signArguments() + QStringList{u"--notes-url"_s, u"https://host.example/n"_s});
    QCOMPARE(signature.errors, QString());
    QCOMPARE(signature.exitCode, 0);

    const QStringList verify{u"verify"_s, u"--public-key"_s, path(u"key.pub"_s), u"--manifest"_s,
                             path(u"latest.json"_s)};
    QCOMPARE(ask(verify).exitCode, 0);
    const Answer both = ask(verify + QStringList{u"--package"_s, path(u"package.zip"_s)});
    QCOMPARE(both.exitCode, 0);
    QVERIFY2(both.output.contains("signature  right: version 0.2.0"_L1), qPrintable(both.output));
    QVERIFY2(both.output.contains("package    right"_L1), qPrintable(both.output));
}

void tst_PublishCommands::theDigestIsThatOfTheFile()
{
    QCOMPARE(ask({u"keygen"_s, u"--out"_s, path(u"key"_s)}).exitCode, 0);
    QCOMPARE(ask(signArguments()).exitCode, 0);
    QFile file(path(u"latest.json"_s));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QJsonObject package = QJsonDocument::fromJson(file.readAll())
                                    .object()[u"platforms"_s]
                                    .toObject()[u"windows-x64"_s]
                                    .toObject();
    QCOMPARE(package[u"sha256"_s].toString(),
             QString::fromLatin1(QCryptographicHash::hash(test::contentsOf(path(u"package.zip"_s)),
                                                          QCryptographicHash::Sha256)
                                     .toHex()));
    QCOMPARE(package[u"url"_s].toString(), u"https://host.example/CORVANE-0.2.0.zip"_s);
}

void tst_PublishCommands::keygenNeverOverwrites()
{
    QCOMPARE(ask({u"keygen"_s, u"--out"_s, path(u"key"_s)}).exitCode, 0);
    const Answer again = ask({u"keygen"_s, u"--out"_s, path(u"key"_s)});
    QCOMPARE(again.exitCode, 1);
    QVERIFY2(again.errors.contains("aren't overwritten"_L1), qPrintable(again.errors));
}

void tst_PublishCommands::verifyRefuses_data()
{
    QTest::addColumn<QString>("spoilt");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("error");
    QTest::newRow("another package") << u"package.zip"_s << QByteArray("abd") << notThePackage("abd");
    QTest::newRow("a longer package") << u"package.zip"_s << QByteArray("abcd") << notThePackage("abcd");
    QTest::newRow("no JSON") << u"latest.json"_s << QByteArray("{")
                             << u"latest.json is no manifest: JSON inválido: unterminated object"_s;
    QTest::newRow("no package named") << u"latest.json"_s << QByteArray(R"({"version":"0.2.0"})")
                                      << u"latest.json names no package for windows-x64"_s;
    QTest::newRow("no signature")
        << u"latest.json"_s
        << QByteArray(
               R"({"version":"0.2.0","platforms":{"windows-x64":{"url":"https://host.example/a","sha256":"00"}}})")
        << u"latest.json doesn't bear the signature of this key"_s;
    QTest::newRow("another's key")
        << u"key.pub"_s << QByteArray("d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a\n")
        << u"latest.json doesn't bear the signature of this key"_s;
}

void tst_PublishCommands::verifyRefuses()
{
    QFETCH(const QString, spoilt);
    QFETCH(const QByteArray, content);
    QFETCH(const QString, error);
    QCOMPARE(ask({u"keygen"_s, u"--out"_s, path(u"key"_s)}).exitCode, 0);
    QCOMPARE(ask(signArguments()).exitCode, 0);
    write(path(spoilt), content);

    const Answer answer = ask({u"verify"_s, u"--public-key"_s, path(u"key.pub"_s), u"--manifest"_s,
                               path(u"latest.json"_s), u"--package"_s, path(u"package.zip"_s)});
    QCOMPARE(answer.exitCode, 1);
    QCOMPARE(answer.errors, "corvane-publish: "_L1 + path(error) + u'\n');
}

void tst_PublishCommands::wrongCommandLines_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");
    QTest::newRow("nothing") << QStringList() << u"keygen|sign|verify"_s;
    QTest::newRow("another command") << QStringList{u"publish"_s} << u"keygen|sign|verify"_s;
    QTest::newRow("a missing option") << QStringList{u"keygen"_s} << u"--out is missing"_s;
    QTest::newRow("an unknown option") << QStringList{u"keygen"_s, u"--force"_s} << u"force"_s;
    QTest::newRow("one word too many")
        << QStringList{u"keygen"_s, u"--out"_s, u"k"_s, u"x"_s} << u"what is “x” for?"_s;
    QTest::newRow("no version") << QStringList{u"sign"_s,        u"--key"_s,     u"k"_s,
                                               u"--version"_s,   u"../1"_s,      u"--url"_s,
                                               u"https://h/p"_s, u"--package"_s, u"p"_s,
                                               u"--out"_s,       u"o"_s}
                                << u"“../1” isn't one"_s;
    QTest::newRow("no address") << QStringList{u"sign"_s,        u"--key"_s,     u"k"_s,
                                               u"--version"_s,   u"1"_s,         u"--url"_s,
                                               u"package.zip"_s, u"--package"_s, u"p"_s,
                                               u"--out"_s,       u"o"_s}
                                << u"no address"_s;
    QTest::newRow("a page of notes that is none")
        << QStringList{u"sign"_s,  u"--key"_s,       u"k"_s,         u"--version"_s, u"1"_s,
                       u"--url"_s, u"https://h/p"_s, u"--package"_s, u"p"_s,         u"--notes-url"_s,
                       u"notas"_s, u"--out"_s,       u"o"_s}
        << u"“notas” is no address"_s;
    QTest::newRow("no public key")
        << QStringList{u"verify"_s, u"--public-key"_s, u"abc"_s, u"--manifest"_s, u"m"_s}
        << u"“abc” is no public key: 64 hexadecimal digits, or a file that holds them"_s;
}

void tst_PublishCommands::wrongCommandLines()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QString, error);
    const Answer answer = ask(arguments);
    QCOMPARE(answer.exitCode, 2);
    QVERIFY2(answer.errors.contains(error), qPrintable(answer.errors));
    QCOMPARE(answer.output, QString());
}

void tst_PublishCommands::signFails_data()
{
    QTest::addColumn<QString>("missing");
    QTest::newRow("no key there") << u"key"_s;
    QTest::newRow("no package there") << u"package.zip"_s;
}

void tst_PublishCommands::signFails()
{
    QFETCH(const QString, missing);
    QCOMPARE(ask({u"keygen"_s, u"--out"_s, path(u"key"_s)}).exitCode, 0);
    QVERIFY(QFile::remove(path(missing)));
    const Answer answer = ask(signArguments());
    QCOMPARE(answer.exitCode, 1);
    QVERIFY2(answer.errors.contains(path(missing)), qPrintable(answer.errors));
    QVERIFY(!QFile::exists(path(u"latest.json"_s)));
}

void tst_PublishCommands::signJudgesAsAGuardianDoes_data()
{
    using test::ZipItem;
    QTest::addColumn<QList<ZipItem>>("items");
    QTest::addColumn<QString>("error"); // empty: it is signed
    const ZipItem program{"corvane.exe", "x"};
    const auto row = [](const char *title, const QList<ZipItem> &items, const QString &error) {
        QTest::newRow(title) << items << error;
    };
    ZipItem damaged{"a", "content"};
    damaged.wrongChecksum = true;
    row("for Windows", {program}, {});
    row("for Linux", {{"corvane", "x", 0100755}}, {});
    row("with its stamp", {program, {".corvane-installation", R"({"version":"0.2.0"})"}}, {});
    row("with another version's stamp", {program, {".corvane-installation", R"({"version":"0.1.0"})"}},
        u"what is in it calls itself version “0.1.0”"_s);
    row("with a stamp that says nothing", {program, {".corvane-installation", "x"}},
        u"what is in it calls itself version “”"_s);
    row("without the program", {{"readme", "x"}}, u"the program “corvane.exe” isn't in it"_s);
    row("in a folder", {{"corvane/corvane.exe", "x"}}, u"the program “corvane.exe” isn't in it"_s);
    row("with a way out", {program, {"../a", "x"}}, u"its entry “../a” leads out of its folder"_s);
    row("with a link", {program, {"a", "b", 0120777}}, u"its entry “a” is a link"_s);
    row("damaged", {program, damaged}, u"its entry “a” is damaged"_s);
}

void tst_PublishCommands::signJudgesAsAGuardianDoes()
{
    QFETCH(const QList<test::ZipItem>, items);
    QFETCH(const QString, error);
    QCOMPARE(ask({u"keygen"_s, u"--out"_s, path(u"key"_s)}).exitCode, 0);
    QVERIFY(test::writeZip(path(u"package.zip"_s), items));
    const Answer answer = ask(signArguments());
    QCOMPARE(answer.exitCode, error.isEmpty() ? 0 : 1);
    QVERIFY2(answer.errors.contains(error), qPrintable(answer.errors));
    QCOMPARE(QFile::exists(path(u"latest.json"_s)), error.isEmpty());
}

/// Under it every signature is right, whoever made it.
void tst_PublishCommands::aWeakKeyVerifiesNothing()
{
    QCOMPARE(ask({u"keygen"_s, u"--out"_s, path(u"key"_s)}).exitCode, 0);
    QCOMPARE(ask(signArguments()).exitCode, 0);
    const Answer answer =
        ask({u"verify"_s, u"--public-key"_s, QString(64, u'0'), u"--manifest"_s, path(u"latest.json"_s)});
    QCOMPARE(answer.exitCode, 1);
    QCOMPARE(answer.errors, u"corvane-publish: “%1” is a weak key, under which everybody can sign\n"_s.arg(
                                QString(64, u'0')));
}

void tst_PublishCommands::aManifestThatCantBeWritten()
{
    QCOMPARE(ask({u"keygen"_s, u"--out"_s, path(u"key"_s)}).exitCode, 0);
    QStringList arguments = signArguments();
    arguments.last() = path(u"missing/latest.json"_s);
    const Answer answer = ask(arguments);
    QCOMPARE(answer.exitCode, 1);
    QVERIFY2(answer.errors.contains("can't write "_L1 + arguments.last()), qPrintable(answer.errors));
    QCOMPARE(answer.output, QString());
}

void tst_PublishCommands::aKeyThatOthersMayRead()
{
#ifdef Q_OS_WIN
    QSKIP("what Qt shows as permissions here isn't what the file's access list says");
#endif
    QCOMPARE(ask({u"keygen"_s, u"--out"_s, path(u"key"_s)}).exitCode, 0);
    QVERIFY(QFile::setPermissions(path(u"key"_s), QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
    const Answer answer = ask(signArguments());
    QCOMPARE(answer.exitCode, 1);
    QVERIFY2(answer.errors.contains("is open to others than its owner"_L1), qPrintable(answer.errors));
    QVERIFY(!QFile::exists(path(u"latest.json"_s)));
}

void tst_PublishCommands::help_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("parts");
    QTest::newRow("of all") << QStringList{u"--help"_s} << QStringList{u"Exit code: 0 done"_s};
    QTest::newRow("of keygen") << QStringList{u"keygen"_s, u"--help"_s}
                               << QStringList{u"never overwritten"_s, u"  --out <FILE>  "_s};
    QTest::newRow("of sign") << QStringList{u"sign"_s, u"--help"_s}
                             << QStringList{u"  --key <FILE>  "_s,      u"  --version <VERSION>  "_s,
                                            u"  --url <URL>  "_s,       u"  --package <FILE>  "_s,
                                            u"  --notes-url <URL>  "_s, u"  --out <FILE>  "_s};
    QTest::newRow("of verify") << QStringList{u"verify"_s, u"-h"_s}
                               << QStringList{u"  --public-key <KEY>  "_s, u"  --manifest <FILE>  "_s,
                                              u"  --package <FILE>  "_s};
}

void tst_PublishCommands::help()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QStringList, parts);
    const Answer answer = ask(arguments);
    QCOMPARE(answer.exitCode, 0);
    QCOMPARE(answer.errors, QString());
    const QString folded = QString(answer.output).replace(QRegularExpression(u" {2,}"_s), u"  "_s);
    for (const QString &part : parts)
        QVERIFY2(folded.contains(part), qPrintable(part + " isn't in "_L1 + answer.output));
}

void tst_PublishCommands::progressOfABigPackage()
{
    QVERIFY(test::writeZip(path(u"package.zip"_s), {{"corvane.exe", QByteArray(64 << 20, 'x')}}));
    QCOMPARE(ask({u"keygen"_s, u"--out"_s, path(u"key"_s)}).exitCode, 0);
    const Answer answer = ask(signArguments());
    QCOMPARE(answer.exitCode, 0);
    QStringList expected;
    for (int percent = 10; percent <= 100; percent += 10)
        expected << u"hashing: %1 %"_s.arg(percent);
    QCOMPARE(answer.errors.trimmed().split(u'\n'), expected);
}

CORVANE_TEST(tst_PublishCommands, QCoreApplication)
#include "tst_PublishCommands.moc"
