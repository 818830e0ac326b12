#include "builder/CommandBuilder.h"
#include "tests/builder/FfmpegRun.h"
#include "tests/support/Runner.h"

#include <QTemporaryDir>
#include <QTest>

#include <functional>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

using Edit = std::function<void(PipelineConfig &)>;

} // namespace

Q_DECLARE_METATYPE(Edit)

class tst_CommandBuilderFfmpeg : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void acceptsTheList_data();
    void acceptsTheList();

private:
    FfmpegTools m_tools;
    QTemporaryDir m_folder;
};

void tst_CommandBuilderFfmpeg::initTestCase()
{
    const auto tools = ffmpegOnPath();
    if (!tools)
        QSKIP("ffmpeg and ffprobe are not both on this machine's search path");
    m_tools = *tools;
    QVERIFY2(m_folder.isValid(), qPrintable(m_folder.errorString()));
}

void tst_CommandBuilderFfmpeg::acceptsTheList_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<Edit>("edit");
    QTest::addColumn<QStringList>("streams");

    const auto small = [](PipelineConfig &config) {
        config.source.width = 320;
        config.source.height = 180;
    };
    QTest::newRow("default record") << u"default.flv"_s << Edit([](PipelineConfig &) {})
                                    << QStringList{u"h264,video,1920,1080"_s, u"aac,audio"_s};
    QTest::newRow("small picture") << u"small.flv"_s << Edit(small)
                                   << QStringList{u"h264,video,320,180"_s, u"aac,audio"_s};
    QTest::newRow("file output, format by name") << u"by name.mkv"_s << Edit([small](PipelineConfig &config) {
        small(config);
        config.outputs[0].kind = OutputKind::File;
    }) << QStringList{u"h264,video,320,180"_s, u"aac,audio"_s};
    QTest::newRow("B-frames, slower preset, no low-latency tuning")
        << u"quality.flv"_s << Edit([small](PipelineConfig &config) {
               small(config);
               config.encoder.bFrames = true;
               config.encoder.zeroLatency = false;
               config.encoder.preset = EncoderPreset::Medium;
           })
        << QStringList{u"h264,video,320,180"_s, u"aac,audio"_s};
    QTest::newRow("scaled by height") << u"scaled.flv"_s << Edit([small](PipelineConfig &config) {
        small(config);
        config.scaler.kind = ScalerKind::Lanczos;
        config.scaler.height = 90;
    }) << QStringList{u"h264,video,160,90"_s, u"aac,audio"_s};
    QTest::newRow("HEVC") << u"hevc.mkv"_s << Edit([small](PipelineConfig &config) {
        small(config);
        config.outputs[0].kind = OutputKind::File;
        config.encoder.codec = VideoCodec::Hevc;
    }) << QStringList{u"hevc,video,320,180"_s, u"aac,audio"_s};
}

void tst_CommandBuilderFfmpeg::acceptsTheList()
{
    QFETCH(const QString, file);
    QFETCH(const Edit, edit);
    QFETCH(const QStringList, streams);

    PipelineConfig config;
    config.outputs.resize(1);
    edit(config);
    const QString path = m_folder.filePath(file);
    config.outputs[0].url = path;

    const FfmpegRun run = runFfmpeg(m_tools.ffmpeg, CommandBuilder::build(config, false));
    QVERIFY2(run.onAir, run.said.constData());
    QVERIFY2(run.clean, run.said.constData());
    QCOMPARE(streamsOf(m_tools.ffprobe, path), streams);
}

CORVANE_TEST(tst_CommandBuilderFfmpeg, QCoreApplication)
#include "tst_CommandBuilderFfmpeg.moc"
