#include "ndi/NdiReceiver.h"
#include "tests/ndi/FrameFeed.h"
#include "tests/ndi/PipeReader.h"
#include "tests/ndi/ReceiverBench.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QElapsedTimer>
#include <QTest>

#include <algorithm>
#include <cstring>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

const QString freezeLine = u"NDI: fonte sem frames novos — freeze"_s;

QByteArray frameOf(char byte, qsizetype size = smallFrameSize)
{
    return QByteArray(size, byte);
}

/// A receiver on air, and its reader.
struct OnAir : ReceiverStand
{
    explicit OnAir(const NdiFrameInfo &info, bool paused = false)
        : ReceiverStand(info, qsizetype(2) * info.width * info.height)
    {
        if (paused)
            reader.openPaused(path);
        else
            reader.open(path);
        valid = ready && reader.couldOpen();
        receiver.start(path);
    }

    /// Shows a frame and waits until the reader has it.
    bool show(const QByteArray &frame)
    {
        feed.show(frame);
        return waitUntil([&] { return reader.lastFrame() == frame; });
    }

    /// The frames that the reader has seen, one byte for each run of equal ones.
    [[nodiscard]] QByteArray outline() const
    {
        QByteArray bytes;
        const QList<FrameRun> runs = reader.runs();
        for (const FrameRun &run : runs)
            bytes += run.frame.at(0);
        return bytes;
    }

    bool valid = false; ///< false: it isn't on air
};

} // namespace

/// Frames as the reader gets them.
class tst_NdiReceiverFrames : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void slateWithoutAFormat();
    void slateOfTheFormat();
    void slateIsNoFreeze();
    void neverFasterThanItsInterval_data();
    void neverFasterThanItsInterval();
    void frameGoesOutAsItIs();
    void lastFrameRepeats();
    void newestFrameWins();
    void framesComeWholeAndInOrder();
    void frameOfAnotherSizeIsDropped();
    void freezeIsSaidOnce();
    void everyFreezeIsSaid();
    void slowReaderHoldsUpNoSource();
};

void tst_NdiReceiverFrames::slateWithoutAFormat()
{
    const QString path = freshPipePath();
    PipeReader reader(4'147'200);
    NdiReceiver receiver(u"fonte"_s);
    QVERIFY(receiver.createPipe(path));
    reader.open(path);
    receiver.start(path);
    QVERIFY(waitUntil([&] { return reader.frames() >= 5; }));
    QCOMPARE(reader.runs().size(), 1);
    QCOMPARE(reader.lastFrame(), QByteArray(4'147'200, '\x80'));
}

void tst_NdiReceiverFrames::slateOfTheFormat()
{
    const OnAir onAir(frameInfo(16, 4, 100));
    QVERIFY(onAir.valid);
    QVERIFY(waitUntil([&] { return onAir.reader.frames() >= 50; }));
    QCOMPARE(onAir.reader.runs().size(), 1);
    QCOMPARE(onAir.reader.lastFrame(), frameOf('\x80'));
}

void tst_NdiReceiverFrames::slateIsNoFreeze()
{
    OnAir onAir(frameInfo(16, 4, 100));
    QVERIFY(onAir.valid);
    passTimersOf(1200);
    QVERIFY(onAir.show(frameOf('a')));
    onAir.receiver.stop();
    QVERIFY(waitUntil([&] { return onAir.reader.ended(); }));
    QVERIFY(!onAir.log.contains(freezeLine));
    QCOMPARE(onAir.outline(), QByteArray("\x80"
                                         "a"));
}

void tst_NdiReceiverFrames::neverFasterThanItsInterval_data()
{
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("intervalMs");

    QTest::newRow("30 frames a second") << 30 << 33;
    QTest::newRow("25 frames a second") << 25 << 40;
    QTest::newRow("60 frames a second") << 60 << 16;
}

void tst_NdiReceiverFrames::neverFasterThanItsInterval()
{
    QFETCH(const int, rate);
    QFETCH(const int, intervalMs);

    QElapsedTimer clock;
    clock.start();
    const OnAir onAir(frameInfo(16, 4, rate));
    QVERIFY(onAir.valid);
    QVERIFY(waitUntil([&] { return onAir.reader.frames() >= 30; }));
    const qint64 frames = onAir.reader.frames();
    // The pump counts whole milliseconds: the first of them may have been almost over.
    QCOMPARE_GE(clock.elapsed(), (frames - 1) * intervalMs - 1);
}

void tst_NdiReceiverFrames::frameGoesOutAsItIs()
{
    QByteArray frame(smallFrameSize, Qt::Uninitialized);
    for (qsizetype i = 0; i < smallFrameSize; ++i)
        frame[i] = static_cast<char>(i * 7);
    OnAir onAir(frameInfo(16, 4, 100));
    QVERIFY(onAir.valid);
    QVERIFY(onAir.show(frame));
}

void tst_NdiReceiverFrames::lastFrameRepeats()
{
    OnAir onAir(frameInfo(16, 4, 100));
    QVERIFY(onAir.valid);
    QVERIFY(onAir.show(frameOf('a')));
    const qsizetype before = onAir.reader.frames();
    QVERIFY(waitUntil([&] { return onAir.reader.frames() > before + 20; }));
    QCOMPARE(onAir.reader.lastFrame(), frameOf('a'));
    QVERIFY(onAir.show(frameOf('b')));
    QVERIFY(onAir.show(frameOf('c')));
    QVERIFY(onAir.outline().endsWith("abc"));
}

void tst_NdiReceiverFrames::newestFrameWins()
{
    // One frame in a second and a half: most of the captured ones can't be shown.
    OnAir onAir(frameInfo(16, 4, 1500, 1000));
    QVERIFY(onAir.valid);
    QVERIFY(waitUntil([&] { return onAir.reader.frames() == 1; }));
    for (char byte = 'a'; byte <= 'z'; ++byte)
        onAir.feed.show(frameOf(byte));
    QVERIFY(waitUntil([&] { return onAir.reader.lastFrame() == frameOf('z'); }));
    const QByteArray seen = onAir.outline();
    QVERIFY(std::is_sorted(seen.begin() + 1, seen.end()));
    QCOMPARE_LT(seen.size(), 10);
}

void tst_NdiReceiverFrames::framesComeWholeAndInOrder()
{
    // A source much faster than the pump, which runs as fast as it can.
    constexpr qsizetype size = qsizetype(2) * 64 * 32;
    constexpr int count = 5000;
    OnAir onAir(frameInfo(64, 32, 1000));
    QVERIFY(onAir.valid);
    const auto numbered = [](int number) {
        return QByteArray(reinterpret_cast<const char *>(&number), sizeof number)
            .repeated(size / sizeof number);
    };
    for (int number = 1; number <= count; ++number)
        onAir.feed.show(numbered(number));
    QVERIFY(waitUntil([&] { return onAir.reader.lastFrame() == numbered(count); }));

    int last = 0;
    const QList<FrameRun> runs = onAir.reader.runs();
    for (const FrameRun &run : runs) {
        if (run.frame == frameOf('\x80', size))
            continue;
        int number = 0;
        std::memcpy(&number, run.frame.constData(), sizeof number);
        QCOMPARE(run.frame, numbered(number));
        QCOMPARE_GT(number, last);
        last = number;
    }
}

void tst_NdiReceiverFrames::frameOfAnotherSizeIsDropped()
{
    OnAir onAir(frameInfo(16, 4, 100));
    QVERIFY(onAir.valid);
    QVERIFY(onAir.show(frameOf('a')));
    onAir.feed.show(frameOf('b', smallFrameSize - 1));
    onAir.feed.show(frameOf('c', smallFrameSize + 1));
    onAir.feed.show(QByteArray());
    QVERIFY(onAir.show(frameOf('d')));
    QVERIFY(onAir.outline().endsWith("ad"));
}

void tst_NdiReceiverFrames::freezeIsSaidOnce()
{
    OnAir onAir(frameInfo(16, 4, 100));
    QVERIFY(onAir.valid);
    QVERIFY(onAir.show(frameOf('a')));
    QVERIFY(!onAir.log.contains(freezeLine));
    QVERIFY(waitUntil([&] { return onAir.log.contains(freezeLine); }));
    // The stream goes on, with the last frame.
    const qsizetype before = onAir.reader.frames();
    QVERIFY(waitUntil([&] { return onAir.reader.frames() > before + 50; }));
    QCOMPARE(onAir.reader.lastFrame(), frameOf('a'));
    QCOMPARE(onAir.log.count(freezeLine), 1);
}

void tst_NdiReceiverFrames::everyFreezeIsSaid()
{
    OnAir onAir(frameInfo(16, 4, 100));
    QVERIFY(onAir.valid);
    QVERIFY(onAir.show(frameOf('a')));
    QVERIFY(waitUntil([&] { return onAir.log.contains(freezeLine); }));
    const qsizetype linesAtFreeze = onAir.log.lines().size();
    QVERIFY(onAir.show(frameOf('b')));
    QCoreApplication::processEvents();
    QCOMPARE(onAir.log.lines().size(), linesAtFreeze); // its end is not logged
    QVERIFY(waitUntil([&] { return onAir.log.count(freezeLine) == 2; }));
    QCOMPARE(onAir.reader.lastFrame(), frameOf('b'));
}

void tst_NdiReceiverFrames::slowReaderHoldsUpNoSource()
{
    constexpr qsizetype size = qsizetype(2) * 1920 * 1440; // more than the pipe holds
    OnAir onAir(frameInfo(1920, 1440, 100), true);
    QVERIFY(onAir.valid);
    // The pump blocks in a frame that nobody reads, and the source goes on.
    for (char byte = 'a'; byte <= 'e'; ++byte)
        onAir.feed.show(frameOf(byte, size));
    QVERIFY(waitUntil([&] { return onAir.feed.waiting() == 0; }));
    QCOMPARE(onAir.reader.frames(), 0);

    onAir.reader.resume();
    QVERIFY(waitUntil([&] { return onAir.reader.lastFrame() == frameOf('e', size); }));
    onAir.receiver.stop();
    // Every frame came whole.
    QVERIFY(waitUntil([&] { return onAir.reader.ended(); }));
    const QList<FrameRun> runs = onAir.reader.runs();
    for (const FrameRun &run : runs)
        QCOMPARE(run.frame, frameOf(run.frame.at(0), size));
}

CORVANE_TEST(tst_NdiReceiverFrames, QCoreApplication)
#include "tst_NdiReceiverFrames.moc"
