#include "tests/ndi/FrameFeed.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace corvane::test {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

struct FrameFeed::State
{
    std::mutex mutex;
    std::condition_variable changed;
    NdiFrameInfo info;
    std::deque<QByteArray> frames;
    std::function<void()> thrower;
    QStringList probes;
    int delivering = 0;
    int captures = 0;
    int sources = 0;
};

class FrameFeed::Source : public FrameSource
{
public:
    Source(QString name, std::shared_ptr<State> state)
        : m_name(std::move(name))
        , m_state(std::move(state))
    {
        const std::lock_guard lock(m_state->mutex);
        ++m_state->sources;
    }

    ~Source() override
    {
        const std::lock_guard lock(m_state->mutex);
        --m_state->sources;
    }

    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;

    NdiFrameInfo probe(int timeoutMs) override
    {
        const std::lock_guard lock(m_state->mutex);
        m_state->probes << u"%1 %2"_s.arg(m_name, QString::number(timeoutMs));
        return m_state->info;
    }

    void capture(const std::atomic<bool> &running, const Deliver &deliver) override
    {
        std::unique_lock lock(m_state->mutex);
        ++m_state->captures;
        while (running) {
            if (m_state->thrower) {
                --m_state->captures;
                std::exchange(m_state->thrower, nullptr)();
            }
            if (m_state->frames.empty()) {
                m_state->changed.wait_for(lock, 5ms);
                continue;
            }
            QByteArray frame = std::move(m_state->frames.front());
            m_state->frames.pop_front();
            m_state->delivering = 1;
            lock.unlock();
            deliver(std::move(frame));
            lock.lock();
            m_state->delivering = 0;
        }
        --m_state->captures;
    }

private:
    QString m_name;
    std::shared_ptr<State> m_state;
};

FrameFeed::FrameFeed(const NdiFrameInfo &info)
    : m_state(std::make_shared<State>())
{
    m_state->info = info;
    setFrameSourceFactory(
        [state = m_state](const QString &sourceName) { return std::make_unique<Source>(sourceName, state); });
}

FrameFeed::~FrameFeed()
{
    setFrameSourceFactory({});
}

void FrameFeed::setInfo(const NdiFrameInfo &info)
{
    const std::lock_guard lock(m_state->mutex);
    m_state->info = info;
}

void FrameFeed::show(const QByteArray &frame)
{
    const std::lock_guard lock(m_state->mutex);
    m_state->frames.push_back(frame);
    m_state->changed.notify_one();
}

void FrameFeed::failWith(std::function<void()> thrower)
{
    const std::lock_guard lock(m_state->mutex);
    m_state->thrower = std::move(thrower);
    m_state->changed.notify_one();
}

QStringList FrameFeed::probes() const
{
    const std::lock_guard lock(m_state->mutex);
    return m_state->probes;
}

qsizetype FrameFeed::waiting() const
{
    const std::lock_guard lock(m_state->mutex);
    return static_cast<qsizetype>(m_state->frames.size()) + m_state->delivering;
}

int FrameFeed::captures() const
{
    const std::lock_guard lock(m_state->mutex);
    return m_state->captures;
}

int FrameFeed::sources() const
{
    const std::lock_guard lock(m_state->mutex);
    return m_state->sources;
}

NdiFrameInfo frameInfo(int width, int height, int frameRateN, int frameRateD)
{
    NdiFrameInfo info;
    info.width = width;
    info.height = height;
    info.frameRateN = frameRateN;
    info.frameRateD = frameRateD;
    info.valid = true;
    return info;
}

} // namespace corvane::test
