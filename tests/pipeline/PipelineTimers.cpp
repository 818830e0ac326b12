#include "tests/pipeline/PipelineTimers.h"

#include <QAbstractEventDispatcher>
#include <QMetaObject>
#include <QProcess>
#include <QTimer>

namespace corvane::test {

namespace {

QTimer *timerOf(const Pipeline &pipeline, int interval)
{
    const auto timers = pipeline.findChildren<QTimer *>(Qt::FindDirectChildrenOnly);
    for (QTimer *timer : timers) {
        if (timer->interval() == interval)
            return timer;
    }
    return nullptr;
}

} // namespace

QTimer *hangTimer(const Pipeline &pipeline)
{
    return timerOf(pipeline, 2000);
}

QTimer *qualityTimer(const Pipeline &pipeline)
{
    return timerOf(pipeline, 1000);
}

void fire(QTimer &timer)
{
    QMetaObject::invokeMethod(&timer, "timeout", Qt::DirectConnection);
}

bool endRun(const Pipeline &pipeline)
{
    const auto processes = pipeline.findChildren<QProcess *>(Qt::FindDirectChildrenOnly);
    return !processes.isEmpty() && processes.constLast()->waitForFinished(60000);
}

QList<int> pendingShots()
{
    // QTimer::singleShot() makes an object of its own, which belongs to the thread's dispatcher.
    QAbstractEventDispatcher *dispatcher = QAbstractEventDispatcher::instance();
    QList<int> intervals;
    const auto objects = dispatcher->findChildren<QObject *>(Qt::FindDirectChildrenOnly);
    for (QObject *object : objects) {
        if (!object->inherits("QSingleShotTimer"))
            continue;
        const auto timers = dispatcher->registeredTimers(object);
        for (const QAbstractEventDispatcher::TimerInfo &timer : timers)
            intervals << timer.interval;
    }
    return intervals;
}

} // namespace corvane::test
