#include "ndi/FramePipe.h"
#include "ndi/NdiReceiver.h"
#include "tests/ndi/FrameFeed.h"
#include "tests/ndi/PipeReader.h"
#include "tests/ndi/ReceiverBench.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QElapsedTimer>
#include <QMetaMethod>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

constexpr int stopLimitMs = 3000; ///< of each of the two threads

NdiFrameInfo smallFormat()
{
    return frameInfo(16, 4, 100);
}

QString waitingLine(const QString &path)
{
    return u"NDI: aguardando ffmpeg conectar no pipe "_s + path;
}

QString pumpLine(const QString &rate, const QString &path)
{
    return u"NDI: pump @ %1 fps (last-good/slate) -> %2"_s.arg(rate, path);
}

} // namespace

/// The life of a receiver, and its log lines.
class tst_NdiReceiver : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void metaObject();
    void probeWithoutARuntime();
    void probeAsksTheSource();
    void pipeIsThereBeforeTheStart();
    void pipeThatCannotBeMade();
    void saysTheRate_data();
    void saysTheRate();
    void readerIsThereFirst();
    void readerComesLater();
    void readerNeverComes();
    void startWithoutAPipe();
    void secondStart();
    void startOfAPumpThatHasEnded();
    void stopWithNothingToStop();
    void stopAfterThePipeAlone();
    void stopEndsTheStream();
    void stopLetsFrameAndSourceGo();
    void stopInTheMiddleOfAFrame();
    void destructorStops_data();
    void destructorStops();
    void linesComeOnTheMainThread();
};

void tst_NdiReceiver::metaObject()
{
    const QMetaObject &meta = NdiReceiver::staticMetaObject;
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 1);
    const QMetaMethod logLine = meta.method(meta.methodOffset());
    QCOMPARE(logLine.methodType(), QMetaMethod::Signal);
    QCOMPARE(logLine.methodSignature(), QByteArray("logLine(QString)"));
    QCOMPARE(logLine.parameterNames(), QByteArrayList{"line"});
    QCOMPARE(meta.propertyCount(), meta.propertyOffset());
    QCOMPARE(meta.enumeratorCount(), meta.enumeratorOffset());
}

void tst_NdiReceiver::probeWithoutARuntime()
{
    NdiReceiver receiver(u"ESTUDIO (Camera 1)"_s, this);
    const ReceiverLog log(receiver);
    QCOMPARE(receiver.parent(), this);
    const NdiFrameInfo info = receiver.probe(3000);
    QCOMPARE(info.width, 0);
    QCOMPARE(info.height, 0);
    QCOMPARE(info.frameRateN, 30);
    QCOMPARE(info.frameRateD, 1);
    QCOMPARE(info.valid, false);
    QCOMPARE(log.lines(), QStringList());
}

void tst_NdiReceiver::probeAsksTheSource()
{
    FrameFeed feed(frameInfo(1280, 720, 30000, 1001));
    NdiReceiver receiver(u"ESTUDIO (Câmera 1)"_s);
    NdiFrameInfo info = receiver.probe(3000);
    QCOMPARE(feed.probes(), QStringList{u"ESTUDIO (Câmera 1) 3000"_s});
    QCOMPARE(info.width, 1280);
    QCOMPARE(info.height, 720);
    QCOMPARE(info.frameRateN, 30000);
    QCOMPARE(info.frameRateD, 1001);
    QCOMPARE(info.valid, true);

    feed.setInfo({});
    info = receiver.probe(1500);
    QCOMPARE(feed.probes().constLast(), u"ESTUDIO (Câmera 1) 1500"_s);
    QCOMPARE(info.valid, false);
}

void tst_NdiReceiver::pipeIsThereBeforeTheStart()
{
    const QString path = freshPipePath();
    NdiReceiver receiver(u"fonte"_s);
    const ReceiverLog log(receiver);
    QVERIFY(!pipeExists(path));
    QVERIFY(receiver.createPipe(path));
    QVERIFY(pipeExists(path));
    QCOMPARE(log.lines(), QStringList());
}

void tst_NdiReceiver::pipeThatCannotBeMade()
{
    const QString path = freshPipePath();
    FramePipe other;
    QCOMPARE(other.create(path), 0U);

    NdiReceiver receiver(u"fonte"_s);
    QStringList lines;
    connect(&receiver, &NdiReceiver::logLine, this, [&](const QString &line) { lines << line; });
    QVERIFY(!receiver.createPipe(path));
    // Emitted on the calling thread, so it is there at once.
    QCOMPARE(lines,
             QStringList{u"NDI: falha ao criar named pipe %1 (err=%2)"_s.arg(path, alreadyServedError())});
    QVERIFY(pipeExists(path));

    receiver.start(path);
    QVERIFY(waitUntil([&] { return lines.contains(u"NDI: named pipe ausente"_s); }));
}

void tst_NdiReceiver::saysTheRate_data()
{
    QTest::addColumn<bool>("probed");
    QTest::addColumn<int>("numerator");
    QTest::addColumn<int>("denominator");
    QTest::addColumn<QString>("rate");

    QTest::newRow("never probed") << false << 50 << 1 << u"30.00"_s;
    QTest::newRow("30000/1001") << true << 30000 << 1001 << u"29.97"_s;
    QTest::newRow("60") << true << 60 << 1 << u"60.00"_s;
    QTest::newRow("no denominator") << true << 50 << 0 << u"30.00"_s;
    QTest::newRow("one that isn't believed") << true << 1 << 2 << u"0.50"_s;
}

void tst_NdiReceiver::saysTheRate()
{
    QFETCH(const bool, probed);
    QFETCH(const int, numerator);
    QFETCH(const int, denominator);
    QFETCH(const QString, rate);

    const QString path = freshPipePath();
    const FrameFeed feed(frameInfo(16, 4, numerator, denominator));
    PipeReader reader(smallFrameSize);
    NdiReceiver receiver(u"fonte"_s);
    const ReceiverLog log(receiver);
    if (probed)
        QVERIFY(receiver.probe(3000).valid);
    QVERIFY(receiver.createPipe(path));
    receiver.start(path);
    reader.open(path);
    QVERIFY(waitUntil([&] { return log.lines().size() == 2; }));
    QCOMPARE(log.lines(), QStringList({waitingLine(path), pumpLine(rate, path)}));
}

void tst_NdiReceiver::readerIsThereFirst()
{
    ReceiverStand stand(smallFormat());
    QVERIFY(stand.ready);
    stand.reader.open(stand.path);
    QVERIFY(stand.reader.couldOpen());
    stand.receiver.start(stand.path);
    QVERIFY(waitUntil([&] { return stand.reader.frames() > 2; }));
    QVERIFY(waitUntil([&] { return stand.log.lines().size() == 2; }));
    QCOMPARE(stand.log.lines(), QStringList({waitingLine(stand.path), pumpLine(u"100.00"_s, stand.path)}));
}

void tst_NdiReceiver::readerComesLater()
{
    ReceiverStand stand(smallFormat());
    QVERIFY(stand.ready);
    stand.receiver.start(stand.path);
    QVERIFY(waitUntil([&] { return stand.log.contains(waitingLine(stand.path)); }));
    QVERIFY(!stand.log.contains(pumpLine(u"100.00"_s, stand.path)));
    stand.reader.open(stand.path);
    QVERIFY(waitUntil([&] { return stand.reader.frames() > 2; }));
    QVERIFY(waitUntil([&] { return stand.log.contains(pumpLine(u"100.00"_s, stand.path)); }));
}

void tst_NdiReceiver::readerNeverComes()
{
    const QString path = freshPipePath();
    NdiReceiver receiver(u"fonte"_s);
    const ReceiverLog log(receiver);
    QVERIFY(receiver.createPipe(path));
    receiver.start(path);
    QVERIFY(waitUntil([&] { return log.contains(waitingLine(path)); }));

    QElapsedTimer clock;
    clock.start();
    receiver.stop();
    QCOMPARE_LT(clock.elapsed(), stopLimitMs);
    QVERIFY(!pipeExists(path));
    const QString ended = u"NDI: ffmpeg não conectou no pipe (err=%1)"_s.arg(waitEndedError());
    QVERIFY(waitUntil([&] { return log.lines().size() == 2; }));
    QCOMPARE(log.lines(), QStringList({waitingLine(path), ended}));
}

void tst_NdiReceiver::startWithoutAPipe()
{
    NdiReceiver receiver(u"fonte"_s);
    const ReceiverLog log(receiver);
    receiver.start(freshPipePath());
    QVERIFY(waitUntil([&] { return !log.lines().isEmpty(); }));
    QCOMPARE(log.lines(), QStringList{u"NDI: named pipe ausente"_s});
}

void tst_NdiReceiver::secondStart()
{
    ReceiverStand stand(smallFormat());
    QVERIFY(stand.ready);
    stand.receiver.start(stand.path);
    QVERIFY(
        waitUntil([&] { return stand.log.contains(waitingLine(stand.path)) && stand.feed.captures() == 1; }));
    stand.receiver.start(u"outro nome"_s);
    stand.reader.open(stand.path);
    QVERIFY(waitUntil([&] { return stand.reader.frames() > 2; }));
    // Lines show the new name from now on; the two threads are the same.
    QVERIFY(waitUntil([&] { return stand.log.lines().size() == 2; }));
    QCOMPARE(stand.log.lines(),
             QStringList({waitingLine(stand.path), pumpLine(u"100.00"_s, u"outro nome"_s)}));
    QCOMPARE(stand.feed.captures(), 1);
}

void tst_NdiReceiver::startOfAPumpThatHasEnded()
{
    const QString path = freshPipePath();
    const FrameFeed feed(smallFormat());
    NdiReceiver receiver(u"fonte"_s);
    const ReceiverLog log(receiver);
    QVERIFY(receiver.probe(3000).valid);
    receiver.start(path);
    QVERIFY(waitUntil([&] { return log.contains(u"NDI: named pipe ausente"_s) && feed.captures() == 1; }));
    QVERIFY(receiver.createPipe(path));
    receiver.start(path);
    receiver.stop();
    QCoreApplication::processEvents();
    QCOMPARE(log.lines(), QStringList{u"NDI: named pipe ausente"_s});
    QCOMPARE(feed.captures(), 0);
}

void tst_NdiReceiver::stopWithNothingToStop()
{
    NdiReceiver receiver(u"fonte"_s);
    const ReceiverLog log(receiver);
    receiver.stop();
    receiver.stop();

    const QString path = freshPipePath();
    QVERIFY(receiver.createPipe(path));
    receiver.start(path);
    QVERIFY(waitUntil([&] { return log.contains(waitingLine(path)); }));
    receiver.stop();
    QVERIFY(waitUntil([&] { return log.lines().size() == 2; }));
    receiver.stop();
    QCoreApplication::processEvents();
    QCOMPARE(log.lines().size(), 2);
    QCOMPARE(receiver.findChildren<QObject *>(), QList<QObject *>());
}

void tst_NdiReceiver::stopAfterThePipeAlone()
{
    const QString path = freshPipePath();
    NdiReceiver receiver(u"fonte"_s);
    const ReceiverLog log(receiver);
    QVERIFY(receiver.createPipe(path));
    receiver.stop();
    QVERIFY(!pipeExists(path));
    QVERIFY(receiver.createPipe(path));
    QCOMPARE(log.lines(), QStringList());
}

void tst_NdiReceiver::stopEndsTheStream()
{
    ReceiverStand stand(smallFormat());
    QVERIFY(stand.ready);
    stand.reader.open(stand.path);
    stand.receiver.start(stand.path);
    QVERIFY(waitUntil([&] { return stand.reader.frames() > 2 && stand.feed.captures() == 1; }));

    QElapsedTimer clock;
    clock.start();
    stand.receiver.stop();
    QCOMPARE_LT(clock.elapsed(), stopLimitMs);
    QVERIFY(waitUntil([&] { return stand.reader.ended(); }));
    QVERIFY(!pipeExists(stand.path));
    QCOMPARE(stand.feed.captures(), 0);
}

void tst_NdiReceiver::stopLetsFrameAndSourceGo()
{
    ReceiverStand stand(smallFormat());
    QVERIFY(stand.ready);
    stand.reader.open(stand.path);
    stand.receiver.start(stand.path);
    const QByteArray frame(smallFrameSize, 'a');
    stand.feed.show(frame);
    QVERIFY(waitUntil([&] { return stand.reader.lastFrame() == frame; }));
    QCOMPARE(stand.feed.sources(), 1);
    QVERIFY(!frame.isDetached()); // the receiver shares its bytes

    stand.receiver.stop();
    QCOMPARE(stand.feed.sources(), 0);
    QVERIFY(frame.isDetached());
}

void tst_NdiReceiver::stopInTheMiddleOfAFrame()
{
    ReceiverStand stand(frameInfo(1920, 1440, 100), 1); // larger than the pipe
    QVERIFY(stand.ready);
    stand.reader.openPaused(stand.path);
    QVERIFY(stand.reader.couldOpen());
    stand.receiver.start(stand.path);
    QVERIFY(waitUntil([&] { return stand.log.contains(pumpLine(u"100.00"_s, stand.path)); }));

    QElapsedTimer clock;
    clock.start();
    stand.receiver.stop();
    QCOMPARE_LT(clock.elapsed(), stopLimitMs);
    QVERIFY(!pipeExists(stand.path));
}

void tst_NdiReceiver::destructorStops_data()
{
    QTest::addColumn<bool>("pipe");
    QTest::addColumn<bool>("started");
    QTest::addColumn<bool>("read");

    QTest::newRow("fresh") << false << false << false;
    QTest::newRow("pipe alone") << true << false << false;
    QTest::newRow("pipe that is being read, not started") << true << false << true;
    QTest::newRow("started without a pipe") << false << true << false;
    QTest::newRow("waiting for its reader") << true << true << false;
    QTest::newRow("on air") << true << true << true;
}

void tst_NdiReceiver::destructorStops()
{
    QFETCH(const bool, pipe);
    QFETCH(const bool, started);
    QFETCH(const bool, read);

    const QString path = freshPipePath();
    const FrameFeed feed(smallFormat());
    PipeReader reader(smallFrameSize);
    auto receiver = std::make_unique<NdiReceiver>(u"fonte"_s);
    QVERIFY(receiver->probe(3000).valid);
    if (pipe)
        QVERIFY(receiver->createPipe(path));
    if (read)
        reader.open(path);
    if (started) {
        receiver->start(path);
        QVERIFY(waitUntil([&] { return feed.captures() == 1 && (!read || reader.frames() > 0); }));
    }
    receiver.reset();
    QCOMPARE(feed.captures(), 0);
    QVERIFY(!pipeExists(path));
    QVERIFY(waitUntil([&] { return reader.ended() == read; }));
}

void tst_NdiReceiver::linesComeOnTheMainThread()
{
    const QString path = freshPipePath();
    NdiReceiver receiver(u"fonte"_s);
    QStringList elsewhere;
    connect(
        &receiver, &NdiReceiver::logLine, &receiver,
        [&](const QString &line) {
            if (QThread::currentThread() == receiver.thread())
                elsewhere << line;
        },
        Qt::DirectConnection);
    QList<QThread *> threads;
    connect(&receiver, &NdiReceiver::logLine, this, [&] { threads << QThread::currentThread(); });
    QVERIFY(receiver.createPipe(path));
    receiver.start(path);
    QVERIFY(waitUntil([&] { return threads.size() == 1; }));
    receiver.stop();
    QVERIFY(waitUntil([&] { return threads.size() == 2; }));
    QCOMPARE(threads, QList<QThread *>(2, thread()));
    QCOMPARE(elsewhere, QStringList()); // both were emitted on the pump's own
}

CORVANE_TEST(tst_NdiReceiver, QCoreApplication)
#include "tst_NdiReceiver.moc"
