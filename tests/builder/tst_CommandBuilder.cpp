#include "builder/CommandBuilder.h"
#include "tests/support/Runner.h"

#include <QTest>

#include <stdexcept>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

OutputConfig rtmp(const QString &url, bool enabled = true)
{
    OutputConfig output;
    output.url = url;
    output.enabled = enabled;
    return output;
}

PipelineConfig withOutputs(const QList<OutputConfig> &outputs)
{
    PipelineConfig config;
    config.outputs = outputs;
    return config;
}

/// The message of the exception that `build` throws; a note if it throws none.
QString errorOf(const PipelineConfig &config, bool ffmpegHasSrt)
{
    try {
        static_cast<void>(CommandBuilder::build(config, ffmpegHasSrt));
    } catch (const std::runtime_error &error) {
        return QString::fromUtf8(error.what());
    }
    return u"(no exception)"_s;
}

} // namespace

class tst_CommandBuilder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultRecord();
    void noOutput_data();
    void noOutput();
    void errorIsUtf8();
    void formOfOutputs_data();
    void formOfOutputs();
    void segmentsInOrder();
    void silentSources_data();
    void silentSources();
    void neverSelectsOrOverwrites();
    void fieldsThatReachNoArgument();
};

void tst_CommandBuilder::defaultRecord()
{
    const QStringList expected{
        u"-hide_banner"_s,
        u"-loglevel"_s,
        u"warning"_s,
        u"-stats"_s,
        u"-re"_s,
        u"-f"_s,
        u"lavfi"_s,
        u"-i"_s,
        u"testsrc=size=1920x1080:rate=30"_s,
        u"-f"_s,
        u"lavfi"_s,
        u"-i"_s,
        u"anullsrc=channel_layout=stereo:sample_rate=48000"_s,
        u"-c:v"_s,
        u"libx264"_s,
        u"-b:v"_s,
        u"6000k"_s,
        u"-maxrate"_s,
        u"6000k"_s,
        u"-bufsize"_s,
        u"12000k"_s,
        u"-g"_s,
        u"60"_s,
        u"-pix_fmt"_s,
        u"yuv420p"_s,
        u"-bf"_s,
        u"0"_s,
        u"-preset"_s,
        u"veryfast"_s,
        u"-tune"_s,
        u"zerolatency"_s,
        u"-minrate"_s,
        u"6000k"_s,
        u"-c:a"_s,
        u"aac"_s,
        u"-b:a"_s,
        u"160k"_s,
        u"-ar"_s,
        u"48000"_s,
        u"-f"_s,
        u"flv"_s,
        u"rtmp://live.example/app/chave secreta"_s,
    };
    QCOMPARE(expected.size(), 42);
    const PipelineConfig config = withOutputs({rtmp(u"rtmp://live.example/app/chave secreta"_s)});
    QCOMPARE(CommandBuilder::build(config, false), expected);
    QCOMPARE(CommandBuilder::build(config, true), expected);
}

void tst_CommandBuilder::noOutput_data()
{
    QTest::addColumn<int>("disabled");
    QTest::newRow("empty list") << 0;
    QTest::newRow("one, disabled") << 1;
    QTest::newRow("three, all disabled") << 3;
}

void tst_CommandBuilder::noOutput()
{
    QFETCH(const int, disabled);

    PipelineConfig config = withOutputs(QList<OutputConfig>(disabled, rtmp(u"rtmp://a"_s, false)));
    QCOMPARE(errorOf(config, false), u"Pipeline sem saídas habilitadas"_s);
    QCOMPARE(errorOf(config, true), u"Pipeline sem saídas habilitadas"_s);

    // Missing outputs: the only fault for which a record is refused.
    config.source.kind = 99;
    config.source.width = -1;
    config.encoder.bitrate = 0;
    QCOMPARE(errorOf(config, false), u"Pipeline sem saídas habilitadas"_s);
    config.outputs << OutputConfig();
    QCOMPARE(errorOf(config, false), u"(no exception)"_s);
}

void tst_CommandBuilder::errorIsUtf8()
{
    try {
        static_cast<void>(CommandBuilder::build(PipelineConfig(), false));
        QFAIL("an exception was expected");
    } catch (const std::runtime_error &error) {
        QCOMPARE(QByteArray(error.what()), QByteArray("Pipeline sem sa\xC3\xAD"
                                                      "das habilitadas"));
    }
}

void tst_CommandBuilder::formOfOutputs_data()
{
    QTest::addColumn<QList<bool>>("enabled");
    QTest::addColumn<QStringList>("tail");

    const QString slave =
        u"[f=flv:use_fifo=1:fifo_options=queue_size=120\\:drop_pkts_on_overflow=1:onfail=ignore]"_s;
    const auto tee = [&](const QStringList &urls) {
        QStringList slaves;
        for (const QString &url : urls)
            slaves << slave + url;
        return QStringList{u"48000"_s, u"-f"_s, u"tee"_s, slaves.join(u'|')};
    };
    QTest::newRow("one") << QList<bool>{true} << QStringList{u"48000"_s, u"-f"_s, u"flv"_s, u"rtmp://0"_s};
    QTest::newRow("two, the second off")
        << QList<bool>{true, false} << QStringList{u"48000"_s, u"-f"_s, u"flv"_s, u"rtmp://0"_s};
    QTest::newRow("two, the first off")
        << QList<bool>{false, true} << QStringList{u"48000"_s, u"-f"_s, u"flv"_s, u"rtmp://1"_s};
    QTest::newRow("two") << QList<bool>{true, true} << tee({u"rtmp://0"_s, u"rtmp://1"_s});
    QTest::newRow("three, the middle off")
        << QList<bool>{true, false, true} << tee({u"rtmp://0"_s, u"rtmp://2"_s});
    QTest::newRow("three") << QList<bool>{true, true, true}
                           << tee({u"rtmp://0"_s, u"rtmp://1"_s, u"rtmp://2"_s});
}

void tst_CommandBuilder::formOfOutputs()
{
    QFETCH(const QList<bool>, enabled);

    PipelineConfig config;
    for (qsizetype i = 0; i < enabled.size(); ++i)
        config.outputs << rtmp(u"rtmp://"_s + QString::number(i), enabled.at(i));
    const QStringList args = CommandBuilder::build(config, false);
    QCOMPARE(args.size(), 42);
    QTEST(args.sliced(38), "tail");
}

void tst_CommandBuilder::segmentsInOrder()
{
    PipelineConfig config;
    config.source.kind = SourceKind::Capture;
    config.source.uri = u"USB Camera"_s;
    config.source.fps = 25;
    config.source.danteEnabled = true;
    config.scaler.kind = ScalerKind::Lanczos;
    config.scaler.width = 1280;
    config.encoder.hw = HwAccel::Amf;
    config.encoder.codec = VideoCodec::Hevc;
    config.encoder.bitrate = 2500;
    config.encoder.keyintSec = 3;
    config.encoder.audioCodec = u"copy"_s;
    config.encoder.audioBitrate = 96;
    config.outputs.resize(1);
    config.outputs[0].kind = OutputKind::Srt;
    config.outputs[0].url = u"srt://host:9000?mode=caller"_s;
    config.outputs[0].passphrase = u"senha"_s;
    config.outputs[0].localPort = 8904;

    const QStringList before{
        u"-hide_banner"_s, u"-loglevel"_s,
        u"warning"_s,      u"-stats"_s,
        u"-f"_s,           u"dshow"_s,
        u"-i"_s,           u"video=USB Camera"_s,
        u"-f"_s,           u"dshow"_s,
        u"-i"_s,           u"audio=Dante Virtual Soundcard"_s,
        u"-vf"_s,          u"scale=1280:-2:flags=lanczos"_s,
        u"-c:v"_s,         u"hevc_amf"_s,
        u"-b:v"_s,         u"2500k"_s,
        u"-maxrate"_s,     u"2500k"_s,
        u"-bufsize"_s,     u"5000k"_s,
        u"-g"_s,           u"75"_s,
        u"-pix_fmt"_s,     u"yuv420p"_s,
        u"-bf"_s,          u"0"_s,
        u"-rc"_s,          u"cbr"_s,
        u"-bufsize"_s,     u"250k"_s,
        u"-quality"_s,     u"speed"_s,
        u"-c:a"_s,         u"copy"_s,
        u"-b:a"_s,         u"96k"_s,
        u"-ar"_s,          u"48000"_s,
    };
    QCOMPARE(CommandBuilder::build(config, false),
             (before + QStringList{u"-f"_s, u"mpegts"_s, u"udp://127.0.0.1:8904?pkt_size=1316"_s}));
    QCOMPARE(
        CommandBuilder::build(config, true),
        (before + QStringList{u"-f"_s, u"mpegts"_s,
                              u"srt://host:9000?mode=caller&latency=120&passphrase=senha&pbkeylen=16"_s}));
}

void tst_CommandBuilder::silentSources_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<bool>("dante");
    QTest::addColumn<bool>("audioFlags");

    for (const int kind : {-1, 0, 1, 2, 3, 5, 6, 99}) {
        QTest::addRow("kind %d has no audio flags", kind) << kind << false << false;
        QTest::addRow("kind %d with Dante has them", kind) << kind << true << true;
    }
    QTest::newRow("the test pattern has them") << 4 << false << true;
    QTest::newRow("the test pattern with Dante has them") << 4 << true << true;
}

void tst_CommandBuilder::silentSources()
{
    QFETCH(const int, kind);
    QFETCH(const bool, dante);
    QFETCH(const bool, audioFlags);

    PipelineConfig config = withOutputs({rtmp(u"rtmp://a"_s)});
    config.source.kind = kind;
    config.source.danteEnabled = dante;
    const QStringList args = CommandBuilder::build(config, false);
    for (const QString &flag : {u"-c:a"_s, u"-b:a"_s, u"-ar"_s})
        QCOMPARE(args.count(flag), audioFlags ? 1 : 0);
    QCOMPARE(args.count(u"-i"_s), audioFlags ? 2 : 1);
    QCOMPARE(args.contains(u"anullsrc=channel_layout=stereo:sample_rate=48000"_s), kind == 4 && !dante);
}

void tst_CommandBuilder::neverSelectsOrOverwrites()
{
    const QStringList forbidden{u"-map"_s, u"-an"_s, u"-vn"_s, u"-y"_s, u"-n"_s, u"-ac"_s, u"-hwaccel"_s};
    const QList<int> kinds{-1, 0, 1, 2, 3, 4, 5, 6};
    int lists = 0;
    for (const int source : kinds) {
        for (const int hw : kinds) {
            for (const int codec : {0, 1, 2, 3}) {
                for (const int output : kinds) {
                    for (const int scaler : kinds) {
                        for (const bool flag : {false, true}) {
                            PipelineConfig config =
                                withOutputs({rtmp(u"rtmp://a"_s), rtmp(u"rtmp://b"_s, flag)});
                            config.source.kind = source;
                            config.source.danteEnabled = !flag;
                            config.encoder.hw = hw;
                            config.encoder.codec = codec;
                            config.scaler.kind = scaler;
                            config.scaler.width = 640;
                            config.outputs[0].kind = output;
                            const QStringList args = CommandBuilder::build(config, flag);
                            for (const QString &element : forbidden)
                                QVERIFY2(!args.contains(element), qPrintable(args.join(u' ')));
                            ++lists;
                        }
                    }
                }
            }
        }
    }
    QCOMPARE(lists, 8 * 8 * 4 * 8 * 8 * 2);
}

void tst_CommandBuilder::fieldsThatReachNoArgument()
{
    PipelineConfig config = withOutputs({rtmp(u"srt://host:9000"_s), rtmp(u"srt://host:9001"_s)});
    config.outputs[1].kind = OutputKind::Srt;
    const QStringList before = CommandBuilder::build(config, true);

    config.id = u"cafe0001"_s;
    config.name = u"Nome"_s;
    config.autoRestart = false;
    config.restart.hangTimeoutMs = 1;
    config.source.channelMap = u"1,0"_s;
    config.source.uri = u"sem uso no padrão de teste"_s;
    config.source.danteDevice = u"desligado"_s;
    for (OutputConfig &output : config.outputs) {
        output.oheadbw = 99;
        output.maxbw = 12345;
        output.receiverHost = u"bond.example"_s;
        output.receiverPort = 1;
        output.extraSrtList = QStringList{u"x"_s};
        output.extraSrtlaList = QStringList{u"y"_s};
    }
    QCOMPARE(CommandBuilder::build(config, true), before);
}

CORVANE_TEST(tst_CommandBuilder, QCoreApplication)
#include "tst_CommandBuilder.moc"
