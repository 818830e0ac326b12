// The pump frame by frame: a pipe and a clock in the test's hands.

#include "engine/host/Clock.h"
#include "ndi/FramePipe.h"
#include "ndi/NdiReceiver.h"
#include "ndi/ThreadPriority.h"
#include "tests/ndi/FrameFeed.h"
#include "tests/ndi/ReceiverBench.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTest>
#include <QThread>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#ifndef Q_OS_WIN
#include <dlfcn.h>
#endif

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

/// One write of the pump.
struct Written
{
    QByteArray frame;   ///< a copy of the bytes
    bool alone = false; ///< nobody else held the bytes when they were written
};

struct Scene;
Scene *scene = nullptr; ///< of the receiver at work

/// What became of the pipe and of the threads. Each write waits to be let go.
struct Scene
{
    Scene() { scene = this; }
    ~Scene() { scene = nullptr; }
    Q_DISABLE_COPY_MOVE(Scene)

    std::mutex mutex;
    std::condition_variable changed;
    bool open = false;
    QList<Written> written;
    qsizetype let = 0;       ///< writes that may return
    QStringList steps;       ///< of the pump's thread, in their order
    QThread *pump = nullptr; ///< the thread that was made time-critical
    QList<QThread *> started;
    QList<int> priorities;
};

std::atomic<qint64> clockMs = 0;

} // namespace

// Replacements that the receiver calls: the library's own don't come into the program.

qint64 corvane::nowMs()
{
    return clockMs;
}

void corvane::makeThreadTimeCritical()
{
    const std::lock_guard lock(scene->mutex);
    scene->pump = QThread::currentThread();
    scene->steps << u"time-critical"_s;
}

QString corvane::framePipePath(const QString &id)
{
    return u"pipe of "_s + id;
}

struct FramePipe::Native
{
};

FramePipe::FramePipe() = default;

FramePipe::~FramePipe() = default;

quint32 FramePipe::create(const QString & /*path*/)
{
    const std::lock_guard lock(scene->mutex);
    scene->open = true;
    return 0;
}

bool FramePipe::isOpen() const
{
    const std::lock_guard lock(scene->mutex);
    scene->steps << u"looks for the pipe"_s;
    return scene->open;
}

quint32 FramePipe::waitForReader()
{
    const std::lock_guard lock(scene->mutex);
    scene->steps << u"waits for the reader"_s;
    return 0;
}

bool FramePipe::write(const QByteArray &frame)
{
    std::unique_lock lock(scene->mutex);
    scene->written.append({QByteArray(frame.constData(), frame.size()), frame.isDetached()});
    scene->changed.notify_all();
    const qsizetype number = scene->written.size();
    scene->changed.wait(lock, [&] { return number <= scene->let || !scene->open; });
    return scene->open;
}

void FramePipe::close()
{
    const std::lock_guard lock(scene->mutex);
    scene->open = false;
    scene->changed.notify_all();
}

#ifndef Q_OS_WIN
// A program's symbols come before those of the libraries that it is linked to.
void QThread::start(Priority priority)
{
    if (scene) {
        const std::lock_guard lock(scene->mutex);
        scene->started << this;
        scene->priorities << priority;
    }
    using Start = void (*)(QThread *, Priority);
    static const auto real = reinterpret_cast<Start>(dlsym(RTLD_NEXT, "_ZN7QThread5startENS_8PriorityE"));
    real(this, priority);
}
#endif

namespace {

const QString freezeWords = u"NDI: fonte sem frames novos — freeze"_s;

/// A receiver whose pump waits in its first write.
class Pumping
{
    Scene m_scene; // outlives the receiver

public:
    explicit Pumping(const NdiFrameInfo &info, bool probed = true)
        : feed(info)
    {
        if (probed && !receiver.probe(3000).valid)
            return;
        ready = receiver.createPipe(u"pipe"_s);
        receiver.start(u"pipe"_s);
        ready = ready && waitForWrite(1);
    }
    /// Lets the pump go on to its next write, and returns that.
    Written next()
    {
        qsizetype number = 0;
        {
            const std::lock_guard lock(m_scene.mutex);
            number = ++m_scene.let;
            m_scene.changed.notify_all();
        }
        return waitForWrite(number + 1) ? last() : Written{};
    }

    /// The source delivers `frame`, which the receiver has by the end of the call.
    bool show(const QByteArray &frame)
    {
        feed.show(frame);
        return waitUntil([&] { return feed.waiting() == 0; });
    }

    [[nodiscard]] Written last()
    {
        const std::lock_guard lock(m_scene.mutex);
        return m_scene.written.constLast();
    }

    template <class Part>
    [[nodiscard]] Part seen(Part Scene::*part)
    {
        const std::lock_guard lock(m_scene.mutex);
        return m_scene.*part;
    }

    FrameFeed feed;
    NdiReceiver receiver{u"fonte"_s};
    const ReceiverLog log{receiver};
    bool ready = false;

private:
    bool waitForWrite(qsizetype number)
    {
        std::unique_lock lock(m_scene.mutex);
        return m_scene.changed.wait_for(lock, std::chrono::seconds(20),
                                        [&] { return m_scene.written.size() >= number; });
    }
};

} // namespace

class tst_NdiPump : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { clockMs = 1'800'000'000'000; }
    void slate_data();
    void slate();
    void slateIsMadeForEachWrite();
    void frameIsShared();
    void freezeToTheMillisecond();
    void pumpIsTimeCriticalFromItsFirstStep();
#ifndef Q_OS_WIN
    void captureStartsBeforeThePump();
#endif
};

void tst_NdiPump::slate_data()
{
    QTest::addColumn<bool>("probed");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<qsizetype>("size");

    QTest::newRow("never probed") << false << 0 << 0 << qsizetype(4'147'200);
    QTest::newRow("small") << true << 16 << 4 << qsizetype(128);
    QTest::newRow("odd") << true << 17 << 3 << qsizetype(102);
    QTest::newRow("720p") << true << 1280 << 720 << qsizetype(1'843'200);
    QTest::newRow("no width") << true << 0 << 2 << qsizetype(7680);
    QTest::newRow("no height") << true << 2 << 0 << qsizetype(4320);
}

void tst_NdiPump::slate()
{
    QFETCH(const bool, probed);
    QFETCH(const int, width);
    QFETCH(const int, height);
    QFETCH(const qsizetype, size);

    Pumping pumping(frameInfo(width, height, 1000), probed);
    QVERIFY(pumping.ready);
    QCOMPARE(pumping.last().frame, QByteArray(size, '\x80'));
    QCOMPARE(pumping.next().frame, QByteArray(size, '\x80'));
}

void tst_NdiPump::slateIsMadeForEachWrite()
{
    Pumping pumping(frameInfo(16, 4, 1000));
    QVERIFY(pumping.ready);
    QVERIFY(pumping.last().alone);
    for (int write = 2; write <= 5; ++write)
        QVERIFY(pumping.next().alone); // none is kept between
}

void tst_NdiPump::frameIsShared()
{
    const QByteArray frame(smallFrameSize, 'a');
    Pumping pumping(frameInfo(16, 4, 1000));
    QVERIFY(pumping.ready);
    QVERIFY(pumping.show(frame));
    const Written written = pumping.next();
    QCOMPARE(written.frame, frame);
    QVERIFY(!written.alone); // no pixel is copied
}

void tst_NdiPump::freezeToTheMillisecond()
{
    Pumping pumping(frameInfo(16, 4, 1000));
    QVERIFY(pumping.ready);
    const auto freezes = [&] {
        QCoreApplication::processEvents();
        return pumping.log.count(freezeWords);
    };

    for (int freeze = 1; freeze <= 2; ++freeze) {
        const QByteArray frame(smallFrameSize, static_cast<char>('a' + freeze));
        QVERIFY(pumping.show(frame));
        for (const int age : {0, 1000, 1}) {
            clockMs += age;
            QCOMPARE(pumping.next().frame, frame);
            QCOMPARE(freezes(), age == 1 ? freeze : freeze - 1);
        }
        clockMs += 60000;
        QCOMPARE(pumping.next().frame, frame);
        QCOMPARE(freezes(), freeze);
    }
}

void tst_NdiPump::pumpIsTimeCriticalFromItsFirstStep()
{
    QThread *pump = nullptr;
    {
        Pumping pumping(frameInfo(16, 4, 1000));
        connect(
            &pumping.receiver, &NdiReceiver::logLine, &pumping.receiver,
            [&] { pump = QThread::currentThread(); }, Qt::DirectConnection);
        QVERIFY(pumping.ready);
        QCOMPARE(pumping.seen(&Scene::steps),
                 QStringList({u"time-critical"_s, u"looks for the pipe"_s, u"waits for the reader"_s}));
        QVERIFY(pumping.show(QByteArray(smallFrameSize, 'a')));
        pumping.next();
        clockMs += 5000;
        pumping.next(); // of a freeze, with its line
        QVERIFY(pumping.seen(&Scene::pump) != QThread::currentThread());
        QCOMPARE(pumping.seen(&Scene::pump), pump);
    }
}

#ifndef Q_OS_WIN
void tst_NdiPump::captureStartsBeforeThePump()
{
    Pumping pumping(frameInfo(16, 4, 1000));
    QVERIFY(pumping.ready);
    const QList<QThread *> started = pumping.seen(&Scene::started);
    QCOMPARE(started.size(), 2);
    QVERIFY(started.at(0) != pumping.seen(&Scene::pump));
    QCOMPARE(started.at(1), pumping.seen(&Scene::pump));
    QCOMPARE(pumping.seen(&Scene::priorities),
             QList<int>({QThread::InheritPriority, QThread::InheritPriority}));
}
#endif

CORVANE_TEST(tst_NdiPump, QCoreApplication)
#include "tst_NdiPump.moc"
