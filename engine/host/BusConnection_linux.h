#pragma once

#include <QDBusConnection>
#include <QList>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

class QThread;

namespace corvane {

/// Connection to a D-Bus daemon, established on a thread of its own: connecting blocks, and for ever if the
/// daemon accepts and stays silent.
///
/// That thread first tries whether the daemon answers at all: Qt holds a lock of the whole process while it
/// connects, so a silent daemon would block the interface all the same, and the end of the process. Failures
/// are silent; the next use() tries again. Thread of the event loop; the destructor waits for the other one.
class BusConnection : public QObject
{
    Q_OBJECT

public:
    using Use = std::function<void(const QDBusConnection &bus)>;

    BusConnection(QDBusConnection::BusType type, QObject *parent);
    ~BusConnection() override;

    /// Calls `use` on this object's thread as soon as there is a connection: within the call if there is one
    /// already, never if none can be made.
    void use(const Use &use);

private:
    void connectInBackground();
    void onAttempted();

    QDBusConnection::BusType m_type;
    QThread *m_thread = nullptr;          ///< null when no attempt is under way
    std::optional<QDBusConnection> m_bus; ///< of the last attempt; written by the thread while there is one
    QList<Use> m_waiting;
};

/// True if a daemon at `address` (a server address of D-Bus) answers the first line of the
/// authentication; also if the address isn't that of a Unix socket, and so can't be tried. Blocks until it
/// does, until `giveUp()` or for up to 5 s.
[[nodiscard]] bool busAnswers(const QByteArray &address, const std::function<bool()> &giveUp);

} // namespace corvane
