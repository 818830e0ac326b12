#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

class QProcess;

namespace corvane::test {

/// Place of one run of the program: a temporary directory that holds its home, its XDG directories, its PATH
/// and its working directory. No display is set and no bus answers. The PATH holds "ffmpeg", which is
/// fake_ffmpeg, and nothing else.
class ProgramSandbox
{
public:
    ProgramSandbox();

    /// Path of `name` in the directory.
    [[nodiscard]] QString path(const QString &name) const { return m_directory.filePath(name); }
    /// Value of CORVANE_RUNTIME_DIR at first; not created yet.
    [[nodiscard]] QString runtimeDir() const { return path(QStringLiteral("runtime")); }
    [[nodiscard]] QString fakeFfmpegCopy() const; ///< path at which the program finds "ffmpeg"
    /// Everything in the directory, hidden files too, sorted.
    [[nodiscard]] QStringList contents() const;

    [[nodiscard]] QProcessEnvironment &environment() { return m_environment; }

    /// Sets `program` up to run the built program here with the environment as it now is; doesn't start it.
    void prepare(QProcess &program, const QStringList &arguments = {}) const;

private:
    QTemporaryDir m_directory;
    QProcessEnvironment m_environment = QProcessEnvironment::systemEnvironment();
};

} // namespace corvane::test
