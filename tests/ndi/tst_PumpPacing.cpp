#include "ndi/PumpPacing.h"
#include "tests/support/Runner.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;

class tst_PumpPacing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshRecord();
    void rate_data();
    void rate();
    void slate_data();
    void slate();
    void sleep_data();
    void sleep();
    void freeze_data();
    void freeze();
};

void tst_PumpPacing::freshRecord()
{
    const NdiFrameInfo info;
    QCOMPARE(info.width, 0);
    QCOMPARE(info.height, 0);
    QCOMPARE(info.frameRateN, 30);
    QCOMPARE(info.frameRateD, 1);
    QCOMPARE(info.valid, false);
}

void tst_PumpPacing::rate_data()
{
    QTest::addColumn<bool>("valid");
    QTest::addColumn<int>("numerator");
    QTest::addColumn<int>("denominator");
    QTest::addColumn<QString>("logged");
    QTest::addColumn<double>("paced");
    QTest::addColumn<int>("intervalMs");
    QTest::addColumn<int>("whole");

    QTest::newRow("fresh record") << false << 30 << 1 << u"30.00"_s << 30.0 << 33 << 30;
    QTest::newRow("not valid: its rate counts for nothing")
        << false << 50 << 1 << u"30.00"_s << 30.0 << 33 << 50;
    QTest::newRow("24000/1001") << true << 24000 << 1001 << u"23.98"_s << 24000 / 1001.0 << 41 << 24;
    QTest::newRow("25") << true << 25 << 1 << u"25.00"_s << 25.0 << 40 << 25;
    QTest::newRow("30000/1001") << true << 30000 << 1001 << u"29.97"_s << 30000 / 1001.0 << 33 << 30;
    QTest::newRow("30") << true << 30 << 1 << u"30.00"_s << 30.0 << 33 << 30;
    QTest::newRow("50") << true << 50 << 1 << u"50.00"_s << 50.0 << 20 << 50;
    QTest::newRow("60000/1001") << true << 60000 << 1001 << u"59.94"_s << 60000 / 1001.0 << 16 << 60;
    QTest::newRow("60") << true << 60 << 1 << u"60.00"_s << 60.0 << 16 << 60;
    QTest::newRow("half a frame rounds up") << true << 25 << 2 << u"12.50"_s << 12.5 << 80 << 13;
    QTest::newRow("less than half rounds down") << true << 1249 << 100 << u"12.49"_s << 12.49 << 80 << 12;
    QTest::newRow("no denominator") << true << 25 << 0 << u"30.00"_s << 30.0 << 33 << 30;
    QTest::newRow("just above one") << true << 1001 << 1000 << u"1.00"_s << 1.001 << 999 << 1;
    QTest::newRow("one isn't believed") << true << 1 << 1 << u"1.00"_s << 30.0 << 33 << 1;
    QTest::newRow("a half isn't believed") << true << 1 << 2 << u"0.50"_s << 30.0 << 33 << 1;
    QTest::newRow("nothing isn't believed") << true << 0 << 1 << u"0.00"_s << 30.0 << 33 << 0;
    QTest::newRow("less than nothing isn't believed") << true << -25 << 1 << u"-25.00"_s << 30.0 << 33 << -24;
}

void tst_PumpPacing::rate()
{
    QFETCH(const bool, valid);
    QFETCH(const int, numerator);
    QFETCH(const int, denominator);
    NdiFrameInfo info;
    info.valid = valid;
    info.frameRateN = numerator;
    info.frameRateD = denominator;

    const PumpRate rate = pumpRate(info);
    QTEST(QString::number(rate.reported, 'f', 2), "logged");
    QTEST(rate.paced, "paced");
    QTEST(pumpIntervalMs(rate.paced), "intervalMs");
    QTEST(wholeFrameRate(info), "whole");
}

void tst_PumpPacing::slate_data()
{
    QTest::addColumn<int>("stride");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("bytes");

    QTest::newRow("nothing known") << 0 << 0 << 0 << 4147200;
    QTest::newRow("size known") << 0 << 1280 << 720 << 1843200;
    QTest::newRow("line length goes before width") << 4096 << 1920 << 1080 << 4423680;
    QTest::newRow("line length alone") << 4096 << 0 << 0 << 4423680;
    QTest::newRow("width alone") << 0 << 1280 << 0 << 2764800;
    QTest::newRow("height alone") << 0 << 0 << 720 << 2764800;
    QTest::newRow("smallest values that count") << 1 << 1920 << 1 << 1;
    QTest::newRow("smallest width that counts") << 0 << 1 << 1 << 2;
    QTest::newRow("values below those") << -1 << -1 << -1 << 4147200;
    QTest::newRow("32 bits, with a sign") << 0x10000 << 0 << 0x8000 << std::numeric_limits<int>::min();
    QTest::newRow("32 bits, nothing left") << 0x10000 << 0 << 0x10000 << 0;
}

void tst_PumpPacing::slate()
{
    QFETCH(const int, stride);
    QFETCH(const int, width);
    QFETCH(const int, height);
    NdiFrameInfo info;
    info.width = width;
    info.height = height;
    QTEST(slateSize(info, stride), "bytes");
}

void tst_PumpPacing::sleep_data()
{
    QTest::addColumn<qint64>("tickStart");
    QTest::addColumn<qint64>("now");
    QTest::addColumn<int>("sleepMs");

    constexpr qint64 today = 1'763'709'400'000;
    constexpr qint64 turn = qint64(1) << 32;
    QTest::newRow("written at once") << today << today << 33;
    QTest::newRow("part of the period spent") << today << today + 10 << 23;
    QTest::newRow("last millisecond") << today << today + 32 << 1;
    QTest::newRow("exactly a period spent") << today << today + 33 << 0;
    QTest::newRow("late") << today << today + 40 << -7;
    QTest::newRow("clock set back by less than a period") << today << today - 10 << 33;
    QTest::newRow("clock set back by an hour") << today << today - 3'600'000 << 33;
    QTest::newRow("clock set forward by an hour") << today << today + 3'600'000 << -3'599'967;
    QTest::newRow("low 32 bits turn over") << 500 * turn - 16 << 500 * turn + 5 << 12;
    QTest::newRow("low 31 bits turn over") << turn / 2 - 16 << turn / 2 + 5 << 12;
    QTest::newRow("high bits don't count") << today << today + turn << 33;
}

void tst_PumpPacing::sleep()
{
    QFETCH(const qint64, tickStart);
    QFETCH(const qint64, now);
    QTEST(pumpSleepMs(33, tickStart, now), "sleepMs");
}

void tst_PumpPacing::freeze_data()
{
    // Ages in ms of consecutive frames, and those that begin a freeze.
    QTest::addColumn<QList<qint64>>("ages");
    QTest::addColumn<QList<bool>>("begins");

    using Ages = QList<qint64>;
    using Begins = QList<bool>;
    QTest::newRow("new frame") << Ages{0} << Begins{false};
    QTest::newRow("exactly a second old") << Ages{1000} << Begins{false};
    QTest::newRow("a millisecond more") << Ages{1001} << Begins{true};
    QTest::newRow("once a freeze") << Ages{967, 1000, 1033, 1066, 60000}
                                   << Begins{false, false, true, false, false};
    QTest::newRow("a new frame ends it, the next stall begins another")
        << Ages{1001, 1034, 10, 999, 1001, 1034} << Begins{true, false, false, false, true, false};
    QTest::newRow("a frame that is a second old ends it too")
        << Ages{1001, 1000, 1001} << Begins{true, false, true};
    QTest::newRow("frame from the future: the clock was set back") << Ages{-5000} << Begins{false};
}

void tst_PumpPacing::freeze()
{
    QFETCH(const QList<qint64>, ages);
    QFETCH(const QList<bool>, begins);
    constexpr qint64 tickStart = 1'763'709'400'000;
    FreezeRule rule;
    QCOMPARE(rule.frozen, false);
    QList<bool> found;
    for (const qint64 age : ages) {
        found << rule.begins(tickStart, tickStart - age);
        QCOMPARE(rule.frozen, age > 1000);
    }
    QCOMPARE(found, begins);
}

CORVANE_TEST(tst_PumpPacing, corvane::test::NoApplication)
#include "tst_PumpPacing.moc"
