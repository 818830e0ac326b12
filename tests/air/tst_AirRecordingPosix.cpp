#include "tests/air/Transmission.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TestSupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <algorithm>
#include <cerrno>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace corvane::test;

/// Recordings on disks as a test can make them on Unix: full, blocked, removed, contested.
class tst_AirRecordingPosix : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void contestedNumbers_data();
    void contestedNumbers();
    void onTheDiskEveryTwoSeconds();
    void pipeForADirectory();
    void removedMeanwhile();
    void fullDisk();
    void blockedDisk_data();
    void blockedDisk();
};

void tst_AirRecordingPosix::contestedNumbers_data()
{
    QTest::addColumn<int>("taken"); ///< numbers that other encoders take first
    QTest::addColumn<bool>("recorded");

    QTest::newRow("two") << 2 << true;
    QTest::newRow("as many as are tried") << 999 << true;
    QTest::newRow("more") << 1000 << false;
}

void tst_AirRecordingPosix::contestedNumbers()
{
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
    QCOMPARE(call.said(), recorded ? "[air] gravando em " + last.toUtf8() + '\n'
                                   : recordingLost(directory, systemWords(EEXIST, 0)));
}

void tst_AirRecordingPosix::onTheDiskEveryTwoSeconds()
{
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
}

void tst_AirRecordingPosix::pipeForADirectory()
{
    Transmission call({u"stream=40000000"_s, u"exit=2"_s}); // more than may wait for a disk
    const QString place = call.recordTo(call.filePath(u"c/pipe"_s));
    QCOMPARE(::mkfifo(QFile::encodeName(place).constData(), 0600), 0);

    QCOMPARE(call.run(), 2);
    QCOMPARE(call.said(), recordingLost(place, systemWords(ENOTDIR, 0)));
}

void tst_AirRecordingPosix::removedMeanwhile()
{
    QStringList steps;
    for (int i = 0; i < 50; ++i) // longer than it takes to notice that the file has gone
        steps << u"stream=1000"_s << u"pause=100"_s;
    Transmission call(steps << u"await-input=1"_s << u"stream=40000000"_s << u"exit=2"_s);
    const QString place = call.recordTo(call.filePath(u"c/removed"_s));
    QVERIFY(QDir().mkpath(place));
    call.start();
    QVERIFY(call.waitFor("gravando"));

    QVERIFY(QDir(place).removeRecursively());

    QVERIFY(call.waitFor(recordingLost(place + "/corvane-0001.mkv"_L1, systemWords(ENOENT, 0))));
    const QDir descriptors(u"/proc/%1/fd"_s.arg(call.process().processId()));
    QVERIFY(waitUntil([&] {
        const QFileInfoList all = descriptors.entryInfoList(QDir::AllEntries | QDir::System);
        return std::none_of(all.begin(), all.end(), [&](const QFileInfo &each) {
            return each.symLinkTarget().contains(place); // of the directory or of the file in it
        });
    }));
    call.process().write("x"); // the transmission goes on, with more than may wait for a disk
    QCOMPARE(call.exitCode(), 2);
    QCOMPARE(call.said().count("interrompida"), 1);
}

void tst_AirRecordingPosix::fullDisk()
{
    Transmission call({u"stream=3000000"_s, step(u"stderr"_s, "[error] went on\n"), u"exit=2"_s});
    const QString place = call.recordTo(call.filePath(u"c"_s));
    const SmallDisk disk(place, 1024);
    if (!disk.isMounted())
        QSKIP("this system lets the test mount no file system of its own");
    const QString file = place + "/corvane-0001.mkv"_L1;

    QCOMPARE(call.run(), 2);

    QVERIFY(call.said().contains("went on\n"));
    QCOMPARE(call.said().count(recordingLost(file, systemWords(ENOSPC, 0))), 1);
    QCOMPARE(QFileInfo(file).size(), 1024 * 1024);
}

void tst_AirRecordingPosix::blockedDisk_data()
{
    QTest::addColumn<QString>("bytes");

    QTest::newRow("more than may wait") << u"40000000"_s;
    QTest::newRow("the end of a recording") << u"200000"_s;
}

void tst_AirRecordingPosix::blockedDisk()
{
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
    QVERIFY(call.said().contains(recordingLost(file, "o disco não acompanha")));
    QCOMPARE_GE(QFileInfo(file).size(), 20000);
}

CORVANE_TEST(tst_AirRecordingPosix, QCoreApplication)
#include "tst_AirRecordingPosix.moc"
