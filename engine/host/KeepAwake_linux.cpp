#include "engine/host/KeepAwake.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusUnixFileDescriptor>
#include <QPointer>

#include <optional>

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

constexpr auto reason = "Transmissão ao vivo em andamento";

/// The two inhibitors of a Linux desktop: the login manager's for the system, the session's for the display.
///
/// All calls are asynchronous. A lock that is granted after the request was lifted is given back at once.
/// Main thread; lives with the application object. A missing bus or service is ignored.
class Inhibitors : public QObject
{
public:
    explicit Inhibitors(QObject *parent)
        : QObject(parent)
    {
    }

    void hold()
    {
        if (m_held)
            return;
        m_held = true;
        ++m_request;

        // https://www.freedesktop.org/software/systemd/man/org.freedesktop.login1.html: Inhibit(what, who,
        // why, mode) answers a descriptor; the lock lasts as long as that is open.
        QDBusMessage login =
            QDBusMessage::createMethodCall(u"org.freedesktop.login1"_s, u"/org/freedesktop/login1"_s,
                                           u"org.freedesktop.login1.Manager"_s, u"Inhibit"_s);
        login << u"idle:sleep"_s << QCoreApplication::applicationName() << QString::fromUtf8(reason)
              << u"block"_s;
        whenAnswered<QDBusUnixFileDescriptor>(
            QDBusConnection::systemBus(), login,
            [this](const QDBusUnixFileDescriptor &lock) { m_sleepLock = lock; }, [](const auto &) {});

        // Idle Inhibition Service of freedesktop.org: Inhibit(application, reason) answers a cookie; the
        // request lasts until UnInhibit(cookie) or until the caller leaves the bus.
        QDBusMessage screen = screenSaverCall(u"Inhibit"_s);
        screen << QCoreApplication::applicationName() << QString::fromUtf8(reason);
        whenAnswered<uint>(
            QDBusConnection::sessionBus(), screen, [this](uint cookie) { m_screenCookie = cookie; },
            uninhibit);
    }

    void release()
    {
        m_held = false;
        m_sleepLock = {};
        if (m_screenCookie)
            uninhibit(*m_screenCookie);
        m_screenCookie.reset();
    }

private:
    static QDBusMessage screenSaverCall(const QString &method)
    {
        return QDBusMessage::createMethodCall(u"org.freedesktop.ScreenSaver"_s,
                                              u"/org/freedesktop/ScreenSaver"_s,
                                              u"org.freedesktop.ScreenSaver"_s, method);
    }

    static void uninhibit(uint cookie)
    {
        QDBusConnection::sessionBus().send(screenSaverCall(u"UnInhibit"_s) << cookie);
    }

    template <typename Answer, typename Keep, typename GiveBack>
    void whenAnswered(const QDBusConnection &bus, const QDBusMessage &call, Keep keep, GiveBack giveBack)
    {
        if (!bus.isConnected())
            return;
        auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this,
                [this, request = m_request, keep, giveBack](QDBusPendingCallWatcher *finished) {
                    finished->deleteLater();
                    const QDBusPendingReply<Answer> reply = *finished;
                    if (reply.isError())
                        return;
                    if (m_held && request == m_request)
                        keep(reply.value());
                    else
                        giveBack(reply.value());
                });
    }

    bool m_held = false;
    int m_request = 0; ///< number of the request, by which an answer to an earlier one is recognised
    QDBusUnixFileDescriptor m_sleepLock;
    std::optional<uint> m_screenCookie;
};

QPointer<Inhibitors> inhibitors;

} // namespace

void preventSleep()
{
    if (!inhibitors)
        inhibitors = new Inhibitors(QCoreApplication::instance());
    inhibitors->hold();
}

void allowSleep()
{
    if (inhibitors)
        inhibitors->release();
}

} // namespace corvane
