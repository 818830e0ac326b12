#include "pipeline/QualityLadder.h"
#include "pipeline/Telemetry.h"
#include "tests/support/Runner.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

const Telemetry good{};

/// Telemetry that is bad at every tick, whatever came before.
Telemetry bad()
{
    Telemetry figures;
    figures.rttMs = 900;
    return figures;
}

} // namespace

class tst_QualityLadder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsAtFullQuality();
    void levels_data();
    void levels();
    void levelIsClamped();
    void bitrateAtLevel_data();
    void bitrateAtLevel();
    void judgement_data();
    void judgement();
    void drops_data();
    void drops();
    void steps_data();
    void steps();
    void countersAtTheEnds();
    void limitsAreThoseOfTheRecord();
};

void tst_QualityLadder::startsAtFullQuality()
{
    const QualityLadder ladder;
    QCOMPARE(ladder.rttLimitMs, 800.0);
    QCOMPARE(ladder.loadLimit, 88.0);
    QCOMPARE(ladder.badTicksDown, 3);
    QCOMPARE(ladder.goodTicksUp, 10);
    QCOMPARE(ladder.level, 0);
    QCOMPARE(ladder.badTicks, 0);
    QCOMPARE(ladder.goodTicks, 0);
    QCOMPARE(ladder.lastSndDrop, 0);
    QCOMPARE(ladder.lastDropped, 0);
    QCOMPARE(ladder.primed, false);
}

void tst_QualityLadder::levels_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("name");
    QTest::addColumn<double>("factor");
    QTest::addColumn<int>("maxFps");
    QTest::addColumn<int>("maxHeight");

    QTest::newRow("full") << 0 << u"full"_s << 1.0 << 0 << 0;
    QTest::newRow("three quarters") << 1 << u"bitrate-75"_s << 0.75 << 0 << 0;
    QTest::newRow("half") << 2 << u"bitrate-50+fps30"_s << 0.5 << 30 << 0;
    QTest::newRow("a third") << 3 << u"bitrate-35+720p"_s << 0.35 << 30 << 720;
    QTest::newRow("a quarter") << 4 << u"bitrate-25+540p"_s << 0.25 << 24 << 540;
}

void tst_QualityLadder::levels()
{
    QFETCH(const int, level);
    const QualityLevel &row = qualityLevel(level);
    QTEST(QString::fromLatin1(row.name), "name");
    QTEST(row.factor, "factor");
    QTEST(row.maxFps, "maxFps");
    QTEST(row.maxHeight, "maxHeight");
}

void tst_QualityLadder::levelIsClamped()
{
    QCOMPARE(qualityLevel(-1).name, "full");
    QCOMPARE(qualityLevel(5).name, "bitrate-25+540p");
    QCOMPARE(corvane::bitrateAtLevel(-1, 6000), 6000);
    QCOMPARE(corvane::bitrateAtLevel(5, 6000), 1500);
    QCOMPARE(lowestQuality, 4);
}

void tst_QualityLadder::bitrateAtLevel_data()
{
    QTest::addColumn<int>("base");
    QTest::addColumn<QList<int>>("bitrates"); // of levels 0 to 4

    QTest::newRow("default rate") << 6000 << QList{6000, 4500, 3000, 2100, 1500};
    QTest::newRow("floor at the lowest level") << 1000 << QList{1000, 750, 500, 350, 300};
    QTest::newRow("exactly the floor") << 1200 << QList{1200, 900, 600, 420, 300};
    QTest::newRow("just below the floor") << 1199 << QList{1199, 899, 599, 419, 300};
    QTest::newRow("fractions are cut off") << 4999 << QList{4999, 3749, 2499, 1749, 1249};
    // 1300 × 0.35 is a hair below 455 in double precision.
    QTest::newRow("cut off, not rounded") << 1300 << QList{1300, 975, 650, 454, 325};
    QTest::newRow("floor at every level but full") << 400 << QList{400, 300, 300, 300, 300};
    QTest::newRow("floor at full quality") << 200 << QList{300, 300, 300, 300, 300};
    QTest::newRow("nothing") << 0 << QList{300, 300, 300, 300, 300};
    QTest::newRow("negative") << -6000 << QList{300, 300, 300, 300, 300};
    QTest::newRow("rate already lowered once") << 4500 << QList{4500, 3375, 2250, 1575, 1125};
}

void tst_QualityLadder::bitrateAtLevel()
{
    QFETCH(const int, base);
    QFETCH(const QList<int>, bitrates);
    for (int level = 0; level <= 4; ++level)
        QCOMPARE(corvane::bitrateAtLevel(level, base), bitrates.at(level));
}

void tst_QualityLadder::judgement_data()
{
    QTest::addColumn<Telemetry>("figures");
    QTest::addColumn<bool>("bad");

    const auto row = [](const char *name, bool isBad, auto set) {
        Telemetry figures;
        set(figures);
        QTest::newRow(name) << figures << isBad;
    };
    row("nothing to see", false, [](Telemetry &) {});
    row("round trip at the limit", false, [](Telemetry &t) { t.rttMs = 800; });
    row("round trip above the limit", true, [](Telemetry &t) { t.rttMs = 800.01; });
    row("load at the limit", false, [](Telemetry &t) { t.loadPercent = 88; });
    row("load above the limit", true, [](Telemetry &t) { t.loadPercent = 88.01; });
    row("slightly warm", false, [](Telemetry &t) { t.thermalState = 1; });
    row("hot", true, [](Telemetry &t) { t.thermalState = 2; });
    row("very hot", true, [](Telemetry &t) { t.thermalState = 3; });
    row("thermal level out of the range", false, [](Telemetry &t) { t.thermalState = 4; });
    row("negative thermal level", false, [](Telemetry &t) { t.thermalState = -1; });
    row("sending at nine tenths of the link", false,
        [](Telemetry &t) { t.linkCapacity = 10, t.sendRate = 9; });
    row("sending above nine tenths of the link", true,
        [](Telemetry &t) { t.linkCapacity = 10, t.sendRate = 9.01; });
    row("sending more than a thin link carries", true,
        [](Telemetry &t) { t.linkCapacity = 0.5, t.sendRate = 0.6; });
    row("link not known", false, [](Telemetry &t) { t.linkCapacity = 0, t.sendRate = 100; });
    row("negative link", false, [](Telemetry &t) { t.linkCapacity = -1, t.sendRate = 100; });
    row("rate not known", false, [](Telemetry &t) { t.linkCapacity = 10, t.sendRate = 0; });
    row("figures that don't count", false, [](Telemetry &t) {
        t.retrans = 1000;
        t.rcvLoss = 1000;
        t.fps = 0;
        t.bitrateKbps = 0;
        t.valid = true;
    });
    row("sender drops before the first tick", true, [](Telemetry &t) { t.sndDrop = 1; });
    row("encoder drops before the first tick", false, [](Telemetry &t) { t.dropped = 5000; });
    row("hot, whatever the rest", true, [](Telemetry &t) { t.thermalState = 3, t.rttMs = 1, t.fps = 60; });
}

void tst_QualityLadder::judgement()
{
    QFETCH(const Telemetry, figures);
    QFETCH(const bool, bad);
    QualityLadder ladder;

    QCOMPARE(ladder.evaluate(figures), 0);

    QCOMPARE(ladder.badTicks, bad ? 1 : 0);
    QCOMPARE(ladder.goodTicks, bad ? 0 : 1);
    QCOMPARE(ladder.primed, true);
    QCOMPARE(ladder.lastSndDrop, figures.sndDrop);
    QCOMPARE(ladder.lastDropped, figures.dropped);
}

void tst_QualityLadder::drops_data()
{
    QTest::addColumn<QList<int>>("totals"); // one a tick
    QTest::addColumn<QString>("encoder");   // verdict on each tick, b or g, by ffmpeg's counter
    QTest::addColumn<QString>("sender");    // the same by the counter of the link's sender

    QTest::newRow("no drops") << QList{0, 0, 0} << u"ggg"_s << u"ggg"_s;
    QTest::newRow("rising from nothing") << QList{0, 1, 2} << u"gbb"_s << u"gbb"_s;
    QTest::newRow("high from the first tick") << QList{900, 900, 900} << u"ggg"_s << u"bgg"_s;
    QTest::newRow("high and rising") << QList{900, 901, 905} << u"gbb"_s << u"bbb"_s;
    QTest::newRow("standing still") << QList{0, 5, 5, 6} << u"gbgb"_s << u"gbgb"_s;
    QTest::newRow("a fall is no rise") << QList{900, 905, 0, 1} << u"gbgb"_s << u"bbgb"_s;
}

void tst_QualityLadder::drops()
{
    QFETCH(const QList<int>, totals);
    QString encoder;
    QString sender;
    QualityLadder encoderLadder;
    QualityLadder senderLadder;
    for (const int total : totals) {
        Telemetry figures;
        figures.dropped = total;
        encoderLadder.evaluate(figures);
        encoder += encoderLadder.goodTicks == 0 ? u'b' : u'g';

        figures = Telemetry();
        figures.sndDrop = total;
        senderLadder.evaluate(figures);
        sender += senderLadder.goodTicks == 0 ? u'b' : u'g';
    }
    QTEST(encoder, "encoder");
    QTEST(sender, "sender");
}

void tst_QualityLadder::steps_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<QString>("ticks");  // b: bad, g: good
    QTest::addColumn<QString>("levels"); // after each tick

    QTest::newRow("two bad ticks") << 0 << u"bb"_s << u"00"_s;
    QTest::newRow("three bad ticks") << 0 << u"bbb"_s << u"001"_s;
    QTest::newRow("a good tick clears the bad ones") << 0 << u"bbgbb"_s << u"00000"_s;
    QTest::newRow("a third bad tick after that") << 0 << u"bbgbbb"_s << u"000001"_s;
    QTest::newRow("each step down takes three") << 0 << u"bbbbbbbbbbbb"_s << u"001112223334"_s;
    QTest::newRow("nothing below the lowest") << 4 << u"bbbbbbb"_s << u"4444444"_s;
    QTest::newRow("nothing above full") << 0 << u"gggggggggggg"_s << u"000000000000"_s;
    QTest::newRow("nine good ticks") << 1 << u"ggggggggg"_s << u"111111111"_s;
    QTest::newRow("ten good ticks") << 1 << u"gggggggggg"_s << u"1111111110"_s;
    QTest::newRow("a bad tick clears the good ones")
        << 1 << u"gggggggggbggggggggg"_s << u"1111111111111111111"_s;
    QTest::newRow("each step up takes ten") << 4 << u"gggggggggggggggggggggggggggggggggggggggg"_s
                                            << u"4444444443333333333222222222211111111110"_s;
    QTest::newRow("down and back") << 0 << u"bbbgggggggggg"_s << u"0011111111110"_s;
    QTest::newRow("good ticks at full are no credit")
        << 0 << u"gggggggggggbbbggggggggg"_s << u"00000000000001111111111"_s;
    QTest::newRow("bad ticks at the lowest are no debt") << 4 << u"bbbbbgggggggggg"_s << u"444444444444443"_s;
    QTest::newRow("after a step up three bad ticks go down again")
        << 2 << u"ggggggggggbbb"_s << u"2222222221112"_s;
}

void tst_QualityLadder::steps()
{
    QFETCH(const int, from);
    QFETCH(const QString, ticks);
    QualityLadder ladder;
    ladder.level = from;
    QString levels;
    for (const QChar tick : ticks) {
        const qint32 level = ladder.evaluate(tick == u'b' ? bad() : good);
        QCOMPARE(ladder.level, level);
        levels += QString::number(level);
    }
    QTEST(levels, "levels");
}

void tst_QualityLadder::countersAtTheEnds()
{
    QualityLadder lowest;
    lowest.level = 4;
    for (int tick = 1; tick <= 20; ++tick) {
        QCOMPARE(lowest.evaluate(bad()), 4);
        QCOMPARE(lowest.badTicks, tick);
    }

    QualityLadder full;
    for (int tick = 1; tick <= 20; ++tick) {
        QCOMPARE(full.evaluate(good), 0);
        QCOMPARE(full.goodTicks, tick);
    }

    // A step restarts the count.
    QualityLadder stepping;
    for (int tick = 0; tick < 3; ++tick)
        stepping.evaluate(bad());
    QCOMPARE(stepping.level, 1);
    QCOMPARE(stepping.badTicks, 0);
    for (int tick = 0; tick < 10; ++tick)
        stepping.evaluate(good);
    QCOMPARE(stepping.level, 0);
    QCOMPARE(stepping.goodTicks, 0);
}

void tst_QualityLadder::limitsAreThoseOfTheRecord()
{
    QualityLadder ladder;
    ladder.rttLimitMs = 100;
    ladder.loadLimit = 50;
    ladder.badTicksDown = 1;
    ladder.goodTicksUp = 2;

    Telemetry slow;
    slow.rttMs = 101;
    Telemetry busy;
    busy.loadPercent = 51;
    QCOMPARE(ladder.evaluate(slow), 1);
    QCOMPARE(ladder.evaluate(busy), 2);
    QCOMPARE(ladder.evaluate(good), 2);
    QCOMPARE(ladder.evaluate(good), 1);
}

CORVANE_TEST(tst_QualityLadder, QCoreApplication)
#include "tst_QualityLadder.moc"
