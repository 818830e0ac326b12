#include "tools/air/FfmpegWords.h"
#include "tools/air/ProgressLine.h"

#include "tests/support/Runner.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using Level = air::FfmpegLine::Level;

Q_DECLARE_METATYPE(corvane::air::FfmpegLine::Level)

/// Lines of ffmpeg, taken apart and put together again.
class tst_FfmpegWords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lines_data();
    void lines();
    void progress_data();
    void progress();
    void legs_data();
    void legs();
    void figures_data();
    void figures();
};

void tst_FfmpegWords::lines_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<Level>("level");
    QTest::addColumn<QString>("context");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("without");

    for (const QString &name : {u"quiet"_s, u"panic"_s, u"fatal"_s, u"error"_s, u"warning"_s})
        QTest::addRow("%s is shown", qPrintable(name))
            << u'[' + name + u"] x"_s << Level::Shown << QString() << u"x"_s << u"x"_s;
    for (const QString &name : {u"info"_s, u"verbose"_s, u"debug"_s, u"trace"_s})
        QTest::addRow("%s isn't", qPrintable(name))
            << u'[' + name + u"] x"_s << Level::Silent << QString() << u"x"_s << u"x"_s;
    QTest::newRow("with a context") << u"[fifo @ 0x5] [info] a [b] c"_s << Level::Silent << u"fifo @ 0x5"_s
                                    << u"a [b] c"_s << u"[fifo @ 0x5] a [b] c"_s;
    QTest::newRow("with two contexts: the inner one")
        << u"[graph 0 @ 0x1] [tcp @ 0x2] [error] a"_s << Level::Shown << u"tcp @ 0x2"_s << u"a"_s
        << u"[graph 0 @ 0x1] [tcp @ 0x2] a"_s;
    QTest::newRow("with its end") << u"[tcp @ 0x2] [error] a\n"_s << Level::Shown << u"tcp @ 0x2"_s
                                  << u"a\n"_s << u"[tcp @ 0x2] a\n"_s;
    QTest::newRow("without a level") << u"libva: a"_s << Level::None << QString() << u"libva: a"_s
                                     << u"libva: a"_s;
    QTest::newRow("a context without a level")
        << u"[tcp @ 0x2] a"_s << Level::None << QString() << u"[tcp @ 0x2] a"_s << u"[tcp @ 0x2] a"_s;
    QTest::newRow("brackets that are neither") << u"[q] command [info] a"_s << Level::None << QString()
                                               << u"[q] command [info] a"_s << u"[q] command [info] a"_s;
    QTest::newRow("a level inside the text")
        << u"a [error] b"_s << Level::None << QString() << u"a [error] b"_s << u"a [error] b"_s;
    QTest::newRow("an open bracket") << u"[info"_s << Level::None << QString() << u"[info"_s << u"[info"_s;
    QTest::newRow("empty brackets") << u"[] a"_s << Level::None << QString() << u"[] a"_s << u"[] a"_s;
    QTest::newRow("empty") << QString() << Level::None << QString() << QString() << QString();
    QTest::newRow("a level and nothing else")
        << u"[info] "_s << Level::Silent << QString() << QString() << QString();
}

void tst_FfmpegWords::lines()
{
    QFETCH(const QString, line);
    QFETCH(const QString, context);
    QFETCH(const QString, text);
    QFETCH(const QString, without);
    const std::string bytes = line.toStdString();

    const air::FfmpegLine read = air::readFfmpegLine(bytes);

    QTEST(read.level, "level");
    QCOMPARE(std::string(read.context), context.toStdString());
    QCOMPARE(std::string(read.text), text.toStdString());
    QCOMPARE(air::withoutLevel(bytes), without.toStdString());
}

void tst_FfmpegWords::progress_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("result");

    QTest::newRow("video") << u"frame=  169 fps= 30 q=0.0 size=N/A time=00:00:05.63 bitrate=N/A speed=   1x"_s
                           << true;
    QTest::newRow("sound alone") << u"size=N/A time=00:00:05.63 bitrate=N/A speed=   1x"_s << true;
    QTest::newRow("inside a text") << u"a frame= 1"_s << false;
    QTest::newRow("a size without a rate") << u"size=1"_s << false;
    QTest::newRow("empty") << QString() << false;
}

void tst_FfmpegWords::progress()
{
    QFETCH(const QString, text);

    QTEST(air::isProgress(text.toStdString()), "result");
}

void tst_FfmpegWords::legs_data()
{
    QTest::addColumn<QString>("context");
    QTest::addColumn<bool>("result");

    for (const char *const name : {"fifo", "flv", "mpegts", "AVIOContext", "rtmp", "rtmpe", "rtmps", "rtmpt",
                                   "rtmpte", "rtmpts", "tcp", "tls", "http", "srt", "udp"})
        QTest::newRow(name) << QString::fromLatin1(name) + u" @ 0x1"_s << true;
    QTest::newRow("encoder") << u"libx264 @ 0x1"_s << false;
    QTest::newRow("a longer name") << u"flvdec @ 0x1"_s << false;
    QTest::newRow("none") << QString() << false;
}

void tst_FfmpegWords::legs()
{
    QFETCH(const QString, context);

    QTEST(air::isOfALeg(context.toStdString()), "result");
}

void tst_FfmpegWords::figures_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("result");

    QTest::newRow("both")
        << u"frame=  169 fps= 30 q=0.0 size=N/A time=00:00:05.63 bitrate=N/A speed=   1x    \r"_s
        << u"frame=  169 fps= 30 q=0.0 size=    1205kB time=00:00:05.63 bitrate=6012.3kbits/s speed=   1x    \r"_s;
    QTest::newRow("last line")
        << u"frame=  169 Lsize=N/A time=00:00:05.63 bitrate=N/A speed=1x \n"_s
        << u"frame=  169 Lsize=    1205kB time=00:00:05.63 bitrate=6012.3kbits/s speed=1x \n"_s;
    QTest::newRow("figures stay") << u"frame= 1 size=     256kB time=00:00:00.03 bitrate= 100.0kbits/s"_s
                                  << u"frame= 1 size=     256kB time=00:00:00.03 bitrate= 100.0kbits/s"_s;
    QTest::newRow("neither") << u"frame= 1"_s << u"frame= 1"_s;
}

void tst_FfmpegWords::figures()
{
    QFETCH(const QString, line);
    QFETCH(const QString, result);

    QCOMPARE(QString::fromStdString(air::withFigures(line.toStdString(), 1205 * 1024, 6012.34)), result);
}

CORVANE_TEST(tst_FfmpegWords, QCoreApplication)
#include "tst_FfmpegWords.moc"
