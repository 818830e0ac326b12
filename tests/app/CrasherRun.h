#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace corvane::test {

/// tests/children/crasher from its start to its death. It lives in a directory of its own.
class CrasherRun
{
public:
    /// `death`: kind and circumstances of the death. `directory`: place of its runtime directory.
    explicit CrasherRun(const QStringList &death, const QString &directory = {});

    [[nodiscard]] QString path(const QString &name) const; ///< within its own directory
    [[nodiscard]] QString crashDir() const;

    /// True as soon as it is guarded and waits for its orders.
    [[nodiscard]] bool start();

    /// True once it is dead; false if it lives on.
    [[nodiscard]] bool die();

    /// Everything in the crash directory, with "<start>" for the second in which it was started.
    [[nodiscard]] QStringList entries() const;

    [[nodiscard]] QByteArray log() const;  ///< of all reports
    [[nodiscard]] QByteArray dump() const; ///< empty if there is none

    QProcess program;

private:
    [[nodiscard]] QByteArray contents(const QString &pattern) const;

    QTemporaryDir m_directory;
    QString m_runtime;
    qint64 m_startedAt = 0;
    qint64 m_guardedAt = 0;
};

// Patience with a death. A handler that hangs never ends; how quickly one works is the machine's matter.
inline constexpr int deathPatienceMs = 20000;

} // namespace corvane::test
