#pragma once

#include "tests/air/AirCall.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace corvane::test {

/// Step of the encoder with a value that may hold any byte.
[[nodiscard]] QString step(const QString &name, const QByteArray &value);

/// Step with which the encoder says "up".
[[nodiscard]] QString isUp();

/// Words of the system for an error code of its own.
[[nodiscard]] QByteArray systemWords(int posix, int windows);

/// What the companion says when a recording to `place` ends early.
[[nodiscard]] QByteArray recordingLost(const QString &place, const QByteArray &why);

/// The companion with a list of a transmission, before an encoder that performs steps.
class Transmission
{
public:
    explicit Transmission(QStringList steps);

    /// The directory for recordings, switched on; as the system writes it.
    QString recordTo(const QString &directory);

    void setVariable(const QString &name, const QString &value);

    /// From now on calls of the system behave as this library has it. Unix only.
    void preload(const QString &library);

    void start(const QStringList &input = {});

    /// As the shell starts it behind this command, with the standard streams alone. Unix only.
    void startBehind(const QString &command);

    /// -1: it didn't end.
    int exitCode();

    int run();

    /// Everything on its standard error so far.
    QByteArray said();

    bool waitFor(const QByteArray &text);

    [[nodiscard]] QProcess &process() { return m_call.process(); }
    [[nodiscard]] QString filePath(const QString &name) const { return m_call.filePath(name); }
    [[nodiscard]] QString encoder() const { return m_call.at(QStringLiteral("b")); }

private:
    [[nodiscard]] QStringList list(const QStringList &input = {}) const;

    AirCall m_call;
    QStringList m_steps;
    QByteArray m_said;
};

} // namespace corvane::test
