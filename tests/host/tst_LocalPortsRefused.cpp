// Local ports on a system that refuses: no sockets, or addresses that can't be bound.

#include "engine/Engine.h"
#include "engine/host/LocalPorts.h"
#include "tests/support/Runner.h"
#include "tests/support/ToolPath.h"

#include <QTest>

#include <cerrno>

#include <dlfcn.h>
#include <sys/socket.h>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

int socketRefusal = 0; ///< value of errno with which socket() fails for datagrams; 0: it doesn't
int bindRefusal = 0;   ///< the same for bind()

} // namespace

// Replacements: a program's symbols come before those of the system's library.

extern "C" int socket(int domain, int type, int protocol) noexcept
{
    if (socketRefusal && domain == AF_INET && (type & ~SOCK_CLOEXEC) == SOCK_DGRAM) {
        errno = socketRefusal;
        return -1;
    }
    static const auto real = reinterpret_cast<decltype(&socket)>(dlsym(RTLD_NEXT, "socket"));
    return real(domain, type, protocol);
}

extern "C" int bind(int socket, const sockaddr *address, socklen_t size) noexcept
{
    if (bindRefusal && address->sa_family == AF_INET) {
        errno = bindRefusal;
        return -1;
    }
    static const auto real = reinterpret_cast<decltype(&bind)>(dlsym(RTLD_NEXT, "bind"));
    return real(socket, address, size);
}

class tst_LocalPortsRefused : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void noSocket_data();
    void noSocket();
    void noBinding_data();
    void noBinding();
};

void tst_LocalPortsRefused::cleanup()
{
    socketRefusal = 0;
    bindRefusal = 0;
}

void tst_LocalPortsRefused::noSocket_data()
{
    QTest::addColumn<int>("refusal");

    QTest::newRow("too many of this process") << EMFILE;
    QTest::newRow("too many of all") << ENFILE;
    QTest::newRow("no memory") << ENOBUFS;
    QTest::newRow("no such protocol here") << EAFNOSUPPORT;
    QTest::newRow("not allowed") << EACCES;
}

void tst_LocalPortsRefused::noSocket()
{
    QFETCH(const int, refusal);
    const ToolPath path;
    Engine engine;
    socketRefusal = refusal;

    QCOMPARE(probeUdpPort(8900), UdpPortProbe::NoSocket);
    QCOMPARE(engine.allocateLocalPort(), 8900); // unverified
    QCOMPARE(engine.allocateLocalPort(), 8901);
    QVERIFY(!engine.log().contains(u"AVISO"_s));
}

void tst_LocalPortsRefused::noBinding_data()
{
    QTest::addColumn<int>("refusal");

    QTest::newRow("taken") << EADDRINUSE;
    QTest::newRow("not allowed") << EACCES;
    QTest::newRow("no such address") << EADDRNOTAVAIL;
    QTest::newRow("no memory") << ENOBUFS;
}

void tst_LocalPortsRefused::noBinding()
{
    QFETCH(const int, refusal);
    const ToolPath path;
    Engine engine;
    bindRefusal = refusal;

    QCOMPARE(probeUdpPort(8900), UdpPortProbe::Taken);
    QCOMPARE(engine.allocateLocalPort(), 9200);
    QVERIFY(engine.log().endsWith(u"AVISO: nenhuma porta UDP local livre na faixa 8900-9200\n"_s));
}

CORVANE_TEST(tst_LocalPortsRefused, QCoreApplication)
#include "tst_LocalPortsRefused.moc"
