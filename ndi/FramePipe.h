#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

namespace corvane {

/// Path at which the frames of the pipeline `id` are to be had.
[[nodiscard]] QString framePipePath(const QString &id);

/// The writing end of a named byte pipe with one reader.
///
/// A reader may open the pipe from create() on, and finds its end once it is closed. create() and close()
/// belong to the thread that owns the object, waitForReader() and write() to one other; close() ends what
/// that thread waits for and may be called at any time. Errors are the system's own numbers, 0 for none.
class FramePipe
{
public:
    FramePipe();
    ~FramePipe(); ///< closes
    FramePipe(const FramePipe &) = delete;
    FramePipe &operator=(const FramePipe &) = delete;

    /// Makes the pipe, for this user alone; a pipe made before is closed. Fails if the name is being served.
    [[nodiscard]] quint32 create(const QString &path);

    [[nodiscard]] bool isOpen() const;

    /// Blocks until a reader has opened the pipe, which may have happened before, or until close().
    [[nodiscard]] quint32 waitForReader();

    /// Writes all of `frame`, however slow the reader; false if the reader has gone, or after close().
    [[nodiscard]] bool write(const QByteArray &frame);

    /// Leaves nothing of the pipe behind. Without one it does nothing.
    void close();

private:
    struct Native;
    std::unique_ptr<Native> m_native;
};

} // namespace corvane
