#pragma once

#include "tests/support/SettingsSandbox.h"

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

namespace corvane::test {

/// A fresh directory that is the whole `PATH` of this process while the object lives. Tools are found only if
/// a test has put them there, or if the machine has them in one of the fixed places that come before `PATH`.
/// The settings are the test's own too, so an Engine made meanwhile starts with no pipelines.
class ToolPath
{
public:
    ToolPath();
    ~ToolPath();
    ToolPath(const ToolPath &) = delete;
    ToolPath &operator=(const ToolPath &) = delete;

    /// Copies the program `source` to the tool `name`; returns the path at which a search finds it.
    QString addCopy(const QString &name, const QString &source);

    /// A file called `name` with execute permission that no system can start.
    QString addUnstartable(const QString &name);

    /// An executable script of the shell, for systems that have one.
    QString addScript(const QString &name, const QByteArray &script);

    /// The machine's own `name` under that name; returns its path, empty if there is none.
    QString addMachineTool(const QString &name);

    /// fake_ffmpeg as "ffmpeg". It replies to -encoders and -protocols with these bytes.
    QString addFakeFfmpeg(const QByteArray &encoders = {}, const QByteArray &protocols = {});

    [[nodiscard]] QString filePath(const QString &name) const { return m_dir.filePath(name); }

private:
    SettingsSandbox m_settings;
    QTemporaryDir m_dir;
    QByteArray m_formerPath;
};

/// File name of the program `name`: Windows finds a program in `PATH` only by its suffix.
[[nodiscard]] QString executableName(const QString &name);

/// Path of the machine's installed `name`, whatever `PATH` a test has set; empty if there is none.
[[nodiscard]] QString machineTool(const QString &name);

} // namespace corvane::test
