#include "builder/CommandBuilder.h"
#include "engine/host/ChildProcess.h"
#include "tests/builder/FfmpegRun.h"
#include "tests/support/Runner.h"

#include <QNetworkDatagram>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QUdpSocket>

#include <algorithm>
#include <iterator>
#include <optional>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

constexpr int everyVersion = 1000000;

/// Version of an ffmpeg as a number that can be compared.
constexpr int version(int major, int minor)
{
    return major * 1000 + minor;
}

/// Refusal by ffmpeg that is known, and its reason. A row that it applies to has to fail, and with these
/// words.
struct KnownFailure
{
    QLatin1StringView codec;   ///< part of the encoder's name
    QLatin1StringView carrier; ///< empty: each of them
    bool lowLatencyOnly;
    int before;              ///< first version of ffmpeg without it
    bool ofTheMachine;       ///< it depends on hardware: the row may pass
    QLatin1StringView words; ///< what ffmpeg says
    const char *reason;
};

constexpr KnownFailure knownFailures[] = {
    {"libsvtav1"_L1,
     {},
     false,
     everyVersion,
     false,
     "Error setting encoder parameters"_L1,
     "SVT-AV1 1.4 refuses an average rate that is as high as the ceiling, and 2.3 any ceiling"},
    {"libx265"_L1, "flv"_L1, false, version(6, 1), false, "Video codec hevc not compatible with flv"_L1,
     "FLV carries HEVC from ffmpeg 6.1 on"},
    {"_qsv"_L1,
     {},
     true,
     everyVersion,
     false,
     "Unrecognized option 'low_delay'"_L1,
     "ffmpeg's encoders of this family have no option low_delay"},
    {"_qsv"_L1, {}, false, everyVersion, true, "MFX session"_L1, "this machine has no Quick Sync"},
    {"_nvenc"_L1,
     {},
     false,
     everyVersion,
     true,
     "Cannot load libcuda.so.1"_L1,
     "this machine has no driver of NVIDIA"},
    {"_nvenc"_L1,
     {},
     false,
     everyVersion,
     true,
     "Cannot load nvcuda.dll"_L1,
     "this machine has no driver of NVIDIA"},
    {"_nvenc"_L1,
     {},
     false,
     everyVersion,
     true,
     "No capable devices found"_L1,
     "this machine has no encoder of NVIDIA for the codec"},
    {"_amf"_L1, {}, false, everyVersion, true, "failed to open"_L1, "this machine has no driver of AMD"},
    {"opus"_L1,
     {},
     false,
     everyVersion,
     false,
     "The encoder 'opus' is experimental"_L1,
     "ffmpeg's own encoder for Opus has to be allowed by an option that the list doesn't have"},
    {"av1"_L1, "mpegts"_L1, false, everyVersion, false, "is muxed as a private data stream"_L1,
     "ffmpeg has no AV1 in transport streams"},
    {"copy"_L1, "mpegts"_L1, false, everyVersion, false, "is muxed as a private data stream"_L1,
     "transport streams carry no uncompressed sound"},
    {"copy"_L1, "flv"_L1, false, everyVersion, false, "not compatible with flv"_L1,
     "FLV carries no uncompressed sound of 48 kHz, which is what the test pattern has"},
};

/// What ffmpeg's standard output says to a question; empty if it doesn't answer.
QString answerOf(const QString &ffmpeg, const QString &question)
{
    ChildProcess process;
    process.start(ffmpeg, {u"-hide_banner"_s, question}, QIODevice::ReadOnly);
    return process.waitForFinished(60000) ? QString::fromUtf8(process.readAllStandardOutput()) : QString();
}

/// Version of this ffmpeg; one built from a repository's state, without a number, counts as the newest.
int versionOf(const QString &ffmpeg)
{
    static const QRegularExpression pattern(u"^ffmpeg version n?([0-9]+)\\.([0-9]+)"_s);
    const QRegularExpressionMatch match = pattern.match(answerOf(ffmpeg, u"-version"_s));
    return match.hasMatch() ? version(match.captured(1).toInt(), match.captured(2).toInt())
                            : everyVersion - 1;
}

/// Receiver of a bridge's place: what comes in by UDP goes into a file.
class DatagramFile
{
public:
    explicit DatagramFile(const QString &path)
        : m_file(path)
    {
        m_open = m_file.open(QIODevice::WriteOnly) && m_socket.bind(QHostAddress::LocalHost);
        QObject::connect(&m_socket, &QUdpSocket::readyRead, &m_socket, [this] {
            while (m_socket.hasPendingDatagrams())
                m_file.write(m_socket.receiveDatagram().data());
        });
    }

    [[nodiscard]] bool isOpen() const { return m_open; }
    [[nodiscard]] int port() const { return m_socket.localPort(); }

    void close()
    {
        QCoreApplication::processEvents(); // what is in the socket's queue still
        m_file.close();
    }

private:
    QFile m_file;
    QUdpSocket m_socket;
    bool m_open = false;
};

/// Way in which an output takes the stream along. The network behind it is another test's.
struct Carrier
{
    QString name;
    int kind;
    QString suffix; ///< of the file that it ends in
};

const Carrier carriers[] = {
    {u"flv"_s, OutputKind::Rtmp, u"flv"_s},
    {u"mpegts"_s, OutputKind::Srt, u"ts"_s},
    {u"file"_s, OutputKind::File, u"mkv"_s},
};

/// First failure known for an encoder of this ffmpeg; null: it has to work.
const KnownFailure *knownFailure(const QString &encoder, const QString &carrier, bool lowLatency,
                                 int ffmpegVersion, const QByteArray &said)
{
    const auto *const found = std::ranges::find_if(knownFailures, [&](const KnownFailure &known) {
        return encoder.contains(known.codec) && (known.carrier.isEmpty() || carrier == known.carrier) &&
               (lowLatency || !known.lowLatencyOnly) && ffmpegVersion < known.before &&
               (!known.ofTheMachine || QString::fromUtf8(said).contains(known.words));
    });
    return found == std::end(knownFailures) ? nullptr : found;
}

} // namespace

/// Every encoder that a record can name and this ffmpeg lists, over every carrier of an output, with the real
/// ffmpeg.
class tst_CommandBuilderCodecs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void encodes_data();
    void encodes();

private:
    void addRows(const QString &encoder, int family, int codec);

    FfmpegTools m_tools;
    int m_version = 0;
    QTemporaryDir m_folder;
};

void tst_CommandBuilderCodecs::initTestCase()
{
    const auto tools = ffmpegOnPath();
    if (!tools)
        QSKIP("ffmpeg and ffprobe are not both on this machine's search path");
    m_tools = *tools;
    m_version = versionOf(m_tools.ffmpeg);
    QVERIFY2(m_folder.isValid(), qPrintable(m_folder.errorString()));
}

void tst_CommandBuilderCodecs::addRows(const QString &encoder, int family, int codec)
{
    static const QStringList names{u"h264"_s, u"hevc"_s, u"av1"_s}; // by number
    for (const Carrier &carrier : carriers) {
        for (const bool lowLatency : {true, false}) {
            const QString row = u"%1, %2, %3"_s.arg(encoder, carrier.name,
                                                    lowLatency ? u"low latency"_s : u"no low latency"_s);
            QTest::newRow(qPrintable(row)) << encoder << family << codec << u"aac"_s << carrier.name
                                           << lowLatency << u"%1,video,320,180"_s.arg(names.at(codec));
        }
    }
}

void tst_CommandBuilderCodecs::encodes_data()
{
    QTest::addColumn<QString>("encoder"); // or the one for sound, where that is the row's subject
    QTest::addColumn<int>("family");
    QTest::addColumn<int>("codec");
    QTest::addColumn<QString>("audioCodec");
    QTest::addColumn<QString>("carrier");
    QTest::addColumn<bool>("lowLatency");
    QTest::addColumn<QString>("video");

    const QString listing = answerOf(m_tools.ffmpeg, u"-encoders"_s);
    for (const int family :
         {HwAccel::X264, HwAccel::Nvenc, HwAccel::Qsv, HwAccel::Amf, HwAccel::VideoToolbox}) {
        for (const int codec : {VideoCodec::H264, VideoCodec::Hevc, VideoCodec::Av1}) {
            EncoderConfig encoder;
            encoder.hw = family;
            encoder.codec = codec;
            const QString name = CommandBuilder::videoEncoderArgs(encoder, 30).at(1);
            if (listing.contains(u' ' + name + u' '))
                addRows(name, family, codec);
        }
    }
    if (listing.contains(" libx264 "_L1)) {
        for (const QString &audio : {u"opus"_s, u"copy"_s}) {
            for (const Carrier &carrier : carriers)
                QTest::newRow(qPrintable(u"sound by %1, %2"_s.arg(audio, carrier.name)))
                    << audio << int(HwAccel::X264) << int(VideoCodec::H264) << audio << carrier.name << true
                    << u"h264,video,320,180"_s;
        }
    }
}

void tst_CommandBuilderCodecs::encodes()
{
    QFETCH(const QString, encoder);
    QFETCH(const int, family);
    QFETCH(const int, codec);
    QFETCH(const QString, audioCodec);
    QFETCH(const QString, carrier);
    QFETCH(const bool, lowLatency);
    QFETCH(const QString, video);

    const auto *const way = std::ranges::find(carriers, carrier, &Carrier::name);
    const QString path = m_folder.filePath(u"received."_s + way->suffix);
    QFile::remove(path); // of the row before: ffmpeg would ask
    PipelineConfig config;
    config.source.width = 320;
    config.source.height = 180;
    config.encoder.hw = family;
    config.encoder.codec = codec;
    config.encoder.audioCodec = audioCodec;
    config.encoder.zeroLatency = lowLatency;
    config.outputs.resize(1);
    config.outputs[0].kind = way->kind;
    config.outputs[0].url = path;
    std::optional<DatagramFile> bridge;
    if (way->kind == OutputKind::Srt) {
        bridge.emplace(path);
        QVERIFY(bridge->isOpen());
        config.outputs[0].localPort = bridge->port();
    }

    const FfmpegRun run = runFfmpeg(m_tools.ffmpeg, CommandBuilder::build(config, false));
    if (bridge)
        bridge->close();
    const QStringList wanted{video, audioCodec == "copy"_L1 ? u"pcm_u8,audio"_s : audioCodec + u",audio"_s};
    const QStringList received = run.onAir ? streamsOf(m_tools.ffprobe, path) : QStringList();
    const bool arrived = run.onAir && run.clean && received == wanted;

    if (const KnownFailure *known = knownFailure(encoder, carrier, lowLatency, m_version, run.said)) {
        if (!arrived)
            QVERIFY2(run.said.contains(QByteArray(known->words.data(), known->words.size())),
                     run.said.constData());
        QEXPECT_FAIL("", known->reason, Abort);
    }
    QVERIFY2(arrived, (run.said + received.join(u' ').toUtf8()).constData());
}

CORVANE_TEST(tst_CommandBuilderCodecs, QCoreApplication)
#include "tst_CommandBuilderCodecs.moc"
