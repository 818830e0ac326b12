// Where the file system refuses: one, or a kernel, that knows none of renameat2()'s flags, a folder that
// can't be opened, a file that can't be brought to the disk.

#include "tests/guardian/ZipMaker.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tools/guardian/DirectoryMoves.h"
#include "tools/guardian/DiskSync.h"
#include "tools/guardian/Unpack.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <memory>

#include <sys/syscall.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace corvane::guardian;
using namespace corvane::test;

namespace {

int refusal = 0;     ///< value of errno with which renameat2() fails
int syncRefusal = 0; ///< with which fsync() does; 0: it doesn't

} // namespace

// Replacements: a program's symbols come before those of the system's library.
extern "C" int renameat2(int, const char *, int, const char *, unsigned int) noexcept
{
    errno = refusal;
    return -1;
}

extern "C" int fsync(int descriptor)
{
    if (syncRefusal == 0)
        return static_cast<int>(::syscall(SYS_fsync, descriptor));
    errno = syncRefusal;
    return -1;
}

class tst_FileSystemRefusals : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void exchange_data();
    void exchange();
    void move_data();
    void move();
    void nothingIsReplaced();
    void folderThatCannotBeSynced();
    void fileThatCannotBeSynced();

private:
    [[nodiscard]] QString path(const QString &name) const { return m_dir->filePath(name); }

    std::unique_ptr<QTemporaryDir> m_dir;
};

void tst_FileSystemRefusals::init()
{
    syncRefusal = 0;
    m_dir = std::make_unique<QTemporaryDir>();
    writeFile(path(u"one/file"_s), "one");
}

void tst_FileSystemRefusals::exchange_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<int>("result");

    QTest::newRow("flag unknown to the file system") << EINVAL << int(ExchangeResult::NotSupported);
    QTest::newRow("call unknown to the kernel") << ENOSYS << int(ExchangeResult::NotSupported);
    QTest::newRow("refused") << EACCES << int(ExchangeResult::Failed);
}

void tst_FileSystemRefusals::exchange()
{
    QFETCH(const int, error);
    writeFile(path(u"other/file"_s), "other");
    refusal = error;

    const ExchangeResult exchanged = exchangeFolders(path(u"one"_s), path(u"other"_s));

    QTEST(int(exchanged.kind), "result");
    QCOMPARE(exchanged.error, exchanged.kind == ExchangeResult::Failed ? u"Permission denied"_s : QString());
    QCOMPARE(contentsOf(path(u"one/file"_s)), "one"_ba);
}

void tst_FileSystemRefusals::move_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("words");

    QTest::newRow("flag unknown to the file system") << EINVAL << QString();
    QTest::newRow("call unknown to the kernel") << ENOSYS << QString();
    QTest::newRow("refused") << EACCES << u"Permission denied"_s;
}

void tst_FileSystemRefusals::move()
{
    QFETCH(const int, error);
    QFETCH(const QString, words);
    refusal = error;

    QCOMPARE(moveFolder(path(u"one"_s), path(u"two"_s)), words);

    QCOMPARE(entriesOf(m_dir->path()), QStringList{words.isEmpty() ? u"two"_s : u"one"_s});
}

void tst_FileSystemRefusals::nothingIsReplaced()
{
    refusal = EINVAL;
    QVERIFY(QDir().mkpath(path(u"two"_s))); // which rename() would replace

    QCOMPARE(moveFolder(path(u"one"_s), path(u"two"_s)), u"File exists"_s);

    QCOMPARE(entriesOf(m_dir->path()), QStringList({u"one"_s, u"two"_s}));
    QCOMPARE(entriesOf(path(u"two"_s)), QStringList());
}

void tst_FileSystemRefusals::folderThatCannotBeSynced()
{
    const QString below = path(u"one/below"_s);
    QVERIFY(QDir().mkpath(below));
    QVERIFY(syncFolders(path(u"one"_s)));
    const Unprivileged bound;
    QVERIFY(QFile::setPermissions(below, QFile::WriteOwner | QFile::ExeOwner));

    QVERIFY(!syncFolders(path(u"one"_s)));

    QVERIFY(QFile::setPermissions(below, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

/// After a power cut it might be empty.
void tst_FileSystemRefusals::fileThatCannotBeSynced()
{
    QVERIFY(writeZip(path(u"p.zip"_s), {{"corvane", "x", 0100755}}));
    syncRefusal = EIO;

    QCOMPARE(unpack(path(u"p.zip"_s), path(u"next"_s), u"corvane"_s),
             u"its entry “corvane” can't be written: Input/output error"_s);
    QVERIFY(!QFile::exists(path(u"next"_s)));
}

CORVANE_TEST(tst_FileSystemRefusals, QCoreApplication)
#include "tst_FileSystemRefusals.moc"
