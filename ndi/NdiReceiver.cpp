#include "ndi/NdiReceiver.h"

#include "engine/host/Clock.h"
#include "ndi/FrameSource.h"
#include "ndi/PumpPacing.h"
#include "ndi/ThreadPriority.h"

#include <QMutexLocker>
#include <QThread>

#include <exception>
#include <utility>

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

constexpr unsigned long joinTimeoutMs = 3000;
constexpr char slateByte = '\x80'; // mid-grey luma, neutral chroma

void endThread(QThread *&thread)
{
    if (!thread)
        return;
    thread->quit();
    thread->wait(joinTimeoutMs);
    delete thread;
    thread = nullptr;
}

} // namespace

NdiReceiver::NdiReceiver(QString sourceName, QObject *parent)
    : QObject(parent)
    , m_sourceName(std::move(sourceName))
{
}

NdiReceiver::~NdiReceiver()
{
    stop();
}

NdiFrameInfo NdiReceiver::probe(int timeoutMs)
{
    m_source = makeFrameSource(m_sourceName);
    if (!m_source)
        return {};
    const NdiFrameInfo info = m_source->probe(timeoutMs);
    if (info.valid) {
        m_frameInfo = info;
        m_frameStride = 2 * info.width;
    }
    return info;
}

bool NdiReceiver::createPipe(const QString &pipeName)
{
    setPipeName(pipeName);
    const quint32 error = m_pipe.create(pipeName);
    if (error == 0)
        return true;
    Q_EMIT logLine(u"NDI: falha ao criar named pipe %1 (err=%2)"_s.arg(pipeName, QString::number(error)));
    return false;
}

void NdiReceiver::start(const QString &pipeName)
{
    setPipeName(pipeName);
    if (m_running.exchange(true))
        return;
    m_captureThread = QThread::create([this] { guarded(u"NDI cap"_s, [this] { captureLoop(); }); });
    m_pumpThread = QThread::create([this] { guarded(u"NDI pump"_s, [this] { pumpLoop(); }); });
    m_captureThread->start();
    m_pumpThread->start();
}

void NdiReceiver::stop()
{
    m_running = false;
    // The pipe is closed first: the pump may be waiting for its reader.
    m_pipe.close();
    endThread(m_captureThread);
    endThread(m_pumpThread);
    // A receiver outlives its run where ffmpeg is restarted automatically; what is large or connected
    // doesn't.
    m_source.reset();
    m_lastFrame.clear();
    m_lastFrameMs = 0;
}

QString NdiReceiver::pipeName() const
{
    const QMutexLocker lock(&m_pipeNameMutex);
    return m_pipeName;
}

void NdiReceiver::setPipeName(const QString &pipeName)
{
    const QMutexLocker lock(&m_pipeNameMutex);
    m_pipeName = pipeName;
}

void NdiReceiver::guarded(const QString &where, const std::function<void()> &body)
{
    try {
        body();
    } catch (const std::exception &error) {
        Q_EMIT logLine(u"%1: exceção: %2"_s.arg(where, QString::fromUtf8(error.what())));
    } catch (...) {
        Q_EMIT logLine(where + u": exceção desconhecida"_s);
    }
}

void NdiReceiver::captureLoop()
{
    if (m_source)
        m_source->capture(m_running, [this](QByteArray frame) { keep(std::move(frame)); });
}

void NdiReceiver::keep(QByteArray frame)
{
    if (frame.size() != qsizetype(2) * m_frameInfo.width * m_frameInfo.height)
        return;
    {
        const QMutexLocker lock(&m_frameMutex);
        m_lastFrame.swap(frame); // the former one is freed outside the lock
    }
    m_lastFrameMs = nowMs();
}

QByteArray NdiReceiver::newestFrame()
{
    const QMutexLocker lock(&m_frameMutex);
    return m_lastFrame;
}

void NdiReceiver::pumpLoop()
{
    makeThreadTimeCritical();
    const PumpRate rate = pumpRate(m_frameInfo);

    if (!m_pipe.isOpen()) {
        Q_EMIT logLine(u"NDI: named pipe ausente"_s);
        return;
    }
    Q_EMIT logLine("NDI: aguardando ffmpeg conectar no pipe "_L1 + pipeName());
    if (const quint32 error = m_pipe.waitForReader(); error != 0) {
        Q_EMIT logLine(u"NDI: ffmpeg não conectou no pipe (err=%1)"_s.arg(error));
        return;
    }
    Q_EMIT logLine(u"NDI: pump @ %1 fps (last-good/slate) -> %2"_s.arg(QString::number(rate.reported, 'f', 2),
                                                                       pipeName()));
    pumpFrames(pumpIntervalMs(rate.paced));
}

void NdiReceiver::pumpFrames(int intervalMs)
{
    FreezeRule freeze;
    while (m_running) {
        const qint64 tickStart = nowMs();
        QByteArray frame = newestFrame();
        const qint64 lastFrameMs = m_lastFrameMs;
        if (frame.isEmpty() || lastFrameMs == 0)
            frame = QByteArray(slateSize(m_frameInfo, m_frameStride), slateByte);
        else if (freeze.begins(tickStart, lastFrameMs))
            Q_EMIT logLine(u"NDI: fonte sem frames novos — freeze"_s);

        if (!m_pipe.write(frame)) {
            Q_EMIT logLine(u"NDI: pipe fechado pelo leitor (ffmpeg) — encerrando pump"_s);
            return;
        }
        if (const int sleep = pumpSleepMs(intervalMs, tickStart, nowMs()); sleep > 0)
            QThread::msleep(static_cast<unsigned long>(sleep));
    }
}

} // namespace corvane
