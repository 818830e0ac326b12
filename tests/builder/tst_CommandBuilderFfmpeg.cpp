#include "builder/CommandBuilder.h"
#include "tests/support/Runner.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <functional>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

using Edit = std::function<void(PipelineConfig &)>;

/// Streams of a file by ffprobe: one line each, "h264,video,320,180" or "aac,audio".
QStringList streamsOf(const QString &ffprobe, const QString &path)
{
    QProcess probe;
    probe.start(ffprobe, {u"-v"_s, u"error"_s, u"-show_entries"_s,
                          u"stream=codec_name,codec_type,width,height"_s, u"-of"_s, u"csv=p=0"_s, path});
    if (!probe.waitForFinished(60000) || probe.exitStatus() != QProcess::NormalExit)
        return {u"ffprobe did not answer"_s};
    return QString::fromUtf8(probe.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
}

/// Process that ends with the test, however that ends.
class Ffmpeg : public QProcess
{
public:
    ~Ffmpeg() override
    {
        kill();
        waitForFinished();
    }
};

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
    QString m_ffmpeg;
    QString m_ffprobe;
    QTemporaryDir m_folder;
};

void tst_CommandBuilderFfmpeg::initTestCase()
{
    m_ffmpeg = QStandardPaths::findExecutable(u"ffmpeg"_s);
    m_ffprobe = QStandardPaths::findExecutable(u"ffprobe"_s);
    if (m_ffmpeg.isEmpty() || m_ffprobe.isEmpty())
        QSKIP("ffmpeg and ffprobe are not both on this machine's search path");
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

    QByteArray said; // outlives the process, which may write until its last moment
    Ffmpeg ffmpeg;
    connect(&ffmpeg, &QProcess::readyReadStandardError, this, [&] { said += ffmpeg.readAllStandardError(); });
    ffmpeg.start(m_ffmpeg, CommandBuilder::build(config, false));
    QVERIFY2(ffmpeg.waitForStarted(), qPrintable(ffmpeg.errorString()));

    // One picture at least has to be on its way before the end, or the file is empty. B-frames and the
    // encoder's look-ahead hold the first ones back.
    static const QRegularExpression progress(u"frame= *[1-9][0-9]* fps="_s);
    const auto onAir = [&] { return progress.match(QString::fromUtf8(said)).hasMatch(); };
    QTRY_VERIFY2_WITH_TIMEOUT(onAir() || ffmpeg.state() == QProcess::NotRunning, said.constData(), 60000);
    QVERIFY2(onAir(), said.constData());

    ffmpeg.write("q");
    QTRY_VERIFY2_WITH_TIMEOUT(ffmpeg.state() == QProcess::NotRunning, said.constData(), 60000);
    QVERIFY2(ffmpeg.exitStatus() == QProcess::NormalExit, said.constData());
    QVERIFY2(ffmpeg.exitCode() == 0, said.constData());
    QCOMPARE(streamsOf(m_ffprobe, path), streams);
}

CORVANE_TEST(tst_CommandBuilderFfmpeg, QCoreApplication)
#include "tst_CommandBuilderFfmpeg.moc"
