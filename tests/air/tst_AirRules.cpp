#include "tools/air/HangRule.h"
#include "tools/air/LegMeter.h"
#include "tools/air/RecordingFile.h"

#include "tests/support/Runner.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;

/// The small rules: silence, rates, names of recordings.
class tst_AirRules : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hang_data();
    void hang();
    void rate();
    void rateOfTheLastSecondsAlone();
    void rateAtTheEdges();
    void rateWithoutDestinations();
    void recordingNames_data();
    void recordingNames();
    void firstLine_data();
    void firstLine();
};

void tst_AirRules::hang_data()
{
    QTest::addColumn<QList<int>>("lines"); ///< times of progress lines
    QTest::addColumn<QList<int>>("gaps");  ///< times from and to which nobody asks
    QTest::addColumn<int>("hungAt");       ///< -1: not within twenty seconds

    const QList<int> none;
    QTest::newRow("no line at all") << none << none << -1;
    QTest::newRow("one line alone") << QList<int>{500} << none << -1;
    QTest::newRow("two lines") << QList<int>{500, 1000} << none << 5000;
    QTest::newRow("many lines") << QList<int>{500, 1000, 1500, 5400} << none << 9400;
    QTest::newRow("a machine that stops for long")
        << QList<int>{500, 1000} << QList<int>{2000, 9000} << 12000;
    QTest::newRow("a machine that stops for a second")
        << QList<int>{500, 1000} << QList<int>{2000, 3000} << 6000;
    QTest::newRow("a machine that stops behind the first question")
        << QList<int>{500, 1000} << QList<int>{0, 9000} << 14000;
    QTest::newRow("a machine that stops for a moment")
        << QList<int>{500, 1000} << QList<int>{2000, 2900} << 5000;
}

void tst_AirRules::hang()
{
    QFETCH(const QList<int>, lines);
    QFETCH(const QList<int>, gaps);
    QFETCH(const int, hungAt);
    air::HangRule rule;
    int hung = -1;

    for (int now = 0; now <= 20000 && hung < 0; now += 100) {
        if (lines.contains(now))
            rule.onProgress(now);
        const bool stopped = !gaps.isEmpty() && now > gaps.first() && now < gaps.last();
        if (!stopped && rule.isHungAt(now))
            hung = now;
    }

    QCOMPARE(hung, hungAt);
}

void tst_AirRules::rate()
{
    air::LegMeter meter;
    QCOMPARE(meter.kbitsPerSecond(), 0.0);
    meter.add(1000, 99999);
    QCOMPARE(meter.kbitsPerSecond(), 0.0);
    for (int second = 2; second <= 4; ++second) { // a burst in two pieces
        meter.add(second * 1000, 60000);
        meter.add(second * 1000 + 10, 15000);
    }

    QCOMPARE(meter.kbitsPerSecond(), 600.0);
    QCOMPARE(meter.bytes(), 99999 + 3 * 75000);
}

void tst_AirRules::rateOfTheLastSecondsAlone()
{
    air::LegMeter meter;
    for (int second = 0; second <= 20; ++second)
        meter.add(second * 1000, 125000);
    for (int second = 21; second <= 31; ++second)
        meter.add(second * 1000, 12500);

    QCOMPARE(meter.kbitsPerSecond(), 100.0);
}

void tst_AirRules::rateAtTheEdges()
{
    air::LegMeter pieces;
    pieces.add(1000, 1000);
    pieces.add(1049, 1000);
    QCOMPARE(pieces.kbitsPerSecond(), 0.0); // one burst
    air::LegMeter bursts;
    bursts.add(1000, 1000);
    bursts.add(1050, 1000);
    QCOMPARE(bursts.kbitsPerSecond(), 160.0);

    air::LegMeter meter;
    meter.add(0, 1000);
    meter.add(5000, 1000);
    meter.add(10000, 9000);
    QCOMPARE(meter.kbitsPerSecond(), 8.0);
    meter.add(10060, 1000);
    QCOMPARE(meter.kbitsPerSecond(), 10000 * 8 / 5060.0);
}

void tst_AirRules::rateWithoutDestinations()
{
    air::LegMeter meter;
    meter.add(1000, 1000);
    meter.add(2000, 1000);

    meter.clear();

    QCOMPARE(meter.kbitsPerSecond(), 0.0);
    QCOMPARE(meter.bytes(), 2000);
}

void tst_AirRules::recordingNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("number"); ///< 0: not a recording

    QTest::newRow("first") << u"corvane-0001.mkv"_s << 1;
    QTest::newRow("large") << u"corvane-12345.mkv"_s << 12345;
    QTest::newRow("zero") << u"corvane-0000.mkv"_s << 0;
    QTest::newRow("short") << u"corvane-001.mkv"_s << 0;
    QTest::newRow("negative") << u"corvane--001.mkv"_s << 0;
    QTest::newRow("letters") << u"corvane-00a1.mkv"_s << 0;
    QTest::newRow("letters behind a number") << u"corvane-0012a.mkv"_s << 0;
    QTest::newRow("more than a number holds") << u"corvane-99999999999.mkv"_s << 0;
    QTest::newRow("another program's") << u"other---0001.mkv"_s << 0;
    QTest::newRow("another kind") << u"corvane-0001.mp4"_s << 0;
    QTest::newRow("another case") << u"CORVANE-0001.MKV"_s << 0;
    QTest::newRow("empty") << QString() << 0;
}

void tst_AirRules::recordingNames()
{
    QFETCH(const QString, name);
    QFETCH(const int, number);

    QCOMPARE(air::recordingNumber(name.toStdString()), number);
    if (number > 0)
        QCOMPARE(QString::fromStdString(air::recordingName(number)), name);
}

void tst_AirRules::firstLine_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("line");

    QTest::newRow("without an end") << u"/films"_s << u"/films"_s;
    QTest::newRow("with one") << u"/films\n/others\n"_s << u"/films"_s;
    QTest::newRow("with one of two bytes") << u"C:\\films\r\nD:\\\r\n"_s << u"C:\\films"_s;
    QTest::newRow("with blanks") << u" \t/my films \t \n"_s << u"/my films"_s;
    QTest::newRow("rare characters at its ends") << u"~/films~"_s << u"~/films~"_s;
    QTest::newRow("blanks alone") << u" \t\r\n/films"_s << QString();
    QTest::newRow("empty") << QString() << QString();
}

void tst_AirRules::firstLine()
{
    QFETCH(const QString, text);

    QTEST(QString::fromStdString(air::firstLineOf(text.toStdString())), "line");
}

CORVANE_TEST(tst_AirRules, QCoreApplication)
#include "tst_AirRules.moc"
