#include "builder/CommandBuilder.h"
#include "tests/support/Runner.h"

#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;
using namespace corvane;

class tst_CommandBuilderAudio : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void audioEncoder_data();
    void audioEncoder();
    void scaleFilter_data();
    void scaleFilter();
};

void tst_CommandBuilderAudio::audioEncoder_data()
{
    QTest::addColumn<QString>("codec");
    QTest::addColumn<int>("bitrate");
    QTest::addColumn<QStringList>("args");

    const auto row = [](const char *name, const QString &codec, int bitrate, const QString &rate) {
        QTest::newRow(name) << codec << bitrate
                            << QStringList{u"-c:a"_s, codec, u"-b:a"_s, rate, u"-ar"_s, u"48000"_s};
    };
    row("AAC", u"aac"_s, 160, u"160k"_s);
    row("Opus, by ffmpeg's name", u"opus"_s, 64, u"64k"_s);
    row("a copy keeps rate and sample rate", u"copy"_s, 160, u"160k"_s);
    row("any text stands", u"não é %1"_s, 128, u"128k"_s);
    row("empty text", QString(), 128, u"128k"_s);
    row("no rate", u"aac"_s, 0, u"0k"_s);
    row("negative rate", u"aac"_s, -5, u"-5k"_s);
    row("no digit grouping", u"aac"_s, 1024000, u"1024000k"_s);
    row("greatest rate", u"aac"_s, std::numeric_limits<int>::max(), u"2147483647k"_s);
}

void tst_CommandBuilderAudio::audioEncoder()
{
    QFETCH(const QString, codec);
    QFETCH(const int, bitrate);

    EncoderConfig encoder;
    encoder.audioCodec = codec;
    encoder.audioBitrate = bitrate;
    QTEST(CommandBuilder::audioEncoderArgs(encoder, true), "args");
    QCOMPARE(CommandBuilder::audioEncoderArgs(encoder, false), QStringList());
}

void tst_CommandBuilderAudio::scaleFilter_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<QString>("filter");

    QTest::newRow("no filter") << 0 << 1280 << 720 << QString();
    QTest::newRow("no filter, width alone") << 0 << 1280 << 0 << QString();
    QTest::newRow("lanczos") << 1 << 1280 << 720 << u"scale=1280:720:flags=lanczos"_s;
    QTest::newRow("lanczos, width alone") << 1 << 1280 << 0 << u"scale=1280:-2:flags=lanczos"_s;
    QTest::newRow("lanczos, height alone") << 1 << 0 << 720 << u"scale=-2:720:flags=lanczos"_s;
    QTest::newRow("lanczos, size of the source") << 1 << 1920 << 1080 << u"scale=1920:1080:flags=lanczos"_s;
    QTest::newRow("lanczos, negative sizes") << 1 << -1 << -4 << u"scale=-1:-4:flags=lanczos"_s;
    QTest::newRow("lanczos, no digit grouping")
        << 1 << 10000 << 20000 << u"scale=10000:20000:flags=lanczos"_s;
    QTest::newRow("CUDA") << 2 << 1280 << 720 << u"scale_cuda=1280:720"_s;
    QTest::newRow("CUDA, width alone") << 2 << 1280 << 0 << u"scale_cuda=1280:-2"_s;
    QTest::newRow("CUDA, height alone") << 2 << 0 << 720 << u"scale_cuda=-2:720"_s;
    QTest::newRow("placebo") << 3 << 1280 << 720 << u"libplacebo=w=1280:h=720:upscaler=ewa_lanczos"_s;
    QTest::newRow("placebo, width alone")
        << 3 << 1280 << 0 << u"libplacebo=w=1280:h=-2:upscaler=ewa_lanczos"_s;
    QTest::newRow("placebo, height alone")
        << 3 << 0 << 720 << u"libplacebo=w=-2:h=720:upscaler=ewa_lanczos"_s;
    QTest::newRow("other lanczos") << 4 << 1280 << 720 << u"scale=1280:720:flags=lanczos"_s;
    QTest::newRow("other lanczos, width alone") << 4 << 1280 << 0 << u"scale=1280:-2:flags=lanczos"_s;
    QTest::newRow("other lanczos, height alone") << 4 << 0 << 720 << u"scale=-2:720:flags=lanczos"_s;
    QTest::newRow("one above the table") << 5 << 1280 << 720 << QString();
    QTest::newRow("one below the table") << -1 << 1280 << 720 << QString();
    for (const int kind : {0, 1, 2, 3, 4, 5, -1})
        QTest::addRow("no size, kind %d", kind) << kind << 0 << 0 << QString();
}

void tst_CommandBuilderAudio::scaleFilter()
{
    QFETCH(const int, kind);
    QFETCH(const int, width);
    QFETCH(const int, height);
    QFETCH(const QString, filter);

    ScalerConfig scaler;
    scaler.kind = kind;
    scaler.width = width;
    scaler.height = height;
    QCOMPARE(CommandBuilder::scaleFilter(SourceConfig(), scaler), filter);

    // The source plays no part, even where its size is the one asked for.
    SourceConfig source;
    source.kind = SourceKind::File;
    source.width = width;
    source.height = height;
    QCOMPARE(CommandBuilder::scaleFilter(source, scaler), filter);

    // An empty text leaves no trace in the whole list.
    PipelineConfig config;
    config.scaler = scaler;
    config.outputs.resize(1);
    const QStringList args = CommandBuilder::build(config, false);
    QCOMPARE(args.count(u"-vf"_s), filter.isEmpty() ? 0 : 1);
    QCOMPARE(args.size(), filter.isEmpty() ? 42 : 44);
    if (!filter.isEmpty())
        QCOMPARE(args.mid(13, 2), (QStringList{u"-vf"_s, filter}));
}

CORVANE_TEST(tst_CommandBuilderAudio, QCoreApplication)
#include "tst_CommandBuilderAudio.moc"
