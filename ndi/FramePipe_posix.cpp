#include "ndi/FramePipe.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <mutex>

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

constexpr int wantedCapacity = 0x400000;
constexpr int usualCapacity = 0x10000;
constexpr int readerCheckMs = 10;

/// Blocks SIGPIPE in the calling thread: a write to a pipe without a reader then fails instead of ending the
/// process.
void keepBrokenPipeHarmless()
{
    thread_local const bool blocked = [] {
        sigset_t brokenPipe;
        sigemptyset(&brokenPipe);
        sigaddset(&brokenPipe, SIGPIPE);
        return pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr) == 0;
    }();
    (void)blocked;
}

void closeDescriptor(int &descriptor)
{
    if (descriptor >= 0)
        ::close(descriptor);
    descriptor = -1;
}

/// Sets the largest capacity that the system grants, which for an ordinary user is often less than wanted.
void enlarge(int pipe)
{
    for (int capacity = wantedCapacity; capacity > usualCapacity; capacity /= 2) {
        if (fcntl(pipe, F_SETPIPE_SZ, capacity) >= 0)
            return;
    }
}

} // namespace

QString framePipePath(const QString &id)
{
    QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        folder = QDir::tempPath();
    return QDir(folder).filePath(u"corvane-ndi-%1"_s.arg(id));
}

/// FIFO whose writing end is always open and never blocks: a reader can open it at once, and every wait is
/// for the pipe and for the descriptor `wake`.
struct FramePipe::Native
{
    mutable std::mutex use; ///< guards the descriptors
    std::atomic<bool> closing = false;
    QByteArray path;
    std::unique_ptr<QLockFile> lock; ///< distinguishes a FIFO in use from one left by a crash
    int writer = -1;
    int wake = -1; ///< event descriptor, readable from the beginning of close() on

    quint32 open(const QString &name)
    {
        lock = std::make_unique<QLockFile>(name + ".lock"_L1);
        lock->setStaleLockTime(0);
        if (!lock->tryLock(0) && lock->error() == QLockFile::LockFailedError)
            return EBUSY;

        path = QFile::encodeName(name);
        struct stat found
        {
        };
        if (lstat(path.constData(), &found) == 0 && S_ISFIFO(found.st_mode))
            unlink(path.constData());
        if (mkfifo(path.constData(), S_IRUSR | S_IWUSR) != 0) {
            const int error = errno;
            path.clear(); // release() must not remove a file of somebody else's
            return static_cast<quint32>(error);
        }

        // A FIFO without a reader can't be opened for writing without blocking: a reader for a moment.
        constexpr int common = O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW;
        int reader = ::open(path.constData(), O_RDONLY | common);
        if (reader >= 0)
            writer = ::open(path.constData(), O_WRONLY | common);
        if (writer >= 0)
            wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        const int error = errno;
        closeDescriptor(reader);
        if (wake < 0)
            return static_cast<quint32>(error);
        enlarge(writer);
        return 0;
    }

    void release()
    {
        closeDescriptor(writer);
        closeDescriptor(wake);
        if (!path.isEmpty())
            unlink(path.constData());
        path.clear();
        lock.reset();
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
    const quint32 error = m_native->open(path);
    if (error != 0)
        m_native->release();
    return error;
}

bool FramePipe::isOpen() const
{
    const std::lock_guard use(m_native->use);
    return m_native->writer >= 0;
}

quint32 FramePipe::waitForReader()
{
    const std::lock_guard use(m_native->use);
    pollfd pipe{m_native->writer, POLLOUT, 0};
    pollfd wake{m_native->wake, POLLIN, 0};
    while (pipe.fd >= 0 && !m_native->closing) {
        // POLLERR means that there is no reader; no event reports that one has come.
        if (poll(&pipe, 1, 0) >= 0 && !(pipe.revents & POLLERR))
            return 0;
        poll(&wake, 1, readerCheckMs);
    }
    return ECANCELED;
}

bool FramePipe::write(const QByteArray &frame)
{
    keepBrokenPipeHarmless();
    const std::lock_guard use(m_native->use);
    pollfd waits[] = {{m_native->writer, POLLOUT, 0}, {m_native->wake, POLLIN, 0}};
    const char *next = frame.constData();
    const char *const end = next + frame.size();
    while (!m_native->closing) {
        if (next == end)
            return true;
        const ssize_t written = ::write(m_native->writer, next, static_cast<size_t>(end - next));
        if (written >= 0)
            next += written;
        else if (errno == EAGAIN)
            poll(waits, 2, -1);
        else if (errno != EINTR)
            return false;
    }
    return false;
}

void FramePipe::close()
{
    m_native->closing = true;
    if (m_native->wake >= 0)
        eventfd_write(m_native->wake, 1);
    const std::lock_guard use(m_native->use);
    m_native->release();
}

} // namespace corvane
