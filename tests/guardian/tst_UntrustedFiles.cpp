#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tools/guardian/FolderRemoval.h"
#include "tools/guardian/OwnFolder.h"
#include "tools/guardian/PrintableText.h"
#include "tools/guardian/RegularFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace Qt::StringLiterals;
using namespace corvane::guardian;
using corvane::test::contentsOf;
using corvane::test::entriesOf;
using corvane::test::giveAway;
using corvane::test::writeFile;

/// Files and folders that somebody may have prepared for the guardian.
class tst_UntrustedFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void regularFiles_data();
    void regularFiles();
    void anotherUsersFile();
    void aNewOwnFolder();
    void ownFolders_data();
    void ownFolders();
    void removalLeavesWhatLinksLeadTo();
    void removalOfALink();
    void removalOfWhatIsReadOnly();
    void removalThatWasCutOff();
    void printableTexts_data();
    void printableTexts();

private:
    [[nodiscard]] QString path(const QString &name) const { return m_folder->filePath(name); }

    std::unique_ptr<QTemporaryDir> m_folder;
};

void tst_UntrustedFiles::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
}

void tst_UntrustedFiles::regularFiles_data()
{
    using Make = void (*)(const QString &path, const QString &other);
    QTest::addColumn<Make>("make");
    QTest::addColumn<QString>("error"); // empty: it is opened
    const auto row = [](const char *title, Make make, const QString &error) {
        QTest::newRow(title) << make << error;
    };
    row("a file", [](const QString &at, const QString &) { writeFile(at, "12345678"); }, {});
    row("an empty file", [](const QString &at, const QString &) { writeFile(at, {}); }, {});
    row(
        "too long a file", [](const QString &at, const QString &) { writeFile(at, "123456789"); },
        u"it is longer than 8 bytes"_s);
    row(
        "a folder", [](const QString &at, const QString &) { QVERIFY(QDir().mkpath(at)); },
        u"it is no regular file"_s);
#ifdef Q_OS_UNIX
    row(
        "a FIFO",
        [](const QString &at, const QString &) {
            QCOMPARE(::mkfifo(QFile::encodeName(at).constData(), S_IRUSR | S_IWUSR), 0);
        },
        u"it is no regular file"_s);
    row(
        "a link to a file",
        [](const QString &at, const QString &other) {
            writeFile(other, "1");
            QVERIFY(QFile::link(other, at));
        },
        u"it is a link"_s);
    row(
        "a link to a device",
        [](const QString &at, const QString &) { QVERIFY(QFile::link(u"/dev/zero"_s, at)); },
        u"it is a link"_s);
#endif
}

/// Whatever it is, the answer comes at once.
void tst_UntrustedFiles::regularFiles()
{
    using Make = void (*)(const QString &path, const QString &other);
    QFETCH(const Make, make);
    QFETCH(const QString, error);
    make(path(u"file"_s), path(u"other"_s));
    const RegularFile opened = openRegularFile(path(u"file"_s), 8);
    QCOMPARE(opened.error, error);
    QCOMPARE(opened.file != nullptr, error.isEmpty());
    if (opened.file) {
        QVERIFY(opened.isOwn);
        QCOMPARE(opened.file->readAll(), contentsOf(path(u"file"_s)));
    }
    QVERIFY(!openRegularFile(path(u"missing"_s), 8).error.isEmpty());
}

void tst_UntrustedFiles::anotherUsersFile()
{
    writeFile(path(u"file"_s), "1");
    if (!giveAway(path(u"file"_s)))
        QSKIP("this user can't give files away");
    const RegularFile opened = openRegularFile(path(u"file"_s), 8);
    QVERIFY(opened.file);
    QVERIFY(!opened.isOwn);
    QVERIFY(belongsToAnother(path(u"file"_s)));
    QVERIFY(!belongsToAnother(path(u"missing"_s)));
    QVERIFY(!belongsToAnother(m_folder->path()));
}

void tst_UntrustedFiles::aNewOwnFolder()
{
    const QString own = path(u"above/own"_s);
    QCOMPARE(makeOwnFolder(own), QString());
    QVERIFY(QFileInfo(own).isDir());
#ifdef Q_OS_UNIX
    struct stat status = {};
    QCOMPARE(::lstat(QFile::encodeName(own).constData(), &status), 0);
    QCOMPARE(status.st_mode & 07777U, 0700U);
#endif
    QCOMPARE(makeOwnFolder(own), QString());
}

void tst_UntrustedFiles::ownFolders_data()
{
    using Make = void (*)(const QString &path, const QString &other);
    QTest::addColumn<Make>("make");
    QTest::addColumn<QString>("problem");
    const auto row = [](const char *title, Make make, const QString &problem) {
        QTest::newRow(title) << make << problem;
    };
    row(
        "a file", [](const QString &at, const QString &) { writeFile(at, "x"); }, u"it is no folder"_s);
#ifdef Q_OS_UNIX
    row(
        "a link to a folder",
        [](const QString &at, const QString &other) {
            QCOMPARE(makeOwnFolder(other), QString());
            QVERIFY(QFile::link(other, at));
        },
        u"it is a link"_s);
    row(
        "open to a group",
        [](const QString &at, const QString &) {
            QCOMPARE(::mkdir(QFile::encodeName(at).constData(), 0700), 0);
            QCOMPARE(::chmod(QFile::encodeName(at).constData(), 0750), 0);
        },
        u"it is open to others than its owner"_s);
    row(
        "open to all",
        [](const QString &at, const QString &) {
            QCOMPARE(::mkdir(QFile::encodeName(at).constData(), 0700), 0);
            QCOMPARE(::chmod(QFile::encodeName(at).constData(), 0701), 0);
        },
        u"it is open to others than its owner"_s);
    if (::geteuid() == 0) { // nobody else gives folders away
        row(
            "another user's",
            [](const QString &at, const QString &) {
                constexpr uid_t nobody = 65534;
                QCOMPARE(::mkdir(QFile::encodeName(at).constData(), 0700), 0);
                QCOMPARE(::chown(QFile::encodeName(at).constData(), nobody, nobody), 0);
            },
            u"it belongs to another user"_s);
    }
#endif
}

void tst_UntrustedFiles::ownFolders()
{
    using Make = void (*)(const QString &path, const QString &other);
    QFETCH(const Make, make);
    QFETCH(const QString, problem);
    make(path(u"own"_s), path(u"other"_s));
    if (QTest::currentTestFailed())
        return;
    const QString found = makeOwnFolder(path(u"own"_s));
    QVERIFY2(found.startsWith(problem), qPrintable(found));
}

void tst_UntrustedFiles::removalLeavesWhatLinksLeadTo()
{
    writeFile(path(u"outside/kept"_s), "kept");
    writeFile(path(u"gone/deep/er/file"_s), "x");
    writeFile(path(u"gone/.hidden"_s), "x");
#ifdef Q_OS_UNIX
    QVERIFY(QFile::link(path(u"outside"_s), path(u"gone/link"_s)));
    QVERIFY(QFile::link(path(u"outside/kept"_s), path(u"gone/deep/link"_s)));
    QVERIFY(QFile::link(path(u"nowhere"_s), path(u"gone/broken"_s)));
    QCOMPARE(::mkfifo(QFile::encodeName(path(u"gone/fifo"_s)).constData(), 0600), 0);
#endif
    QVERIFY(QDir().mkpath(path(u"aside"_s)));
    QCOMPARE(removeFolder(path(u"gone"_s), path(u"aside"_s)), QString());
    QVERIFY(!isTaken(path(u"gone"_s)));
    QCOMPARE(contentsOf(path(u"outside/kept"_s)), QByteArray("kept"));
    QCOMPARE(entriesOf(path(u"aside"_s)), QStringList());
    QCOMPARE(removeFolder(path(u"gone"_s), path(u"aside"_s)), QString()); // there is none any more
}

void tst_UntrustedFiles::removalOfALink()
{
#ifndef Q_OS_UNIX
    QSKIP("links take a right here that a user doesn't have");
#else
    writeFile(path(u"outside/kept"_s), "kept");
    QVERIFY(QDir().mkpath(path(u"aside"_s)));
    QVERIFY(QFile::link(path(u"outside"_s), path(u"gone"_s)));
    QCOMPARE(removeFolder(path(u"gone"_s), path(u"aside"_s)), QString());
    QVERIFY(!isTaken(path(u"gone"_s)));
    QCOMPARE(contentsOf(path(u"outside/kept"_s)), QByteArray("kept"));
#endif
}

void tst_UntrustedFiles::removalOfWhatIsReadOnly()
{
    writeFile(path(u"gone/locked/file"_s), "x");
    QVERIFY(QFile::setPermissions(path(u"gone/locked/file"_s), QFile::ReadOwner));
    QVERIFY(QFile::setPermissions(path(u"gone/locked"_s), QFile::ReadOwner | QFile::ExeOwner));
    QVERIFY(QDir().mkpath(path(u"aside"_s)));
    QCOMPARE(removeFolder(path(u"gone"_s), path(u"aside"_s)), QString());
    QCOMPARE(entriesOf(m_folder->path()), QStringList{u"aside"_s});
}

void tst_UntrustedFiles::removalThatWasCutOff()
{
    writeFile(path(u"aside/gone-1/file"_s), "x");
    writeFile(path(u"aside/kept/file"_s), "x");
    removeLeftovers(path(u"aside"_s));
    QCOMPARE(entriesOf(path(u"aside"_s)), QStringList{u"kept"_s});
}

void tst_UntrustedFiles::printableTexts_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");
    QTest::newRow("plain") << u"a “b” é 漢 😀"_s << u"a “b” é 漢 😀"_s;
    QTest::newRow("empty") << QString() << QString();
    QTest::newRow("lines") << u"a\nb\r\tc"_s << u"a?b??c"_s;
    QTest::newRow("a terminal's escape") << u"\x1b[2J\x9b"_s << u"?[2J?"_s;
    QTest::newRow("turned round") << u"gpj.\u202eexe\u202c"_s << u"gpj.?exe?"_s;
    QTest::newRow("isolates and marks") << u"\u2066a\u2069\u200e\u061c"_s << u"?a???"_s;
    QTest::newRow("separators") << u"a\u2028b\u2029c"_s << u"a?b?c"_s;
    QTest::newRow("invisible") << u"a\u200bb\ufeff"_s << u"a?b?"_s;
    QTest::newRow("an invisible pair") << QString::fromUcs4(U"a\U000E0041b") << u"a?b"_s;
    QTest::newRow("half a pair") << u"a"_s + QChar(0xd83d) + u"b"_s + QChar(0xde00) << u"a?b?"_s;
}

void tst_UntrustedFiles::printableTexts()
{
    QFETCH(const QString, text);
    QTEST(printable(text), "shown");
}

CORVANE_TEST(tst_UntrustedFiles, QCoreApplication)
#include "tst_UntrustedFiles.moc"
