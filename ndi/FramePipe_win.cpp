#include "ndi/FramePipe.h"

#include <windows.h>

#include <atomic>
#include <mutex>

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

constexpr DWORD bufferSize = 0x400000;
constexpr ULONGLONG patienceMs = 3000;

} // namespace

QString framePipePath(const QString &id)
{
    return uR"(\\.\pipe\corvane-ndi-%1)"_s.arg(id);
}

struct FramePipe::Native
{
    mutable std::mutex use; ///< guards the handle
    std::atomic<bool> closing = false;
    std::atomic<HANDLE> caller = nullptr; ///< thread that waits for the reader and writes
    HANDLE pipe = nullptr;                ///< null when closed

    /// Registers the calling thread for endCalls().
    void becomeCaller()
    {
        if (!caller)
            caller = OpenThread(THREAD_TERMINATE, FALSE, GetCurrentThreadId());
    }

    /// Ends the call that another thread has under way in the pipe and returns the lock on the handle; an
    /// empty lock after three seconds. Disconnecting a synchronous pipe would wait for that call. The
    /// cancellation is repeated, as it misses a call that is only just entering the system.
    std::unique_lock<std::mutex> endCalls()
    {
        std::unique_lock lock(use, std::try_to_lock);
        const ULONGLONG deadline = GetTickCount64() + patienceMs;
        while (!lock && GetTickCount64() <= deadline) {
            if (const HANDLE thread = caller)
                CancelSynchronousIo(thread);
            Sleep(1);
            if (lock.try_lock())
                break;
        }
        return lock;
    }
};

FramePipe::FramePipe()
    : m_native(std::make_unique<Native>())
{
}

FramePipe::~FramePipe()
{
    close();
}

quint32 FramePipe::create(const QString &path)
{
    close();
    const std::lock_guard use(m_native->use);
    m_native->closing = false;
    const HANDLE pipe = CreateNamedPipeA(path.toUtf8().constData(), PIPE_ACCESS_OUTBOUND, 0, 1, bufferSize,
                                         bufferSize, 0, nullptr);
    if (pipe == INVALID_HANDLE_VALUE)
        return GetLastError();
    m_native->pipe = pipe;
    return 0;
}

bool FramePipe::isOpen() const
{
    const std::lock_guard use(m_native->use);
    return m_native->pipe != nullptr;
}

quint32 FramePipe::waitForReader()
{
    const std::lock_guard use(m_native->use);
    if (m_native->closing || !m_native->pipe)
        return ERROR_OPERATION_ABORTED;
    m_native->becomeCaller();
    if (ConnectNamedPipe(m_native->pipe, nullptr))
        return 0;
    const DWORD error = GetLastError();
    return error == ERROR_PIPE_CONNECTED ? 0 : error;
}

bool FramePipe::write(const QByteArray &frame)
{
    const std::lock_guard use(m_native->use);
    if (m_native->closing || !m_native->pipe)
        return false;
    m_native->becomeCaller();
    DWORD written = 0;
    return WriteFile(m_native->pipe, frame.constData(), static_cast<DWORD>(frame.size()), &written,
                     nullptr) != 0;
}

void FramePipe::close()
{
    m_native->closing = true;
    const std::unique_lock use = m_native->endCalls();
    if (m_native->pipe) {
        DisconnectNamedPipe(m_native->pipe);
        CloseHandle(m_native->pipe);
        m_native->pipe = nullptr;
    }
    if (const HANDLE thread = m_native->caller.exchange(nullptr))
        CloseHandle(thread);
}

} // namespace corvane
