#include "ndi/FramePipe.h"
#include "tests/ndi/PipeReader.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QSet>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <optional>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

/// Sets a variable of the environment while it lives; null unsets it.
class Variable
{
public:
    Variable(const char *name, const QByteArray &value)
        : m_name(name)
    {
        if (qEnvironmentVariableIsSet(name))
            m_former = qgetenv(name);
        put(value.isNull() ? std::nullopt : std::optional(value));
    }
    ~Variable() { put(m_former); }
    Variable(const Variable &) = delete;
    Variable &operator=(const Variable &) = delete;

private:
    void put(const std::optional<QByteArray> &value)
    {
        if (value)
            qputenv(m_name, *value);
        else
            qunsetenv(m_name);
    }

    const char *m_name;
    std::optional<QByteArray> m_former;
};

/// Largest capacity that the system grants a pipe of this process, in bytes.
int largestCapacity()
{
    int ends[2];
    if (pipe(ends) != 0)
        return 0;
    const int capacity = fcntl(ends[0], F_SETPIPE_SZ, 0x400000) < 0 ? 0x100000 : 0x400000;
    close(ends[0]);
    close(ends[1]);
    return capacity;
}

} // namespace

/// The pipe as a FIFO, its form on POSIX.
class tst_FramePipe : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void path_data();
    void path();
    void isForThisUserAlone();
    void holdsAFrame();
    void leavesNothing();
    void cannotBeMade_data();
    void cannotBeMade();
    void replacesWhatACrashLeft();
    void isServedOnce();
    void replacesItsOwn();
    void readerIsThereFirst();
    void readerComesLater();
    void closeEndsTheWait();
    void nothingToWaitFor();
    void slowReaderGetsAll();
    void readerGoes();
    void closeEndsAWrite();
    void keepsNoDescriptors();
    void childrenInheritNothing();

private:
    QTemporaryDir m_dir;
};

void tst_FramePipe::path_data()
{
    QTest::addColumn<QByteArray>("runtimeDir");
    QTest::addColumn<QString>("expected");

    const QString own = m_dir.path();
    const QString temporary = QDir::tempPath();
    QTest::newRow("runtime directory") << QFile::encodeName(own) << own + "/corvane-ndi-cafe0001"_L1;
    QTest::newRow("none") << QByteArray() << temporary + "/corvane-ndi-cafe0001"_L1;
    QTest::newRow("empty") << QByteArray("") << temporary + "/corvane-ndi-cafe0001"_L1;
    QTest::newRow("there is no such directory")
        << QFile::encodeName(own + "/gone"_L1) << temporary + "/corvane-ndi-cafe0001"_L1;
}

void tst_FramePipe::path()
{
    QFETCH(const QByteArray, runtimeDir);
    const Variable runtime("XDG_RUNTIME_DIR", runtimeDir);
    QTEST(framePipePath(u"cafe0001"_s), "expected");
}

void tst_FramePipe::isForThisUserAlone()
{
    const QString path = m_dir.filePath(u"pipe"_s);
    FramePipe pipe;
    const mode_t former = umask(0);
    const quint32 error = pipe.create(path);
    umask(former);
    QCOMPARE(error, 0U);

    struct stat found
    {
    };
    QCOMPARE(lstat(QFile::encodeName(path).constData(), &found), 0);
    QVERIFY(S_ISFIFO(found.st_mode));
    QCOMPARE(found.st_mode & 07777U, 0600U);
}

void tst_FramePipe::holdsAFrame()
{
    const QString path = m_dir.filePath(u"pipe"_s);
    FramePipe pipe;
    QCOMPARE(pipe.create(path), 0U);
    const int reader = open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    QVERIFY(reader >= 0);
    const int capacity = fcntl(reader, F_GETPIPE_SZ);
    close(reader);
    QCOMPARE_GE(capacity, largestCapacity());
}

void tst_FramePipe::leavesNothing()
{
    const QTemporaryDir dir;
    const auto entries = [&] {
        return QDir(dir.path())
            .entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot);
    };
    {
        FramePipe pipe;
        QVERIFY(!pipe.isOpen());
        QCOMPARE(pipe.create(dir.filePath(u"pipe"_s)), 0U);
        QVERIFY(pipe.isOpen());
        QVERIFY(entries().contains(u"pipe"_s));
        pipe.close();
        QVERIFY(!pipe.isOpen());
        QCOMPARE(entries(), QStringList());
        pipe.close();
        QCOMPARE(pipe.create(dir.filePath(u"pipe"_s)), 0U);
    }
    QCOMPARE(entries(), QStringList());
}

void tst_FramePipe::cannotBeMade_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<quint32>("error");

    QTest::newRow("no such folder") << u"gone/pipe"_s << quint32(ENOENT);
    QTest::newRow("a file in the folder's place") << u"file/pipe"_s << quint32(ENOTDIR);
    QTest::newRow("a file in its own place") << u"file"_s << quint32(EEXIST);
    QTest::newRow("name too long") << QString(300, u'n') << quint32(ENAMETOOLONG);
}

void tst_FramePipe::cannotBeMade()
{
    QFETCH(const QString, name);
    const QTemporaryDir dir;
    createFile(dir.filePath(u"file"_s));

    FramePipe pipe;
    QTEST(pipe.create(dir.filePath(name)), "error");
    QVERIFY(!pipe.isOpen());
    QVERIFY(!pipe.write("frame"));
    pipe.close();
    QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot),
             QStringList{u"file"_s});
}

void tst_FramePipe::replacesWhatACrashLeft()
{
    const QString path = m_dir.filePath(u"pipe"_s);
    QCOMPARE(mkfifo(QFile::encodeName(path).constData(), 0666), 0);
    FramePipe pipe;
    QCOMPARE(pipe.create(path), 0U);
    struct stat found
    {
    };
    QCOMPARE(lstat(QFile::encodeName(path).constData(), &found), 0);
    QCOMPARE(found.st_mode & 07777U, 0600U);
}

void tst_FramePipe::isServedOnce()
{
    const QString path = m_dir.filePath(u"pipe"_s);
    PipeReader reader(5);
    FramePipe first;
    QCOMPARE(first.create(path), 0U);
    {
        FramePipe second;
        QCOMPARE(second.create(path), quint32(EBUSY));
        QVERIFY(!second.isOpen());
    }
    reader.open(path);
    QVERIFY(reader.couldOpen());
    QCOMPARE(first.waitForReader(), 0U);
    QVERIFY(first.write("frame"));
    first.close();
    QVERIFY(waitUntil([&] { return reader.ended(); }));
    QCOMPARE(reader.lastFrame(), QByteArray("frame"));

    FramePipe third;
    QCOMPARE(third.create(path), 0U);
}

void tst_FramePipe::replacesItsOwn()
{
    FramePipe pipe;
    QCOMPARE(pipe.create(m_dir.filePath(u"first"_s)), 0U);
    QCOMPARE(pipe.create(m_dir.filePath(u"second"_s)), 0U);
    QVERIFY(!QFileInfo::exists(m_dir.filePath(u"first"_s)));
    QVERIFY(QFileInfo::exists(m_dir.filePath(u"second"_s)));
}

void tst_FramePipe::readerIsThereFirst()
{
    PipeReader reader(5);
    FramePipe pipe;
    QCOMPARE(pipe.create(m_dir.filePath(u"pipe"_s)), 0U);
    reader.open(m_dir.filePath(u"pipe"_s));
    QVERIFY(reader.couldOpen());
    QCOMPARE(pipe.waitForReader(), 0U);
    QCOMPARE(pipe.waitForReader(), 0U);
}

void tst_FramePipe::readerComesLater()
{
    PipeReader reader(5);
    FramePipe pipe;
    QCOMPARE(pipe.create(m_dir.filePath(u"pipe"_s)), 0U);
    std::promise<void> waiting;
    auto waited = std::async(std::launch::async, [&] {
        waiting.set_value();
        return pipe.waitForReader();
    });
    waiting.get_future().wait();
    reader.open(m_dir.filePath(u"pipe"_s));
    QVERIFY(reader.couldOpen());
    QCOMPARE(waited.get(), 0U);
}

void tst_FramePipe::closeEndsTheWait()
{
    FramePipe pipe;
    QCOMPARE(pipe.create(m_dir.filePath(u"pipe"_s)), 0U);
    std::promise<void> waiting;
    auto waited = std::async(std::launch::async, [&] {
        waiting.set_value();
        return pipe.waitForReader();
    });
    waiting.get_future().wait();
    pipe.close();
    QCOMPARE(waited.get(), quint32(ECANCELED));
    QCOMPARE(pipe.waitForReader(), quint32(ECANCELED));
}

void tst_FramePipe::nothingToWaitFor()
{
    FramePipe pipe;
    QCOMPARE(pipe.waitForReader(), quint32(ECANCELED));
    QVERIFY(!pipe.write("frame"));
}

void tst_FramePipe::slowReaderGetsAll()
{
    constexpr qsizetype size = 0x500000; // more than the pipe holds
    QByteArray first(size, 'a');
    QByteArray second(size, 'b');
    PipeReader reader(size);
    FramePipe pipe;
    QCOMPARE(pipe.create(m_dir.filePath(u"pipe"_s)), 0U);
    reader.openPaused(m_dir.filePath(u"pipe"_s));
    QVERIFY(reader.couldOpen());
    QCOMPARE(pipe.waitForReader(), 0U);

    std::atomic<bool> written = false;
    auto writer = std::async(std::launch::async, [&] {
        const bool ok = pipe.write(first) && pipe.write(second);
        written = true;
        return ok;
    });
    QVERIFY(!written); // it can't be: nobody has read
    reader.resume();
    QVERIFY(writer.get());
    pipe.close();
    QVERIFY(waitUntil([&] { return reader.ended(); }));
    QCOMPARE(reader.frames(), 2);
    QCOMPARE(reader.leftover(), 0);
    QCOMPARE(reader.runs().constFirst().frame, first);
    QCOMPARE(reader.lastFrame(), second);
}

void tst_FramePipe::readerGoes()
{
    FramePipe pipe;
    QCOMPARE(pipe.create(m_dir.filePath(u"pipe"_s)), 0U);
    const int reader =
        open(QFile::encodeName(m_dir.filePath(u"pipe"_s)).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    QVERIFY(reader >= 0);
    QCOMPARE(pipe.waitForReader(), 0U);
    QVERIFY(pipe.write("frame"));
    close(reader);
    QVERIFY(!pipe.write("frame"));
    QVERIFY(pipe.isOpen());
}

void tst_FramePipe::closeEndsAWrite()
{
    PipeReader reader(1);
    FramePipe pipe;
    QCOMPARE(pipe.create(m_dir.filePath(u"pipe"_s)), 0U);
    reader.openPaused(m_dir.filePath(u"pipe"_s));
    QVERIFY(reader.couldOpen());
    QCOMPARE(pipe.waitForReader(), 0U);
    std::promise<void> writing;
    auto writer = std::async(std::launch::async, [&] {
        writing.set_value();
        return pipe.write(QByteArray(0x500000, 'a'));
    });
    writing.get_future().wait();
    pipe.close();
    QVERIFY(!writer.get());
}

void tst_FramePipe::keepsNoDescriptors()
{
    createFile(m_dir.filePath(u"file"_s));
    const qsizetype descriptors = openDescriptors();
    for (int i = 0; i < 50; ++i) {
        FramePipe pipe;
        QCOMPARE(pipe.create(m_dir.filePath(u"pipe"_s)), 0U);
        QVERIFY(pipe.create(m_dir.filePath(u"file"_s)) != 0);
    }
    QCOMPARE(openDescriptors(), descriptors);
}

void tst_FramePipe::childrenInheritNothing()
{
    const auto descriptors = [] {
        QSet<int> open;
        const QStringList names = QDir(u"/proc/self/fd"_s).entryList(QDir::AllEntries | QDir::System);
        for (const QString &name : names) {
            bool number = false;
            const int descriptor = name.toInt(&number);
            if (number && fcntl(descriptor, F_GETFD) >= 0) // that of the listing itself is closed
                open << descriptor;
        }
        return open;
    };
    const QSet<int> before = descriptors();
    FramePipe pipe;
    QCOMPARE(pipe.create(m_dir.filePath(u"pipe"_s)), 0U);

    const QSet<int> own = descriptors() - before;
    QCOMPARE_GE(own.size(), 2); // the pipe, and what ends its waits
    for (const int descriptor : own)
        QVERIFY2(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, qPrintable(QString::number(descriptor)));
}

CORVANE_TEST(tst_FramePipe, QCoreApplication)
#include "tst_FramePipe.moc"
