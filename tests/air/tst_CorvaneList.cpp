#include "tools/air/CorvaneList.h"

#include "builder/CommandBuilder.h"
#include "engine/model/PipelineConfig.h"
#include "tests/air/Lists.h"
#include "tests/support/Runner.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

const QString slaveHead =
    uR"([f=%1:use_fifo=1:fifo_options=queue_size=120\:drop_pkts_on_overflow=1:onfail=ignore])"_s;

QString flvSlave(const QString &target)
{
    return slaveHead.arg(u"flv"_s) + target;
}

QStringList targets(const air::CorvaneList &list)
{
    QStringList result;
    for (const air::Leg &leg : list.legs)
        result << QString::fromStdString(leg.format + ' ' + leg.target);
    return result;
}

} // namespace

/// What counts as a list that CORVANE wrote, and what is read from it.
class tst_CorvaneList : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void read_data();
    void read();
    void notRead_data();
    void notRead();
    void ofTheBuilder_data();
    void ofTheBuilder();
    void hostAndPort_data();
    void hostAndPort();
    void withoutSecrets_data();
    void withoutSecrets();
};

void tst_CorvaneList::read_data()
{
    QTest::addColumn<QStringList>("output");
    QTest::addColumn<bool>("severalOutputs");
    QTest::addColumn<QStringList>("legs");

    QTest::newRow("RTMP") << QStringList{u"-f"_s, u"flv"_s, u"rtmp://h/live/k"_s} << false
                          << QStringList{u"flv rtmp://h/live/k"_s};
    QTest::newRow("RTMP over TLS") << QStringList{u"-f"_s, u"flv"_s, u"rtmps://h/live/k"_s} << false
                                   << QStringList{u"flv rtmps://h/live/k"_s};
    QTest::newRow("SRT") << QStringList{u"-f"_s, u"mpegts"_s, u"srt://h:9000?latency=120"_s} << false
                         << QStringList{u"mpegts srt://h:9000?latency=120"_s};
    QTest::newRow("UDP to the bridge")
        << QStringList{u"-f"_s, u"mpegts"_s, u"udp://127.0.0.1:8900?pkt_size=1316"_s} << false
        << QStringList{u"mpegts udp://127.0.0.1:8900?pkt_size=1316"_s};
    QTest::newRow("one slave") << QStringList{u"-f"_s, u"tee"_s, flvSlave(u"rtmp://h/a"_s)} << true
                               << QStringList{u"flv rtmp://h/a"_s};
    QTest::newRow("two of both kinds")
        << QStringList{u"-f"_s, u"tee"_s,
                       flvSlave(u"rtmp://h/a"_s) + u'|' + slaveHead.arg(u"mpegts"_s) + u"srt://h:9"_s}
        << true << QStringList{u"flv rtmp://h/a"_s, u"mpegts srt://h:9"_s};
    QTest::newRow("bars and brackets in a key")
        << QStringList{u"-f"_s, u"tee"_s, flvSlave(u"rtmp://h/a|b[c]|"_s) + u'|' + flvSlave(u"rtmp://h/d"_s)}
        << true << QStringList{u"flv rtmp://h/a|b[c]|"_s, u"flv rtmp://h/d"_s};
}

void tst_CorvaneList::read()
{
    QFETCH(const QStringList, output);
    QFETCH(const bool, severalOutputs);
    QFETCH(const QStringList, legs);

    const auto list = air::readCorvaneList(plain(liveList(output))).value_or(air::CorvaneList());

    QCOMPARE(list.severalOutputs, severalOutputs);
    QCOMPARE(list.formatAt, static_cast<std::size_t>(liveList(output).size() - 3));
    QCOMPARE(list.liveSource, true);
    QCOMPARE(targets(list), legs);
}

void tst_CorvaneList::notRead_data()
{
    QTest::addColumn<QStringList>("arguments");
    const QStringList flv{u"-f"_s, u"flv"_s, u"rtmp://h/live/k"_s};
    const auto without = [&](qsizetype at) {
        QStringList list = liveList(flv);
        list.removeAt(at);
        return list;
    };

    QTest::newRow("nothing") << QStringList();
    QTest::newRow("a question") << QStringList{u"-hide_banner"_s, u"-encoders"_s};
    QTest::newRow("the head alone") << QStringList{u"-hide_banner"_s, u"-loglevel"_s, u"warning"_s,
                                                   u"-stats"_s};
    QTest::newRow("the head and an output")
        << QStringList{u"-hide_banner"_s, u"-loglevel"_s, u"warning"_s, u"-stats"_s} + flv;
    for (const int at : {0, 1, 2, 3})
        QTest::addRow("without the head's element %d", at) << without(at);
    QTest::newRow("another level") << liveList(flv).replaceInStrings(u"warning"_s, u"error"_s);
    QTest::newRow("with streams mapped") << liveList(QStringList{u"-map"_s, u"0"_s} + flv);
    QTest::newRow("a file as FLV") << liveList({u"-f"_s, u"flv"_s, u"film.flv"_s});
    QTest::newRow("a protocol that isn't one of CORVANE's")
        << liveList({u"-f"_s, u"flv"_s, u"http://h/live"_s});
    QTest::newRow("a URL without a scheme") << liveList({u"-f"_s, u"flv"_s, u"://h/live"_s});
    QTest::newRow("a scheme in capitals") << liveList({u"-f"_s, u"flv"_s, u"RTMP://h/live"_s});
    QTest::newRow("another format") << liveList({u"-f"_s, u"matroska"_s, u"rtmp://h/live/k"_s});
    QTest::newRow("an empty format") << liveList({u"-f"_s, QString(), u"rtmp://h/live/k"_s});
    QTest::newRow("no format") << liveList({u"-an"_s, u"flv"_s, u"rtmp://h/live/k"_s});
    QTest::newRow("a tee of another form") << liveList({u"-f"_s, u"tee"_s, u"[f=flv]rtmp://h/a"_s});
    QTest::newRow("a tee of two forms")
        << liveList({u"-f"_s, u"tee"_s, u"[f=flv]rtmp://h/a|"_s + flvSlave(u"rtmp://h/a"_s)});
    QTest::newRow("a tee with a file among the destinations")
        << liveList({u"-f"_s, u"tee"_s, flvSlave(u"rtmp://h/a"_s) + u'|' + flvSlave(u"film.flv"_s)});
    QTest::newRow("a tee to nowhere") << liveList({u"-f"_s, u"tee"_s, QString()});
    QTest::newRow("something behind the output") << liveList(flv + QStringList{u"-y"_s});
}

void tst_CorvaneList::notRead()
{
    QFETCH(const QStringList, arguments);

    QVERIFY(!air::readCorvaneList(plain(arguments)));
}

void tst_CorvaneList::ofTheBuilder_data()
{
    QTest::addColumn<int>("source");
    QTest::addColumn<int>("output");
    QTest::addColumn<bool>("live");

    QTest::newRow("test pattern") << +SourceKind::TestPattern << +OutputKind::Rtmp << false;
    QTest::newRow("file") << +SourceKind::File << +OutputKind::Rtmp << false;
    QTest::newRow("SRT") << +SourceKind::Srt << +OutputKind::Srt << true;
    QTest::newRow("NDI") << +SourceKind::Ndi << +OutputKind::Srt << true;
    QTest::newRow("DeckLink") << +SourceKind::Decklink << +OutputKind::Srtla << true;
    QTest::newRow("capture device") << +SourceKind::Capture << +OutputKind::Srtla << true;
}

void tst_CorvaneList::ofTheBuilder()
{
    QFETCH(const int, source);
    QFETCH(const int, output);
    QFETCH(const bool, live);
    PipelineConfig config;
    config.source.kind = source;
    config.source.uri = u"x"_s;
    OutputConfig first;
    first.kind = output;
    first.url = output == OutputKind::Rtmp ? u"rtmp://h/live/k"_s : u"srt://h:9000"_s;
    config.outputs = {first};

    for (const bool ffmpegHasSrt : {false, true}) {
        for (const qsizetype outputs : {1, 2, 3}) {
            config.outputs.resize(outputs, first);
            const auto list = air::readCorvaneList(plain(CommandBuilder::build(config, ffmpegHasSrt)))
                                  .value_or(air::CorvaneList());
            QCOMPARE(list.legs.size(), static_cast<std::size_t>(outputs));
            QCOMPARE(list.liveSource, live);
        }
    }
}

void tst_CorvaneList::hostAndPort_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("result");

    QTest::newRow("path and key stay away") << u"rtmp://h:1936/live/secret"_s << u"h:1936"_s;
    QTest::newRow("usual port") << u"rtmp://h/live/secret"_s << u"h:1935"_s;
    QTest::newRow("usual port over TLS") << u"rtmps://h/live/secret"_s << u"h:443"_s;
    for (const auto &[scheme, port] : {std::pair(u"rtmpe"_s, u"1935"_s), std::pair(u"rtmpt"_s, u"80"_s),
                                       std::pair(u"rtmpte"_s, u"80"_s), std::pair(u"rtmpts"_s, u"443"_s)})
        QTest::addRow("usual port of %s", qPrintable(scheme)) << scheme + u"://h/live"_s << u"h:"_s + port;
    QTest::newRow("a query stays away") << u"srt://h:9000?passphrase=secret"_s << u"h:9000"_s;
    QTest::newRow("a fragment stays away") << u"srt://h:9000#secret"_s << u"h:9000"_s;
    QTest::newRow("a user stays away") << u"rtmp://user:secret@h/live"_s << u"h:1935"_s;
    QTest::newRow("an address in brackets") << u"srt://[::1]:9000"_s << u"[::1]:9000"_s;
    QTest::newRow("an address in brackets, usual port") << u"rtmp://[::1]/live"_s << u"[::1]:1935"_s;
    QTest::newRow("a host with a rare character") << u"srt://h~1:9000"_s << u"h~1:9000"_s;
    QTest::newRow("a port with a rare character") << u"rtmp://h:1~"_s << u"h:1~"_s;
    QTest::newRow("no port is usual") << u"srt://h?latency=1"_s << u"h"_s;
    QTest::newRow("no host") << u"srt://:9000?mode=listener"_s << u"?"_s;
    QTest::newRow("nothing") << u"rtmp://"_s << u"?"_s;
    QTest::newRow("no URL") << u"secret"_s << u"?"_s;
    QTest::newRow("another scheme") << u"http://h/secret"_s << u"h"_s;
}

void tst_CorvaneList::hostAndPort()
{
    QFETCH(const QString, url);
    QFETCH(const QString, result);

    QCOMPARE(QString::fromStdString(air::hostAndPort(url.toStdString())), result);
}

void tst_CorvaneList::withoutSecrets_data()
{
    QTest::addColumn<QStringList>("targets");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("result");
    const QStringList rtmp{u"rtmp://h/live/secret"_s};

    QTest::newRow("nothing to hide") << rtmp << u"Connection to tcp://h:1935 failed\n"_s
                                     << u"Connection to tcp://h:1935 failed\n"_s;
    QTest::newRow("an URL") << rtmp << u"Error opening rtmp://h/live/secret: refused"_s
                            << u"Error opening rtmp://h:1935/…: refused"_s;
    QTest::newRow("twice") << rtmp << u"rtmp://h/live/secret rtmp://h/live/secret"_s
                           << u"rtmp://h:1935/… rtmp://h:1935/…"_s;
    QTest::newRow("a key by itself") << rtmp << u"Stream secret, secret"_s << u"Stream …, …"_s;
    QTest::newRow("a key that is a common word")
        << QStringList{u"rtmp://h/live/error"_s} << u"error"_s << u"error"_s;
    QTest::newRow("a key with parameters")
        << QStringList{u"rtmps://h/live/secret?a=/b"_s} << u"no secret?a=/b here"_s << u"no … here"_s;
    QTest::newRow("no path") << QStringList{u"rtmp://hostname"_s} << u"hostname"_s << u"hostname"_s;
    QTest::newRow("a path that ends in a slash")
        << QStringList{u"rtmp://hostname/secret/"_s} << u"hostname/secret"_s << u"hostname/secret"_s;
    QTest::newRow("SRT") << QStringList{u"srt://h:9000?passphrase=0123456789"_s}
                         << u"srt://h:9000?passphrase=0123456789: refused by h:9000"_s
                         << u"srt://h:9000/…: refused by h:9000"_s;
    QTest::newRow("each of two") << QStringList{u"rtmp://h/live/secret"_s, u"rtmp://i/live/hidden"_s}
                                 << u"secret hidden rtmp://i/live/hidden"_s << u"… … rtmp://i:1935/…"_s;
    QTest::newRow("one URL begins like the other")
        << QStringList{u"rtmp://h/live/secret"_s, u"rtmp://h/live/secret2"_s} << u"rtmp://h/live/secret2"_s
        << u"rtmp://h:1935/…"_s;
}

void tst_CorvaneList::withoutSecrets()
{
    QFETCH(const QStringList, targets);
    QFETCH(const QString, text);
    QFETCH(const QString, result);
    std::vector<air::Leg> legs;
    for (const QString &target : targets)
        legs.push_back({"flv", target.toStdString()});

    QCOMPARE(QString::fromStdString(air::withoutSecrets(text.toStdString(), legs)), result);
}

CORVANE_TEST(tst_CorvaneList, QCoreApplication)
#include "tst_CorvaneList.moc"
