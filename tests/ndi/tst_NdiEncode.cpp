#include "engine/host/Capabilities.h"
#include "ndi/FramePipe.h"
#include "pipeline/Pipeline.h"
#include "tests/ndi/FrameFeed.h"
#include "tests/support/Recording.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QSet>
#include <QTest>
#include <QTimer>
#include <QUuid>

#include <algorithm>
#include <cstdlib>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

constexpr int width = 320;
constexpr int height = 192;
constexpr int bars = 16; ///< upright, of equal width
constexpr int numberBars = 12;
constexpr int intervalMs = 33;

constexpr int slate = -1;
constexpr int unknown = -2;

/// The level of a bar in the frame of that number: twelve binary digits, then black, white, black, white,
/// which no slate has.
bool isWhite(int bar, int number)
{
    return bar < numberBars ? ((number >> bar) & 1) == 1 : bar % 2 == 1;
}

/// UYVY frame. The chroma is blue in the upper half and red in the lower one.
QByteArray testPicture(int number)
{
    QByteArray frame;
    frame.reserve(qsizetype(2) * width * height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool blue = (y < height / 2) == (x % 2 == 0);
            frame += blue ? '\xb0' : '\x60';
            frame += isWhite(x / (width / bars), number) ? '\xc0' : '\x40';
        }
    }
    return frame;
}

bool isNear(QByteArrayView plane, int x, int y, int stride, int wanted, int tolerance)
{
    return std::abs(static_cast<uchar>(plane[qsizetype(y) * stride + x]) - wanted) <= tolerance;
}

bool isSlate(QByteArrayView picture)
{
    return std::all_of(picture.begin(), picture.end(),
                       [](char sample) { return std::abs(static_cast<uchar>(sample) - 0x80) <= 2; });
}

/// Content of a decoded picture (planar 4:2:0): the number of a frame, `slate`, or `unknown`.
int readPicture(QByteArrayView picture)
{
    if (isSlate(picture))
        return slate;
    constexpr int lumaSize = width * height;
    const QByteArrayView luma = picture.first(lumaSize);
    const QByteArrayView u = picture.sliced(lumaSize, lumaSize / 4);
    const QByteArrayView v = picture.sliced(lumaSize + lumaSize / 4);

    int number = 0;
    for (int bar = 0; bar < bars; ++bar) {
        const int middle = (2 * bar + 1) * width / bars / 2;
        const bool white = static_cast<uchar>(luma[qsizetype(height) / 4 * width + middle]) > 0x80;
        if (bar < numberBars)
            number |= white ? 1 << bar : 0;
        for (const int y : {height / 4, 3 * height / 4}) {
            const int blue = y < height / 2 ? 0xb0 : 0x60;
            const int red = y < height / 2 ? 0x60 : 0xb0;
            if (!isNear(luma, middle, y, width, isWhite(bar, number) ? 0xc0 : 0x40, 24) ||
                !isNear(u, middle / 2, y / 2, width / 2, blue, 24) ||
                !isNear(v, middle / 2, y / 2, width / 2, red, 24))
                return unknown;
        }
    }
    return number;
}

/// The pictures of a recording, in order.
QList<int> decode(const QString &path)
{
    QProcess ffmpeg;
    ffmpeg.start(machineTool(u"ffmpeg"_s), {u"-v"_s, u"error"_s, u"-i"_s, path, u"-vsync"_s, u"passthrough"_s,
                                            u"-pix_fmt"_s, u"yuv420p"_s, u"-f"_s, u"rawvideo"_s, u"-"_s});
    if (!ffmpeg.waitForFinished(60000))
        return {};
    const QByteArray decoded = ffmpeg.readAllStandardOutput();
    constexpr qsizetype size = qsizetype(width) * height * 3 / 2;
    QList<int> pictures;
    for (qsizetype at = 0; at + size <= decoded.size(); at += size)
        pictures << readPicture(QByteArrayView(decoded).sliced(at, size));
    return pictures;
}

/// Shows the frames from `first` to `last`, one a period.
void showFrames(FrameFeed &feed, int first, int last)
{
    int next = first;
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer, &QTimer::timeout, &timer, [&] { feed.show(testPicture(next++)); });
    timer.start(intervalMs);
    waitUntil([&] { return next > last; });
}

/// Number of times that the same frame went out for half a second or more.
qsizetype stalls(const QList<int> &pictures)
{
    qsizetype count = 0;
    for (auto begin = pictures.begin(); begin != pictures.end();) {
        const auto end = std::find_if(begin, pictures.end(), [&](int picture) { return picture != *begin; });
        if (*begin != slate && (end - begin) * intervalMs >= 500)
            ++count;
        begin = end;
    }
    return count;
}

} // namespace

/// A whole transmission: the pump, the argument list, and an ffmpeg that encodes what it reads.
class tst_NdiEncode : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void picturesCanBeTold();
    void sourceThatComesStallsAndComesBack();

private:
    QTemporaryDir m_dir;
};

void tst_NdiEncode::picturesCanBeTold()
{
    // Control without the encoder in between: the other test relies on this.
    for (const int number : {0, 1, 60, 4095}) {
        const QByteArray frame = testPicture(number);
        QByteArray planar(qsizetype(width) * height * 3 / 2, Qt::Uninitialized);
        for (qsizetype y = 0; y < height; ++y) {
            for (qsizetype x = 0; x < width; ++x) {
                planar[y * width + x] = frame.at(2 * (y * width + x) + 1);
                const qsizetype chroma = qsizetype(width) * height + qsizetype(x % 2) * width * height / 4;
                planar[chroma + y / 2 * width / 2 + x / 2] = frame.at(2 * (y * width + x));
            }
        }
        QCOMPARE(readPicture(planar), number);
        planar[width * height / 4 + width / bars / 2] = '\x80';
        QCOMPARE(readPicture(planar), unknown);
    }
    QCOMPARE(readPicture(QByteArray(qsizetype(width) * height * 3 / 2, '\x80')), slate);
}

void tst_NdiEncode::sourceThatComesStallsAndComesBack()
{
    const QString ffmpeg = machineTool(u"ffmpeg"_s);
    if (ffmpeg.isEmpty() || machineTool(u"ffprobe"_s).isEmpty())
        QSKIP("ffmpeg and ffprobe are not both on this machine");

    const QString recording = m_dir.filePath(u"received.flv"_s);
    PipelineConfig config = fakeConfig(QString());
    config.id = QUuid::createUuid().toString(QUuid::Id128);
    config.source.kind = SourceKind::Ndi;
    config.source.uri = u"ESTUDIO (Camera 1)"_s;
    config.outputs[0].url = recording;
    const QString path = framePipePath(config.id);

    setNdiRuntimeAvailable(true);
    FrameFeed feed(frameInfo(width, height, 30));
    Pipeline pipeline(config, ffmpeg, false);
    const Recorder recorder(pipeline);
    const auto ndiLines = [&] { return recorder.logLines().filter(u"[ndi] "_s); };
    const QString waiting = "[ndi] NDI: aguardando ffmpeg conectar no pipe "_L1 + path;
    const QString pumping = "[ndi] NDI: pump @ 30.00 fps (last-good/slate) -> "_L1 + path;
    const QString freeze = u"[ndi] NDI: fonte sem frames novos — freeze"_s;
    const QString pipeClosed = u"[ndi] NDI: pipe fechado pelo leitor (ffmpeg) — encerrando pump"_s;

    QElapsedTimer clock;
    clock.start();
    pipeline.start();
    QVERIFY(waitUntil([&] { return ndiLines().contains(pumping); }));
    const qint64 untilPumpMs = clock.elapsed(); // the encoder's own start, long on a busy machine
    passTimersOf(2000);
    const qint64 slateMs = clock.elapsed();
    showFrames(feed, 1, 60);
    clock.restart();
    passTimersOf(3000);
    showFrames(feed, 61, 61);
    const qint64 stallMs = clock.elapsed();
    showFrames(feed, 62, 120);
    QVERIFY(waitUntil([&] { return feed.waiting() == 0; }));
    pipeline.stop();
    setNdiRuntimeAvailable(false);
    QCoreApplication::processEvents();

    // The receiver's lines. The encoder may exit before the pump is stopped.
    QStringList lines = ndiLines();
    if (lines.last() == pipeClosed)
        lines.removeLast();
    const qsizetype freezes = lines.removeAll(freeze);
    QCOMPARE(lines, QStringList({waiting, pumping}));
    QVERIFY(!recorder.containsPart(u"ERRO"_s));
    QVERIFY(!recorder.contains(u"state failed"_s));

    const Recording inspected = inspectRecording(recording);
    QCOMPARE(inspected.error, QString());
    QCOMPARE(inspected.videoCodec, u"h264"_s);
    QCOMPARE_LE(inspected.largestGap, 0.035);

    const QList<int> pictures = decode(recording);
    QVERIFY2(!pictures.isEmpty(), "nothing was decoded");
    QVERIFY(!pictures.contains(unknown));
    QCOMPARE_LE(std::abs(inspected.seconds - static_cast<double>(pictures.size() - 1) / 30), 0.04);

    // Slates until the first frame, and never again; then the numbers never fall.
    QVERIFY(std::is_sorted(pictures.begin(), pictures.end()));
    // Each stall is reported once. There is one, and what else a busy machine holds up for a second.
    QCOMPARE_GE(freezes, 1);
    QCOMPARE_LE(freezes, stalls(pictures));
    // Slack of half the frames due by the clock, for a busy machine.
    const auto countNear = [](qsizetype count, qint64 leastMs, qint64 mostMs) {
        return count >= leastMs / intervalMs / 2 && count <= mostMs / intervalMs + 3;
    };
    QVERIFY2(countNear(pictures.count(slate), slateMs - untilPumpMs, slateMs),
             qPrintable(QString::number(pictures.count(slate))));
    QVERIFY2(countNear(pictures.count(60), stallMs, stallMs),
             qPrintable(QString::number(pictures.count(60))));
    const auto distinct = [&](int first, int last) {
        QSet<int> seen;
        std::copy_if(pictures.begin(), pictures.end(), std::inserter(seen, seen.end()),
                     [&](int picture) { return picture >= first && picture <= last; });
        return seen.size();
    };
    QCOMPARE_GE(distinct(1, 60), 30);
    QCOMPARE_GE(distinct(61, 120), 30);
}

CORVANE_TEST(tst_NdiEncode, QCoreApplication)
#include "tst_NdiEncode.moc"
