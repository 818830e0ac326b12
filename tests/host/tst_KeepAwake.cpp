#include "tests/host/PrivateBus.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

const QString loginRequest = u"login inhibit %1 idle:sleep|holder|Transmissão ao vivo em andamento|block"_s;
const QString screenRequest = u"screen inhibit %1 holder|Transmissão ao vivo em andamento"_s;

/// A program that holds and releases the request, on a bus of the test's own.
class Holder : public LineProcess
{
public:
    Holder(const QString &systemBus, const QString &sessionBus)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"DBUS_SYSTEM_BUS_ADDRESS"_s, systemBus);
        environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, sessionBus);
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

/// The request that keeps a Linux desktop awake, seen from the services that receive it.
class tst_KeepAwake : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void isTakenAndGivenBackOnce();
    void repeatsNothing();
    void isTakenAnew();
    void releasesWhatWasNeverHeld();
    void givesBackAnAnswerThatCameTooLate();
    void tellsTheAnswersOfTwoRequestsApart();
    void endsWithAProcessThatIsKilled();
    void endsWithAProcessThatLeaves();
    void passesOverWhatIsMissing_data();
    void passesOverWhatIsMissing();
    void passesOverARefusal();

private:
    PrivateBus m_bus;
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

    QVERIFY(holder.does(u"hold release hold"_s));
    QVERIFY(services.waitFor(loginRequest.arg(2)));
    QVERIFY(services.waitFor(screenRequest.arg(2)));

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

CORVANE_TEST(tst_KeepAwake, QCoreApplication)
#include "tst_KeepAwake.moc"
