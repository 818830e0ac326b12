#include "tests/air/AirCall.h"
#include "tests/air/Lists.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <sys/mount.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

/// The companion with a list of a transmission, before an encoder that is a script of the shell: its standard
/// streams are those of an encoder, and its descriptors 3, 4 and 5 stream, signal and gate.
class Transmission
{
public:
    explicit Transmission(const QByteArray &script)
    {
        writeFile(m_call.at(u"b"_s), "#!/bin/sh\n" + script + '\n');
        QFile file(m_call.at(u"b"_s));
        file.setPermissions(file.permissions() | QFile::ExeOwner | QFile::ExeUser);
        m_call.setPath({u"a"_s, u"b"_s, u"../../../../../../../../bin"_s});
    }

    /// The directory for recordings, switched on.
    QString recordTo(const QString &directory)
    {
        writeFile(m_call.filePath(u"a/recordings"_s), directory.toUtf8() + '\n');
        return directory;
    }

    void setVariable(const QString &name, const QString &value)
    {
        QProcessEnvironment environment = process().processEnvironment();
        environment.insert(name, value);
        process().setProcessEnvironment(environment);
    }

    /// From now on a recording's writes hang after a few bytes.
    void blockDisk()
    {
        setVariable(u"LD_PRELOAD"_s, QStringLiteral(CORVANE_BLOCKING_DISK));
        setVariable(u"ASAN_OPTIONS"_s, u"verify_asan_link_order=0"_s);
    }

    void start(const QStringList &input = {})
    {
        QStringList list = liveList({u"-f"_s, u"flv"_s, u"rtmp://127.0.0.1:1/live/secret"_s});
        list = list.first(4) + input + list.sliced(4);
        m_call.start(list);
    }

    int exitCode() { return process().waitForFinished(20000) ? process().exitCode() : -1; }

    int run()
    {
        start();
        return exitCode();
    }

    /// Everything on its standard error so far.
    QByteArray said() { return m_said += process().readAllStandardError(); }

    bool waitFor(const QByteArray &text)
    {
        return waitUntil([&] { return said().contains(text); });
    }

    QProcess &process() { return m_call.process(); }
    [[nodiscard]] QString filePath(const QString &name) const { return m_call.filePath(name); }

private:
    AirCall m_call;
    QByteArray m_said;
};

const QByteArray connectedLine = "echo '[tee @ 0x1] [verbose] filename' >&2\n"
                                 "echo '[tcp @ 0x1] [verbose] Successfully connected to h' >&2\n";

} // namespace

/// The companion between a program and an encoder.
class tst_AirSupervise : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void standardStreams();
    void exitCode_data();
    void exitCode();
    void crash();
    void killTakesTheEncoderAlong();
    void encoderThatCannotBeRun();
    void quitOpensTheGate();
    void endOfALiveSource();
    void endOfAFile();
    void stopWithoutAnAnswer();
    void hungEncoder();
    void figures();
    void recording();
    void recordingsAreNumbered();
    void recordingThatFails_data();
    void recordingThatFails();
    void fullDisk();
    void blockedDisk_data();
    void blockedDisk();
    void nameLookups();
    void nothingIsRecordedUnasked();
};

void tst_AirSupervise::standardStreams()
{
    Transmission call("printf 'out\\000\\377'; echo '[error] err' >&2; cat; exit 3");
    call.start();
    call.process().write("xyz");
    call.process().closeWriteChannel();

    QCOMPARE(call.exitCode(), 3);
    QCOMPARE(call.process().readAllStandardOutput(), QByteArray("out\0\xffxyz", 8));
    QCOMPARE(call.said(), "err\n"_ba);
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
    Transmission call("exit " + QByteArray::number(code));

    QCOMPARE(call.run(), result);
    QCOMPARE(call.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(call.said().startsWith("[air] "), code == 0);
}

void tst_AirSupervise::crash()
{
    Transmission call("kill -SEGV $$");

    QCOMPARE(call.run(), crashedExitCode());
    QCOMPARE(call.process().exitStatus(), QProcess::CrashExit);
}

void tst_AirSupervise::killTakesTheEncoderAlong()
{
    Transmission call("echo \"pid $$.\" >&2; exec sleep 60");
    call.start();
    QVERIFY(call.waitFor("."));
    const qint64 encoder = call.said().mid(4).chopped(2).toLongLong();
    QVERIFY(processExists(encoder));

    call.process().kill();

    QVERIFY(call.process().waitForFinished());
    QVERIFY(waitUntil([&] { return processCommand(encoder).isEmpty(); }));
}

void tst_AirSupervise::encoderThatCannotBeRun()
{
    Transmission call({});
    writeFile(call.filePath(u"b/ffmpeg"_s), "\x7fno program\n");

    QCOMPARE(call.run(), 127);
    QCOMPARE(call.said(), "[air] " + call.filePath(u"b/ffmpeg"_s).toUtf8() + ": Exec format error\n");
}

void tst_AirSupervise::quitOpensTheGate()
{
    Transmission call("echo '[error] up' >&2; head -c 1; echo x >&4; echo x >&5; echo goodbye; exit 0");
    call.start();
    QVERIFY(call.waitFor("up"));

    call.process().write("q");

    QCOMPARE(call.exitCode(), 0);
    QCOMPARE(call.process().readAllStandardOutput(), "qgoodbye\n"_ba);
}

void tst_AirSupervise::endOfALiveSource()
{
    Transmission call("echo x >&4; echo x >&5; echo goodbye; exit 0");

    QCOMPARE(call.run(), 1);
    QCOMPARE(call.process().readAllStandardOutput(), QByteArray());
    QCOMPARE(call.said(), u"[air] a fonte terminou sem pedido de parada — saindo com code=1\n"_s.toUtf8());
}

void tst_AirSupervise::endOfAFile()
{
    Transmission call("echo x >&4; echo x >&5; echo goodbye; exit 7");
    call.start({u"-re"_s});

    QCOMPARE(call.exitCode(), 0);
    QCOMPARE(call.process().readAllStandardOutput(), QByteArray());
    QCOMPARE(call.said(), QByteArray());
}

void tst_AirSupervise::stopWithoutAnAnswer()
{
    Transmission call("echo '[error] up' >&2; exec sleep 60");
    call.start();
    QVERIFY(call.waitFor("up"));

    call.process().write("q");

    QCOMPARE(call.exitCode(), 0);
}

void tst_AirSupervise::hungEncoder()
{
    Transmission call(connectedLine + "printf '[info] frame=1\\r[info] frame=2\\r' >&2; exec sleep 60");

    QCOMPARE(call.run(), 1);
    QCOMPARE(call.said(),
             u"frame=1\rframe=2\r[air] ffmpeg sem progresso há 4 s — encerrando com code=1\n"_s.toUtf8());
}

void tst_AirSupervise::figures()
{
    Transmission call(
        connectedLine +
        "echo '[error] up' >&2; head -c 1 >/dev/null; head -c 102400 /dev/zero >&3; head -c 1 >/dev/null\n"
        "printf '[info] frame=1 size=N/A time=1 bitrate=N/A \\r' >&2; exit 2");
    const QString film = call.recordTo(call.filePath(u"c"_s)) + "/corvane-0001.mkv"_L1;
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
    Transmission call("head -c 200000 /dev/zero >&3; printf end >&3; exit 2");
    const QString directory = call.recordTo(call.filePath(u"b"_s));

    QCOMPARE(call.run(), 2);

    const QString file = directory + "/corvane-0001.mkv"_L1;
    QCOMPARE(contentsOf(file), QByteArray(200000, '\0') + "end");
    QCOMPARE(call.said(), "[air] gravando em " + file.toUtf8() + '\n');
}

void tst_AirSupervise::recordingsAreNumbered()
{
    Transmission call("printf x >&3; exit 2");
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

    QTest::newRow("no such directory") << u"missing"_s << "No such file or directory"_ba;
    QTest::newRow("a file") << u"file"_s << "Not a directory"_ba;
    QTest::newRow("a pipe") << u"pipe"_s << "Not a directory"_ba;
    QTest::newRow("removed meanwhile") << u"removed"_s << "No such file or directory"_ba;
}

void tst_AirSupervise::recordingThatFails()
{
    QFETCH(const QString, what);
    QFETCH(const QByteArray, why);
    // Longer than it takes to notice that the file has gone.
    Transmission call(
        "i=0; while [ $i -lt 50 ]; do head -c 1000 /dev/zero >&3; sleep 0.1; i=$((i + 1)); done; exit 2");
    const QString place = call.recordTo(call.filePath(u"c/"_s + what));
    if (what == "file"_L1)
        createFile(place);
    else if (what == "pipe"_L1)
        QCOMPARE(::mkfifo(QFile::encodeName(place).constData(), 0600), 0);
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

void tst_AirSupervise::fullDisk()
{
    Transmission call("head -c 3000000 /dev/zero >&3; echo '[error] went on' >&2; exit 2");
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
}

void tst_AirSupervise::blockedDisk_data()
{
    QTest::addColumn<QByteArray>("bytes");

    QTest::newRow("more than may wait") << "40000000"_ba;
    QTest::newRow("the end of a recording") << "200000"_ba;
}

void tst_AirSupervise::blockedDisk()
{
    QFETCH(const QByteArray, bytes);
    Transmission call(
        "i=0; while [ $i -lt 10 ]; do head -c 5000 /dev/zero >&3; sleep 0.1; i=$((i + 1)); done\n"
        "head -c " +
        bytes + " /dev/zero >&3; echo '[error] went on' >&2; exit 2");
    call.blockDisk();
    const QString file = call.recordTo(call.filePath(u"c"_s)) + "/corvane-0001.mkv"_L1;

    QCOMPARE(call.run(), 2);

    QVERIFY(call.said().contains("went on\n"));
    QCOMPARE(call.said().count("[air] gravação interrompida"), 1);
    QVERIFY(call.said().contains("[air] gravação interrompida (" + file.toUtf8() +
                                 "): o disco não acompanha — a transmissão continua\n"));
    QCOMPARE_GE(QFileInfo(file).size(), 20000);
}

void tst_AirSupervise::nameLookups()
{
    Transmission call("echo \"[error] $RES_OPTIONS\" >&2; exit 2");

    call.run();
    QCOMPARE(call.said(), "timeout:1 attempts:5\n"_ba);
    call.setVariable(u"RES_OPTIONS"_s, u"rotate"_s);
    call.run();
    QVERIFY(call.said().endsWith("\nrotate\n"));
}

void tst_AirSupervise::nothingIsRecordedUnasked()
{
    Transmission call("printf x >&3; exit 2");

    QCOMPARE(call.run(), 2);
    QCOMPARE(call.said(), QByteArray());
    QCOMPARE(entriesOf(call.filePath(u"a"_s)), QStringList{u"ffmpeg"_s});
}

CORVANE_TEST(tst_AirSupervise, QCoreApplication)
#include "tst_AirSupervise.moc"
