#include "tests/air/AirCall.h"
#include "tests/air/Lists.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cerrno>

#ifdef Q_OS_UNIX
#include <sys/mount.h>
#include <sys/stat.h>
#endif

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

QString step(const QString &name, const QByteArray &value)
{
    return name + u'=' + stepText(value);
}

/// Words of the system for an error code of its own.
QByteArray systemWords([[maybe_unused]] int posix, [[maybe_unused]] int windows)
{
#ifdef Q_OS_WIN
    QString words = qt_error_string(windows).trimmed();
    return (words.endsWith(u'.') ? words.chopped(1) : words).toUtf8();
#else
    return qt_error_string(posix).toUtf8();
#endif
}

/// The companion with a list of a transmission, before an encoder that performs steps.
class Transmission
{
public:
    explicit Transmission(QStringList steps)
        : m_steps(std::move(steps))
    {
        m_call.putEncoder(u"b"_s);
    }

    /// The directory for recordings, switched on; as the system writes it.
    QString recordTo(const QString &directory)
    {
        QString native = QDir::toNativeSeparators(directory);
        writeFile(m_call.filePath(u"a/recordings"_s), native.toUtf8() + '\n');
        return native;
    }

    void setVariable(const QString &name, const QString &value)
    {
        QProcessEnvironment environment = process().processEnvironment();
        environment.insert(name, value);
        process().setProcessEnvironment(environment);
    }

#ifdef Q_OS_UNIX
    /// From now on calls of the system behave as this library has it.
    void preload(const QString &library)
    {
        setVariable(u"LD_PRELOAD"_s, library);
        setVariable(u"ASAN_OPTIONS"_s, u"verify_asan_link_order=0"_s);
    }
#endif

    void start(const QStringList &input = {})
    {
        m_call.start(list(input));
    }

    /// As the shell starts it behind this command, with the standard streams alone.
    void startBehind(const QString &command)
    {
        const QString script =
            u"exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; "_s + command + uR"( && exec "$0" "$@")"_s;
        process().start(u"/bin/sh"_s, QStringList{u"-c"_s, script, m_call.at(u"a"_s)} + list());
    }

    [[nodiscard]] QStringList list(const QStringList &input = {}) const
    {
        const QString target = u"rtmp://127.0.0.1:1/live/fake:%1,rest="_s.arg(m_steps.join(u','));
        QStringList list = liveList({u"-f"_s, u"flv"_s, target});
        return list.first(4) + input + list.sliced(4);
    }

    int exitCode()
    {
        return process().waitForFinished(20000) ? process().exitCode() : -1;
    }

    int run()
    {
        start();
        return exitCode();
    }

    /// Everything on its standard error so far.
    QByteArray said()
    {
        return m_said += process().readAllStandardError();
    }

    bool waitFor(const QByteArray &text)
    {
        return waitUntil([&] { return said().contains(text); });
    }

    QProcess &process()
    {
        return m_call.process();
    }
    [[nodiscard]] QString filePath(const QString &name) const
    {
        return m_call.filePath(name);
    }
    [[nodiscard]] QString encoder() const
    {
        return m_call.at(u"b"_s);
    }

private:
    AirCall m_call;
    QStringList m_steps;
    QByteArray m_said;
};

/// True as soon as a process that isn't this one's child has ended, whether or not it has been reaped.
bool isOver(qint64 pid)
{
#ifdef Q_OS_WIN
    return !processExists(pid);
#else
    return processCommand(pid).isEmpty();
#endif
}

const QString isUp = step(u"stderr"_s, "[error] up\n");
const QString connects = step(u"stderr"_s, "[tee @ 0x1] [verbose] filename\n"
                                           "[tcp @ 0x1] [verbose] Successfully connected to h\n");
const QString goodbye = step(u"stdout"_s, "goodbye\n");

} // namespace

/// The companion between a program and an encoder.
class tst_AirSupervise : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void standardStreams();
    void endOfInput();
    void exitCode_data();
    void exitCode();
    void crash();
    void killTakesTheEncoderAlong();
    void interruptedCalls();
    void pipesOfTheEncoder();
    void signalsOfTheEncoder();
    void nobodyListens();
    void encoderThatCannotBeRun();
    void withoutDescriptors_data();
    void withoutDescriptors();
    void withoutAProcess();
    void quitOpensTheGate();
    void endOfALiveSource();
    void endOfAFile();
    void stopWithoutAnAnswer();
    void hungEncoder();
    void figures();
    void recording();
    void recordingsAreNumbered();
    void contestedNumbers_data();
    void contestedNumbers();
    void burstsAreRecorded();
    void onTheDiskEveryTwoSeconds();
    void recordingThatFails_data();
    void recordingThatFails();
    void failedRecordingIsClosed();
    void fullDisk();
    void blockedDisk_data();
    void blockedDisk();
    void nameLookups();
    void nothingIsRecordedUnasked();
};

void tst_AirSupervise::standardStreams()
{
    const QTemporaryDir dir;
    const QString input = dir.filePath(u"input"_s);
    Transmission call({step(u"stdout"_s, QByteArray("out\0\xff\n", 6)), step(u"input"_s, input.toUtf8()),
                       step(u"stderr"_s, "[error] err\n"), u"await-input=4"_s, u"exit=3"_s});
    call.start();
    QVERIFY(call.waitFor("err"));
    call.process().write("xyz\n");

    QCOMPARE(call.exitCode(), 3);
    QCOMPARE(call.process().readAllStandardOutput(), QByteArray("out\0\xff\n", 6));
    QCOMPARE(call.said(), "err\n"_ba);
    QCOMPARE(contentsOf(input), "xyz\n"_ba);
}

void tst_AirSupervise::endOfInput()
{
    Transmission call({isUp});
    call.start();
    QVERIFY(call.waitFor("up"));

    call.process().closeWriteChannel();

    QCOMPARE(call.exitCode(), 1); // the encoder has left, and nobody asked for it
}

void tst_AirSupervise::exitCode_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("result");

    QTest::newRow("failure") << 1 << 1;
    QTest::newRow("largest") << 255 << 255;
    QTest::newRow("success that nobody asked for") << 0 << 1;
}

void tst_AirSupervise::exitCode()
{
    QFETCH(const int, code);
    QFETCH(const int, result);
    Transmission call({u"exit=%1"_s.arg(code)});

    QCOMPARE(call.run(), result);
    QCOMPARE(call.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(call.said().startsWith("[air] "), code == 0);
}

void tst_AirSupervise::crash()
{
    Transmission call({u"crash"_s});

    QCOMPARE(call.run(), crashedExitCode());
    QCOMPARE(call.process().exitStatus(), QProcess::CrashExit);
}

void tst_AirSupervise::killTakesTheEncoderAlong()
{
    const QTemporaryDir dir;
    const QString pids = dir.filePath(u"pids"_s);
    Transmission call({step(u"append"_s, pids.toUtf8()), isUp});
    call.start();
    QVERIFY(call.waitFor("up"));
    const qint64 encoder = fileLines(pids).constFirst().toLongLong();
    QVERIFY(encoder != call.process().processId());
    QVERIFY(processExists(encoder));

    call.process().kill();

    QVERIFY(call.process().waitForFinished());
    QVERIFY(waitUntil([&] { return isOver(encoder); }));
}

void tst_AirSupervise::interruptedCalls()
{
#ifdef Q_OS_UNIX
    const QByteArray many(5000, 'x');
    const QTemporaryDir dir;
    const QString input = dir.filePath(u"input"_s);
    Transmission call({step(u"stdout"_s, "out\n"), step(u"input"_s, input.toUtf8()), isUp,
                       u"await-input=5000"_s, u"stream=200000"_s, u"stream-text=end"_s,
                       step(u"stderr"_s, "[error] " + many + '\n'), u"exit=3"_s});
    call.preload(QStringLiteral(CORVANE_INTERRUPTED_CALLS));
    const QString file = call.recordTo(call.filePath(u"c"_s)) + "/corvane-0001.mkv"_L1;
    call.start();
    QVERIFY(call.waitFor("gravando"));
    QVERIFY(call.waitFor("up\n"));

    call.process().write(many);

    QCOMPARE(call.exitCode(), 3);
    QCOMPARE(call.process().readAllStandardOutput(), "out\n"_ba);
    QVERIFY(call.said().endsWith('\n' + many + '\n'));
    QCOMPARE(contentsOf(input), many);
    QCOMPARE(contentsOf(file), QByteArray(200000, '\0') + "end");
#else
    QSKIP("no call of the system is interrupted on Windows");
#endif
}

void tst_AirSupervise::pipesOfTheEncoder()
{
#ifdef Q_OS_UNIX
    const QTemporaryDir dir;
    const QString seen = dir.filePath(u"arguments"_s);
    Transmission call({step(u"args"_s, seen.toUtf8()), u"exit=3"_s});

    QCOMPARE(call.run(), 3);

    const QString slaves = fileLines(seen).constLast();
    QVERIFY2(slaves.startsWith("[f=hash:hash=adler32]pipe:4|[f=hash:hash=adler32]pipe:5|[f=flv:"_L1),
             qPrintable(slaves));
    QVERIFY2(slaves.endsWith("]pipe:3"_L1), qPrintable(slaves));
#else
    QSKIP("the pipes have names on Windows");
#endif
}

void tst_AirSupervise::signalsOfTheEncoder()
{
#ifdef Q_OS_UNIX
    const QTemporaryDir dir;
    const QString pids = dir.filePath(u"pids"_s);
    Transmission call({step(u"append"_s, pids.toUtf8()), isUp});
    call.start();
    QVERIFY(call.waitFor("up"));

    const QString status = u"/proc/%1/status"_s.arg(fileLines(pids).constFirst());
    const QStringList ignored = fileLines(status).filter(u"SigIgn:"_s);
    call.process().write("q");

    QCOMPARE(call.exitCode(), 0);
    QCOMPARE(ignored, QStringList{u"SigIgn:\t0000000000000000"_s});
#else
    QSKIP("there are no such signals on Windows");
#endif
}

void tst_AirSupervise::nobodyListens()
{
    Transmission call({isUp, u"await-input=1"_s, step(u"stderr"_s, "[error] more\n"), u"exit=3"_s});
    call.start();
    QVERIFY(call.waitFor("up"));

    call.process().closeReadChannel(QProcess::StandardError);
    call.process().write("x");

    QCOMPARE(call.exitCode(), 3);
    QCOMPARE(call.process().exitStatus(), QProcess::NormalExit);
}

void tst_AirSupervise::withoutDescriptors_data()
{
    QTest::addColumn<int>("most");

    QTest::newRow("for any of its pipes") << 4;
    QTest::newRow("for most of them") << 14;
    QTest::newRow("for the last end of the last") << 21;
}

void tst_AirSupervise::withoutDescriptors()
{
#ifdef Q_OS_UNIX
    QFETCH(const int, most);
    Transmission call({u"exit=3"_s});

    call.startBehind(u"ulimit -n %1"_s.arg(most));

    QCOMPARE(call.exitCode(), 127);
    QCOMPARE(call.said(), "[air] " + call.encoder().toUtf8() + ": " + systemWords(EMFILE, 0) + '\n');
#else
    QSKIP("a process has no such limit on Windows");
#endif
}

void tst_AirSupervise::withoutAProcess()
{
#ifdef Q_OS_UNIX
    Transmission call({u"exit=3"_s});
    call.preload(QStringLiteral(CORVANE_NO_PROCESSES));

    QCOMPARE(call.run(), 127);
    QCOMPARE(call.said(), "[air] " + call.encoder().toUtf8() + ": " + systemWords(EAGAIN, 0) + '\n');
#else
    QSKIP("nothing comes between a program and the system on Windows");
#endif
}

void tst_AirSupervise::encoderThatCannotBeRun()
{
    Transmission call({});
    QVERIFY(QFile::remove(call.encoder()));
    writeFile(call.encoder(), "\x7fno program\n");
    QFile file(call.encoder());
    QVERIFY(file.setPermissions(file.permissions() | QFile::ExeOwner | QFile::ExeUser));

    QCOMPARE(call.run(), 127);
    QCOMPARE(call.said(), "[air] " + QDir::toNativeSeparators(call.encoder()).toUtf8() + ": " +
                              systemWords(ENOEXEC, 193) + '\n'); // ERROR_BAD_EXE_FORMAT
}

void tst_AirSupervise::quitOpensTheGate()
{
    Transmission call(
        {u"ignore-q"_s, isUp, u"await-input=1"_s, u"signal"_s, u"gate"_s, goodbye, u"exit=0"_s});
    call.start();
    QVERIFY(call.waitFor("up"));

    call.process().write("q");

    QCOMPARE(call.exitCode(), 0);
    QCOMPARE(call.process().readAllStandardOutput(), "goodbye\n"_ba);
}

void tst_AirSupervise::endOfALiveSource()
{
    Transmission call({u"signal"_s, u"gate"_s, goodbye, u"exit=0"_s});

    QCOMPARE(call.run(), 1);
    QCOMPARE(call.process().readAllStandardOutput(), QByteArray());
    QCOMPARE(call.said(), u"[air] a fonte terminou sem pedido de parada — saindo com code=1\n"_s.toUtf8());
}

void tst_AirSupervise::endOfAFile()
{
    Transmission call({u"signal"_s, u"gate"_s, goodbye, u"exit=7"_s});
    call.start({u"-re"_s});

    QCOMPARE(call.exitCode(), 0);
    QCOMPARE(call.process().readAllStandardOutput(), QByteArray());
    QCOMPARE(call.said(), QByteArray());
}

void tst_AirSupervise::stopWithoutAnAnswer()
{
    Transmission call({u"ignore-q"_s, isUp});
    call.start();
    QVERIFY(call.waitFor("up"));

    call.process().write("q");

    QCOMPARE(call.exitCode(), 0);
}

void tst_AirSupervise::hungEncoder()
{
    Transmission call({connects, step(u"stderr"_s, "[info] frame=1\r[info] frame=2\r")});

    QCOMPARE(call.run(), 1);
    QCOMPARE(call.said(),
             u"frame=1\rframe=2\r[air] ffmpeg sem progresso há 4 s — encerrando com code=1\n"_s.toUtf8());
}

void tst_AirSupervise::figures()
{
    Transmission call({connects, isUp, u"await-input=1"_s, u"stream=102400"_s, u"await-input=2"_s,
                       step(u"stderr"_s, "[info] frame=1 size=N/A time=1 bitrate=N/A \r"), u"exit=2"_s});
    const QString film = call.recordTo(call.filePath(u"c"_s)) + QDir::separator() + "corvane-0001.mkv"_L1;
    call.start();
    QVERIFY(call.waitFor("up"));
    call.process().write("1");
    QVERIFY(waitUntil([&] { return QFileInfo(film).size() == 102400; })); // what is recorded has been counted

    call.process().write("2");

    QCOMPARE(call.exitCode(), 2);
    QVERIFY2(call.said().endsWith("frame=1 size=     100kB time=1 bitrate=   0.0kbits/s \r"),
             call.said().constData());
}

void tst_AirSupervise::recording()
{
    Transmission call({u"stream=200000"_s, u"stream-text=end"_s, u"exit=2"_s});
    const QString directory = call.recordTo(call.filePath(u"b"_s));

    QCOMPARE(call.run(), 2);

    const QString file = directory + QDir::separator() + "corvane-0001.mkv"_L1;
    QCOMPARE(contentsOf(file), QByteArray(200000, '\0') + "end");
    QCOMPARE(call.said(), "[air] gravando em " + file.toUtf8() + '\n');
    const QFile::Permissions permissions = QFile::permissions(file);
    QVERIFY(
        permissions.testFlags(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther));
    QVERIFY(!permissions.testFlag(QFile::ExeOwner));
}

void tst_AirSupervise::contestedNumbers_data()
{
    QTest::addColumn<int>("taken"); ///< numbers that other encoders take first
    QTest::addColumn<bool>("recorded");

    QTest::newRow("two") << 2 << true;
    QTest::newRow("as many as are tried") << 999 << true;
    QTest::newRow("more") << 1000 << false;
}

void tst_AirSupervise::contestedNumbers()
{
#ifdef Q_OS_UNIX
    QFETCH(const int, taken);
    QFETCH(const bool, recorded);
    Transmission call({u"stream-text=film"_s, u"await-input=1"_s, u"exit=2"_s});
    call.preload(QStringLiteral(CORVANE_CONTESTED_NAMES));
    call.setVariable(u"CONTESTED"_s, QString::number(taken));
    const QString directory = call.recordTo(call.filePath(u"c"_s));

    call.start();
    QVERIFY(call.waitFor("\n"));
    call.process().write("x");
    QCOMPARE(call.exitCode(), 2);

    const QString last = directory + u"/corvane-%1.mkv"_s.arg(taken + 1, 4, 10, QChar(u'0'));
    QCOMPARE(contentsOf(last), recorded ? "film"_ba : QByteArray());
    const QByteArray failed = "[air] gravação interrompida (" + directory.toUtf8() +
                              "): " + systemWords(EEXIST, 0) + " — a transmissão continua\n";
    QCOMPARE(call.said(), recorded ? "[air] gravando em " + last.toUtf8() + '\n' : failed);
#else
    QSKIP("nothing comes between a program and the system on Windows");
#endif
}

void tst_AirSupervise::burstsAreRecorded()
{
    QStringList steps;
    for (int i = 0; i < 9; ++i) // together more than may wait
        steps << u"stream=4000000"_s << u"pause=100"_s;
    Transmission call(steps << u"exit=2"_s);
    const QString file = call.recordTo(call.filePath(u"c"_s)) + "/corvane-0001.mkv"_L1;

    QCOMPARE(call.run(), 2);

    QCOMPARE(call.said().count("[air]"), 1); // where it is recorded
    QCOMPARE(QFileInfo(file).size(), 36'000'000);
}

void tst_AirSupervise::onTheDiskEveryTwoSeconds()
{
#ifdef Q_OS_UNIX
    QStringList steps;
    for (int i = 0; i < 52; ++i)
        steps << u"stream=1000"_s << u"pause=100"_s;
    Transmission call(steps << u"exit=2"_s);
    const QString log = call.filePath(u"syncs"_s);
    call.preload(QStringLiteral(CORVANE_SYNC_LOG));
    call.setVariable(u"SYNC_LOG"_s, log);
    call.recordTo(call.filePath(u"c"_s));
    QElapsedTimer time;
    time.start();

    QCOMPARE(call.run(), 2);

    const QStringList syncs = fileLines(log);
    QCOMPARE_GE(syncs.size(), 3); // two of them while it ran
    QCOMPARE_LE(syncs.size(), time.elapsed() / 2000 + 1);
    QCOMPARE(syncs.constLast(), u"52000"_s);
#else
    QSKIP("a child's writes can't be watched on Windows");
#endif
}

void tst_AirSupervise::recordingsAreNumbered()
{
    Transmission call({u"stream=1"_s, u"exit=2"_s});
    const QString directory = call.recordTo(call.filePath(u"c"_s));
    writeFile(directory + "/corvane-0007.mkv"_L1, "old");
    writeFile(directory + "/corvane-0099.txt"_L1, "other");

    call.run();
    call.run();

    QCOMPARE(entriesOf(directory), QStringList({u"corvane-0007.mkv"_s, u"corvane-0008.mkv"_s,
                                                u"corvane-0009.mkv"_s, u"corvane-0099.txt"_s}));
    QCOMPARE(contentsOf(directory + "/corvane-0007.mkv"_L1), "old"_ba);
}

void tst_AirSupervise::recordingThatFails_data()
{
    QTest::addColumn<QString>("what");
    QTest::addColumn<QByteArray>("why");

    QTest::newRow("no such directory") << u"missing"_s << systemWords(ENOENT, 3); // ERROR_PATH_NOT_FOUND
    QTest::newRow("a file") << u"file"_s << systemWords(ENOTDIR, 267);            // ERROR_DIRECTORY
#ifdef Q_OS_UNIX // elsewhere there are no such pipes, and a file that is written can't be removed
    QTest::newRow("a pipe") << u"pipe"_s << systemWords(ENOTDIR, 0);
    QTest::newRow("removed meanwhile") << u"removed"_s << systemWords(ENOENT, 0);
#endif
}

void tst_AirSupervise::recordingThatFails()
{
    QFETCH(const QString, what);
    QFETCH(const QByteArray, why);
    QStringList steps;
    for (int i = 0; i < 50; ++i) // longer than it takes to notice that the file has gone
        steps << u"stream=1000"_s << u"pause=100"_s;
    Transmission call(steps << u"exit=2"_s);
    const QString place = call.recordTo(call.filePath(u"c/"_s + what));
    if (what == "file"_L1)
        createFile(place);
#ifdef Q_OS_UNIX
    else if (what == "pipe"_L1)
        QCOMPARE(::mkfifo(QFile::encodeName(place).constData(), 0600), 0);
#endif
    else if (what == "removed"_L1)
        QVERIFY(QDir().mkpath(place));

    call.start();
    if (what == "removed"_L1) {
        QVERIFY(call.waitFor("gravando"));
        QVERIFY(QDir(place).removeRecursively());
    }

    QCOMPARE(call.exitCode(), 2);
    QCOMPARE(call.said().count("[air] gravação interrompida (" + place.toUtf8()), 1);
    QVERIFY2(call.said().endsWith("): " + why + " — a transmissão continua\n"), call.said().constData());
}

void tst_AirSupervise::failedRecordingIsClosed()
{
#ifdef Q_OS_UNIX
    QStringList steps;
    for (int i = 0; i < 25; ++i) // longer than it takes to notice that the file has gone
        steps << u"stream=1000"_s << u"pause=100"_s;
    Transmission call(steps);
    const QString place = call.recordTo(call.filePath(u"c/removed"_s));
    QVERIFY(QDir().mkpath(place));
    call.start();
    QVERIFY(call.waitFor("gravando"));
    QVERIFY(QDir(place).removeRecursively());
    QVERIFY(call.waitFor("interrompida"));

    const QDir descriptors(u"/proc/%1/fd"_s.arg(call.process().processId()));
    QVERIFY(waitUntil([&] {
        const QFileInfoList all = descriptors.entryInfoList(QDir::AllEntries | QDir::System);
        return std::none_of(all.begin(), all.end(), [&](const QFileInfo &each) {
            return each.symLinkTarget().contains(place); // of the directory or of the file in it
        });
    }));
    call.process().write("q");
    QCOMPARE(call.exitCode(), 0);
#else
    QSKIP("a file that is written can't be removed on Windows");
#endif
}

void tst_AirSupervise::fullDisk()
{
#ifdef Q_OS_UNIX
    Transmission call({u"stream=3000000"_s, step(u"stderr"_s, "[error] went on\n"), u"exit=2"_s});
    const QString place = call.recordTo(call.filePath(u"c"_s));
    if (::mount("tmpfs", QFile::encodeName(place).constData(), "tmpfs", 0, "size=1m") != 0)
        QSKIP("this system lets the test mount no file system of its own");
    const int code = call.run();
    const QByteArray said = call.said();
    const qint64 kept = QFileInfo(place + "/corvane-0001.mkv"_L1).size();
    ::umount(QFile::encodeName(place).constData());

    QCOMPARE(code, 2);
    QVERIFY(said.contains("went on\n"));
    QCOMPARE(said.count("No space left on device — a transmissão continua\n"), 1);
    QCOMPARE(kept, 1024 * 1024);
#else
    QSKIP("a test can't mount a file system on Windows");
#endif
}

void tst_AirSupervise::blockedDisk_data()
{
    QTest::addColumn<QString>("bytes");

    QTest::newRow("more than may wait") << u"40000000"_s;
    QTest::newRow("the end of a recording") << u"200000"_s;
}

void tst_AirSupervise::blockedDisk()
{
#ifdef Q_OS_UNIX
    QFETCH(const QString, bytes);
    QStringList steps;
    for (int i = 0; i < 10; ++i)
        steps << u"stream=5000"_s << u"pause=100"_s;
    Transmission call(steps << "stream="_L1 + bytes << step(u"stderr"_s, "[error] went on\n") << u"exit=2"_s);
    call.preload(QStringLiteral(CORVANE_BLOCKING_DISK)); // it hangs after a few bytes
    const QString file = call.recordTo(call.filePath(u"c"_s)) + "/corvane-0001.mkv"_L1;

    QCOMPARE(call.run(), 2);

    QVERIFY(call.said().contains("went on\n"));
    QCOMPARE(call.said().count("[air] gravação interrompida"), 1);
    QVERIFY(call.said().contains("[air] gravação interrompida (" + file.toUtf8() +
                                 "): o disco não acompanha — a transmissão continua\n"));
    QCOMPARE_GE(QFileInfo(file).size(), 20000);
#else
    QSKIP("a child's writes can't be held up on Windows");
#endif
}

void tst_AirSupervise::nameLookups()
{
#ifdef Q_OS_WIN
    QSKIP("the resolver of Windows takes nothing from the environment");
#endif
    Transmission call({step(u"stderr"_s, "[error] "), u"variable=RES_OPTIONS"_s, u"exit=2"_s});

    call.run();
    QCOMPARE(call.said(), "timeout:1 attempts:5\n"_ba);
    call.setVariable(u"RES_OPTIONS"_s, u"rotate"_s);
    call.run();
    QVERIFY(call.said().endsWith("\nrotate\n"));
}

void tst_AirSupervise::nothingIsRecordedUnasked()
{
    Transmission call({u"stream=40000000"_s, u"exit=2"_s}); // more than may wait for a disk

    QCOMPARE(call.run(), 2);
    QCOMPARE(call.said(), QByteArray());
    QCOMPARE(entriesOf(call.filePath(u"a"_s)), QStringList{executableName(u"ffmpeg"_s)});
}

CORVANE_TEST(tst_AirSupervise, QCoreApplication)
#include "tst_AirSupervise.moc"
