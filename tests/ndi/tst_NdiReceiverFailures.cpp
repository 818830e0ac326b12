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

    ReceiverStand stand(frameInfo(16, 4, 100));
    QVERIFY(stand.ready);
    stand.reader.open(stand.path);
    stand.receiver.start(stand.path);
    stand.feed.show(QByteArray(smallFrameSize, 'a'));
    QVERIFY(waitUntil([&] { return stand.reader.lastFrame() == QByteArray(smallFrameSize, 'a'); }));

    stand.feed.failWith(thrower);
    QVERIFY(waitUntil([&] { return stand.log.contains("NDI cap: "_L1 + words); }));
    QCOMPARE(stand.feed.captures(), 0);
    // The reader gets a freeze, and no other sign of it.
    QVERIFY(waitUntil([&] { return stand.log.contains(u"NDI: fonte sem frames novos — freeze"_s); }));
    const qsizetype before = stand.reader.frames();
    QVERIFY(waitUntil([&] { return stand.reader.frames() > before + 10; }));
    QCOMPARE(stand.reader.lastFrame(), QByteArray(smallFrameSize, 'a'));
    QCOMPARE(stand.log.lines().size(), 4);

    stand.receiver.stop();
    QVERIFY(waitUntil([&] { return stand.reader.ended(); }));
}

void tst_NdiReceiverFailures::pumpThrows()
{
    QFETCH(const Thrower, thrower);
    QFETCH(const QString, words);

    ReceiverStand stand(frameInfo(16, 4, 100));
    // Any slot on the pump's thread may throw: here, one that receives its lines.
    connect(
        &stand.receiver, &NdiReceiver::logLine, &stand.receiver,
        [&](const QString &line) {
            if (line.startsWith("NDI: pump @"_L1))
                thrower();
        },
        Qt::DirectConnection);
    QVERIFY(stand.ready);
    stand.reader.open(stand.path);
    stand.receiver.start(stand.path);
    QVERIFY(waitUntil([&] { return stand.log.contains("NDI pump: "_L1 + words); }));
    QVERIFY(waitUntil([&] { return stand.feed.captures() == 1; })); // goes on

    // The receiver counts as started until it is stopped.
    const QStringList lines = stand.log.lines();
    stand.receiver.start(stand.path);
    stand.receiver.stop();
    QCoreApplication::processEvents();
    QCOMPARE(stand.log.lines(), lines);
    QCOMPARE(stand.reader.frames(), 0);
    QCOMPARE(stand.feed.captures(), 0);
}

void tst_NdiReceiverFailures::readerGoesAway()
{
    ReceiverStand stand(frameInfo(16, 4, 100));
    QVERIFY(stand.ready);
    stand.reader.open(stand.path);
    stand.receiver.start(stand.path);
    QVERIFY(waitUntil([&] { return stand.reader.frames() > 2; }));
    stand.reader.close();
    QVERIFY(waitUntil([&] { return stand.log.contains(readerGone); }));
    QCOMPARE(stand.feed.captures(), 1);

    // The receiver counts as started until it is stopped, and its pipe stays.
    const QStringList lines = stand.log.lines();
    QVERIFY(pipeExists(stand.path));
    stand.receiver.start(stand.path);
    stand.receiver.stop();
    QCoreApplication::processEvents();
    QCOMPARE(stand.log.lines(), lines);
    QCOMPARE(lines.constLast(), readerGone);
    QCOMPARE(lines.size(), 3);
    QVERIFY(!pipeExists(stand.path));
}

void tst_NdiReceiverFailures::readerGoesAwayInTheMiddleOfAFrame()
{
    ReceiverStand stand(frameInfo(1920, 1440, 100), 1000); // larger than the pipe
    QVERIFY(stand.ready);
    stand.reader.openPaused(stand.path);
    QVERIFY(stand.reader.couldOpen());
    stand.receiver.start(stand.path);
    QVERIFY(waitUntil([&] { return stand.log.lines().size() == 2; }));
    stand.reader.close();
    QVERIFY(waitUntil([&] { return stand.log.contains(readerGone); }));
}

CORVANE_TEST(tst_NdiReceiverFailures, QCoreApplication)
#include "tst_NdiReceiverFailures.moc"
