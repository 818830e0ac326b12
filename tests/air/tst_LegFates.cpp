#include "tools/air/LegFates.h"

#include "tests/support/Runner.h"

#include <QTest>

#include <array>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

QString written(const air::LegFates::Event &event)
{
    constexpr std::array<const char *, 4> kinds{"start failed", "lost", "back", "flickered"};
    return u"%1 %2 %3"_s.arg(QLatin1StringView(kinds.at(static_cast<std::size_t>(event.kind))))
        .arg(event.leg)
        .arg(event.awayMs);
}

/// Words of ffmpeg, with the time in milliseconds before them.
const QString teeOpens = u"0 [tee @ 0x1] [verbose] filename"_s;
const QString rtmpConnects = u"0 [tcp @ 0x2] [verbose] Successfully connected to 10.0.0.1 port 1935"_s;
const QString srtConnects = u"0 [mpegts @ 0x2] [verbose] service 1, muxrate VBR, sdt every 500 ms"_s;
const QStringList onAir{teeOpens, rtmpConnects};

QString says(int time, const QString &words, const QString &queue = u"0xa"_s)
{
    return u"%1 [fifo @ %2] [info] %3"_s.arg(time).arg(queue, words);
}

QString errorOpening(int time, const QString &target, const QString &queue = u"0xa"_s)
{
    return says(time, u"Error opening %1: Connection refused"_s.arg(target), queue);
}

const QString attempt = u"Recovery attempt #1"_s;
const QString success = u"Recovery successful"_s;
const QString one = u"rtmp://h/live/k"_s;
const QString two = u"rtmp://h/live/k2"_s; // the other, and more
const QString three = u"srt://h:9"_s;

} // namespace

/// The fates of destinations, from ffmpeg's words.
class tst_LegFates : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void events_data();
    void events();
    void state_data();
    void state();

private:
    static air::LegFates fatesOf(const QStringList &targets);
    static QStringList read(air::LegFates &fates, const QStringList &lines);
};

air::LegFates tst_LegFates::fatesOf(const QStringList &targets)
{
    std::vector<air::Leg> legs;
    for (const QString &target : targets)
        legs.push_back({"flv", target.toStdString()});
    return air::LegFates(legs);
}

QStringList tst_LegFates::read(air::LegFates &fates, const QStringList &lines)
{
    QStringList events;
    for (const QString &line : lines) {
        const std::string words = line.section(u' ', 1).toStdString();
        const int time = line.section(u' ', 0, 0).toInt();
        if (const auto event = fates.read(air::readFfmpegLine(words), time))
            events << written(*event);
    }
    return events;
}

void tst_LegFates::events_data()
{
    QTest::addColumn<QStringList>("targets");
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QStringList>("events");
    const QStringList none;
    const auto row = [](const char *name, const QStringList &targets, const QStringList &lines,
                        const QStringList &events) { QTest::newRow(name) << targets << lines << events; };

    row("on air", {one}, onAir + QStringList{u"5000 [flv @ 0x3] [error] x"_s}, none);
    row("no connection", {one}, {teeOpens, errorOpening(100, one)}, {u"start failed 0 0"_s});
    row("no connection, seen by the attempt", {one}, {teeOpens, says(100, attempt)}, {u"start failed 0 0"_s});
    row("refused soon", {one}, onAir + QStringList{says(2999, attempt)}, {u"start failed 0 0"_s});
    row("lost soon after that", {one}, onAir + QStringList{says(3000, attempt)}, {u"lost 0 0"_s});
    row("lost, seen by an error", {one}, onAir + QStringList{errorOpening(5000, one)}, {u"lost 0 0"_s});
    row("lost, seen by a failure", {one}, onAir + QStringList{says(5000, u"Recovery failed: I/O error"_s)},
        {u"lost 0 0"_s});
    row("lost once", {one},
        onAir + QStringList{says(5000, attempt), errorOpening(5001, one), says(6000, attempt)},
        {u"lost 0 0"_s});
    row("lost and back", {one}, onAir + QStringList{says(5000, attempt), says(7500, success)},
        {u"lost 0 0"_s, u"back 0 2500"_s});
    row("back without a loss", {one}, onAir + QStringList{says(5000, success)}, none);
    row("twice", {one},
        onAir +
            QStringList{says(5000, attempt), says(7000, success), says(8000, attempt), says(8500, success)},
        {u"lost 0 0"_s, u"back 0 2000"_s, u"lost 0 0"_s, u"back 0 500"_s});
    row("words of another part of ffmpeg", {one},
        onAir + QStringList{u"5000 [tcp @ 0x3] [error] Recovery attempt #1"_s,
                            u"5000 [fifo] [error] Recovery attempt #1"_s,
                            u"5000 [fifos @ 0x3] [error] Recovery attempt #1"_s, says(5000, u"x"_s)},
        none);
    row("of two, the named one", {one, two}, onAir + QStringList{errorOpening(5000, two)}, {u"lost 1 0"_s});
    row("of two, the shorter name", {one, two}, onAir + QStringList{errorOpening(5000, one)},
        {u"lost 0 0"_s});
    row("of two, another name", {one, two}, onAir + QStringList{errorOpening(5000, u"rtmp://h/live/k3"_s)},
        none);
    row("of two of one name, one after the other", {one, one},
        onAir + QStringList{errorOpening(5000, one, u"0xa"_s), errorOpening(6000, one, u"0xb"_s),
                            says(7000, success, u"0xb"_s), says(9000, success, u"0xa"_s)},
        {u"lost 0 0"_s, u"lost 1 0"_s, u"back 1 1000"_s, u"back 0 4000"_s});
    row("of two, the one that is left needs no name", {one, two},
        onAir + QStringList{errorOpening(5000, two, u"0xb"_s), says(6000, attempt, u"0xa"_s),
                            says(8000, success, u"0xa"_s)},
        {u"lost 1 0"_s, u"lost 0 0"_s, u"back 0 2000"_s});
    row("of two, none has a name", {one, two},
        onAir + QStringList{says(5000, attempt), says(5100, success), says(5200, success)},
        {u"flickered 0 0"_s});
    row("of two, a name after the attempt", {one, two},
        onAir + QStringList{says(5000, attempt), errorOpening(5001, one), says(6001, success)},
        {u"lost 0 0"_s, u"back 0 1000"_s});
    row("of three, two without a name", {one, two, three},
        onAir + QStringList{says(5000, attempt, u"0xa"_s), says(5000, attempt, u"0xb"_s),
                            says(5000, attempt, u"0xa"_s), says(5100, success, u"0xb"_s),
                            says(5200, success, u"0xa"_s)},
        {u"flickered 0 0"_s, u"flickered 0 0"_s});
    row("of two, one fails at the start", {one, two},
        onAir + QStringList{errorOpening(10, one), says(1500, success)}, {u"lost 0 0"_s, u"back 0 1490"_s});
    row("of two, both fail at the start", {one, two},
        {teeOpens, errorOpening(10, one), errorOpening(20, two, u"0xb"_s)},
        {u"lost 0 0"_s, u"start failed 1 0"_s});
    row("what came back isn't a start that fails", {one, two},
        onAir + QStringList{errorOpening(10, one), says(1500, success), errorOpening(1600, two, u"0xb"_s),
                            says(2000, attempt)},
        {u"lost 0 0"_s, u"back 0 1490"_s, u"lost 1 0"_s, u"lost 0 0"_s});
}

void tst_LegFates::events()
{
    QFETCH(const QStringList, targets);
    QFETCH(const QStringList, lines);
    air::LegFates fates = fatesOf(targets);

    QTEST(read(fates, lines), "events");
}

void tst_LegFates::state_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<bool>("connected");
    QTest::addColumn<bool>("up");
    QTest::addColumn<bool>("away");

    QTest::newRow("nothing yet") << QStringList() << false << false << false;
    QTest::newRow("RTMP accepted") << onAir << true << true << false;
    QTest::newRow("SRT accepted") << QStringList{teeOpens, srtConnects} << true << true << false;
    QTest::newRow("a source accepted") << QStringList{rtmpConnects, teeOpens} << false << false << false;
    QTest::newRow("one lost") << onAir + QStringList{errorOpening(5000, one)} << true << true << true;
    QTest::newRow("both lost") << onAir +
                                      QStringList{errorOpening(5000, one), errorOpening(5000, two, u"0xb"_s)}
                               << true << false << true;
    QTest::newRow("one lost without a name")
        << onAir + QStringList{says(5000, attempt)} << true << true << true;
    QTest::newRow("named later, and back")
        << onAir + QStringList{says(5000, attempt), errorOpening(5001, one), says(6000, success)} << true
        << true << false;
    QTest::newRow("back without a name")
        << onAir + QStringList{says(5000, attempt), says(5100, success)} << true << true << false;
    QTest::newRow("none accepted") << QStringList{teeOpens, errorOpening(10, one)} << false << false << true;
}

void tst_LegFates::state()
{
    QFETCH(const QStringList, lines);
    air::LegFates fates = fatesOf({one, two});
    read(fates, lines);

    QTEST(fates.connected(), "connected");
    QTEST(fates.anyUp(), "up");
    QTEST(fates.anyAway(), "away");
}

CORVANE_TEST(tst_LegFates, QCoreApplication)
#include "tst_LegFates.moc"
