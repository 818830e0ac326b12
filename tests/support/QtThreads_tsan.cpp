// Replacement of QThread::create() for builds under ThreadSanitizer. Qt's libraries aren't instrumented, so
// that ThreadSanitizer can't see the order of a thread's work after its start and before its end: all of it
// would look like a race. The threads made here report that order.

#include <QThread>

#include <sanitizer/tsan_interface.h>

#include <future>
#include <utility>

namespace {

class OrderedThread : public QThread
{
public:
    explicit OrderedThread(std::future<void> &&work)
        : m_work(std::move(work))
    {
    }

    ~OrderedThread() override
    {
        if (isFinished())
            __tsan_acquire(this);
    }

private:
    void run() override
    {
        __tsan_acquire(this);
        m_work.get();
        __tsan_release(this);
    }

    std::future<void> m_work;
};

} // namespace

QThread *QThread::createThreadImpl(std::future<void> &&future)
{
    QThread *const thread = new OrderedThread(std::move(future));
    __tsan_release(thread);
    return thread;
}
