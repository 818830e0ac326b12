#include "engine/host/BusConnection_linux.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

constexpr int busAnswerTimeoutMs = 5000;
constexpr int giveUpCheckMs = 50;

/// Address of the daemon as libdbus finds it; empty if it is left to libdbus.
QByteArray busAddress(QDBusConnection::BusType type)
{
    if (type == QDBusConnection::SystemBus) {
        const QByteArray given = qgetenv("DBUS_SYSTEM_BUS_ADDRESS");
        return given.isEmpty() ? "unix:path=/run/dbus/system_bus_socket"_ba : given;
    }
    QByteArray given = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    const QByteArray usual = qgetenv("XDG_RUNTIME_DIR") + "/bus";
    if (given.isEmpty() && QFile::exists(QFile::decodeName(usual)))
        return "unix:path=" + usual;
    return given;
}

class Socket
{
public:
    Socket()
        : m_descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
    }
    ~Socket()
    {
        if (m_descriptor >= 0)
            close(m_descriptor);
    }
    Q_DISABLE_COPY_MOVE(Socket)

    /// `path` with a leading zero byte names an abstract socket. False too if the daemon's queue is full.
    [[nodiscard]] bool connectTo(const QByteArray &path) const
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.isEmpty() || static_cast<std::size_t>(path.size()) >= sizeof address.sun_path)
            return false;
        std::memcpy(address.sun_path, path.constData(), static_cast<std::size_t>(path.size()));
        const auto size =
            offsetof(sockaddr_un, sun_path) + static_cast<std::size_t>(path.size()) + (path[0] ? 1U : 0U);
        return connect(m_descriptor, reinterpret_cast<const sockaddr *>(&address),
                       static_cast<socklen_t>(size)) == 0;
    }

    [[nodiscard]] bool answers(const QByteArray &question, const std::function<bool()> &giveUp) const
    {
        if (send(m_descriptor, question.constData(), static_cast<std::size_t>(question.size()),
                 MSG_NOSIGNAL) != question.size())
            return false;
        const QDeadlineTimer deadline(busAnswerTimeoutMs);
        while (!deadline.hasExpired() && !giveUp()) {
            pollfd readable{m_descriptor, POLLIN, 0};
            if (poll(&readable, 1, giveUpCheckMs) > 0) {
                char first = 0;
                return recv(m_descriptor, &first, 1, 0) == 1;
            }
        }
        return false;
    }

private:
    int m_descriptor;
};

/// Value of `key` in the comma-separated, percent-encoded `pairs` of an address.
QByteArray addressValue(const QByteArray &pairs, const QByteArray &key)
{
    const QList<QByteArray> all = pairs.split(',');
    for (const QByteArray &pair : all) {
        if (pair.startsWith(key + '='))
            return QByteArray::fromPercentEncoding(pair.sliced(key.size() + 1));
    }
    return {};
}

} // namespace

bool busAnswers(const QByteArray &address, const std::function<bool()> &giveUp)
{
    // Authentication begins with a zero byte and the user's number in decimal, each digit in hexadecimal.
    const QByteArray question = '\0' + "AUTH EXTERNAL "_ba + QByteArray::number(getuid()).toHex() + "\r\n";
    const QList<QByteArray> alternatives = address.split(';');
    for (const QByteArray &alternative : alternatives) {
        const qsizetype colon = alternative.indexOf(':');
        const QByteArray pairs = alternative.sliced(colon + 1);
        QByteArray path = addressValue(pairs, "path");
        if (const QByteArray abstract = addressValue(pairs, "abstract"); !abstract.isEmpty())
            path = '\0' + abstract;
        if (alternative.first(std::max<qsizetype>(colon, 0)) != "unix" || path.isEmpty())
            return true;
        const Socket daemon;
        if (daemon.connectTo(path))
            return daemon.answers(question, giveUp);
    }
    return false;
}

BusConnection::BusConnection(QDBusConnection::BusType type, QObject *parent)
    : QObject(parent)
    , m_type(type)
{
}

BusConnection::~BusConnection()
{
    if (m_thread) {
        m_thread->requestInterruption();
        m_thread->wait();
    }
}

void BusConnection::use(const Use &use)
{
    if (!m_thread) {
        if (m_bus && m_bus->isConnected()) {
            use(*m_bus);
            return;
        }
        connectInBackground();
    }
    m_waiting.append(use);
}

void BusConnection::connectInBackground()
{
    static int attempts = 0; // each takes a new name: Qt keeps a failed connection under its own
    m_bus.reset();
    m_thread = QThread::create([this, name = u"corvane-%1"_s.arg(++attempts)] {
        const auto giveUp = [] { return QThread::currentThread()->isInterruptionRequested(); };
        if (busAnswers(busAddress(m_type), giveUp))
            m_bus = QDBusConnection::connectToBus(m_type, name);
    });
    m_thread->setParent(this);
    connect(m_thread, &QThread::finished, this, &BusConnection::onAttempted);
    m_thread->start();
}

void BusConnection::onAttempted()
{
    m_thread->wait(); // it has sent its signal, and may still be on its way out
    delete std::exchange(m_thread, nullptr);
    const QList<Use> waiting = std::exchange(m_waiting, {});
    if (!m_bus || !m_bus->isConnected())
        return;
    for (const Use &use : waiting)
        use(*m_bus);
}

} // namespace corvane
