#include "tests/ndi/PipeReader.h"

#include <QFile>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace corvane::test {

namespace {

constexpr qsizetype largestRead = 0x40000;

} // namespace

struct PipeReader::State
{
    qsizetype frameSize = 0;
    std::atomic<bool> closing = false;
    bool opened = false;

    mutable std::mutex mutex;
    std::condition_variable changed;
    bool paused = false;
    bool ended = false;
    qsizetype frames = 0;
    QByteArray part;
    std::vector<FrameRun> runs; // one that isn't shared: a reader's copy is its own
    std::thread thread;

    void read(QFile &pipe)
    {
        QByteArray chunk(std::min(frameSize, largestRead), Qt::Uninitialized);
        while (!closing) {
            {
                std::unique_lock lock(mutex);
                changed.wait(lock, [this] { return !paused || closing; });
            }
            const qint64 size = pipe.read(chunk.data(), chunk.size());
            if (size <= 0)
                break;
            const std::lock_guard lock(mutex);
            part.append(chunk.constData(), size);
            while (part.size() >= frameSize)
                take();
        }
        pipe.close();
        const std::lock_guard lock(mutex);
        ended = true;
    }

    void take()
    {
        const QByteArray frame = part.first(frameSize);
        part.remove(0, frameSize);
        ++frames;
        if (runs.empty() || runs.back().frame != frame)
            runs.push_back({frame, 0});
        ++runs.back().count;
    }
};

PipeReader::PipeReader(qsizetype frameSize)
    : m_state(std::make_unique<State>())
{
    m_state->frameSize = frameSize;
}

PipeReader::~PipeReader()
{
    close();
    if (m_state->thread.joinable())
        m_state->thread.join();
}

void PipeReader::open(const QString &path)
{
    auto pipe = std::make_unique<QFile>(path);
    m_state->opened = pipe->open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    if (m_state->opened)
        m_state->thread = std::thread([this, pipe = std::move(pipe)] { m_state->read(*pipe); });
}

void PipeReader::openPaused(const QString &path)
{
    m_state->paused = true;
    open(path);
}

void PipeReader::resume()
{
    const std::lock_guard lock(m_state->mutex);
    m_state->paused = false;
    m_state->changed.notify_one();
}

void PipeReader::close()
{
    m_state->closing = true;
    resume();
}

bool PipeReader::couldOpen() const
{
    return m_state->opened;
}

bool PipeReader::ended() const
{
    const std::lock_guard lock(m_state->mutex);
    return m_state->ended;
}

qsizetype PipeReader::frames() const
{
    const std::lock_guard lock(m_state->mutex);
    return m_state->frames;
}

qsizetype PipeReader::leftover() const
{
    const std::lock_guard lock(m_state->mutex);
    return m_state->part.size();
}

QList<FrameRun> PipeReader::runs() const
{
    const std::lock_guard lock(m_state->mutex);
    return {m_state->runs.cbegin(), m_state->runs.cend()};
}

QByteArray PipeReader::lastFrame() const
{
    const std::lock_guard lock(m_state->mutex);
    return m_state->runs.empty() ? QByteArray() : m_state->runs.back().frame;
}

} // namespace corvane::test
