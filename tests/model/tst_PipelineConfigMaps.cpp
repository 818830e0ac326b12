#include "engine/model/PipelineConfig.h"
#include "tests/support/Runner.h"

#include <QTest>

#include <functional>
#include <limits>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

using SourceEdit = std::function<void(SourceConfig &)>;
using EncoderEdit = std::function<void(EncoderConfig &)>;

QString flag(bool on)
{
    return on ? u"true"_s : u"false"_s;
}

/// Every field of the record, one to an element, so that a test notices every other field that a key has
/// changed.
QStringList fields(const SourceConfig &source)
{
    return {u"kind="_s + QString::number(source.kind),   u"uri="_s + source.uri,
            u"width="_s + QString::number(source.width), u"height="_s + QString::number(source.height),
            u"fps="_s + QString::number(source.fps),     u"danteEnabled="_s + flag(source.danteEnabled),
            u"danteDevice="_s + source.danteDevice,      u"channelMap="_s + source.channelMap,
            u"ndiPipePath="_s + source.ndiPipePath};
}

QStringList fields(const EncoderConfig &encoder)
{
    return {u"codec="_s + QString::number(encoder.codec),
            u"hw="_s + QString::number(encoder.hw),
            u"preset="_s + QString::number(encoder.preset),
            u"bitrate="_s + QString::number(encoder.bitrate),
            u"keyintSec="_s + QString::number(encoder.keyintSec),
            u"zeroLatency="_s + flag(encoder.zeroLatency),
            u"bFrames="_s + flag(encoder.bFrames),
            u"audioCodec="_s + encoder.audioCodec,
            u"audioBitrate="_s + QString::number(encoder.audioBitrate)};
}

/// A record in which no field has its default.
SourceConfig unusualSource()
{
    SourceConfig source;
    source.kind = 99;
    source.uri = u"antes"_s;
    source.width = 11;
    source.height = 22;
    source.fps = 33;
    source.danteDevice = u"DVS antes"_s;
    source.channelMap = u"mapa antes"_s;
    source.ndiPipePath = u"pipe antes"_s;
    return source;
}

EncoderConfig unusualEncoder()
{
    EncoderConfig encoder;
    encoder.codec = 77;
    encoder.hw = 88;
    encoder.preset = 99;
    encoder.bitrate = 11;
    encoder.keyintSec = 22;
    encoder.zeroLatency = false;
    encoder.bFrames = true;
    encoder.audioCodec = u"antes"_s;
    encoder.audioBitrate = 33;
    return encoder;
}

/// Text forms as an operator's interface or a typing error may give them.
struct KindText
{
    const char *row;
    QString text;
    int number;
};

} // namespace

Q_DECLARE_METATYPE(SourceEdit)
Q_DECLARE_METATYPE(EncoderEdit)

class tst_PipelineConfigMaps : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void source_data();
    void source();
    void encoder_data();
    void encoder();
    void numbers_data();
    void numbers();
    void switches_data();
    void switches();
    void danteStaysOn();
};

void tst_PipelineConfigMaps::source_data()
{
    QTest::addColumn<QVariantMap>("map");
    QTest::addColumn<SourceEdit>("effect");

    const auto kind = [](int number) { return SourceEdit([number](SourceConfig &s) { s.kind = number; }); };
    const KindText kinds[] = {
        {"kind: NDI", u"ndi"_s, 0},
        {"kind: SRT", u"srt"_s, 1},
        {"kind: DeckLink", u"decklink"_s, 2},
        {"kind: capture", u"capture"_s, 3},
        {"kind: test pattern", u"testpattern"_s, 4},
        {"kind: file", u"file"_s, 5},
        {"kind: upper case is not known", u"NDI"_s, 4},
        {"kind: mixed case is not known", u"DeckLink"_s, 4},
        {"kind: a blank at the end is not known", u"srt "_s, 4},
        {"kind: an output's word is not known", u"rtmp"_s, 4},
        {"kind: a part of a word is not known", u"fil"_s, 4},
        {"kind: a number's digits are not known", u"0"_s, 4},
        {"kind: empty text", u""_s, 4},
    };
    for (const KindText &row : kinds)
        QTest::newRow(row.row) << QVariantMap{{u"kind"_s, row.text}} << kind(row.number);
    QTest::newRow("kind: a number is read as text") << QVariantMap{{u"kind"_s, 5}} << kind(4);
    QTest::newRow("kind: null value") << QVariantMap{{u"kind"_s, QVariant()}} << kind(4);
    QTest::newRow("kind: a list") << QVariantMap{{u"kind"_s, QVariantList{u"srt"_s}}} << kind(4);

    const auto row = [](const char *name, const QString &key, const QVariant &value,
                        const SourceEdit &effect) {
        QTest::newRow(name) << QVariantMap{{key, value}} << effect;
    };
    row("uri", u"uri"_s, u"srt://câmera:9000?x=%1"_s,
        [](SourceConfig &s) { s.uri = u"srt://câmera:9000?x=%1"_s; });
    row("uri: empty text clears it", u"uri"_s, u""_s, [](SourceConfig &s) { s.uri.clear(); });
    row("uri: null value clears it", u"uri"_s, QVariant(), [](SourceConfig &s) { s.uri.clear(); });
    row("uri: a number is read as text", u"uri"_s, 42, [](SourceConfig &s) { s.uri = u"42"_s; });
    row("width", u"width"_s, 1280, [](SourceConfig &s) { s.width = 1280; });
    row("width: no range", u"width"_s, -1, [](SourceConfig &s) { s.width = -1; });
    row("height", u"height"_s, 720, [](SourceConfig &s) { s.height = 720; });
    row("height: no range", u"height"_s, 1000000, [](SourceConfig &s) { s.height = 1000000; });
    row("fps", u"fps"_s, 25, [](SourceConfig &s) { s.fps = 25; });
    row("fps: no range", u"fps"_s, 0, [](SourceConfig &s) { s.fps = 0; });
    row("danteDevice turns Dante on", u"danteDevice"_s, u"DVS Recepção 1-2"_s, [](SourceConfig &s) {
        s.danteDevice = u"DVS Recepção 1-2"_s;
        s.danteEnabled = true;
    });
    row("danteDevice: empty text turns Dante on", u"danteDevice"_s, u""_s, [](SourceConfig &s) {
        s.danteDevice.clear();
        s.danteEnabled = true;
    });
    row("danteDevice: null value turns Dante on", u"danteDevice"_s, QVariant(), [](SourceConfig &s) {
        s.danteDevice.clear();
        s.danteEnabled = true;
    });
    row("danteDevice: false turns Dante on", u"danteDevice"_s, false, [](SourceConfig &s) {
        s.danteDevice = u"false"_s;
        s.danteEnabled = true;
    });
    row("channelMap", u"channelMap"_s, u"0,1"_s, [](SourceConfig &s) { s.channelMap = u"0,1"_s; });
    row("channelMap: empty text clears it", u"channelMap"_s, u""_s,
        [](SourceConfig &s) { s.channelMap.clear(); });

    const SourceEdit nothing = [](SourceConfig &) {};
    QTest::newRow("empty map") << QVariantMap() << nothing;
    QTest::newRow("fields without a key")
        << QVariantMap{{u"danteEnabled"_s, true}, {u"ndiPipePath"_s, u"x"_s}} << nothing;
    QTest::newRow("keys of the encoder") << QVariantMap{{u"bitrate"_s, 1}, {u"codec"_s, u"av1"_s}} << nothing;
    QTest::newRow("keys match exactly")
        << QVariantMap{{u"Kind"_s, u"srt"_s},      {u"URI"_s, u"x"_s},        {u"width "_s, 1},
                       {u"dantedevice"_s, u"x"_s}, {u"channelmap"_s, u"x"_s}, {u""_s, 1}}
        << nothing;
    QTest::newRow("an unknown key beside a known one")
        << QVariantMap{{u"nada"_s, 1}, {u"fps"_s, 50}} << SourceEdit([](SourceConfig &s) { s.fps = 50; });
    QTest::newRow("all keys at once") << QVariantMap{{u"kind"_s, u"capture"_s},
                                                     {u"uri"_s, u"USB Camera"_s},
                                                     {u"width"_s, 640},
                                                     {u"height"_s, 360},
                                                     {u"fps"_s, 60},
                                                     {u"danteDevice"_s, u"DVS"_s},
                                                     {u"channelMap"_s, u"1,0"_s}}
                                      << SourceEdit([](SourceConfig &s) {
                                             s.kind = 3;
                                             s.uri = u"USB Camera"_s;
                                             s.width = 640;
                                             s.height = 360;
                                             s.fps = 60;
                                             s.danteDevice = u"DVS"_s;
                                             s.danteEnabled = true;
                                             s.channelMap = u"1,0"_s;
                                         });
}

void tst_PipelineConfigMaps::source()
{
    QFETCH(const QVariantMap, map);
    QFETCH(const SourceEdit, effect);

    SourceConfig expected = unusualSource();
    effect(expected);
    SourceConfig source = unusualSource();
    applySourceMap(source, map);
    QCOMPARE(fields(source), fields(expected));
}

void tst_PipelineConfigMaps::encoder_data()
{
    QTest::addColumn<QVariantMap>("map");
    QTest::addColumn<EncoderEdit>("effect");

    const KindText codecs[] = {
        {"codec: H.264", u"h264"_s, 0},
        {"codec: HEVC", u"hevc"_s, 1},
        {"codec: AV1", u"av1"_s, 2},
        {"codec: upper case is not known", u"HEVC"_s, 0},
        {"codec: another name of the codec is not known", u"h265"_s, 0},
        {"codec: an encoder's name is not known", u"libsvtav1"_s, 0},
        {"codec: empty text", u""_s, 0},
    };
    for (const KindText &row : codecs) {
        QTest::newRow(row.row) << QVariantMap{{u"codec"_s, row.text}}
                               << EncoderEdit([number = row.number](EncoderConfig &e) { e.codec = number; });
    }
    const KindText presets[] = {
        {"preset: auto", u"auto"_s, 0},
        {"preset: ultrafast", u"ultrafast"_s, 1},
        {"preset: superfast", u"superfast"_s, 2},
        {"preset: veryfast", u"veryfast"_s, 3},
        {"preset: fast", u"fast"_s, 4},
        {"preset: medium", u"medium"_s, 5},
        {"preset: slow", u"slow"_s, 6},
        {"preset: an x264 preset outside the table", u"faster"_s, 0},
        {"preset: upper case is not known", u"Slow"_s, 0},
        {"preset: an NVENC preset is not known", u"p7"_s, 0},
        {"preset: empty text", u""_s, 0},
    };
    for (const KindText &row : presets) {
        QTest::newRow(row.row) << QVariantMap{{u"preset"_s, row.text}}
                               << EncoderEdit([number = row.number](EncoderConfig &e) { e.preset = number; });
    }
    const KindText families[] = {
        {"hw: auto", u"auto"_s, 0},
        {"hw: x264", u"x264"_s, 1},
        {"hw: NVENC", u"nvenc"_s, 2},
        {"hw: QSV", u"qsv"_s, 3},
        {"hw: AMF", u"amf"_s, 4},
        {"hw: VideoToolbox", u"videotoolbox"_s, 5},
        {"hw: upper case is not known", u"NVENC"_s, 0},
        {"hw: mixed case is not known", u"VideoToolbox"_s, 0},
        {"hw: an encoder's name is not known", u"h264_nvenc"_s, 0},
        {"hw: empty text", u""_s, 0},
    };
    for (const KindText &row : families) {
        QTest::newRow(row.row) << QVariantMap{{u"hw"_s, row.text}}
                               << EncoderEdit([number = row.number](EncoderConfig &e) { e.hw = number; });
    }

    const auto row = [](const char *name, const QString &key, const QVariant &value,
                        const EncoderEdit &effect) {
        QTest::newRow(name) << QVariantMap{{key, value}} << effect;
    };
    row("codec: null value", u"codec"_s, QVariant(), [](EncoderConfig &e) { e.codec = 0; });
    row("codec: a number is read as text", u"codec"_s, 2, [](EncoderConfig &e) { e.codec = 0; });
    row("preset: null value", u"preset"_s, QVariant(), [](EncoderConfig &e) { e.preset = 0; });
    row("preset: a number is read as text", u"preset"_s, 6, [](EncoderConfig &e) { e.preset = 0; });
    row("hw: null value", u"hw"_s, QVariant(), [](EncoderConfig &e) { e.hw = 0; });
    row("hw: a number is read as text", u"hw"_s, 2, [](EncoderConfig &e) { e.hw = 0; });
    row("bitrate", u"bitrate"_s, 2500, [](EncoderConfig &e) { e.bitrate = 2500; });
    row("bitrate: no range", u"bitrate"_s, -7, [](EncoderConfig &e) { e.bitrate = -7; });
    row("bitrate: null value", u"bitrate"_s, QVariant(), [](EncoderConfig &e) { e.bitrate = 0; });
    row("audioCodec", u"audioCodec"_s, u"opus"_s, [](EncoderConfig &e) { e.audioCodec = u"opus"_s; });
    row("audioCodec: any text stands", u"audioCodec"_s, u"Não é codec"_s,
        [](EncoderConfig &e) { e.audioCodec = u"Não é codec"_s; });
    row("audioCodec: empty text", u"audioCodec"_s, u""_s, [](EncoderConfig &e) { e.audioCodec.clear(); });
    row("audioCodec: null value", u"audioCodec"_s, QVariant(),
        [](EncoderConfig &e) { e.audioCodec.clear(); });
    row("audioBitrate", u"audioBitrate"_s, 128, [](EncoderConfig &e) { e.audioBitrate = 128; });
    row("audioBitrate: no range", u"audioBitrate"_s, 0, [](EncoderConfig &e) { e.audioBitrate = 0; });
    row("zeroLatency", u"zeroLatency"_s, true, [](EncoderConfig &e) { e.zeroLatency = true; });
    row("bFrames", u"bFrames"_s, false, [](EncoderConfig &e) { e.bFrames = false; });
    row("keyintSec", u"keyintSec"_s, 10, [](EncoderConfig &e) { e.keyintSec = 10; });
    row("keyintSec: no range", u"keyintSec"_s, -3, [](EncoderConfig &e) { e.keyintSec = -3; });

    const EncoderEdit nothing = [](EncoderConfig &) {};
    QTest::newRow("empty map") << QVariantMap() << nothing;
    QTest::newRow("keys of the source") << QVariantMap{{u"kind"_s, u"srt"_s}, {u"fps"_s, 1}} << nothing;
    QTest::newRow("keys match exactly")
        << QVariantMap{{u"Codec"_s, u"av1"_s},   {u"HW"_s, u"qsv"_s},   {u"audiocodec"_s, u"x"_s},
                       {u"zerolatency"_s, true}, {u"bframes"_s, false}, {u"keyint"_s, 1}}
        << nothing;
    QTest::newRow("an unknown key beside a known one")
        << QVariantMap{{u"scaler"_s, 1}, {u"bitrate"_s, 900}}
        << EncoderEdit([](EncoderConfig &e) { e.bitrate = 900; });
    QTest::newRow("all keys at once")
        << QVariantMap{{u"codec"_s, u"hevc"_s},  {u"bitrate"_s, 8000},       {u"audioCodec"_s, u"copy"_s},
                       {u"audioBitrate"_s, 320}, {u"zeroLatency"_s, true},   {u"bFrames"_s, false},
                       {u"keyintSec"_s, 4},      {u"preset"_s, u"medium"_s}, {u"hw"_s, u"amf"_s}}
        << EncoderEdit([](EncoderConfig &e) {
               e.codec = 1;
               e.bitrate = 8000;
               e.audioCodec = u"copy"_s;
               e.audioBitrate = 320;
               e.zeroLatency = true;
               e.bFrames = false;
               e.keyintSec = 4;
               e.preset = 5;
               e.hw = 4;
           });
}

void tst_PipelineConfigMaps::encoder()
{
    QFETCH(const QVariantMap, map);
    QFETCH(const EncoderEdit, effect);

    EncoderConfig expected = unusualEncoder();
    effect(expected);
    EncoderConfig encoder = unusualEncoder();
    applyEncoderMap(encoder, map);
    QCOMPARE(fields(encoder), fields(expected));
}

void tst_PipelineConfigMaps::numbers_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<int>("number");

    QTest::newRow("whole number") << QVariant(50) << 50;
    QTest::newRow("23.976 rounds to 24") << QVariant(23.976) << 24;
    QTest::newRow("29.97 rounds to 30") << QVariant(29.97) << 30;
    QTest::newRow("59.94 rounds to 60") << QVariant(59.94) << 60;
    QTest::newRow("a small fraction rounds down") << QVariant(24.4) << 24;
    QTest::newRow("a whole number as a floating-point one") << QVariant(25.0) << 25;
    QTest::newRow("a negative fraction rounds to the nearest") << QVariant(-1.6) << -2;
    QTest::newRow("digits in a text") << QVariant(u"720"_s) << 720;
    QTest::newRow("negative digits in a text") << QVariant(u"-720"_s) << -720;
    QTest::newRow("a text") << QVariant(u"abc"_s) << 0;
    QTest::newRow("digits before letters") << QVariant(u"720p"_s) << 0;
    QTest::newRow("a fraction in a text") << QVariant(u"29.97"_s) << 0;
    QTest::newRow("empty text") << QVariant(u""_s) << 0;
    QTest::newRow("null value") << QVariant() << 0;
    QTest::newRow("null pointer, as QML's null") << QVariant::fromValue(nullptr) << 0;
    QTest::newRow("a list") << QVariant(QVariantList{1}) << 0;
    QTest::newRow("a map") << QVariant(QVariantMap{{u"a"_s, 1}}) << 0;
    QTest::newRow("greatest number") << QVariant(std::numeric_limits<int>::max())
                                     << std::numeric_limits<int>::max();
    QTest::newRow("smallest number") << QVariant(std::numeric_limits<int>::min())
                                     << std::numeric_limits<int>::min();
}

void tst_PipelineConfigMaps::numbers()
{
    QFETCH(const QVariant, value);
    QFETCH(const int, number);

    SourceConfig source = unusualSource();
    applySourceMap(source, {{u"width"_s, value}, {u"height"_s, value}, {u"fps"_s, value}});
    QCOMPARE(source.width, number);
    QCOMPARE(source.height, number);
    QCOMPARE(source.fps, number);

    EncoderConfig encoder = unusualEncoder();
    applyEncoderMap(encoder, {{u"bitrate"_s, value}, {u"audioBitrate"_s, value}, {u"keyintSec"_s, value}});
    QCOMPARE(encoder.bitrate, number);
    QCOMPARE(encoder.audioBitrate, number);
    QCOMPARE(encoder.keyintSec, number);
}

void tst_PipelineConfigMaps::switches_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("on");

    QTest::newRow("true") << QVariant(true) << true;
    QTest::newRow("false") << QVariant(false) << false;
    QTest::newRow("1") << QVariant(1) << true;
    QTest::newRow("0") << QVariant(0) << false;
    QTest::newRow("the text true") << QVariant(u"true"_s) << true;
    QTest::newRow("the text false") << QVariant(u"false"_s) << false;
    QTest::newRow("the text 0") << QVariant(u"0"_s) << false;
    QTest::newRow("empty text") << QVariant(u""_s) << false;
    QTest::newRow("null value") << QVariant() << false;
    QTest::newRow("a list") << QVariant(QVariantList{true}) << false;
}

void tst_PipelineConfigMaps::switches()
{
    QFETCH(const QVariant, value);
    QFETCH(const bool, on);

    for (const bool before : {false, true}) {
        EncoderConfig encoder;
        encoder.zeroLatency = before;
        encoder.bFrames = before;
        applyEncoderMap(encoder, {{u"zeroLatency"_s, value}});
        QCOMPARE(encoder.zeroLatency, on);
        QCOMPARE(encoder.bFrames, before);
        applyEncoderMap(encoder, {{u"bFrames"_s, value}});
        QCOMPARE(encoder.zeroLatency, on);
        QCOMPARE(encoder.bFrames, on);
    }
}

void tst_PipelineConfigMaps::danteStaysOn()
{
    SourceConfig source;
    applySourceMap(source, {{u"danteDevice"_s, u"DVS"_s}});
    QCOMPARE(source.danteEnabled, true);
    QCOMPARE(source.danteDevice, u"DVS"_s);

    const QVariantMap laterMaps[] = {
        {},
        {{u"kind"_s, u"file"_s}},
        {{u"danteEnabled"_s, false}},
        {{u"danteDevice"_s, u""_s}},
        {{u"danteDevice"_s, QVariant()}},
        {{u"danteDevice"_s, false}},
    };
    for (const QVariantMap &map : laterMaps) {
        applySourceMap(source, map);
        QCOMPARE(source.danteEnabled, true);
    }
}

CORVANE_TEST(tst_PipelineConfigMaps, QCoreApplication)
#include "tst_PipelineConfigMaps.moc"
