#include "tests/guardian/ZipMaker.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/SmallDisk.h"
#include "tools/guardian/Unpack.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane::guardian;
using corvane::test::contentsOf;
using corvane::test::writeZip;
using corvane::test::ZipItem;

namespace {

ZipItem program()
{
    return {"corvane", "#!program\n"};
}

} // namespace

Q_DECLARE_METATYPE(corvane::test::ZipItem)

/// Packages onto the disk: what is right whole, what isn't not at all.
class tst_Unpack : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void contentAndFolders();
    void permissions();
    void fullDisk();
    void hostileEntries_data();
    void hostileEntries();
    void whatIsNoZip_data();
    void whatIsNoZip();
    void aBomb();
    void theTargetHasToBeNew();

private:
    [[nodiscard]] QString path(const QString &name) const { return m_folder->filePath(name); }
    /// Every path in the test's folder but the package.
    [[nodiscard]] QStringList left() const;

    std::unique_ptr<QTemporaryDir> m_folder;
};

void tst_Unpack::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(QDir(m_folder->path()).mkdir(u"in"_s));
}

QStringList tst_Unpack::left() const
{
    QStringList found;
    QDirIterator entries(m_folder->path(),
                         QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext())
        found << QDir(m_folder->path()).relativeFilePath(entries.next());
    found.removeOne(u"p.zip"_s);
    found.sort();
    return found;
}

void tst_Unpack::contentAndFolders()
{
    const QByteArray much = QByteArray("linha\n").repeated(200'000);
    QVERIFY(writeZip(path(u"p.zip"_s), {program(),
                                        {"lib/", {}, 0040755},
                                        {"lib/a.dll", much, 0100644, true},
                                        {"doc/leia-me ação.txt", "olá"},
                                        {"empty", {}},
                                        {"folder/", {}, 0}}));
    QCOMPARE(unpack(path(u"p.zip"_s), path(u"in/next"_s), u"corvane"_s), QString());
    QCOMPARE(left(), QStringList({u"in"_s, u"in/next"_s, u"in/next/corvane"_s, u"in/next/doc"_s,
                                  u"in/next/doc/leia-me ação.txt"_s, u"in/next/empty"_s, u"in/next/folder"_s,
                                  u"in/next/lib"_s, u"in/next/lib/a.dll"_s}));
    QCOMPARE(contentsOf(path(u"in/next/lib/a.dll"_s)), much);
    QCOMPARE(contentsOf(path(u"in/next/doc/leia-me ação.txt"_s)), QByteArray("olá"));
    QVERIFY(QFileInfo(path(u"in/next/folder"_s)).isDir());
}

void tst_Unpack::permissions()
{
#ifdef Q_OS_WIN
    QSKIP("there is no executable bit here");
#endif
    QVERIFY(writeZip(
        path(u"p.zip"_s),
        {{"corvane", "x", 0100600}, {"tool", "x", 0104777}, {"data", "x", 0100666}, {"plain", "x", 0}}));
    QCOMPARE(unpack(path(u"p.zip"_s), path(u"in/next"_s), u"corvane"_s), QString());
    const auto permissionsOf = [this](const QString &name) {
        // What belongs to this user says the same as what belongs to the owner.
        return QFile::permissions(path("in/next/"_L1 + name)) &
               ~(QFile::ReadUser | QFile::WriteUser | QFile::ExeUser);
    };
    constexpr auto plain = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther;
    constexpr auto executable = plain | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
    QCOMPARE(permissionsOf(u"corvane"_s), executable);
    QCOMPARE(permissionsOf(u"tool"_s), executable);
    QCOMPARE(permissionsOf(u"data"_s), plain);
    QCOMPARE(permissionsOf(u"plain"_s), plain);
}

void tst_Unpack::fullDisk()
{
    QVERIFY(writeZip(path(u"p.zip"_s), {program(), {"lib/a.dll", QByteArray(200'000, 'x')}}));
    QVERIFY(QDir().mkpath(path(u"in"_s)));
    const corvane::test::SmallDisk disk(path(u"in"_s), 8); // holds the program
    if (!disk.isMounted())
        QSKIP("this system lets the test mount no file system of its own");
    QCOMPARE(unpack(path(u"p.zip"_s), path(u"in/next"_s), u"corvane"_s),
             u"its entry “lib/a.dll” can't be written: No space left on device"_s);
    QCOMPARE(left(), QStringList{u"in"_s});
}

void tst_Unpack::hostileEntries_data()
{
    QTest::addColumn<ZipItem>("item");
    QTest::addColumn<QString>("problem");
    const auto row = [](const char *title, const ZipItem &item, const QString &problem) {
        QTest::newRow(title) << item << problem;
    };
    const QByteArray text(1000, 'x');
    row("out of the folder", {"../evil", "x"}, u"its entry “../evil” leads out"_s);
    row("out of the folder from within", {"lib/../../evil", "x"}, u"leads out"_s);
    row("absolute", {"/tmp/evil", "x"}, u"begins at the root"_s);
    row("a drive", {"C:/evil", "x"}, u"no file name may have"_s);
    row("backslashes", {"..\\evil", "x"}, u"no file name may have"_s);
    row("a symbolic link", {"link", "/etc/passwd", 0120777}, u"is a link"_s);
    row("the program again", {"corvane", "y"}, u"isn't a zip file that is right in itself"_s);
    row("the program in capitals", {"CORVANE", "y"}, u"is there twice"_s);
    row("a file under the program", {"corvane/x", "y"}, u"lies in a file"_s);
    row("a device", {"nul.txt", "y"}, u"names a device"_s);
    row("a folder with content", {"folder/", "y", 0}, u"is a folder with content"_s);

    ZipItem longer{"lies", text, 0100644, true};
    longer.announcedSize = 10;
    row("longer than announced", longer, u"its entry “lies” is longer than was announced"_s);
    ZipItem shorter{"lies", text, 0100644, true};
    shorter.announcedSize = 5000;
    row("shorter than announced", shorter, u"its entry “lies” is"_s);
    ZipItem stored{"lies", text};
    stored.announcedSize = 10;
    row("stored, and longer than announced", stored, u"stored"_s); // libzip itself knows it, or we do
    ZipItem damaged{"damaged", text, 0100644, true};
    damaged.wrongChecksum = true;
    row("another checksum", damaged, u"its entry “damaged” is damaged"_s);
    ZipItem other{"harmless", "x"};
    other.localName = "evil.exe";
    row("another name before the content", other, u"isn't a zip file that is right in itself"_s);
    ZipItem garbage{"garbage", text};
    garbage.method = 8;
    garbage.announcedSize = 1000;
    row("no deflated content", garbage, u"its entry “garbage” is damaged"_s);
    ZipItem method{"method", text};
    method.method = 14;
    row("a method that isn't taken", method, u"is packed by method 14"_s);
    ZipItem encrypted{"secret", text, 0100644, true};
    encrypted.flags = 1;
    row("encrypted", encrypted, u"is encrypted"_s);
}

void tst_Unpack::hostileEntries()
{
    QFETCH(const ZipItem, item);
    QFETCH(const QString, problem);
    QVERIFY(writeZip(path(u"p.zip"_s), {program(), {"lib/good", "good"}, item}));
    const QString answer = unpack(path(u"p.zip"_s), path(u"in/next"_s), u"corvane"_s);
    QVERIFY2(answer.contains(problem), qPrintable(answer));
    QCOMPARE(left(), QStringList{u"in"_s});
}

void tst_Unpack::whatIsNoZip_data()
{
    QTest::addColumn<QByteArray>("bytes");
    const QByteArray good = corvane::test::zipBytes({program()});
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("text") << QByteArray("<html>404</html>");
    QTest::newRow("cut short") << good.chopped(10);
    QTest::newRow("its beginning missing") << good.sliced(8);
    QTest::newRow("zeros") << QByteArray(1000, '\0');
}

void tst_Unpack::whatIsNoZip()
{
    QFETCH(const QByteArray, bytes);
    QFile file(path(u"p.zip"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
    file.close();
    const QString answer = unpack(path(u"p.zip"_s), path(u"in/next"_s), u"corvane"_s);
    QVERIFY2(!answer.isEmpty(), "taken for a package");
    QCOMPARE(left(), QStringList{u"in"_s});
}

void tst_Unpack::aBomb()
{
    PackageLimits limits;
    limits.freeOfRatio = 1 << 20; // a small bomb does
    QList<ZipItem> items{program()};
    for (int i = 0; i < 5; ++i)
        items.append({"zeros" + QByteArray::number(i), QByteArray(1 << 18, '\0'), 0100644, true});
    QVERIFY(writeZip(path(u"p.zip"_s), items));
    QCOMPARE(unpack(path(u"p.zip"_s), path(u"in/next"_s), u"corvane"_s, limits),
             u"it unpacks to more than 100 times its size"_s);
    QCOMPARE(left(), QStringList{u"in"_s});
}

void tst_Unpack::theTargetHasToBeNew()
{
    QVERIFY(writeZip(path(u"p.zip"_s), {program()}));
    QCOMPARE(unpack(path(u"p.zip"_s), path(u"in"_s), u"corvane"_s),
             u"the folder %1 exists or can't be made"_s.arg(path(u"in"_s)));
    QCOMPARE(left(), QStringList{u"in"_s});
}

CORVANE_TEST(tst_Unpack, QCoreApplication)
#include "tst_Unpack.moc"
