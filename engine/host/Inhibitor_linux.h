#pragma once

#include "engine/host/BusConnection_linux.h"

#include <QDBusMessage>
#include <QObject>
#include <QVariant>

#include <functional>

namespace corvane {

/// Request to a service of the Linux desktop that is in force for as long as what the service granted is
/// held: a descriptor of the login manager, a number of the session.
///
/// All calls are asynchronous. A grant that arrives after release() is given back at once. Thread of the
/// event loop. A missing bus or service and a refusal are ignored.
class Inhibitor : public QObject
{
    Q_OBJECT

public:
    /// Ends a grant. It is called once for each, with the last copy of it.
    using GiveBack = std::function<void(const QDBusConnection &bus, const QVariant &grant)>;

    /// `request` is answered by one value, the grant. `bus` has to live as long as hold() is called.
    Inhibitor(BusConnection *bus, const QDBusMessage &request, GiveBack giveBack, QObject *parent);

    void hold();    ///< sends the request; does nothing while one is held
    void release(); ///< safe to repeat

private:
    void send(const QDBusConnection &bus, int number);

    BusConnection *m_bus;
    QDBusMessage m_request;
    GiveBack m_giveBack;
    bool m_held = false;
    int m_number = 0;            ///< of the request, by which an answer to an earlier one is recognised
    std::function<void()> m_end; ///< holds the grant and gives it back; empty without one
};

/// Inhibitor of the login manager, org.freedesktop.login1
/// (https://www.freedesktop.org/software/systemd/man/org.freedesktop.login1.html): `what` is a list of its
/// locks separated by colons, `why` is shown to the user. The lock is taken in mode "block".
[[nodiscard]] Inhibitor *loginInhibitor(const QString &what, const QString &why, QObject *parent);

/// Inhibitor of the session's screen saver (Idle Inhibition Service of freedesktop.org,
/// org.freedesktop.ScreenSaver).
[[nodiscard]] Inhibitor *screenInhibitor(const QString &why, QObject *parent);

} // namespace corvane
