#include "ndi/NdiReceiver.h"
#include "tests/ndi/FrameFeed.h"
#include "tests/ndi/PipeReader.h"
#include "tests/ndi/ReceiverBench.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTest>

#include <functional>
#include <new>
#include <stdexcept>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

using Thrower = std::function<void()>;
Q_DECLARE_METATYPE(Thrower)

namespace {

const QString readerGone = u"NDI: pipe fechado pelo leitor (ffmpeg) — encerrando pump"_s;

void addThrowers()
{
    QTest::addColumn<Thrower>("thrower");
    QTest::addColumn<QString>("words");

    QTest::newRow("exception") << Thrower([] { throw std::runtime_error("sem sinal"); })
                               << u"exceção: sem sinal"_s;
    QTest::newRow("its text is UTF-8")
        << Thrower([] { throw std::runtime_error("câmera caiu — %1"); }) << u"exceção: câmera caiu — %1"_s;
    QTest::newRow("of the system") << Thrower([] { throw std::bad_alloc(); }) << u"exceção: std::bad_alloc"_s;
    QTest::newRow("number") << Thrower([] { throw 42; }) << u"exceção desconhecida"_s;
    QTest::newRow("text that is no exception")
        << Thrower([] { throw "sem sinal"; }) << u"exceção desconhecida"_s;
}

} // namespace

/// Failures beside and behind the pump.
class tst_NdiReceiverFailures : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void captureThrows_data() { addThrowers(); }
    void captureThrows();
    void pumpThrows_data() { addThrowers(); }
    void pumpThrows();
    void readerGoesAway();
    void readerGoesAwayInTheMiddleOfAFrame();
};

void tst_NdiReceiverFailures::captureThrows()
{
    QFETCH(const Thrower, thrower);
    QFETCH(const QString, words);

    const QString path = freshPipePath();
    FrameFeed feed(frameInfo(16, 4, 100));
    PipeReader reader(smallFrameSize);
    NdiReceiver receiver(u"fonte"_s);
    const ReceiverLog log(receiver);
    QVERIFY(receiver.probe(3000).valid);
    QVERIFY(receiver.createPipe(path));
    reader.open(path);
    receiver.start(path);
    feed.show(QByteArray(smallFrameSize, 'a'));
    QVERIFY(waitUntil([&] { return reader.lastFrame() == QByteArray(smallFrameSize, 'a'); }));

    feed.failWith(thrower);
    QVERIFY(waitUntil([&] { return log.contains("NDI cap: "_L1 + words); }));
    QCOMPARE(feed.captures(), 0);
    // The reader gets a freeze, and no other sign of it.
    QVERIFY(waitUntil([&] { return log.contains(u"NDI: fonte sem frames novos — freeze"_s); }));
    const qsizetype before = reader.frames();
    QVERIFY(waitUntil([&] { return reader.frames() > before + 10; }));
    QCOMPARE(reader.lastFrame(), QByteArray(smallFrameSize, 'a'));
    QCOMPARE(log.lines().size(), 4);

    receiver.stop();
    QVERIFY(waitUntil([&] { return reader.ended(); }));
}

void tst_NdiReceiverFailures::pumpThrows()
{
    QFETCH(const Thrower, thrower);
    QFETCH(const QString, words);

    const QString path = freshPipePath();
    const FrameFeed feed(frameInfo(16, 4, 100));
    PipeReader reader(smallFrameSize);
    NdiReceiver receiver(u"fonte"_s);
    const ReceiverLog log(receiver);
    // Any slot on the pump's thread may throw: here, one that receives its lines.
    connect(
        &receiver, &NdiReceiver::logLine, &receiver,
        [&](const QString &line) {
            if (line.startsWith("NDI: pump @"_L1))
                thrower();
        },
        Qt::DirectConnection);
    QVERIFY(receiver.probe(3000).valid);
    QVERIFY(receiver.createPipe(path));
    reader.open(path);
    receiver.start(path);
    QVERIFY(waitUntil([&] { return log.contains("NDI pump: "_L1 + words); }));
    QVERIFY(waitUntil([&] { return feed.captures() == 1; })); // goes on

    // The receiver counts as started until it is stopped.
    const QStringList lines = log.lines();
    receiver.start(path);
    receiver.stop();
    QCoreApplication::processEvents();
    QCOMPARE(log.lines(), lines);
    QCOMPARE(reader.frames(), 0);
    QCOMPARE(feed.captures(), 0);
}

void tst_NdiReceiverFailures::readerGoesAway()
{
    const QString path = freshPipePath();
    const FrameFeed feed(frameInfo(16, 4, 100));
    PipeReader reader(smallFrameSize);
    NdiReceiver receiver(u"fonte"_s);
    const ReceiverLog log(receiver);
    QVERIFY(receiver.probe(3000).valid);
    QVERIFY(receiver.createPipe(path));
    reader.open(path);
    receiver.start(path);
    QVERIFY(waitUntil([&] { return reader.frames() > 2; }));
    reader.close();
    QVERIFY(waitUntil([&] { return log.contains(readerGone); }));
    QCOMPARE(feed.captures(), 1);

    // The receiver counts as started until it is stopped, and its pipe stays.
    const QStringList lines = log.lines();
    QVERIFY(pipeExists(path));
    receiver.start(path);
    receiver.stop();
    QCoreApplication::processEvents();
    QCOMPARE(log.lines(), lines);
    QCOMPARE(lines.constLast(), readerGone);
    QCOMPARE(lines.size(), 3);
    QVERIFY(!pipeExists(path));
}

void tst_NdiReceiverFailures::readerGoesAwayInTheMiddleOfAFrame()
{
    const QString path = freshPipePath();
    const FrameFeed feed(frameInfo(1920, 1440, 100)); // larger than the pipe
    PipeReader reader(1000);
    NdiReceiver receiver(u"fonte"_s);
    const ReceiverLog log(receiver);
    QVERIFY(receiver.probe(3000).valid);
    QVERIFY(receiver.createPipe(path));
    reader.openPaused(path);
    QVERIFY(reader.couldOpen());
    receiver.start(path);
    QVERIFY(waitUntil([&] { return log.lines().size() == 2; }));
    reader.close();
    QVERIFY(waitUntil([&] { return log.contains(readerGone); }));
}

CORVANE_TEST(tst_NdiReceiverFailures, QCoreApplication)
#include "tst_NdiReceiverFailures.moc"
