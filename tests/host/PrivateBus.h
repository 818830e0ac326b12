#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <atomic>
#include <thread>

namespace corvane::test {

/// A child program that reads commands and reports events, a line each.
class LineProcess : public QObject
{
    Q_OBJECT

public:
    LineProcess();
    ~LineProcess() override; ///< closes its standard input, which ends it

    QProcess process;

    void tell(const QString &commands); ///< words separated by blanks, sent in one piece

    /// Every event that it has reported so far, or those whose line begins with `prefix`.
    [[nodiscard]] QStringList lines(const QString &prefix = {}) const;

    /// Waits for an event without which the test can't go on.
    [[nodiscard]] bool waitFor(const QString &line);

private:
    QByteArray m_output;
};

/// A bus daemon that nobody else knows, without any service that could be started on it. It serves as system
/// bus and as session bus.
class PrivateBus
{
public:
    PrivateBus();
    ~PrivateBus();

    /// Reason why there is no bus; empty if there is one.
    [[nodiscard]] QString problem() const { return m_problem; }
    [[nodiscard]] QString address() const { return m_address; }

    /// The directory in which it is the session bus of a user whose runtime directory that is.
    [[nodiscard]] QString runtimeDir() const { return m_dir.path(); }

    /// The stand-ins for the services named, "login" and "screen", ready for requests.
    void startServices(LineProcess &services, const QStringList &names) const;

private:
    QTemporaryDir m_dir;
    QProcess m_daemon;
    QString m_python;
    QString m_problem;
    QString m_address;
};

/// An address at which no bus answers.
[[nodiscard]] QString deadBusAddress();

/// A bus daemon that takes callers and never says a word.
class SilentBus
{
public:
    SilentBus();
    ~SilentBus();
    Q_DISABLE_COPY_MOVE(SilentBus)

    [[nodiscard]] QString address() const;
    [[nodiscard]] QString runtimeDir() const { return m_dir.path(); } ///< as that of PrivateBus

    /// Waits for the first caller and its first words.
    [[nodiscard]] bool waitForCaller();

    /// True as long as that caller waits for an answer.
    [[nodiscard]] bool callerWaits() const;

private:
    QTemporaryDir m_dir;
    int m_socket = -1;
    int m_caller = -1;
};

/// A bus daemon that takes callers and closes at once, some of them before their first words.
class ClosingBus
{
public:
    ClosingBus();
    ~ClosingBus();
    Q_DISABLE_COPY_MOVE(ClosingBus)

    [[nodiscard]] QString address() const;
    [[nodiscard]] int callers() const { return m_callers; }

private:
    void closeCallers();

    QTemporaryDir m_dir;
    int m_socket = -1;
    std::atomic<int> m_callers = 0;
    std::thread m_thread;
};

} // namespace corvane::test
