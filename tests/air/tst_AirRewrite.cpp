#include "tools/air/AirRewrite.h"

#include "tests/air/Lists.h"
#include "tests/support/Runner.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

const QString gateSlaves = u"[f=hash:hash=adler32]pipe:4|[f=hash:hash=adler32]pipe:5|"_s;
const QString meterSlave =
    uR"(|[f=matroska:live=1:cluster_time_limit=1000:flush_packets=1:use_fifo=1:fifo_options=queue_size=600\\\:drop_pkts_on_overflow=1:onfail=ignore]pipe:3)"_s;
const QString queueOptions =
    uR"(:use_fifo=1:fifo_options=queue_size=600\\\:drop_pkts_on_overflow=1\\\:attempt_recovery=1\\\:recover_any_error=1\\\:recovery_wait_time=0.5\\\:restart_with_keyframe=1:onfail=ignore])"_s;

QStringList rewrittenList(const QStringList &arguments)
{
    const auto list = air::readCorvaneList(plain(arguments));
    if (!list)
        return {};
    QStringList result;
    for (const std::string &argument :
         air::rewrittenForAir(*list, plain(arguments), {"pipe:3", "pipe:4", "pipe:5"}))
        result << QString::fromStdString(argument);
    return result;
}

} // namespace

/// Lists of CORVANE's as the companion gives them to ffmpeg.
class tst_AirRewrite : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void slaves_data();
    void slaves();
    void rest();
    void severalOutputs();
};

void tst_AirRewrite::slaves_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("slave");

    QTest::newRow("RTMP: a time-out for every operation")
        << u"flv"_s << u"rtmp://h/live/k"_s
        << u"[f=flv:rw_timeout=2000000"_s + queueOptions + u"rtmp://h/live/k"_s;
    QTest::newRow("SRT: one for connecting, beside its own")
        << u"mpegts"_s << u"srt://h:9?latency=120"_s
        << u"[f=mpegts:connect_timeout=2000"_s + queueOptions + u"srt://h:9?latency=120"_s;
    QTest::newRow("UDP: none, as it never waits")
        << u"mpegts"_s << u"udp://127.0.0.1:8900?pkt_size=1316"_s
        << u"[f=mpegts"_s + queueOptions + u"udp://127.0.0.1:8900?pkt_size=1316"_s;
    QTest::newRow("anything else stays")
        << u"flv"_s << u"rtmp://h/~a-b_c?d=e&f:g,h;i#[j]"_s
        << u"[f=flv:rw_timeout=2000000"_s + queueOptions + u"rtmp://h/~a-b_c?d=e&f:g,h;i#[j]"_s;
    QTest::newRow("what the muxer splits at is escaped")
        << u"flv"_s << u"rtmp://h/a|b'c\\d e\tf\ng\rh"_s
        << u"[f=flv:rw_timeout=2000000"_s + queueOptions + u"rtmp://h/a\\|b\\'c\\\\d\\ e\\\tf\\\ng\\\rh"_s;
}

void tst_AirRewrite::slaves()
{
    QFETCH(const QString, format);
    QFETCH(const QString, target);
    QFETCH(const QString, slave);

    const QStringList result = rewrittenList(liveList({u"-f"_s, format, target}));

    QCOMPARE(result.last(), gateSlaves + slave + meterSlave);
}

void tst_AirRewrite::rest()
{
    const QStringList result = rewrittenList(liveList({u"-f"_s, u"flv"_s, u"rtmp://h/live/k"_s}));

    QCOMPARE(result.first(result.size() - 1),
             QStringList({u"-hide_banner"_s, u"-loglevel"_s, u"level+verbose"_s,  u"-stats"_s, u"-fflags"_s,
                          u"nobuffer"_s,     u"-i"_s,        u"srt://in"_s,       u"-c:v"_s,   u"libx264"_s,
                          u"-map"_s,         u"0:v:0"_s,     u"-map"_s,           u"0:a:0?"_s, u"-c:a"_s,
                          u"aac"_s,          u"-flags"_s,    u"+global_header"_s, u"-f"_s,     u"tee"_s}));
}

void tst_AirRewrite::severalOutputs()
{
    const QString head =
        uR"([f=flv:use_fifo=1:fifo_options=queue_size=120\:drop_pkts_on_overflow=1:onfail=ignore]rtmp://h/)"_s;

    const QStringList result = rewrittenList(liveList({u"-f"_s, u"tee"_s, head + u"a|"_s + head + u'b'}));

    const QString slave = u"[f=flv:rw_timeout=2000000"_s + queueOptions + u"rtmp://h/"_s;
    QCOMPARE(result.last(), gateSlaves + slave + u"a|"_s + slave + u'b' + meterSlave);
}

CORVANE_TEST(tst_AirRewrite, QCoreApplication)
#include "tst_AirRewrite.moc"
