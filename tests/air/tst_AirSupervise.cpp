#include "tests/air/Lists.h"
#include "tests/air/Transmission.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

/// True as soon as a process that isn't this one's child has ended, whether or not it has been reaped.
bool isOver(qint64 pid)
{
#ifdef Q_OS_WIN
    return !processExists(pid);
#else
    return processCommand(pid).isEmpty();
#endif
}

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
    void nobodyListens();
    void encoderThatCannotBeRun();
    void quitOpensTheGate();
    void endOfALiveSource();
    void endOfAFile();
    void stopWithoutAnAnswer();
    void hungEncoder();
    void figures();
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
    Transmission call({isUp()});
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
    Transmission call({step(u"append"_s, pids.toUtf8()), isUp()});
    call.start();
    QVERIFY(call.waitFor("up"));
    const qint64 encoder = fileLines(pids).constFirst().toLongLong();
    QVERIFY(encoder != call.process().processId());
    QVERIFY(processExists(encoder));

    call.process().kill();

    QVERIFY(call.process().waitForFinished());
    QVERIFY(waitUntil([&] { return isOver(encoder); }));
}

void tst_AirSupervise::nobodyListens()
{
    Transmission call({isUp(), u"await-input=1"_s, step(u"stderr"_s, "[error] more\n"), u"exit=3"_s});
    call.start();
    QVERIFY(call.waitFor("up"));

    call.process().closeReadChannel(QProcess::StandardError);
    call.process().write("x");

    QCOMPARE(call.exitCode(), 3);
    QCOMPARE(call.process().exitStatus(), QProcess::NormalExit);
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
        {u"ignore-q"_s, isUp(), u"await-input=1"_s, u"signal"_s, u"gate"_s, goodbye, u"exit=0"_s});
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
    Transmission call({u"ignore-q"_s, isUp()});
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
    Transmission call({connects, isUp(), u"await-input=1"_s, u"stream=102400"_s, u"await-input=2"_s,
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

CORVANE_TEST(tst_AirSupervise, QCoreApplication)
#include "tst_AirSupervise.moc"
