#include "tools/air/AirWatch.h"

#include "tests/support/Runner.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

const std::string progressBytes =
    "[info] frame=    1 fps= 30 q=0.0 size=N/A time=00:00:00.03 bitrate=N/A speed=1x    \r";
const QString shownProgress =
    u"frame=    1 fps= 30 q=0.0 size=N/A time=00:00:00.03 bitrate=N/A speed=1x    \r"_s;
const std::string outputsOpen = "[tee @ 0x1] [verbose] filename:'pipe:4' format:hash\n";
const std::string connectedBytes =
    outputsOpen + "[tcp @ 0x1] [verbose] Successfully connected to 127.0.0.1 port 1935\n";
const std::string refusedBytes =
    "[tcp @ 0x1] [error] Connection to tcp://h:1935 failed: Connection refused\n";
const QString lostA =
    u"[air] destino h:1935 perdido — a codificação continua, reconectando a cada segundo\n"_s;

std::string queueSays(const std::string &text, const std::string &address = "0xa")
{
    return "[fifo @ " + address + "] " + text + '\n';
}

std::string errorOpening(const std::string &target, const std::string &address = "0xa")
{
    return queueSays("[error] Error opening " + target + ": Connection refused", address);
}

const std::string urlA = "rtmp://h/live/keyA";
const std::string urlB = "rtmp://h:1936/live/keyB";

air::CorvaneList listOf(const std::vector<std::string> &targets, bool live = true)
{
    air::CorvaneList list;
    list.liveSource = live;
    list.severalOutputs = targets.size() > 1;
    for (const std::string &target : targets)
        list.legs.push_back({"flv", target});
    return list;
}

QStringList printed(air::AirWatch &watch)
{
    QStringList result;
    for (const std::string &part : watch.takeOutput())
        result << QString::fromStdString(part);
    return result;
}

QStringList saidOf(air::AirWatch &watch, const std::string &bytes, std::int64_t now)
{
    watch.onErrorBytes(bytes, now);
    return printed(watch);
}

int verdictOf(const air::AirWatch &watch)
{
    return watch.verdict().value_or(-1);
}

} // namespace

/// Decisions of the companion, from what the encoder writes.
class tst_AirWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void linesArePassedWhole();
    void endsOfTwoBytes_data();
    void endsOfTwoBytes();
    void looksAtItsOwnBytesOnly();
    void onlyWarningsPass();
    void linesWithoutALevel();
    void progressWaitsForAConnection();
    void connectionOfATransportStream();
    void connectionOfASource();
    void connectionInATornLine();
    void figuresOfWhatWentOut();
    void firstConnectionFails();
    void refusedSoonAfterTheConnection();
    void lostAndBack();
    void lostWithoutAnErrorOfItsOwn();
    void otherErrorsPassMeanwhile();
    void oneOfTwoFailsAtTheStart();
    void bothFailAtTheStart();
    void secondIsLost();
    void namelessLoss();
    void neverTheKey();
    void hang();
    void hangBeforeTheFirstLines();
    void endOfALiveSource();
    void endOfAFile();
    void stop();
    void stopThatHangs();
    void nothingIsSaidAfterTheStop();
    void exitCode_data();
    void exitCode();
    void endWithoutASign();
    void endWithASign();
};

void tst_AirWatch::linesArePassedWhole()
{
    air::AirWatch watch(listOf({urlA}));

    QCOMPARE(saidOf(watch, "[libx264 @ 0x1] [war", 0), QStringList());
    QCOMPARE(saidOf(watch, "ning] one\n[warning] two\r\n[error] three", 0),
             QStringList({u"[libx264 @ 0x1] one\n"_s, u"two\r\n"_s}));
    watch.onErrorEnd(0);
    QCOMPARE(printed(watch), QStringList{u"three"_s});
}

void tst_AirWatch::endsOfTwoBytes_data()
{
    QTest::addColumn<QList<QByteArray>>("pieces");
    QTest::addColumn<QStringList>("shown");

    using Pieces = QList<QByteArray>;
    QTest::newRow("at once") << Pieces{"[error] a\r\n[error] b\r\n"} << QStringList{u"a\r\n"_s, u"b\r\n"_s};
    QTest::newRow("one after the other")
        << Pieces{"[error] a\r", "\n[error] b"} << QStringList{u"a\r"_s, u"\n"_s};
    QTest::newRow("of a line that isn't shown")
        << Pieces{"[info] a\r", "\n[error] b\n"} << QStringList{u"b\n"_s};
    QTest::newRow("of a line that isn't shown, at once")
        << Pieces{"[info] a\r\n[error] b\r\n"} << QStringList{u"b\r\n"_s};
    QTest::newRow("of a line that isn't shown, after one that is")
        << Pieces{"[error] a\n[info] b\r", "\n"} << QStringList{u"a\n"_s};
    QTest::newRow("of a message with several lines")
        << Pieces{"[info] \r\n\r\n[q] command received. Exiting.\r\n\r\n", "\n"} << QStringList();
    QTest::newRow("of a progress line that waits")
        << Pieces{"[info] frame=1 size=N/A time=1 bitrate=N/A\r", "\n"} << QStringList();
    QTest::newRow("a line that begins so")
        << Pieces{"[error] a\r", "b", "\n"} << QStringList{u"a\r"_s, u"b\n"_s};
    QTest::newRow("an empty line behind one")
        << Pieces{"[error] a\r", "\n", "\n"} << QStringList{u"a\r"_s, u"\n"_s};
    QTest::newRow("behind its line") << Pieces{"[error] a", "\r\n"} << QStringList{u"a\r\n"_s};
    QTest::newRow("half of one alone") << Pieces{"[error] a\r[error] b\n"} << QStringList{u"a\r"_s, u"b\n"_s};
}

void tst_AirWatch::endsOfTwoBytes()
{
    QFETCH(const QList<QByteArray>, pieces);
    air::AirWatch watch(listOf({urlA}));

    for (const QByteArray &piece : pieces)
        watch.onErrorBytes(piece.toStdString(), 0);

    QTEST(printed(watch), "shown");
}

void tst_AirWatch::looksAtItsOwnBytesOnly()
{
    air::AirWatch watch(listOf({urlA}));
    const std::string_view buffer = "[error] a\r\n";

    watch.onErrorBytes(buffer.substr(0, buffer.size() - 1), 0);

    QCOMPARE(printed(watch), QStringList{u"a\r"_s});
}

void tst_AirWatch::onlyWarningsPass()
{
    air::AirWatch watch(listOf({urlA}));

    QCOMPARE(
        saidOf(watch, "[info] a\n[verbose] b\n[x @ 0x1] [debug] c\n[warning] d\n[error] e\n[fatal] f\n", 0),
        QStringList({u"d\n"_s, u"e\n"_s, u"f\n"_s}));
}

void tst_AirWatch::linesWithoutALevel()
{
    air::AirWatch watch(listOf({urlA}));

    QCOMPARE(saidOf(watch, "libva: no driver\n~\n", 0), QStringList({u"libva: no driver\n"_s, u"~\n"_s}));
    QCOMPARE(saidOf(watch, "[info] \n\n[q] command received. Exiting.\n\n", 0), QStringList());
    QCOMPARE(saidOf(watch, "half of a line about " + urlA + "\n", 0), QStringList());
}

void tst_AirWatch::progressWaitsForAConnection()
{
    air::AirWatch watch(listOf({urlA}));

    QCOMPARE(saidOf(watch, progressBytes, 0), QStringList());
    QCOMPARE(saidOf(watch, connectedBytes + progressBytes, 0), QStringList{shownProgress});
}

void tst_AirWatch::connectionOfATransportStream()
{
    air::AirWatch watch(listOf({"srt://h:9"}));

    QCOMPARE(saidOf(watch,
                    outputsOpen + "[mpegts @ 0x1] [verbose] service 1 using PCR in pid=256\n" + progressBytes,
                    0),
             QStringList());
    QCOMPARE(saidOf(watch, "[mpegts @ 0x1] [verbose] muxrate VBR, sdt every 500 ms\n" + progressBytes, 0),
             QStringList{shownProgress});
}

void tst_AirWatch::connectionOfASource()
{
    air::AirWatch watch(listOf({urlA}));

    QCOMPARE(saidOf(watch,
                    "[tcp @ 0x1] [verbose] Successfully connected to 10.0.0.1 port 80\n" + progressBytes, 0),
             QStringList());
}

void tst_AirWatch::connectionInATornLine()
{
    air::AirWatch watch(listOf({urlA}));

    QCOMPARE(saidOf(watch,
                    outputsOpen +
                        "[info]   Stream #0:0: 30 fps, Successfully connected to 127.0.0.1 port 1935\n" +
                        progressBytes,
                    0),
             QStringList{shownProgress});
}

void tst_AirWatch::figuresOfWhatWentOut()
{
    air::AirWatch watch(listOf({urlA}));
    watch.onStream(5000, 0); // nobody takes it yet
    printed(watch);
    watch.onErrorBytes(connectedBytes, 0);
    QCOMPARE(saidOf(watch, progressBytes, 1), QStringList{shownProgress});
    watch.onStream(1, 1000);
    QVERIFY(saidOf(watch, progressBytes, 1).constFirst().contains(u"size=       0kB "_s));
    watch.onStream(10239, 1000);
    watch.onStream(75000, 2000);
    const auto with = [](const QString &size, const QString &rate) {
        return QStringList{
            u"frame=    1 fps= 30 q=0.0 size=%1kB time=00:00:00.03 bitrate=%2kbits/s speed=1x    \r"_s.arg(
                size, rate)};
    };

    QCOMPARE(saidOf(watch, progressBytes, 2000), with(u"      83"_s, u" 600.0"_s));
    watch.onStream(0, 2000);
    saidOf(watch, errorOpening(urlA), 9000);
    watch.onStream(75000, 9500);
    QCOMPARE(saidOf(watch, progressBytes, 10000), with(u"      83"_s, u"   0.0"_s));
}

void tst_AirWatch::firstConnectionFails()
{
    air::AirWatch watch(listOf({urlA}));

    const QStringList said = saidOf(watch, refusedBytes + errorOpening(urlA), 100);

    QCOMPARE(said, QStringList({u"[tcp @ 0x1] Connection to tcp://h:1935 failed: Connection refused\n"_s,
                                u"[fifo @ 0xa] Error opening rtmp://h:1935/…: Connection refused\n"_s}));
    QCOMPARE(verdictOf(watch), 1);
}

void tst_AirWatch::refusedSoonAfterTheConnection()
{
    air::AirWatch early(listOf({urlA}));
    early.onErrorBytes(connectedBytes, 1000);
    early.onErrorBytes(queueSays("[verbose] Recovery attempt #1"), 3999);
    QCOMPARE(verdictOf(early), 1);

    air::AirWatch late(listOf({urlA}));
    late.onErrorBytes(connectedBytes, 1000);
    late.onErrorBytes(queueSays("[verbose] Recovery attempt #1"), 4000);
    QCOMPARE(verdictOf(late), -1);
}

void tst_AirWatch::lostAndBack()
{
    air::AirWatch watch(listOf({urlA}));
    watch.onErrorBytes(connectedBytes, 0);

    QCOMPARE(saidOf(watch, errorOpening(urlA), 10000),
             QStringList({u"[fifo @ 0xa] Error opening rtmp://h:1935/…: Connection refused\n"_s, lostA}));
    QCOMPARE(saidOf(watch, queueSays("[info] Recovery failed: x") + refusedBytes + errorOpening(urlA), 11000),
             QStringList());
    QCOMPARE(saidOf(watch, connectedBytes + queueSays("[info] Recovery successful"), 30499),
             QStringList{u"[air] destino h:1935 de volta após 20 s\n"_s});
    QCOMPARE(saidOf(watch, queueSays("[info] Recovery successful"), 31000), QStringList());
    saidOf(watch, errorOpening(urlA), 40000);
    QCOMPARE(saidOf(watch, connectedBytes + queueSays("[info] Recovery successful"), 60500),
             QStringList{u"[air] destino h:1935 de volta após 21 s\n"_s});
    QCOMPARE(verdictOf(watch), -1);
}

void tst_AirWatch::lostWithoutAnErrorOfItsOwn()
{
    air::AirWatch watch(listOf({urlA}));
    watch.onErrorBytes(connectedBytes, 0);

    QCOMPARE(saidOf(watch, queueSays("[verbose] Recovery attempt #1"), 10000), QStringList{lostA});
    QCOMPARE(saidOf(watch, refusedBytes + errorOpening(urlA), 10001), QStringList());
    QCOMPARE(saidOf(watch, queueSays("[info] Recovery successful"), 10501),
             QStringList{u"[air] destino h:1935 de volta após 1 s\n"_s});
}

void tst_AirWatch::otherErrorsPassMeanwhile()
{
    air::AirWatch watch(listOf({urlA}));
    watch.onErrorBytes(connectedBytes, 0);
    saidOf(watch, queueSays("[verbose] Recovery attempt #1"), 10000);

    QCOMPARE(saidOf(watch, "[libx264 @ 0x1] [error] out of memory\n", 10000),
             QStringList{u"[libx264 @ 0x1] out of memory\n"_s});
}

void tst_AirWatch::oneOfTwoFailsAtTheStart()
{
    air::AirWatch watch(listOf({urlA, urlB}));

    QCOMPARE(saidOf(watch, errorOpening(urlA), 0).constLast(), lostA);
    QCOMPARE(saidOf(watch, connectedBytes + errorOpening(urlA), 1000), QStringList());
    QCOMPARE(verdictOf(watch), -1);
}

void tst_AirWatch::bothFailAtTheStart()
{
    air::AirWatch watch(listOf({urlA, urlB}));
    saidOf(watch, refusedBytes + errorOpening(urlA), 0);

    QCOMPARE(saidOf(watch, refusedBytes + errorOpening(urlB, "0xb"), 100),
             QStringList{u"[fifo @ 0xb] Error opening rtmp://h:1936/…: Connection refused\n"_s});
    QCOMPARE(verdictOf(watch), 1);
}

void tst_AirWatch::secondIsLost()
{
    air::AirWatch watch(listOf({urlA, urlB}));
    watch.onErrorBytes(connectedBytes, 0);

    saidOf(watch, queueSays("[verbose] Recovery attempt #1", "0xb"), 9000);
    QCOMPARE(saidOf(watch, errorOpening(urlB, "0xb"), 9000),
             QStringList{
                 u"[air] destino h:1936 perdido — a codificação continua, reconectando a cada segundo\n"_s});
    // What is left of two needs no name.
    QCOMPARE(saidOf(watch, queueSays("[verbose] Recovery attempt #1", "0xa"), 9500), QStringList{lostA});
    QCOMPARE(saidOf(watch, queueSays("[info] Recovery successful", "0xb"), 12000),
             QStringList{u"[air] destino h:1936 de volta após 3 s\n"_s});
}

void tst_AirWatch::namelessLoss()
{
    air::AirWatch watch(listOf({urlA, urlB}));
    watch.onErrorBytes(connectedBytes, 0);

    QCOMPARE(saidOf(watch, queueSays("[verbose] Recovery attempt #1", "0xb"), 9000), QStringList());
    QCOMPARE(saidOf(watch, queueSays("[info] Recovery successful", "0xb"), 9100),
             QStringList{u"[air] um dos destinos caiu e já está de volta\n"_s});
    QCOMPARE(saidOf(watch, queueSays("[info] Recovery successful", "0xb"), 9200), QStringList());
}

void tst_AirWatch::neverTheKey()
{
    const std::string target = "rtmp://h/live/keyOfTheStream";
    air::AirWatch watch(listOf({target, urlB}));
    QStringList said =
        saidOf(watch, "[rtmp @ 0x1] [error] no stream keyOfTheStream\n" + errorOpening(target), 0);
    watch.onErrorBytes(connectedBytes, 1000);
    said += saidOf(watch, queueSays("[verbose] Recovery attempt #1", "0xb"), 9000);
    said += saidOf(watch, errorOpening(urlB, "0xb") + errorOpening(urlB, "0xb"), 9000);
    said += saidOf(watch, "[info] Output #0, tee, to '[f=flv]" + target + "'\n", 9000);
    said += saidOf(watch, queueSays("[info] Recovery successful", "0xb"), 9000);

    QCOMPARE_GE(said.size(), 4);
    QCOMPARE(said.filter(u"key"_s), QStringList());
}

void tst_AirWatch::hang()
{
    air::AirWatch watch(listOf({urlA}));
    watch.onErrorBytes(connectedBytes + progressBytes + progressBytes, 9000);
    printed(watch);
    for (int now = 9000; now < 13000; now += 500)
        watch.onTick(now);
    QCOMPARE(verdictOf(watch), -1);

    watch.onTick(13000);
    watch.onTick(13500);

    QCOMPARE(printed(watch), QStringList{u"[air] ffmpeg sem progresso há 4 s — encerrando com code=1\n"_s});
    QCOMPARE(verdictOf(watch), 1);
}

void tst_AirWatch::hangBeforeTheFirstLines()
{
    air::AirWatch watch(listOf({urlA}));
    watch.onErrorBytes(connectedBytes + progressBytes, 0);
    for (int now = 0; now < 20000; now += 500)
        watch.onTick(now);

    QCOMPARE(verdictOf(watch), -1);
}

void tst_AirWatch::endOfALiveSource()
{
    air::AirWatch watch(listOf({urlA}));

    watch.onEnding(0);
    watch.onEnding(0);

    QCOMPARE(printed(watch),
             QStringList{u"[air] a fonte terminou sem pedido de parada — saindo com code=1\n"_s});
    QCOMPARE(verdictOf(watch), 1);
    QVERIFY(!watch.letsThrough());
}

void tst_AirWatch::endOfAFile()
{
    air::AirWatch watch(listOf({urlA}, false));

    watch.onEnding(500);
    watch.onTick(1499);
    QCOMPARE(verdictOf(watch), -1);
    watch.onTick(1500);

    QCOMPARE(verdictOf(watch), 0);
    QVERIFY(!watch.letsThrough()); // no goodbye
    QCOMPARE(printed(watch), QStringList());

    air::AirWatch atOnce(listOf({urlA}, false));
    atOnce.onEnding(0);
    atOnce.onEnding(500);
    atOnce.onTick(1000);
    QCOMPARE(verdictOf(atOnce), 0);
}

void tst_AirWatch::stop()
{
    air::AirWatch watch(listOf({urlA}));
    watch.onInput("x", 0);
    QVERIFY(!watch.letsThrough());

    watch.onInput("q", 0);
    watch.onEnding(100);

    QVERIFY(watch.letsThrough());
    QCOMPARE(verdictOf(watch), -1);
    QCOMPARE(watch.exitCodeFor(0), 0);
    QCOMPARE(printed(watch), QStringList());
}

void tst_AirWatch::stopThatHangs()
{
    air::AirWatch watch(listOf({urlA}));
    watch.onInput("q", 1000);
    watch.onInput("q", 2900);
    watch.onTick(2999);
    QCOMPARE(verdictOf(watch), -1);

    watch.onTick(3000);

    QCOMPARE(verdictOf(watch), 0);

    air::AirWatch atOnce(listOf({urlA}));
    atOnce.onInput("q", 0);
    atOnce.onInput("q", 900);
    atOnce.onTick(2000);
    QCOMPARE(verdictOf(atOnce), 0);
}

void tst_AirWatch::nothingIsSaidAfterTheStop()
{
    air::AirWatch watch(listOf({urlA}));
    watch.onErrorBytes(connectedBytes + progressBytes + progressBytes, 0);
    printed(watch);
    watch.onInput("q", 0);

    QCOMPARE(saidOf(watch, queueSays("[verbose] Recovery attempt #1"), 100), QStringList());
    QCOMPARE(verdictOf(watch), -1);
}

void tst_AirWatch::exitCode_data()
{
    QTest::addColumn<bool>("live");
    QTest::addColumn<bool>("stopped");
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("result");

    QTest::newRow("a live source ends") << true << false << 0 << 1;
    QTest::newRow("a live source is stopped") << true << true << 0 << 0;
    QTest::newRow("a file ends") << false << false << 0 << 0;
    QTest::newRow("a failure stays") << true << false << 187 << 187;
    QTest::newRow("a failure after the stop stays") << true << true << 255 << 255;
}

void tst_AirWatch::exitCode()
{
    QFETCH(const bool, live);
    QFETCH(const bool, stopped);
    QFETCH(const int, code);
    air::AirWatch watch(listOf({urlA}, live));
    if (stopped)
        watch.onInput("q", 0);

    QTEST(watch.exitCodeFor(code), "result");
}

void tst_AirWatch::endWithoutASign()
{
    air::AirWatch watch(listOf({urlA}));

    QCOMPARE(watch.exitCodeFor(0), 1);

    QCOMPARE(printed(watch),
             QStringList{u"[air] o ffmpeg terminou sem pedido de parada — saindo com code=1\n"_s});
}

void tst_AirWatch::endWithASign()
{
    air::AirWatch watch(listOf({urlA}));
    watch.onEnding(0);
    printed(watch);

    QCOMPARE(watch.exitCodeFor(0), 1);

    QCOMPARE(printed(watch), QStringList()); // it has been said
}

CORVANE_TEST(tst_AirWatch, QCoreApplication)
#include "tst_AirWatch.moc"
