#include "tests/support/Runner.h"
#include "tools/guardian/PackageEntries.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane::guardian;

namespace {

PackageEntry file(const QByteArray &name, quint64 size = 10)
{
    return {name, size, size, 0, false, 0100644};
}

PackageEntry folder(const QByteArray &name)
{
    return {name, 0, 0, 0, false, 0040755};
}

} // namespace

Q_DECLARE_METATYPE(corvane::guardian::PackageEntry)

/// What may be in a package, judged before anything is unpacked.
class tst_PackageEntries : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void names_data();
    void names();
    void kinds_data();
    void kinds();
    void twoEntries_data();
    void twoEntries();
    void sizes_data();
    void sizes();
    void theProgramHasToBeThere_data();
    void theProgramHasToBeThere();
    void tooManyEntries();
    void foldersOnTheWayCount();
};

void tst_PackageEntries::names_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("problem");

    const auto good = [](const char *name) { QTest::newRow(name) << QByteArray(name) << QString(); };
    for (const char *name :
         {"corvane", "corvane.exe", "lib/Qt6Core.dll", "lib/", "a/b/c/", ".hidden", "..a", "a..b", "com",
          "com10", "console.txt", "nulls", "a b/c d", "leia-me ação.txt", "x.con", "a~b"})
        good(name);

    const auto bad = [](const QByteArray &name, const QString &problem) {
        QTest::newRow(qPrintable(QString::fromLatin1(name))) << name << problem;
    };
    const QString out = u"leads out of its folder"_s;
    for (const char *name : {"..", "../a", "a/../../b", "a/..", "./a", "a/./b", "."})
        bad(name, out);
    const QString root = u"has an empty part, or begins at the root"_s;
    for (const char *name : {"/etc/passwd", "//host/share", "a//b", "/", "a//"})
        bad(name, root);
    QTest::newRow("empty") << QByteArray() << root;
    const QString character = u"holds a character that no file name may have everywhere"_s;
    for (const char *name : {"C:/a", "C:a", "a\\b", "..\\a", "\\\\host\\share", "a:stream", "a*", "a?", "a<b",
                             "a>b", "a|b", "a\"b", "a\nb", "a\tb", "a\x7f"})
        bad(name, character);
    const QString end = u"has a part that ends in a dot or a space"_s;
    for (const char *name : {"a.", "a ", "a./b", "a /b", "..."})
        bad(name, end);
    const QString device = u"names a device"_s;
    for (const char *name : {"con", "CON", "nul", "Nul.txt", "aux.tar.gz", "prn/a", "a/com1", "LPT9.log",
                             "com¹", "com²", "lpt³", "conin$", "CONOUT$", "con .txt", "clock$"})
        QTest::newRow(name) << QByteArray(name) << device;
    for (char digit = '0'; digit <= '9'; ++digit) {
        bad("com"_ba + digit + ".x", device);
        bad("lpt"_ba + digit, device);
    }
    QTest::newRow("not UTF-8") << QByteArray("a\xff") << u"isn't UTF-8"_s;
    QTest::newRow("an overlong slash") << QByteArray("a\xc0\xaf"
                                                     "b")
                                       << u"isn't UTF-8"_s;
}

void tst_PackageEntries::names()
{
    QFETCH(const QByteArray, name);
    QTEST(nameProblem(name), "problem");
}

void tst_PackageEntries::kinds_data()
{
    QTest::addColumn<PackageEntry>("entry");
    QTest::addColumn<QString>("problem");
    const auto row = [](const char *title, const PackageEntry &entry, const QString &problem) {
        QTest::newRow(title) << entry << problem;
    };
    row("a file", file("a"), {});
    row("a folder", folder("a/"), {});
    row("a packer that gives no mode", {"a", 10, 10, 0, false, 0}, {});
    row("deflated", {"a", 10, 5, 8, false, 0100644}, {});
    const QString special = u"its entry “a” is a link or another special file"_s;
    row("a symbolic link", {"a", 10, 10, 0, false, 0120777}, special);
    row("a pipe", {"a", 0, 0, 0, false, 0010644}, special);
    row("a device", {"a", 0, 0, 0, false, 0060644}, special);
    row("a file that says it is a folder", {"a", 0, 0, 0, false, 0040755}, special);
    row("a folder that says it is a link", {"a/", 0, 0, 0, false, 0120777},
        u"its entry “a/” is a link or another special file"_s);
    row("encrypted", {"a", 10, 10, 0, true, 0100644}, u"its entry “a” is encrypted"_s);
    row("another method", {"a", 10, 5, 12, false, 0100644},
        u"its entry “a” is packed by method 12, not stored or deflated"_s);
    row("stored with two sizes", {"a", 10, 5, 0, false, 0100644},
        u"its entry “a” is stored with two sizes"_s);
    row("a folder with content", {"a/", 10, 10, 0, false, 0040755},
        u"its entry “a/” is a folder with content"_s);
    row("a stamp", file(".corvane-installation"), {});
    row("a stamp too long to be one", file(".corvane-installation", 65'537),
        u"its entry “.corvane-installation” is a name that the guardian keeps for itself"_s);
    row("a folder in the stamp's place", folder(".corvane-installation/"),
        u"its entry “.corvane-installation/” is a name that the guardian keeps for itself"_s);
    row("a file in such a folder", file(".corvane-installation/a"),
        u"its entry “.corvane-installation/a” is a name that the guardian keeps for itself"_s);
    row("a stamp in capitals", file(".Corvane-Installation"),
        u"its entry “.Corvane-Installation” is a name that the guardian keeps for itself"_s);
    row("a long name", file(QByteArray(241, 'a')),
        u"its entry “%1…” is longer than 240 bytes"_s.arg(QString(80, u'a')));
}

void tst_PackageEntries::kinds()
{
    QFETCH(const PackageEntry, entry);
    QTEST(entriesProblem({file("corvane"), entry}, 1000, "corvane"), "problem");
}

void tst_PackageEntries::twoEntries_data()
{
    QTest::addColumn<QByteArray>("first");
    QTest::addColumn<QByteArray>("second");
    QTest::addColumn<QString>("problem");
    const auto row = [](const char *title, const char *first, const char *second, const QString &problem) {
        QTest::newRow(title) << QByteArray(first) << QByteArray(second) << problem;
    };
    row("two files", "a", "b", {});
    row("a folder and a file in it", "a/", "a/b", {});
    row("the file before its folder", "a/b", "a/", {});
    row("two files in a folder that isn't named", "a/b", "a/c", {});
    const auto twice = [](const char *name) {
        return u"its entry “%1” is there twice, letter case aside"_s.arg(QString::fromUtf8(name));
    };
    row("the same", "a", "a", twice("a"));
    row("another letter case", "lib.dll", "LIB.DLL", twice("LIB.DLL"));
    row("another letter case of the folder", "a/b", "A/B", twice("A/B"));
    row("accents composed and not", "a\xc3\xa9", "ae\xcc\x81", twice("ae\xcc\x81"));
    row("an accent composed in small letters alone", "\xc7\xb0", "J\xcc\x8c", twice("J\xcc\x8c"));
    row("the same folder twice", "a/", "a/", twice("a/"));
    row("a file and a folder", "a", "a/", twice("a/"));
    row("a folder and a file", "a/", "a", twice("a"));
    row("a folder by its file, and a file", "a/b", "a", twice("a"));
    row("a file in a file", "a", "a/b", u"its entry “a/b” lies in a file"_s);
    row("a file in a file of another case", "a", "A/b", u"its entry “A/b” lies in a file"_s);
}

void tst_PackageEntries::twoEntries()
{
    QFETCH(const QByteArray, first);
    QFETCH(const QByteArray, second);
    const auto entry = [](const QByteArray &name) { return name.endsWith('/') ? folder(name) : file(name); };
    QTEST(entriesProblem({file("corvane"), entry(first), entry(second)}, 1000, "corvane"), "problem");
}

void tst_PackageEntries::sizes_data()
{
    QTest::addColumn<QList<quint64>>("sizes");
    QTest::addColumn<quint64>("packageBytes");
    QTest::addColumn<QString>("problem");
    constexpr quint64 mega = 1 << 20;
    const QString much = u"it unpacks to more than 4294967296 bytes"_s;
    const QString ratio = u"it unpacks to more than 100 times its size"_s;
    QTest::newRow("ordinary") << QList<quint64>{100 * mega} << 30 * mega << QString();
    QTest::newRow("small, though well packed") << QList<quint64>{64 * mega} << quint64(1000) << QString();
    QTest::newRow("packed a hundred times") << QList<quint64>{200 * mega} << 2 * mega << QString();
    QTest::newRow("packed more") << QList<quint64>{300 * mega} << 2 * mega << ratio;
    QTest::newRow("packed more in many") << QList<quint64>(40, 8 * mega) << 2 * mega << ratio;
    QTest::newRow("too much in one") << QList<quint64>{5000 * mega} << 4000 * mega << much;
    QTest::newRow("too much in two") << QList<quint64>{3000 * mega, 3000 * mega} << 4000 * mega << much;
    QTest::newRow("a sum that would run over")
        << QList<quint64>{1000 * mega, ~quint64(0) - 900 * mega} << 4000 * mega << much;
}

void tst_PackageEntries::sizes()
{
    QFETCH(const QList<quint64>, sizes);
    QFETCH(const quint64, packageBytes);
    QList<PackageEntry> entries{file("corvane", 0)};
    for (qsizetype i = 0; i < sizes.size(); ++i)
        entries.append({"f" + QByteArray::number(i), sizes[i], sizes[i] / 100, 8, false, 0100644});
    QTEST(entriesProblem(entries, packageBytes, "corvane"), "problem");
}

void tst_PackageEntries::theProgramHasToBeThere_data()
{
    QTest::addColumn<PackageEntry>("entry");
    QTest::addColumn<bool>("there");
    QTest::newRow("at the top") << file("corvane") << true;
    QTest::newRow("in a folder") << file("corvane-0.2.0/corvane") << false;
    QTest::newRow("in another letter case") << file("Corvane") << false;
    QTest::newRow("a folder") << folder("corvane/") << false;
}

void tst_PackageEntries::theProgramHasToBeThere()
{
    QFETCH(const PackageEntry, entry);
    QFETCH(const bool, there);
    QCOMPARE(entriesProblem({entry}, 1000, "corvane"),
             there ? QString() : u"the program “corvane” isn't in it"_s);
}

void tst_PackageEntries::tooManyEntries()
{
    QList<PackageEntry> entries{file("corvane")};
    for (int i = 1; i < 20'000; ++i)
        entries.append(file("f" + QByteArray::number(i)));
    QCOMPARE(entriesProblem(entries, 1'000'000, "corvane"), QString());
    entries.append(file("one more"));
    QCOMPARE(entriesProblem(entries, 1'000'000, "corvane"), u"it has more than 20000 entries"_s);
}

/// Each would be made on the disk, named or not.
void tst_PackageEntries::foldersOnTheWayCount()
{
    PackageLimits limits;
    limits.entries = 5;
    QCOMPARE(entriesProblem({file("corvane"), file("a/b/c/d")}, 1000, "corvane", limits), QString());
    QCOMPARE(entriesProblem({file("corvane"), file("a/b/c/d/e")}, 1000, "corvane", limits),
             u"it has more than 5 entries, the folders on their way included"_s);
    QCOMPARE(entriesProblem({file("corvane"), file("a/b/c/d"), file("a/b/c/e")}, 1000, "corvane", limits),
             u"it has more than 5 entries, the folders on their way included"_s);
}

CORVANE_TEST(tst_PackageEntries, QCoreApplication)
#include "tst_PackageEntries.moc"
