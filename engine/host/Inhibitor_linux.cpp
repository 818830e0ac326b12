#include "engine/host/Inhibitor_linux.h"

#include <QCoreApplication>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QPointer>

#include <utility>

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

/// The process's connection to a bus, which lives with the application object.
BusConnection *busConnection(QDBusConnection::BusType type)
{
    static QPointer<BusConnection> systemBus;
    static QPointer<BusConnection> sessionBus;
    QPointer<BusConnection> &bus = type == QDBusConnection::SystemBus ? systemBus : sessionBus;
    if (!bus)
        bus = new BusConnection(type, QCoreApplication::instance());
    return bus;
}

QDBusMessage screenSaverCall(const QString &method)
{
    return QDBusMessage::createMethodCall(u"org.freedesktop.ScreenSaver"_s, u"/org/freedesktop/ScreenSaver"_s,
                                          u"org.freedesktop.ScreenSaver"_s, method);
}

} // namespace

Inhibitor::Inhibitor(BusConnection *bus, const QDBusMessage &request, GiveBack giveBack, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
    , m_request(request)
    , m_giveBack(std::move(giveBack))
{
}

void Inhibitor::hold()
{
    if (m_held)
        return;
    m_held = true;
    m_bus->use([this, number = ++m_number](const QDBusConnection &bus) {
        if (m_held && number == m_number)
            send(bus, number);
    });
}

void Inhibitor::send(const QDBusConnection &bus, int number)
{
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(m_request), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, bus, number](QDBusPendingCallWatcher *call) {
                call->deleteLater();
                const QDBusMessage answer = call->reply();
                if (answer.type() != QDBusMessage::ReplyMessage || answer.arguments().isEmpty())
                    return;
                const auto end = [giveBack = m_giveBack, bus, grant = answer.arguments().constFirst()] {
                    giveBack(bus, grant);
                };
                if (m_held && number == m_number)
                    m_end = end;
                else
                    end();
            });
}

void Inhibitor::release()
{
    m_held = false;
    if (const auto end = std::exchange(m_end, nullptr))
        end();
}

Inhibitor *loginInhibitor(const QString &what, const QString &why, QObject *parent)
{
    QDBusMessage request =
        QDBusMessage::createMethodCall(u"org.freedesktop.login1"_s, u"/org/freedesktop/login1"_s,
                                       u"org.freedesktop.login1.Manager"_s, u"Inhibit"_s);
    request << what << QCoreApplication::applicationName() << why << u"block"_s;
    // The lock ends when the last copy of its descriptor is closed.
    return new Inhibitor(
        busConnection(QDBusConnection::SystemBus), request, [](const auto &, const auto &) {}, parent);
}

Inhibitor *screenInhibitor(const QString &why, QObject *parent)
{
    QDBusMessage request = screenSaverCall(u"Inhibit"_s);
    request << QCoreApplication::applicationName() << why;
    const auto uninhibit = [](const QDBusConnection &bus, const QVariant &cookie) {
        bus.send(screenSaverCall(u"UnInhibit"_s) << cookie);
    };
    return new Inhibitor(busConnection(QDBusConnection::SessionBus), request, uninhibit, parent);
}

} // namespace corvane
