#include "tests/host/PrivateBus.h"

#include "tests/support/TestSupport.h"

#include <QFile>
#include <QStandardPaths>

#include <algorithm>
#include <cerrno>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

constexpr const char *configuration =
    R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=%1</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

/// The system's own interpreter, for which the bus bindings are installed.
QString pythonWithBus()
{
    QString python = QStandardPaths::findExecutable(u"python3"_s, {u"/usr/bin"_s});
    if (python.isEmpty())
        python = QStandardPaths::findExecutable(u"python3"_s);
    if (python.isEmpty() || QProcess::execute(python, {u"-c"_s, u"import dbus, gi"_s}) != 0)
        return {};
    return python;
}

/// Socket at "bus" in `dir` that takes callers, four of which may wait.
int listeningSocket(const QTemporaryDir &dir, int flags)
{
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    const QByteArray path = QFile::encodeName(dir.filePath(u"bus"_s));
    if (static_cast<std::size_t>(path.size()) >= sizeof name.sun_path)
        qFatal("the path of a test's bus is too long: %s", path.constData());
    std::copy(path.begin(), path.end(), name.sun_path);
    if (bind(listener, reinterpret_cast<const sockaddr *>(&name), sizeof name) != 0 ||
        listen(listener, 4) != 0)
        qFatal("a test's bus can't listen at %s", path.constData());
    return listener;
}

} // namespace

LineProcess::LineProcess()
{
    process.setProcessChannelMode(QProcess::SeparateChannels);
    connect(&process, &QProcess::readyReadStandardOutput, this,
            [this] { m_output += process.readAllStandardOutput(); });
}

LineProcess::~LineProcess()
{
    process.disconnect(this);
    if (process.state() == QProcess::NotRunning)
        return;
    process.closeWriteChannel();
    if (!process.waitForFinished(10000))
        process.kill();
    process.waitForFinished();
}

void LineProcess::tell(const QString &commands)
{
    process.write((QString(commands).replace(u' ', u'\n') + u'\n').toUtf8());
}

QStringList LineProcess::lines(const QString &prefix) const
{
    QStringList found;
    const QStringList all =
        QString::fromUtf8(m_output.first(m_output.lastIndexOf('\n') + 1)).split(u'\n', Qt::SkipEmptyParts);
    for (const QString &line : all) {
        if (line.startsWith(prefix))
            found << line;
    }
    return found;
}

bool LineProcess::waitFor(const QString &line)
{
    return waitUntil([&] { return lines().contains(line); });
}

PrivateBus::PrivateBus()
    : m_python(pythonWithBus())
{
    const QString daemon = QStandardPaths::findExecutable(u"dbus-daemon"_s);
    if (daemon.isEmpty() || m_python.isEmpty()) {
        m_problem = u"dbus-daemon, or python3 with dbus and gi, is not installed"_s;
        return;
    }
    QFile file(m_dir.filePath(u"bus.conf"_s));
    if (!file.open(QIODevice::WriteOnly))
        qFatal("the configuration of the bus cannot be written");
    file.write(QString::fromLatin1(configuration).arg(m_dir.filePath(u"bus"_s)).toUtf8());
    file.close();

    m_daemon.start(daemon, {u"--config-file="_s + file.fileName(), u"--print-address"_s, u"--nofork"_s});
    if (!m_daemon.waitForStarted() || !m_daemon.waitForReadyRead(20000))
        qFatal("dbus-daemon does not come up: %s", m_daemon.readAllStandardError().constData());
    m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
}

PrivateBus::~PrivateBus()
{
    m_daemon.kill();
    m_daemon.waitForFinished();
}

void PrivateBus::startServices(LineProcess &services, const QStringList &names) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, m_address);
    environment.insert(u"PYTHONIOENCODING"_s, u"utf-8"_s);
    services.process.setProcessEnvironment(environment);
    services.process.start(m_python, QStringList{QStringLiteral(CORVANE_INHIBITOR_SERVICES)} + names);
    if (!services.waitFor(u"ready"_s))
        qFatal("no inhibitor services: %s", services.process.readAllStandardError().constData());
}

QString deadBusAddress()
{
    return u"unix:path=/nonexistent/corvane-test-bus"_s;
}

SilentBus::SilentBus()
    : m_socket(listeningSocket(m_dir, SOCK_NONBLOCK))
{
}

SilentBus::~SilentBus()
{
    if (m_caller >= 0)
        close(m_caller);
    close(m_socket);
}

QString SilentBus::address() const
{
    return u"unix:path="_s + m_dir.filePath(u"bus"_s);
}

bool SilentBus::waitForCaller()
{
    return waitUntil([this] {
        if (m_caller < 0)
            m_caller = accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        char words[256];
        return m_caller >= 0 && recv(m_caller, words, sizeof words, 0) > 0;
    });
}

bool SilentBus::callerWaits() const
{
    char word = 0;
    return recv(m_caller, &word, 1, MSG_PEEK) < 0 && errno == EAGAIN;
}

ClosingBus::ClosingBus()
    : m_socket(listeningSocket(m_dir, 0))
    , m_thread([this] { closeCallers(); })
{
}

ClosingBus::~ClosingBus()
{
    shutdown(m_socket, SHUT_RDWR); // ends the wait for the next caller
    m_thread.join();
    close(m_socket);
}

void ClosingBus::closeCallers()
{
    for (;;) {
        const int caller = accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC);
        if (caller < 0)
            return;
        close(caller);
        ++m_callers;
    }
}

QString ClosingBus::address() const
{
    return u"unix:path="_s + m_dir.filePath(u"bus"_s);
}

} // namespace corvane::test
