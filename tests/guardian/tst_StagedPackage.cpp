#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/SmallDisk.h"
#include "tools/guardian/StagedPackage.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

using namespace Qt::StringLiterals;
using namespace corvane::guardian;
using corvane::test::contentsOf;
using corvane::test::writeFile;

/// The guardian's own copy of a package.
class tst_StagedPackage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void copiesAndHashes_data();
    void copiesAndHashes();
    void theOwnersAlone();
    void aNewFileOrNone();
    void fullDisk_data();
    void fullDisk();
    void whatIsNoPackage_data();
    void whatIsNoPackage();

private:
    [[nodiscard]] QString path(const QString &name) const { return m_folder->filePath(name); }

    std::unique_ptr<QTemporaryDir> m_folder;
};

void tst_StagedPackage::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
}

void tst_StagedPackage::copiesAndHashes_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("small") << QByteArray("package");
    QTest::newRow("as long as may be") << QByteArray(3 << 20, 'p');
}

void tst_StagedPackage::copiesAndHashes()
{
    QFETCH(const QByteArray, bytes);
    writeFile(path(u"staged"_s), bytes);
    writeFile(path(u"copy"_s), "of an earlier package, and longer than that one");
    const CopiedPackage copied = copyPackage(path(u"staged"_s), path(u"copy"_s), 3 << 20);
    QCOMPARE(copied.error, QString());
    QCOMPARE(contentsOf(path(u"copy"_s)), bytes);
    QCOMPARE(copied.sha256.toLatin1(), QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

void tst_StagedPackage::theOwnersAlone()
{
#ifdef Q_OS_UNIX
    writeFile(path(u"staged"_s), "package");
    const mode_t former = ::umask(0);
    const CopiedPackage copied = copyPackage(path(u"staged"_s), path(u"copy"_s), 100);
    ::umask(former);
    QCOMPARE(copied.error, QString());
    struct stat status = {};
    QCOMPARE(::stat(QFile::encodeName(path(u"copy"_s)).constData(), &status), 0);
    QCOMPARE(status.st_mode & 07777U, 0600U);
#else
    QSKIP("a file has the rights of its folder here");
#endif
}

/// A file that somebody has put there, open to all, and that can't be removed: it isn't written to.
void tst_StagedPackage::aNewFileOrNone()
{
#ifdef Q_OS_UNIX
    writeFile(path(u"staged"_s), "package");
    writeFile(path(u"own/copy"_s), "prepared");
    const QByteArray folder = QFile::encodeName(path(u"own"_s));
    QCOMPARE(::chmod(QFile::encodeName(path(u"own/copy"_s)).constData(), 0666), 0);
    QCOMPARE(::chmod(folder.constData(), 0555), 0);
    CopiedPackage copied;
    {
        const corvane::test::Unprivileged user;
        copied = copyPackage(path(u"staged"_s), path(u"own/copy"_s), 100);
    }
    QCOMPARE(::chmod(folder.constData(), 0755), 0);
    QVERIFY2(copied.error.startsWith("the package can't be copied to"_L1), qPrintable(copied.error));
    QCOMPARE(contentsOf(path(u"own/copy"_s)), QByteArray("prepared"));
#else
    QSKIP("whoever may write a file here may remove it");
#endif
}

void tst_StagedPackage::fullDisk_data()
{
    QTest::addColumn<bool>("isFull");
    QTest::newRow("before the first byte") << true;
    QTest::newRow("after the first bytes") << false;
}

void tst_StagedPackage::fullDisk()
{
    QFETCH(const bool, isFull);
    writeFile(path(u"staged"_s), QByteArray(100'000, 'p'));
    QVERIFY(QDir().mkpath(path(u"own"_s)));
    const corvane::test::SmallDisk disk(path(u"own"_s), 64);
    if (!disk.isMounted())
        QSKIP("this system lets the test mount no file system of its own");
    if (isFull)
        QVERIFY(disk.fill());

    QCOMPARE(copyPackage(path(u"staged"_s), path(u"own/copy"_s), 1'000'000).error,
             u"the package can't be copied to %1: No space left on device"_s.arg(path(u"own/copy"_s)));
    QVERIFY(!QFile::exists(path(u"own/copy"_s)));
}

void tst_StagedPackage::whatIsNoPackage_data()
{
    using Make = void (*)(const QString &path);
    QTest::addColumn<Make>("make");
    QTest::addColumn<QString>("error");
    const auto row = [](const char *title, Make make, const QString &error) {
        QTest::newRow(title) << make << error;
    };
    row(
        "a byte too much", [](const QString &at) { writeFile(at, QByteArray(101, 'p')); },
        u"the package can't be read: it is longer than 100 bytes"_s);
    row(
        "a folder", [](const QString &at) { QVERIFY(QDir().mkpath(at)); },
        u"the package can't be read: it is no regular file"_s);
#ifdef Q_OS_UNIX
    row(
        "a FIFO", [](const QString &at) { QCOMPARE(::mkfifo(QFile::encodeName(at).constData(), 0600), 0); },
        u"the package can't be read: it is no regular file"_s);
    row(
        "a link to a package",
        [](const QString &at) {
            writeFile(at + ".other"_L1, "package");
            QVERIFY(QFile::link(at + ".other"_L1, at));
        },
        u"the package can't be read: it is a link"_s);
    row(
        "nothing", [](const QString &) {}, u"the package can't be read: No such file or directory"_s);
#endif
}

/// Nothing is written for it.
void tst_StagedPackage::whatIsNoPackage()
{
    using Make = void (*)(const QString &path);
    QFETCH(const Make, make);
    QFETCH(const QString, error);
    make(path(u"staged"_s));
    QCOMPARE(copyPackage(path(u"staged"_s), path(u"copy"_s), 100).error, error);
    QVERIFY(!QFile::exists(path(u"copy"_s)));
}

CORVANE_TEST(tst_StagedPackage, QCoreApplication)
#include "tst_StagedPackage.moc"
