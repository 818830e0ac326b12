#include "builder/CommandBuilder.h"
#include "tests/support/Runner.h"

#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

constexpr int greatest = std::numeric_limits<int>::max();
constexpr int smallest = std::numeric_limits<int>::min();

struct Encoder
{
    int hw;
    int codec;
    const char *name;
    const char *family; ///< a row of `blocks`
};

// A codec outside the table counts as HEVC, a family outside it as software.
constexpr Encoder encoders[] = {
    {0, 0, "libx264", "software"},
    {0, 1, "libx265", "software"},
    {0, 2, "libsvtav1", "svt-av1"},
    {0, -1, "libx265", "software"},
    {0, 3, "libx265", "software"},
    {1, 0, "libx264", "software"},
    {1, 1, "libx265", "software"},
    {1, 2, "libsvtav1", "svt-av1"},
    {1, -1, "libx265", "software"},
    {1, 3, "libx265", "software"},
    {2, 0, "h264_nvenc", "nvenc"},
    {2, 1, "hevc_nvenc", "nvenc"},
    {2, 2, "av1_nvenc", "nvenc"},
    {2, -1, "hevc_nvenc", "nvenc"},
    {2, 3, "hevc_nvenc", "nvenc"},
    {3, 0, "h264_qsv", "qsv"},
    {3, 1, "hevc_qsv", "qsv"},
    {3, 2, "av1_qsv", "qsv"},
    {3, -1, "hevc_qsv", "qsv"},
    {3, 3, "hevc_qsv", "qsv"},
    {4, 0, "h264_amf", "amf"},
    {4, 1, "hevc_amf", "amf"},
    {4, 2, "av1_amf", "amf"},
    {4, -1, "hevc_amf", "amf"},
    {4, 3, "hevc_amf", "amf"},
    {5, 0, "h264_videotoolbox", "videotoolbox"},
    {5, 1, "hevc_videotoolbox", "videotoolbox"},
    {5, 2, "av1_videotoolbox", "videotoolbox"},
    {5, -1, "hevc_videotoolbox", "videotoolbox"},
    {5, 3, "hevc_videotoolbox", "videotoolbox"},
    {-1, 0, "libx264", "software"},
    {-1, 1, "libx265", "software"},
    {-1, 2, "libsvtav1", "svt-av1"},
    {-1, -1, "libx265", "software"},
    {-1, 3, "libx265", "software"},
    {6, 0, "libx264", "software"},
    {6, 1, "libx265", "software"},
    {6, 2, "libsvtav1", "svt-av1"},
    {6, -1, "libx265", "software"},
    {6, 3, "libx265", "software"},
};

/// Arguments after the common block at 6000 kbit/s. "{preset}" stands for the family's word for the preset.
struct Block
{
    const char *family;
    const char *zeroLatency;
    const char *otherwise;
};

constexpr Block blocks[] = {
    {"software", "-preset {preset} -tune zerolatency -minrate 6000k", "-preset {preset} -minrate 6000k"},
    {"nvenc", "-preset {preset} -tune ll -rc cbr -strict_gop 1 -delay 0 -zerolatency 1",
     "-preset {preset} -rc cbr -strict_gop 1"},
    {"qsv", "-preset {preset} -low_delay 1 -look_ahead 0", "-preset {preset}"},
    {"amf", "-rc cbr -bufsize 600k -quality speed", "-rc cbr"},
    {"videotoolbox", "-realtime true -allow_sw 0 -prio_speed true",
     "-realtime true -allow_sw 0 -prio_speed true"},
    {"svt-av1", "-preset {preset} -svtav1-params tune=0:enable-overlays=0:scd=0", "-preset {preset}"},
};

struct Preset
{
    int preset;
    const char *software;
    const char *nvenc;
    const char *qsv;
    const char *svtAv1;
};

constexpr Preset presets[] = {
    {0, "veryfast", "p4", "4", "10"},
    {1, "ultrafast", "p1", "1", "12"},
    {2, "superfast", "p2", "2", "11"},
    {3, "veryfast", "p3", "3", "10"},
    {4, "fast", "p4", "4", "8"},
    {5, "medium", "p5", "5", "6"},
    {6, "slow", "p7", "7", "4"},
    {7, "veryfast", "p4", "4", "10"},
    {-1, "veryfast", "p4", "4", "10"},
    {99, "veryfast", "p4", "4", "10"},
    {greatest, "veryfast", "p4", "4", "10"},
    {smallest, "veryfast", "p4", "4", "10"},
};

QString familyText(const char *family, const Preset &preset, bool zeroLatency)
{
    const QLatin1StringView name(family);
    const QLatin1StringView word(name == "software"_L1 ? preset.software
                                 : name == "nvenc"_L1  ? preset.nvenc
                                 : name == "qsv"_L1    ? preset.qsv
                                                       : preset.svtAv1);
    for (const Block &block : blocks) {
        if (name == QLatin1StringView(block.family)) {
            QString text = QString::fromLatin1(zeroLatency ? block.zeroLatency : block.otherwise);
            return text.replace("{preset}"_L1, word);
        }
    }
    return u"(no such family)"_s;
}

QStringList words(const QString &text)
{
    return text.split(u' ', Qt::SkipEmptyParts);
}

/// Value behind the last occurrence of `flag`.
QString lastValue(const QStringList &args, QLatin1StringView flag)
{
    return args.value(args.lastIndexOf(flag) + 1);
}

} // namespace

class tst_CommandBuilderVideo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyCombination_data();
    void everyCombination();
    void keyFrameDistance_data();
    void keyFrameDistance();
    void rates_data();
    void rates();
    void lowerRateChangesRatesAlone_data();
    void lowerRateChangesRatesAlone();
};

void tst_CommandBuilderVideo::everyCombination_data()
{
    QTest::addColumn<int>("hw");
    QTest::addColumn<int>("codec");
    QTest::addColumn<int>("preset");
    QTest::addColumn<bool>("zeroLatency");
    QTest::addColumn<bool>("bFrames");
    QTest::addColumn<QStringList>("args");

    for (const Encoder &encoder : encoders) {
        for (const Preset &preset : presets) {
            for (const bool zeroLatency : {true, false}) {
                for (const bool bFrames : {false, true}) {
                    QString text = u"-c:v "_s + QLatin1StringView(encoder.name);
                    text += " -b:v 6000k -maxrate 6000k -bufsize 12000k -g 60 -pix_fmt yuv420p "_L1;
                    if (!bFrames)
                        text += "-bf 0 "_L1;
                    text += familyText(encoder.family, preset, zeroLatency);
                    QTest::addRow("family %d, codec %d, preset %d%s%s", encoder.hw, encoder.codec,
                                  preset.preset, zeroLatency ? ", zero latency" : "",
                                  bFrames ? ", B-frames" : "")
                        << encoder.hw << encoder.codec << preset.preset << zeroLatency << bFrames
                        << words(text);
                }
            }
        }
    }
}

void tst_CommandBuilderVideo::everyCombination()
{
    QFETCH(const int, hw);
    QFETCH(const int, codec);
    QFETCH(const int, preset);
    QFETCH(const bool, zeroLatency);
    QFETCH(const bool, bFrames);

    EncoderConfig encoder;
    encoder.hw = hw;
    encoder.codec = codec;
    encoder.preset = preset;
    encoder.zeroLatency = zeroLatency;
    encoder.bFrames = bFrames;
    QTEST(CommandBuilder::videoEncoderArgs(encoder, 30), "args");
}

void tst_CommandBuilderVideo::keyFrameDistance_data()
{
    QTest::addColumn<int>("fps");
    QTest::addColumn<int>("keyintSec");
    QTest::addColumn<QString>("gop");

    QTest::newRow("two seconds at 30") << 30 << 2 << u"60"_s;
    QTest::newRow("ten seconds at 60") << 60 << 10 << u"600"_s;
    QTest::newRow("one frame a second") << 1 << 1 << u"1"_s;
    QTest::newRow("no rate counts as 30") << 0 << 2 << u"60"_s;
    QTest::newRow("negative rate counts as 30") << -1 << 3 << u"90"_s;
    QTest::newRow("smallest rate counts as 30") << smallest << 1 << u"30"_s;
    QTest::newRow("zero seconds") << 25 << 0 << u"0"_s;
    QTest::newRow("negative seconds") << 25 << -2 << u"-50"_s;
    QTest::newRow("no digit grouping") << 120 << 100 << u"12000"_s;
    QTest::newRow("the product is a 32-bit number") << greatest << 2 << u"-2"_s;
    QTest::newRow("the product of the extremes") << greatest << smallest << u"-2147483648"_s;
}

void tst_CommandBuilderVideo::keyFrameDistance()
{
    QFETCH(const int, fps);
    QFETCH(const int, keyintSec);
    QFETCH(const QString, gop);

    for (const Encoder &row : encoders) {
        EncoderConfig encoder;
        encoder.hw = row.hw;
        encoder.codec = row.codec;
        QStringList expected = CommandBuilder::videoEncoderArgs(encoder, 30);
        QCOMPARE(expected.at(8), u"-g"_s);
        expected[9] = gop;

        encoder.keyintSec = keyintSec;
        QCOMPARE(CommandBuilder::videoEncoderArgs(encoder, fps), expected);
    }
}

void tst_CommandBuilderVideo::rates_data()
{
    QTest::addColumn<int>("bitrate");
    QTest::addColumn<QString>("rate");
    QTest::addColumn<QString>("buffer");
    QTest::addColumn<QString>("shortBuffer");

    QTest::newRow("default") << 6000 << u"6000k"_s << u"12000k"_s << u"600k"_s;
    QTest::newRow("a tenth is cut off") << 2599 << u"2599k"_s << u"5198k"_s << u"259k"_s;
    QTest::newRow("a tenth of 5 is nothing") << 5 << u"5k"_s << u"10k"_s << u"0k"_s;
    QTest::newRow("nothing") << 0 << u"0k"_s << u"0k"_s << u"0k"_s;
    QTest::newRow("a negative tenth is cut off towards zero") << -19 << u"-19k"_s << u"-38k"_s << u"-1k"_s;
    QTest::newRow("no digit grouping") << 50000 << u"50000k"_s << u"100000k"_s << u"5000k"_s;
    QTest::newRow("the double is a 32-bit number")
        << greatest << u"2147483647k"_s << u"-2k"_s << u"214748364k"_s;
    QTest::newRow("smallest number") << smallest << u"-2147483648k"_s << u"0k"_s << u"-214748364k"_s;
}

void tst_CommandBuilderVideo::rates()
{
    QFETCH(const int, bitrate);
    QFETCH(const QString, rate);
    QFETCH(const QString, buffer);
    QFETCH(const QString, shortBuffer);

    for (const Encoder &row : encoders) {
        for (const bool zeroLatency : {true, false}) {
            EncoderConfig encoder;
            encoder.hw = row.hw;
            encoder.codec = row.codec;
            encoder.bitrate = bitrate;
            encoder.zeroLatency = zeroLatency;
            const QStringList args = CommandBuilder::videoEncoderArgs(encoder, 30);

            const QStringList expected{u"-b:v"_s, rate, u"-maxrate"_s, rate, u"-bufsize"_s, buffer, u"-g"_s};
            QCOMPARE(args.mid(2, 7), expected);

            const QLatin1StringView family(row.family);
            const bool hasShortBuffer = family == "amf"_L1 && zeroLatency;
            QCOMPARE(args.count(u"-bufsize"_s), hasShortBuffer ? 2 : 1);
            QCOMPARE(lastValue(args, "-bufsize"_L1), hasShortBuffer ? shortBuffer : buffer);

            const bool hasFloor = family == "software"_L1;
            QCOMPARE(args.count(u"-minrate"_s), hasFloor ? 1 : 0);
            if (hasFloor)
                QCOMPARE(lastValue(args, "-minrate"_L1), rate);
        }
    }
}

void tst_CommandBuilderVideo::lowerRateChangesRatesAlone_data()
{
    QTest::addColumn<int>("hw");
    QTest::addColumn<int>("codec");
    QTest::addColumn<QString>("changed");

    QTest::newRow("software") << 0 << 0 << u"-b:v 3600k -maxrate 3600k -bufsize 7200k -minrate 3600k"_s;
    QTest::newRow("NVENC") << 2 << 0 << u"-b:v 3600k -maxrate 3600k -bufsize 7200k"_s;
    QTest::newRow("QSV") << 3 << 1 << u"-b:v 3600k -maxrate 3600k -bufsize 7200k"_s;
    QTest::newRow("AMF") << 4 << 0 << u"-b:v 3600k -maxrate 3600k -bufsize 7200k -bufsize 360k"_s;
    QTest::newRow("VideoToolbox") << 5 << 0 << u"-b:v 3600k -maxrate 3600k -bufsize 7200k"_s;
    QTest::newRow("SVT-AV1") << 1 << 2 << u"-b:v 3600k -maxrate 3600k -bufsize 7200k"_s;
}

void tst_CommandBuilderVideo::lowerRateChangesRatesAlone()
{
    QFETCH(const int, hw);
    QFETCH(const int, codec);
    QFETCH(const QString, changed);

    EncoderConfig encoder;
    encoder.hw = hw;
    encoder.codec = codec;
    const QStringList before = CommandBuilder::videoEncoderArgs(encoder, 30);
    encoder.bitrate = 3600;
    const QStringList after = CommandBuilder::videoEncoderArgs(encoder, 30);

    QCOMPARE(after.size(), before.size());
    QStringList differing;
    for (qsizetype i = 1; i < after.size(); ++i) {
        if (after.at(i) != before.at(i))
            differing << after.at(i - 1) << after.at(i);
    }
    QCOMPARE(differing, words(changed));
}

CORVANE_TEST(tst_CommandBuilderVideo, QCoreApplication)
#include "tst_CommandBuilderVideo.moc"
