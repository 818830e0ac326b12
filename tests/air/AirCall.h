#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace corvane::test {

/// Three folders for a PATH, "a", "b" and "c", and the call of the companion that lies in the first.
class AirCall
{
public:
    AirCall();

    [[nodiscard]] QString at(const QString &folder) const; ///< "ffmpeg" in a folder
    [[nodiscard]] QString filePath(const QString &name) const { return m_dir.filePath(name); }

    void setPath(const QStringList &folders);
    void putEncoder(const QString &folder) const;

    QProcess &start(const QStringList &arguments);

    /// Runs to the exit and returns the exit code.
    int run(const QStringList &arguments);

    [[nodiscard]] QProcess &process() { return m_process; }

    /// Argument by which the encoder writes its arguments to the file "arguments" and exits.
    [[nodiscard]] QString argumentsStep() const;

private:
    QTemporaryDir m_dir;
    QProcess m_process;
};

/// Message of the companion that finds nothing to run.
[[nodiscard]] QByteArray noOtherEncoder();

} // namespace corvane::test
