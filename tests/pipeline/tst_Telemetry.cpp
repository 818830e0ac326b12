#include "pipeline/Telemetry.h"
#include "tests/support/Runner.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;

class tst_Telemetry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsAtZero();
    void isProgressLine_data();
    void isProgressLine();
    void readProgress_data();
    void readProgress();
    void laterLinesOverwriteOnlyWhatTheyHold();
    void leavesTheOtherFiguresAlone();
    void hangDuration_data();
    void hangDuration();
};

void tst_Telemetry::startsAtZero()
{
    const Telemetry telemetry;
    QCOMPARE(telemetry.rttMs, 0.0);
    QCOMPARE(telemetry.sendRate, 0.0);
    QCOMPARE(telemetry.linkCapacity, 0.0);
    QCOMPARE(telemetry.sndDrop, 0);
    QCOMPARE(telemetry.retrans, 0);
    QCOMPARE(telemetry.rcvLoss, 0);
    QCOMPARE(telemetry.fps, 0.0);
    QCOMPARE(telemetry.dropped, 0);
    QCOMPARE(telemetry.bitrateKbps, 0.0);
    QCOMPARE(telemetry.loadPercent, 0.0);
    QCOMPARE(telemetry.thermalState, 0);
    QCOMPARE(telemetry.valid, false);
}

void tst_Telemetry::isProgressLine_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("expected");

    QTest::newRow("whole line")
        << u"frame=   25 fps= 30 q=28.0 size=     100kB time=00:00:00.83 bitrate= 983.0kbits/s speed=1x \r"_s
        << true;
    QTest::newRow("frame alone") << u"frame=1"_s << true;
    QTest::newRow("bit rate alone") << u"size=N/A time=00:00:01.00 bitrate=N/A speed=1x"_s << true;
    QTest::newRow("mark within a word") << u"[flv @ 0x1] keyframe=2"_s << true;
    QTest::newRow("empty") << QString() << false;
    QTest::newRow("carriage return alone") << u"\r"_s << false;
    QTest::newRow("warning") << u"[flv @ 0x1] Failed to update header with correct duration."_s << false;
    QTest::newRow("other figures alone") << u"fps= 30 drop=3 speed=1x"_s << false;
    QTest::newRow("capital frame") << u"Frame=1"_s << false;
    QTest::newRow("capital bit rate") << u"BITRATE=100kbits/s"_s << false;
    QTest::newRow("blank before the equals sign") << u"frame =1 bitrate =100kbits/s"_s << false;
    QTest::newRow("colon for equals sign") << u"bitrate: 100 kb/s, frame: 1"_s << false;
}

void tst_Telemetry::isProgressLine()
{
    QFETCH(const QString, line);
    QTEST(corvane::isProgressLine(line), "expected");
}

void tst_Telemetry::readProgress_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<double>("fps");
    QTest::addColumn<double>("bitrate");
    QTest::addColumn<int>("dropped");

    // The record holds 50 fps, 4000.5 kbit/s and 7 drops before the line.
    constexpr double keptFps = 50.0;
    constexpr double keptBitrate = 4000.5;
    constexpr int keptDropped = 7;

    QTest::newRow("all three")
        << u"frame=  100 fps= 30 q=28.0 size=  512kB time=00:00:03.33 bitrate=6012.3kbits/s dup=0 drop=12 speed=1x"_s
        << 30.0 << 6012.3 << 12;
    QTest::newRow("fps alone") << u"frame=1 fps=25"_s << 25.0 << keptBitrate << keptDropped;
    QTest::newRow("fraction of a frame") << u"fps=29.97"_s << 29.97 << keptBitrate << keptDropped;
    QTest::newRow("bit rate alone") << u"bitrate=983.0kbits/s"_s << keptFps << 983.0 << keptDropped;
    QTest::newRow("drops alone") << u"drop=3"_s << keptFps << keptBitrate << 3;
    QTest::newRow("none") << u"frame=1 q=28.0"_s << keptFps << keptBitrate << keptDropped;

    QTest::newRow("blanks after the equals sign")
        << u"fps=   30 bitrate= \t 100.0kbits/s drop=    4"_s << 30.0 << 100.0 << 4;
    QTest::newRow("blank before the equals sign")
        << u"fps =30 drop =4"_s << keptFps << keptBitrate << keptDropped;
    QTest::newRow("fps of zero") << u"frame=1 fps=0.0 drop=0"_s << 0.0 << keptBitrate << 0;

    QTest::newRow("bit rate not known") << u"frame=1 fps=30 bitrate=N/A drop=1"_s << 30.0 << keptBitrate << 1;
    QTest::newRow("bit rate in another unit")
        << u"bitrate=6.0Mbits/s"_s << keptFps << keptBitrate << keptDropped;
    QTest::newRow("bit rate without a unit") << u"bitrate=6000.0"_s << keptFps << keptBitrate << keptDropped;
    QTest::newRow("blank before the unit")
        << u"bitrate=6000 kbits/s"_s << keptFps << keptBitrate << keptDropped;
    QTest::newRow("fps not known") << u"frame=1 fps=N/A"_s << keptFps << keptBitrate << keptDropped;
    QTest::newRow("no number") << u"frame=1 fps= bitrate= drop="_s << keptFps << keptBitrate << keptDropped;
    QTest::newRow("negative") << u"fps=-1 bitrate=-5.0kbits/s drop=-3"_s << keptFps << keptBitrate
                              << keptDropped;
    QTest::newRow("digits of another script")
        << u"fps=\u0663\u0660 drop=\u0663"_s << keptFps << keptBitrate << keptDropped;

    QTest::newRow("number that isn't one") << u"fps=1.2.3 bitrate=1.2.3kbits/s drop=5"_s << 0.0 << 0.0 << 5;
    QTest::newRow("dots alone") << u"fps=. bitrate=..kbits/s"_s << 0.0 << 0.0 << keptDropped;
    QTest::newRow("largest number of drops") << u"drop=2147483647"_s << keptFps << keptBitrate << 2147483647;
    QTest::newRow("drops too large by one") << u"drop=2147483648"_s << keptFps << keptBitrate << 0;
    QTest::newRow("drops far too large") << u"drop=99999999999999999999"_s << keptFps << keptBitrate << 0;
    QTest::newRow("fraction of a drop") << u"drop=3.9"_s << keptFps << keptBitrate << 3;
    QTest::newRow("number runs into a word") << u"fps=30fps drop=4x"_s << 30.0 << keptBitrate << 4;

    QTest::newRow("capitals are other names")
        << u"FPS=30 Bitrate=100kbits/s DROP=4"_s << keptFps << keptBitrate << keptDropped;
    QTest::newRow("capitals in the unit") << u"bitrate=100KBits/s"_s << keptFps << keptBitrate << keptDropped;
    QTest::newRow("name within a word") << u"maxfps=24 airdrop=2"_s << 24.0 << keptBitrate << 2;

    QTest::newRow("several updates: the oldest wins")
        << u"frame=1 fps=10 bitrate=1000.0kbits/s drop=1 \rframe=2 fps=20 bitrate=2000.0kbits/s drop=2 \r"_s
        << 10.0 << 1000.0 << 1;
    QTest::newRow("several updates: the oldest that holds the figure wins")
        << u"frame=1 fps=10 bitrate=N/A \rframe=2 fps=20 bitrate=2000.0kbits/s drop=2 \r"_s << 10.0 << 2000.0
        << 2;
}

void tst_Telemetry::readProgress()
{
    QFETCH(const QString, line);
    Telemetry telemetry;
    telemetry.fps = 50.0;
    telemetry.bitrateKbps = 4000.5;
    telemetry.dropped = 7;

    telemetry.readProgress(line);

    QTEST(telemetry.fps, "fps");
    QTEST(telemetry.bitrateKbps, "bitrate");
    QTEST(telemetry.dropped, "dropped");

    // Every figure of the table differs from the one before, so a change shows that something was read.
    QFETCH(const double, fps);
    QFETCH(const double, bitrate);
    QFETCH(const int, dropped);
    QCOMPARE(telemetry.valid, fps != 50.0 || bitrate != 4000.5 || dropped != 7);
}

void tst_Telemetry::laterLinesOverwriteOnlyWhatTheyHold()
{
    Telemetry telemetry;
    telemetry.readProgress(u"frame=1 fps=30 bitrate=6000.0kbits/s drop=9"_s);
    telemetry.readProgress(u"frame=2 fps=28 bitrate=N/A"_s);
    QCOMPARE(telemetry.fps, 28.0);
    QCOMPARE(telemetry.bitrateKbps, 6000.0);
    QCOMPARE(telemetry.dropped, 9);

    // A total, stored as it is: a fresh run counts from zero.
    telemetry.readProgress(u"frame=1 drop=2"_s);
    QCOMPARE(telemetry.dropped, 2);

    // A line without figures doesn't remove the mark.
    telemetry.readProgress(u"frame=3"_s);
    QCOMPARE(telemetry.valid, true);
}

void tst_Telemetry::leavesTheOtherFiguresAlone()
{
    Telemetry telemetry;
    telemetry.readProgress(
        u"frame=1 fps=30 bitrate=6000.0kbits/s drop=9 rtt=20 sendRate=5 linkCapacity=6 sndDrop=7 retrans=8 load=9"_s);
    QCOMPARE(telemetry.rttMs, 0.0);
    QCOMPARE(telemetry.sendRate, 0.0);
    QCOMPARE(telemetry.linkCapacity, 0.0);
    QCOMPARE(telemetry.sndDrop, 0);
    QCOMPARE(telemetry.retrans, 0);
    QCOMPARE(telemetry.rcvLoss, 0);
    QCOMPARE(telemetry.loadPercent, 0.0);
    QCOMPARE(telemetry.thermalState, 0);
}

void tst_Telemetry::hangDuration_data()
{
    QTest::addColumn<qint64>("lastProgress");
    QTest::addColumn<qint64>("now");
    QTest::addColumn<qint64>("timeout");
    QTest::addColumn<qint64>("hungFor"); // -1: no hang

    constexpr qint64 today = 1'767'225'600'000; // ms since the epoch: beyond 32 bits
    const auto row = [](const char *name, qint64 lastProgress, qint64 now, qint64 timeout, qint64 hungFor) {
        QTest::newRow(name) << lastProgress << now << timeout << hungFor;
    };
    row("progress just now", today, today, 8000, -1);
    row("at the limit", today, today + 8000, 8000, -1);
    row("one beyond the limit", today, today + 8001, 8000, 8001);
    row("long silence", today, today + 3'000'000'000, 8000, 3'000'000'000);
    row("largest limit", today, today + 2147483648, 2147483647, 2147483648);
    row("no patience, no time", today, today, 0, -1);
    row("no patience, a moment", today, today + 1, 0, 1);
    row("limit below zero", today, today, -1, 0);
    row("clock set back", today, today - 60'000, 8000, -1);
    row("never any progress", 0, today, 8000, today);
}

void tst_Telemetry::hangDuration()
{
    QFETCH(const qint64, lastProgress);
    QFETCH(const qint64, now);
    QFETCH(const qint64, timeout);
    QTEST(corvane::hangDuration(lastProgress, now, timeout).value_or(-1), "hungFor");
}

CORVANE_TEST(tst_Telemetry, QCoreApplication)
#include "tst_Telemetry.moc"
