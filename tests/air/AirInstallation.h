#pragma once

#include <QDir>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

class QProcess;

namespace corvane::test {

/// What an ffmpeg with everything that the companion needs answers about its muxers.
constexpr auto allWords = "attempt_recovery recover_any_error use_fifo hash cluster_time_limit";

/// A folder with the program and corvane-air in it, and an ffmpeg on PATH.
class AirInstallation
{
public:
    /// `help` is what the ffmpeg on PATH answers to every question about a muxer; empty: there is none.
    /// `tools` is the folder of corvane-air, `program` the program's file without its suffix; empty: there is
    /// none.
    explicit AirInstallation(const QByteArray &help, const QString &tools = QStringLiteral("air/"),
                             const QString &program = QStringLiteral("corvane"));

    [[nodiscard]] QString path(const QString &name) const { return m_dir.filePath(name); }
    [[nodiscard]] QString native(const QString &name) const { return QDir::toNativeSeparators(path(name)); }

    void start(QProcess &process, const QString &program, const QStringList &arguments) const;

    /// Runs corvane-air to its exit and returns the exit code.
    int call(const QStringList &arguments);

    bool bound = false; ///< to the permissions of files, even as root; Unix only
    QString asked;      ///< file that the ffmpeg on PATH notes questions in
    QString output;
    QString error;

    const QString realFfmpeg; ///< the one on PATH

private:
    QTemporaryDir m_dir;
    QByteArray m_help;
    QString m_tools;
};

} // namespace corvane::test
