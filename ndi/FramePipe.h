#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

namespace corvane {

/// Path of the pipe with the frames of the pipeline `id`.
[[nodiscard]] QString framePipePath(const QString &id);

/// Writing end of a named byte pipe with one reader.
///
/// A reader may open the pipe from create() on, and reads its end once it is closed. create() and close()
/// belong to the thread that owns the object, waitForReader() and write() to one other; close() may be called
/// at any time and ends a wait of that thread. Errors are the system's own numbers, 0 for none.
class FramePipe
{
public:
    FramePipe();
    ~FramePipe(); ///< closes
    FramePipe(const FramePipe &) = delete;
    FramePipe &operator=(const FramePipe &) = delete;

    /// Creates the pipe, for this user alone, after closing one created before. Fails if another object
    /// writes to a pipe of that name.
    [[nodiscard]] quint32 create(const QString &path);

    [[nodiscard]] bool isOpen() const;

    /// Blocks until a reader has opened the pipe, or until close(). Returns at once if one has.
    [[nodiscard]] quint32 waitForReader();

    /// Writes all of `frame`, however slow the reader; false if the reader has closed the pipe, or after
    /// close().
    [[nodiscard]] bool write(const QByteArray &frame);

    /// Closes and removes the pipe. Without one it does nothing.
    void close();

private:
    struct Native;
    std::unique_ptr<Native> m_native;
};

} // namespace corvane
