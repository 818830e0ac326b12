#include "tests/host/PrivateBus.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

const QString loginRequest = u"login inhibit %1 idle:sleep|holder|Transmissão ao vivo em andamento|block"_s;
const QString shutdownRequest = u"login inhibit %1 shutdown|holder|Transmissão no ar|block"_s;
const QString screenRequest = u"screen inhibit %1 holder|Transmissão ao vivo em andamento"_s;

/// A program that makes and lifts the requests, on a bus of the test's own. A null address isn't in its
/// environment.
class Holder : public LineProcess
{
public:
    Holder(const QString &systemBus, const QString &sessionBus, const QString &runtimeDir = {})
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"DBUS_SYSTEM_BUS_ADDRESS"_s, systemBus);
        if (sessionBus.isNull())
            environment.remove(u"DBUS_SESSION_BUS_ADDRESS"_s);
        else
            environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, sessionBus);
        if (!runtimeDir.isEmpty())
            environment.insert(u"XDG_RUNTIME_DIR"_s, runtimeDir);
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(CORVANE_KEEP_AWAKE_HOLDER), QStringList());
    }

    /// Sends it `commands` and waits until it has carried out the last of them.
    [[nodiscard]] bool does(const QString &commands)
    {
        const qsizetype expected = lines().size() + commands.split(u' ').size();
        tell(commands);
        return waitUntil([&] { return lines().size() >= expected; });
    }
};

} // namespace

/// The requests that keep a Linux desktop awake and put off its shutdown, seen from the services that receive
/// them.
class tst_KeepAwake : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void isTakenAndGivenBackOnce();
    void repeatsNothing();
    void isTakenAnew();
    void releasesWhatWasNeverHeld();
    void asksForNothingThatWasOverBeforeTheConnection_data();
    void asksForNothingThatWasOverBeforeTheConnection();
    void givesBackAnAnswerThatCameTooLate();
    void tellsTheAnswersOfTwoRequestsApart();
    void endsWithAProcessThatIsKilled();
    void endsWithAProcessThatLeaves();
    void passesOverWhatIsMissing_data();
    void passesOverWhatIsMissing();
    void passesOverARefusal();
    void blocksAShutdown();
    void staysAwakeWhereNoShutdownMayBeBlocked();
    void waitsForNoSilentBus_data();
    void waitsForNoSilentBus();
    void waitsForNoSilentBusOfTheRuntimeDirectory();
    void findsTheSessionBus_data();
    void findsTheSessionBus();
    void triesABusAgainThatWasSilent();

private:
    PrivateBus m_bus;
    QTemporaryDir m_deadRuntimeDir; ///< what is called "bus" there takes no callers
};

/// Every call that the services have received by now has been reported.
#define VERIFY_SETTLED(services)                                                                             \
    do {                                                                                                     \
        const qsizetype pongs = (services).lines(u"pong"_s).size();                                          \
        (services).tell(u"ping"_s);                                                                          \
        QVERIFY(waitUntil([&] { return (services).lines(u"pong"_s).size() > pongs; }));                      \
    } while (false)

void tst_KeepAwake::initTestCase()
{
    if (!m_bus.problem().isEmpty())
        QSKIP(qPrintable(m_bus.problem()));
    QFile dead(m_deadRuntimeDir.filePath(u"bus"_s));
    QVERIFY(dead.open(QIODevice::WriteOnly));
}

void tst_KeepAwake::isTakenAndGivenBackOnce()
{
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    Holder holder(m_bus.address(), m_bus.address());

    QVERIFY(holder.does(u"hold settle"_s));
    VERIFY_SETTLED(services);
    QCOMPARE(services.lines(u"login"_s), QStringList{loginRequest.arg(1)});
    QCOMPARE(services.lines(u"screen"_s), QStringList{screenRequest.arg(1)});

    QVERIFY(holder.does(u"release"_s));
    QVERIFY(services.waitFor(u"login closed 1"_s));
    QVERIFY(services.waitFor(u"screen uninhibit 1"_s));
    QVERIFY(holder.does(u"quit"_s));
    VERIFY_SETTLED(services);
    QCOMPARE(services.lines(u"login"_s).size(), 2);
    QCOMPARE(services.lines(u"screen"_s).size(), 2);
}

void tst_KeepAwake::repeatsNothing()
{
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    Holder holder(m_bus.address(), m_bus.address());

    QVERIFY(holder.does(u"hold hold settle hold settle"_s));
    QVERIFY(holder.does(u"release release settle release"_s));
    QVERIFY(services.waitFor(u"login closed 1"_s));
    QVERIFY(services.waitFor(u"screen uninhibit 1"_s));

    // A next request, before which any superfluous one would have arrived.
    QVERIFY(holder.does(u"hold settle"_s));
    VERIFY_SETTLED(services);
    QCOMPARE(services.lines(u"login"_s),
             QStringList({loginRequest.arg(1), u"login closed 1"_s, loginRequest.arg(2)}));
    QCOMPARE(services.lines(u"screen"_s),
             QStringList({screenRequest.arg(1), u"screen uninhibit 1"_s, screenRequest.arg(2)}));
}

void tst_KeepAwake::isTakenAnew()
{
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    Holder holder(m_bus.address(), m_bus.address());

    for (int round = 1; round <= 3; ++round) {
        QVERIFY(holder.does(u"hold settle"_s));
        QVERIFY(services.lines().contains(loginRequest.arg(round)));
        QVERIFY(services.lines().contains(screenRequest.arg(round)));
        QVERIFY(holder.does(u"release"_s));
        QVERIFY(services.waitFor(u"login closed %1"_s.arg(round)));
        QVERIFY(services.waitFor(u"screen uninhibit %1"_s.arg(round)));
    }
}

void tst_KeepAwake::releasesWhatWasNeverHeld()
{
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    Holder holder(m_bus.address(), m_bus.address());
    QVERIFY(holder.does(u"release release hold settle"_s));
    VERIFY_SETTLED(services);
    QCOMPARE(services.lines(u"login"_s), QStringList{loginRequest.arg(1)});
    QCOMPARE(services.lines(u"screen"_s), QStringList{screenRequest.arg(1)});
}

void tst_KeepAwake::asksForNothingThatWasOverBeforeTheConnection_data()
{
    QTest::addColumn<QString>("commands");
    QTest::addColumn<QStringList>("login");
    QTest::addColumn<QStringList>("screen");

    // Sent in one piece: the connection can't come about in between.
    QTest::newRow("released") << u"hold release settle"_s << QStringList() << QStringList();
    QTest::newRow("held anew") << u"hold release hold settle"_s << QStringList{loginRequest.arg(1)}
                               << QStringList{screenRequest.arg(1)};
}

void tst_KeepAwake::asksForNothingThatWasOverBeforeTheConnection()
{
    QFETCH(QString, commands);
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    Holder holder(m_bus.address(), m_bus.address());
    QVERIFY(holder.does(commands));
    VERIFY_SETTLED(services);
    QTEST(services.lines(u"login"_s), "login");
    QTEST(services.lines(u"screen"_s), "screen");
}

void tst_KeepAwake::givesBackAnAnswerThatCameTooLate()
{
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    Holder holder(m_bus.address(), m_bus.address());
    services.tell(u"delay"_s);
    VERIFY_SETTLED(services);

    QVERIFY(holder.does(u"hold"_s));
    QVERIFY(services.waitFor(loginRequest.arg(1)));
    QVERIFY(services.waitFor(screenRequest.arg(1)));
    QVERIFY(holder.does(u"release"_s));
    QCOMPARE(services.lines(u"screen uninhibit"_s), QStringList());

    services.tell(u"answer"_s);
    QVERIFY(services.waitFor(u"login closed 1"_s));
    QVERIFY(services.waitFor(u"screen uninhibit 1"_s));
}

void tst_KeepAwake::tellsTheAnswersOfTwoRequestsApart()
{
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    Holder holder(m_bus.address(), m_bus.address());
    services.tell(u"delay"_s);
    VERIFY_SETTLED(services);

    for (int request = 1; request <= 2; ++request) {
        QVERIFY(holder.does(u"hold"_s));
        QVERIFY(services.waitFor(loginRequest.arg(request)));
        QVERIFY(services.waitFor(screenRequest.arg(request)));
        if (request == 1)
            QVERIFY(holder.does(u"release"_s));
    }

    // The first reply belongs to a request that is over.
    services.tell(u"answer"_s);
    QVERIFY(services.waitFor(u"login closed 1"_s));
    QVERIFY(services.waitFor(u"screen uninhibit 1"_s));

    services.tell(u"answer"_s);
    QVERIFY(holder.does(u"settle"_s));
    VERIFY_SETTLED(services);
    QVERIFY(!services.lines().contains(u"login closed 2"_s));
    QVERIFY(!services.lines().contains(u"screen uninhibit 2"_s));

    QVERIFY(holder.does(u"release"_s));
    QVERIFY(services.waitFor(u"login closed 2"_s));
    QVERIFY(services.waitFor(u"screen uninhibit 2"_s));
}

void tst_KeepAwake::endsWithAProcessThatIsKilled()
{
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    Holder holder(m_bus.address(), m_bus.address());
    QVERIFY(holder.does(u"hold settle"_s));

    holder.process.kill();
    QVERIFY(services.waitFor(u"login closed 1"_s));
    QVERIFY(services.waitFor(u"screen left 1"_s));
}

void tst_KeepAwake::endsWithAProcessThatLeaves()
{
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    Holder holder(m_bus.address(), m_bus.address());
    QVERIFY(holder.does(u"hold settle quit"_s));
    QVERIFY(services.waitFor(u"login closed 1"_s));
    QVERIFY(services.waitFor(u"screen left 1"_s));
}

void tst_KeepAwake::passesOverWhatIsMissing_data()
{
    QTest::addColumn<bool>("systemBus");
    QTest::addColumn<bool>("sessionBus");
    QTest::addColumn<QStringList>("services");
    QTest::addColumn<QStringList>("events");

    const QStringList both{u"login"_s, u"screen"_s};
    const QStringList loginOnly{loginRequest.arg(1), u"login closed 1"_s, loginRequest.arg(2)};
    const QStringList screenOnly{screenRequest.arg(1), u"screen uninhibit 1"_s, screenRequest.arg(2)};
    QTest::newRow("no bus at all") << false << false << both << QStringList();
    QTest::newRow("no service on the buses") << true << true << QStringList() << QStringList();
    QTest::newRow("no session bus") << true << false << both << loginOnly;
    QTest::newRow("no system bus") << false << true << both << screenOnly;
    QTest::newRow("no screen saver") << true << true << QStringList{u"login"_s} << loginOnly;
    QTest::newRow("no login manager") << true << true << QStringList{u"screen"_s} << screenOnly;
}

void tst_KeepAwake::passesOverWhatIsMissing()
{
    QFETCH(bool, systemBus);
    QFETCH(bool, sessionBus);
    QFETCH(QStringList, services);
    QFETCH(QStringList, events);

    LineProcess there;
    m_bus.startServices(there, services);
    Holder holder(systemBus ? m_bus.address() : deadBusAddress(),
                  sessionBus ? m_bus.address() : deadBusAddress());
    QVERIFY(holder.does(u"hold settle release"_s));
    if (events.size() > 1)
        QVERIFY(there.waitFor(events.at(1)));
    QVERIFY(holder.does(u"hold settle"_s));
    VERIFY_SETTLED(there);

    QStringList told = there.lines(u"login"_s) + there.lines(u"screen"_s);
    QCOMPARE(told, events);
    holder.tell(u"quit"_s);
    QVERIFY(waitUntil([&] { return holder.process.state() == QProcess::NotRunning; }));
    QCOMPARE(holder.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(holder.process.exitCode(), 0);
    QCOMPARE(holder.process.readAllStandardError(), QByteArray());
}

void tst_KeepAwake::passesOverARefusal()
{
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    Holder holder(m_bus.address(), m_bus.address());
    services.tell(u"refuse"_s);
    VERIFY_SETTLED(services);

    QVERIFY(holder.does(u"hold settle release settle quit"_s));
    QVERIFY(waitUntil([&] { return holder.process.state() == QProcess::NotRunning; }));
    QCOMPARE(holder.process.readAllStandardError(), QByteArray());
    VERIFY_SETTLED(services);
    QCOMPARE(services.lines(u"login"_s), QStringList{loginRequest.arg(1)});
    QCOMPARE(services.lines(u"screen"_s), QStringList{screenRequest.arg(1)});
}

void tst_KeepAwake::blocksAShutdown()
{
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    Holder holder(m_bus.address(), m_bus.address());

    for (int round = 1; round <= 2; ++round) {
        QVERIFY(holder.does(u"unblock block block settle"_s));
        VERIFY_SETTLED(services);
        QCOMPARE(services.lines(u"login inhibit"_s).size(), round);
        QCOMPARE(services.lines(u"login inhibit"_s).constLast(), shutdownRequest.arg(round));
        QVERIFY(!services.lines().contains(u"login closed %1"_s.arg(round)));
        QVERIFY(holder.does(u"unblock unblock"_s));
        QVERIFY(services.waitFor(u"login closed %1"_s.arg(round)));
    }
    QCOMPARE(services.lines(u"screen"_s), QStringList());

    QVERIFY(holder.does(u"block settle"_s));
    holder.process.kill();
    QVERIFY(services.waitFor(u"login closed 3"_s));
}

void tst_KeepAwake::staysAwakeWhereNoShutdownMayBeBlocked()
{
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    Holder holder(m_bus.address(), m_bus.address());
    services.tell(u"refuse-shutdown"_s);
    VERIFY_SETTLED(services);

    QVERIFY(holder.does(u"hold block settle"_s));
    VERIFY_SETTLED(services);
    QCOMPARE(services.lines(u"login"_s), QStringList({loginRequest.arg(1), shutdownRequest.arg(2)}));

    QVERIFY(holder.does(u"release unblock"_s));
    QVERIFY(services.waitFor(u"login closed 1"_s));
    QVERIFY(holder.does(u"quit"_s));
    QVERIFY(waitUntil([&] { return holder.process.state() == QProcess::NotRunning; }));
    QCOMPARE(holder.process.readAllStandardError(), QByteArray());
}

void tst_KeepAwake::waitsForNoSilentBus_data()
{
    QTest::addColumn<bool>("systemBus");
    QTest::addColumn<bool>("sessionBus");

    QTest::newRow("silent system bus") << true << false;
    QTest::newRow("silent session bus") << false << true;
    QTest::newRow("both") << true << true;
}

void tst_KeepAwake::waitsForNoSilentBus()
{
    QFETCH(bool, systemBus);
    QFETCH(bool, sessionBus);
    SilentBus silent;
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    Holder holder(systemBus ? silent.address() : m_bus.address(),
                  sessionBus ? silent.address() : m_bus.address());

    // It goes on, and out at last, while the bus has yet to say its first word.
    QVERIFY(holder.does(u"hold block"_s));
    QVERIFY(silent.waitForCaller());
    QVERIFY(silent.callerWaits());
    if (!systemBus) {
        QVERIFY(services.waitFor(loginRequest.arg(1)));
        QVERIFY(services.waitFor(shutdownRequest.arg(2)));
    }
    if (!sessionBus)
        QVERIFY(services.waitFor(screenRequest.arg(1)));
    QVERIFY(holder.does(u"release unblock hold block quit"_s));
    QVERIFY(waitUntil([&] { return holder.process.state() == QProcess::NotRunning; }));
    QCOMPARE(holder.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(holder.process.exitCode(), 0);
    QCOMPARE(holder.process.readAllStandardError(), QByteArray());
}

void tst_KeepAwake::waitsForNoSilentBusOfTheRuntimeDirectory()
{
    SilentBus silent;
    LineProcess services;
    m_bus.startServices(services, {u"login"_s});
    Holder holder(m_bus.address(), {}, silent.runtimeDir());

    QVERIFY(holder.does(u"hold"_s));
    QVERIFY(silent.waitForCaller());
    QVERIFY(services.waitFor(loginRequest.arg(1)));
    QVERIFY(holder.does(u"quit"_s));
    QVERIFY(waitUntil([&] { return holder.process.state() == QProcess::NotRunning; }));
    QCOMPARE(holder.process.readAllStandardError(), QByteArray());
}

void tst_KeepAwake::findsTheSessionBus_data()
{
    QTest::addColumn<QString>("sessionBus");
    QTest::addColumn<QString>("runtimeDir");
    QTest::addColumn<QStringList>("requests");

    const QString nowhere = u"/nonexistent"_s;
    const QString dead = m_deadRuntimeDir.path();
    const QStringList request{screenRequest.arg(1)};
    QTest::newRow("that of the runtime directory") << QString() << m_bus.runtimeDir() << request;
    QTest::newRow("the same where the address is empty") << u""_s << m_bus.runtimeDir() << request;
    QTest::newRow("that of the address") << m_bus.address() << nowhere << request;
    QTest::newRow("whatever the runtime directory has") << m_bus.address() << dead << request;
    QTest::newRow("the address goes first") << deadBusAddress() << m_bus.runtimeDir() << QStringList();
}

void tst_KeepAwake::findsTheSessionBus()
{
    QFETCH(QString, sessionBus);
    QFETCH(QString, runtimeDir);
    QFETCH(QStringList, requests);
    LineProcess services;
    m_bus.startServices(services, {u"screen"_s});
    Holder holder(deadBusAddress(), sessionBus, runtimeDir);
    QVERIFY(holder.does(u"hold settle"_s));
    VERIFY_SETTLED(services);
    QCOMPARE(services.lines(u"screen"_s), requests);
}

void tst_KeepAwake::triesABusAgainThatWasSilent()
{
    const QTemporaryDir dir;
    const QString link = dir.filePath(u"bus"_s);
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    auto silent = std::make_unique<SilentBus>();
    const QString prefix = u"unix:path="_s;
    QVERIFY(QFile::link(silent->address().sliced(prefix.size()), link));
    Holder holder(prefix + link, deadBusAddress());
    QVERIFY(holder.does(u"hold"_s));
    QVERIFY(silent->waitForCaller());
    silent.reset();
    QVERIFY(holder.does(u"settle release"_s));
    QCOMPARE(services.lines(u"login"_s), QStringList());

    // The daemon has been replaced by one that works.
    QVERIFY(QFile::remove(link));
    const QString working = m_bus.address().section(u',', 0, 0);
    QVERIFY(working.startsWith(prefix));
    QVERIFY(QFile::link(working.sliced(prefix.size()), link));
    QVERIFY(holder.does(u"hold settle"_s));
    QVERIFY(services.waitFor(loginRequest.arg(1)));
}

CORVANE_TEST(tst_KeepAwake, QCoreApplication)
#include "tst_KeepAwake.moc"
