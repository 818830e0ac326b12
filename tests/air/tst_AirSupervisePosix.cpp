#include "tests/air/Transmission.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"

#include <QTemporaryDir>
#include <QTest>

#include <cerrno>

using namespace Qt::StringLiterals;
using namespace corvane::test;

/// The companion and what only Unix has: descriptors, signals, calls that are interrupted.
class tst_AirSupervisePosix : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void interruptedCalls();
    void pipesOfTheEncoder();
    void signalsOfTheEncoder();
    void withoutDescriptors_data();
    void withoutDescriptors();
    void withoutAProcess();
    void nameLookups();
};

void tst_AirSupervisePosix::interruptedCalls()
{
    const QByteArray many(5000, 'x');
    const QTemporaryDir dir;
    const QString input = dir.filePath(u"input"_s);
    Transmission call({step(u"stdout"_s, "out\n"), step(u"input"_s, input.toUtf8()), isUp(),
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
}

void tst_AirSupervisePosix::pipesOfTheEncoder()
{
    const QTemporaryDir dir;
    const QString seen = dir.filePath(u"arguments"_s);
    Transmission call({step(u"args"_s, seen.toUtf8()), u"exit=3"_s});

    QCOMPARE(call.run(), 3);

    const QString slaves = fileLines(seen).constLast();
    QVERIFY2(slaves.startsWith("[f=hash:hash=adler32]pipe:4|[f=hash:hash=adler32]pipe:5|[f=flv:"_L1),
             qPrintable(slaves));
    QVERIFY2(slaves.endsWith("]pipe:3"_L1), qPrintable(slaves));
}

void tst_AirSupervisePosix::signalsOfTheEncoder()
{
    const QTemporaryDir dir;
    const QString pids = dir.filePath(u"pids"_s);
    Transmission call({step(u"append"_s, pids.toUtf8()), isUp()});
    call.start();
    QVERIFY(call.waitFor("up"));

    const QString status = u"/proc/%1/status"_s.arg(fileLines(pids).constFirst());
    const QStringList ignored = fileLines(status).filter(u"SigIgn:"_s);
    call.process().write("q");

    QCOMPARE(call.exitCode(), 0);
    QCOMPARE(ignored, QStringList{u"SigIgn:\t0000000000000000"_s});
}

void tst_AirSupervisePosix::withoutDescriptors_data()
{
    QTest::addColumn<int>("most");

    QTest::newRow("for any of its pipes") << 4;
    QTest::newRow("for most of them") << 14;
    QTest::newRow("for the last end of the last") << 21;
}

void tst_AirSupervisePosix::withoutDescriptors()
{
    QFETCH(const int, most);
    Transmission call({u"exit=3"_s});

    call.startBehind(u"ulimit -n %1"_s.arg(most));

    QCOMPARE(call.exitCode(), 127);
    QCOMPARE(call.said(), "[air] " + call.encoder().toUtf8() + ": " + systemWords(EMFILE, 0) + '\n');
}

void tst_AirSupervisePosix::withoutAProcess()
{
    Transmission call({u"exit=3"_s});
    call.preload(QStringLiteral(CORVANE_NO_PROCESSES));

    QCOMPARE(call.run(), 127);
    QCOMPARE(call.said(), "[air] " + call.encoder().toUtf8() + ": " + systemWords(EAGAIN, 0) + '\n');
}

void tst_AirSupervisePosix::nameLookups()
{
    Transmission call({step(u"stderr"_s, "[error] "), u"variable=RES_OPTIONS"_s, u"exit=2"_s});

    call.run();
    QCOMPARE(call.said(), "timeout:1 attempts:5\n"_ba);
    call.setVariable(u"RES_OPTIONS"_s, u"rotate"_s);
    call.run();
    QVERIFY(call.said().endsWith("\nrotate\n"));
}

CORVANE_TEST(tst_AirSupervisePosix, QCoreApplication)
#include "tst_AirSupervisePosix.moc"
