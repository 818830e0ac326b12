#include "engine/host/BusConnection_linux.h"
#include "tests/host/PrivateBus.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTest>

#include <csignal>
#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

volatile std::sig_atomic_t brokenPipes = 0;

void countBrokenPipe(int /*signal*/)
{
    brokenPipes = brokenPipes + 1;
}

} // namespace

/// The question to a bus daemon that goes before a connection to it.
class tst_BusConnection : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void recognisesABusThatAnswers_data();
    void recognisesABusThatAnswers();
    void awaitsNoAnswerOfABusThatCloses();
    void leavesNoDescriptorOpen();
    void survivesABusThatClosesBeforeTheQuestion();

private:
    PrivateBus m_bus;
};

void tst_BusConnection::initTestCase()
{
    if (!m_bus.problem().isEmpty())
        QSKIP(qPrintable(m_bus.problem()));
}

void tst_BusConnection::recognisesABusThatAnswers_data()
{
    QTest::addColumn<QString>("address"); // %1: the path of a bus that answers
    QTest::addColumn<bool>("answers");

    QTest::newRow("a bus") << u"unix:path=%1"_s << true;
    QTest::newRow("other keys beside the path") << u"unix:guid=0123,path=%1,x=y"_s << true;
    QTest::newRow("percent-encoded path") << u"unix:path=%2f..%1"_s << true;
    QTest::newRow("the second of two addresses") << u"unix:path=/nonexistent/bus;unix:path=%1"_s << true;
    QTest::newRow("no such socket") << u"unix:path=/nonexistent/bus"_s << false;
    QTest::newRow("no such abstract socket") << u"unix:abstract=/nonexistent/corvane-test-bus"_s << false;
    QTest::newRow("path that no socket can have") << u"unix:path=/%1"_s.arg(QString(200, u'x')) << false;
    QTest::newRow("not a socket of this machine") << u"tcp:host=localhost,port=1"_s << true;
    QTest::newRow("left to the library") << QString() << true;
    QTest::newRow("unix, but without a path") << u"unix:runtime=yes"_s << true;
}

void tst_BusConnection::recognisesABusThatAnswers()
{
    QFETCH(QString, address);
    const QString path = m_bus.address().section(u',', 0, 0).section(u'=', 1);
    QTEST(busAnswers(address.replace("%1"_L1, path).toUtf8(), [] { return false; }), "answers");
}

void tst_BusConnection::awaitsNoAnswerOfABusThatCloses()
{
    auto bus = std::make_unique<SilentBus>();
    int looks = 0;
    QVERIFY(!busAnswers(bus->address().toUtf8(), [&] {
        bus.reset();
        return ++looks > 1;
    }));
    QCOMPARE(looks, 1);
}

void tst_BusConnection::leavesNoDescriptorOpen()
{
    const SilentBus silent;
    const ClosingBus closing;
    const auto goOn = [] { return false; };
    const qsizetype descriptors = openDescriptors();

    QVERIFY(busAnswers(m_bus.address().toUtf8(), goOn));
    QCOMPARE(openDescriptors(), descriptors);
    QVERIFY(!busAnswers(silent.address().toUtf8(), [] { return true; }));
    QCOMPARE(openDescriptors(), descriptors);
    QVERIFY(!busAnswers(deadBusAddress().toUtf8(), goOn));
    QCOMPARE(openDescriptors(), descriptors);
    QVERIFY(!busAnswers(closing.address().toUtf8(), goOn));
    QVERIFY(waitUntil([&] { return closing.callers() == 1; }));
    QCOMPARE(openDescriptors(), descriptors);
}

void tst_BusConnection::survivesABusThatClosesBeforeTheQuestion()
{
    const ClosingBus closing;
    brokenPipes = 0;
    const auto before = std::signal(SIGPIPE, countBrokenPipe); // what a process has that ignores none
    int questions = 0;
    bool answered = false;
    bool sent = true;
    while (!answered && sent && questions < 100000) {
        ++questions;
        sent = false;
        answered = busAnswers(closing.address().toUtf8(), [&] {
            sent = true; // asked only of who waits for an answer
            return false;
        });
    }
    (void)std::signal(SIGPIPE, before);
    QVERIFY(!answered);
    QVERIFY(!sent);
    QVERIFY(waitUntil([&] { return closing.callers() == questions; }));
    QCOMPARE(int(brokenPipes), 0);
}

CORVANE_TEST(tst_BusConnection, QCoreApplication)
#include "tst_BusConnection.moc"
