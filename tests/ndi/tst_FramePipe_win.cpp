#include "ndi/FramePipe.h"
#include "ndi/ThreadPriority.h"
#include "tests/ndi/ReceiverBench.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QProcess>
#include <QSemaphore>
#include <QTest>
#include <QThread>

#include <atomic>
#include <memory>

#include <windows.h>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

constexpr qsizetype fullHd = 1920 * 1080 * 2;

QByteArray fullHdFrame(char fill, qsizetype size = fullHd)
{
    return QByteArray(size, fill);
}

/// Another process that reads the pipe.
class Reader
{
public:
    explicit Reader(const QString &path, qsizetype bytes = -1)
    {
        QStringList arguments{path};
        if (bytes >= 0)
            arguments << QString::number(bytes);
        m_process.start(QStringLiteral(CORVANE_FRAME_READER), arguments);
    }

    [[nodiscard]] bool opens()
    {
        return waitUntil([&] {
            m_said += m_process.readAllStandardError();
            return m_said == "open";
        });
    }

    [[nodiscard]] bool ends()
    {
        return m_process.state() == QProcess::NotRunning || m_process.waitForFinished(20000);
    }

    [[nodiscard]] QByteArray received() { return m_process.readAllStandardOutput(); }
    [[nodiscard]] int exitCode() const { return m_process.exitCode(); }

private:
    QProcess m_process;
    QByteArray m_said;
};

/// Runs `work` on a thread of its own, as a pump does.
template <typename Work>
std::unique_ptr<QThread> onAThread(Work work)
{
    std::unique_ptr<QThread> thread(QThread::create(work));
    thread->start();
    return thread;
}

} // namespace

/// The named pipe between this process and another one that reads it.
class tst_FramePipe_win : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void path();
    void isWhatTheReaderExpects();
    void framesReachAnotherProcess();
    void readerGoes();
    void readerMayBeThereFirst();
    void isServedOnce();
    void leavesNothing();
    void cannotBeMade_data();
    void cannotBeMade();
    void closeEndsTheWait();
    void closeEndsAWrite();
    void pumpComesBeforeEverythingElse();
};

void tst_FramePipe_win::path()
{
    QCOMPARE(framePipePath(u"0badcafe"_s), u"\\\\.\\pipe\\corvane-ndi-0badcafe"_s);
}

void tst_FramePipe_win::isWhatTheReaderExpects()
{
    const QString path = freshPipePath();
    FramePipe pipe;
    QCOMPARE(pipe.create(path), 0U);
    const HANDLE reader = CreateFileW(reinterpret_cast<LPCWSTR>(path.utf16()), GENERIC_READ, 0, nullptr,
                                      OPEN_EXISTING, 0, nullptr);
    QVERIFY(reader != INVALID_HANDLE_VALUE);

    DWORD flags = 0;
    DWORD out = 0;
    DWORD instances = 0;
    QVERIFY(GetNamedPipeInfo(reader, &flags, &out, nullptr, &instances));
    CloseHandle(reader);
    QCOMPARE(flags & PIPE_TYPE_MESSAGE, 0U); // a stream of bytes
    QCOMPARE(out, 0x400000U);                // room for a frame of the largest usual size
    QCOMPARE(instances, 1U);
    // The other side can't write into it.
    QVERIFY(CreateFileW(reinterpret_cast<LPCWSTR>(path.utf16()), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0,
                        nullptr) == INVALID_HANDLE_VALUE);
}

void tst_FramePipe_win::framesReachAnotherProcess()
{
    const QString path = freshPipePath();
    FramePipe pipe;
    QCOMPARE(pipe.create(path), 0U);
    Reader reader(path, 3 * fullHd);
    bool written = false;
    const auto pump = onAThread([&] {
        written = pipe.waitForReader() == 0 && pipe.write(fullHdFrame('a')) && pipe.write(fullHdFrame('b')) &&
                  pipe.write(fullHdFrame('c'));
    });
    QVERIFY(reader.opens());
    QVERIFY(reader.ends());
    QVERIFY(pump->wait(20000));

    QVERIFY(written);
    QCOMPARE(reader.exitCode(), 0);
    QVERIFY(reader.received() == fullHdFrame('a') + fullHdFrame('b') + fullHdFrame('c'));
}

void tst_FramePipe_win::readerGoes()
{
    const QString path = freshPipePath();
    FramePipe pipe;
    QCOMPARE(pipe.create(path), 0U);
    Reader reader(path, 1000);
    int frames = 0;
    const auto pump = onAThread([&] {
        if (pipe.waitForReader() != 0)
            return;
        while (frames < 100 && pipe.write(fullHdFrame('x')))
            ++frames;
    });
    QVERIFY(reader.opens());
    QVERIFY(reader.ends());
    QVERIFY(pump->wait(20000));
    QVERIFY(frames < 100);
}

void tst_FramePipe_win::readerMayBeThereFirst()
{
    const QString path = freshPipePath();
    FramePipe pipe;
    QCOMPARE(pipe.create(path), 0U);
    Reader reader(path, 5);
    QVERIFY(reader.opens());
    QCOMPARE(pipe.waitForReader(), 0U);
    QVERIFY(pipe.write("12345"));
    QVERIFY(reader.ends());
    QCOMPARE(reader.received(), QByteArray("12345"));
}

void tst_FramePipe_win::isServedOnce()
{
    const QString path = freshPipePath();
    FramePipe pipe;
    FramePipe second;
    QCOMPARE(pipe.create(path), 0U);
    QCOMPARE(second.create(path), quint32(ERROR_PIPE_BUSY));
    QVERIFY(!second.isOpen());
    QVERIFY(pipe.isOpen());
    pipe.close();
    QCOMPARE(second.create(path), 0U);
}

void tst_FramePipe_win::leavesNothing()
{
    const QString path = freshPipePath();
    FramePipe pipe;
    QCOMPARE(pipe.create(path), 0U);
    QVERIFY(pipeExists(path));
    pipe.close();
    QVERIFY(!pipe.isOpen());
    QVERIFY(!pipeExists(path));
    Reader reader(path);
    QVERIFY(reader.ends());
    QCOMPARE(reader.exitCode(), 1);
}

void tst_FramePipe_win::cannotBeMade_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<quint32>("error");

    QTest::newRow("no pipe's path") << u"C:\\corvane-ndi-x"_s << quint32(ERROR_INVALID_NAME);
    // Wine reports it as a path that doesn't exist.
    const bool wine = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
    QTest::newRow("another machine's")
        << u"\\\\nowhere.invalid\\pipe\\x"_s << quint32(wine ? ERROR_PATH_NOT_FOUND : ERROR_INVALID_NAME);
}

void tst_FramePipe_win::cannotBeMade()
{
    QFETCH(const QString, path);
    FramePipe pipe;
    QTEST(pipe.create(path), "error");
    QVERIFY(!pipe.isOpen());
}

void tst_FramePipe_win::closeEndsTheWait()
{
    FramePipe pipe;
    QCOMPARE(pipe.create(freshPipePath()), 0U);
    quint32 error = 0;
    QSemaphore up;
    const auto pump = onAThread([&] {
        up.release();
        error = pipe.waitForReader();
    });
    up.acquire();
    pipe.close();
    QVERIFY(pump->wait(3000));
    QCOMPARE(error, quint32(ERROR_OPERATION_ABORTED));
}

void tst_FramePipe_win::closeEndsAWrite()
{
    const QString path = freshPipePath();
    FramePipe pipe;
    QCOMPARE(pipe.create(path), 0U);
    const HANDLE reader = CreateFileW(reinterpret_cast<LPCWSTR>(path.utf16()), GENERIC_READ, 0, nullptr,
                                      OPEN_EXISTING, 0, nullptr); // and reads nothing
    QVERIFY(reader != INVALID_HANDLE_VALUE);
    std::atomic<int> frames = 0;
    const auto pump = onAThread([&] {
        if (pipe.waitForReader() != 0)
            return;
        while (pipe.write(fullHdFrame('x')))
            ++frames;
    });
    QVERIFY(waitUntil([&] { return frames >= 1; }));
    pipe.close();
    QVERIFY(pump->wait(3000));
    CloseHandle(reader);
}

void tst_FramePipe_win::pumpComesBeforeEverythingElse()
{
    int priority = 0;
    const auto pump = onAThread([&] {
        makeThreadTimeCritical();
        priority = GetThreadPriority(GetCurrentThread());
    });
    QVERIFY(pump->wait(20000));
    QCOMPARE(priority, 15);
    QCOMPARE(GetThreadPriority(GetCurrentThread()), 0); // that thread alone
}

CORVANE_TEST(tst_FramePipe_win, QCoreApplication)
#include "tst_FramePipe_win.moc"
