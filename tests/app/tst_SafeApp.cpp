#include "app/SafeApp.h"
#include "tests/support/Runner.h"

#include <QEvent>
#include <QTest>
#include <QTimer>

#include <stdexcept>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

/// Leaves an event handler in the way given by its number.
enum class Thrown { RuntimeError, OwnStandardException, Percent, EmptyText, Number, Text, QtText };

class OwnException : public std::exception
{
public:
    const char *what() const noexcept override { return "saída inválida"; }
};

void raise(Thrown thrown)
{
    switch (thrown) {
    case Thrown::RuntimeError:
        throw std::runtime_error("Pipeline sem saídas habilitadas");
    case Thrown::OwnStandardException:
        throw OwnException();
    case Thrown::Percent:
        throw std::logic_error("100%s %d");
    case Thrown::EmptyText:
        throw std::runtime_error("");
    case Thrown::Number:
        throw 42; // NOLINT(bugprone-exception-escape): that anything can be thrown is what is tested
    case Thrown::Text:
        throw "text"; // NOLINT(bugprone-exception-escape)
    case Thrown::QtText:
        throw u"text"_s;
    }
}

/// Route by which the loop comes to the handler that throws.
enum class Road { Timer, QueuedCall, PostedEvent };

constexpr auto throwingEvent = static_cast<QEvent::Type>(QEvent::User + 1);
constexpr auto refusedEvent = static_cast<QEvent::Type>(QEvent::User + 2);

class Receiver : public QObject
{
    Q_OBJECT

public:
    explicit Receiver(Thrown thrown)
        : m_thrown(thrown)
    {
    }

    bool event(QEvent *event) override
    {
        if (event->type() == throwingEvent)
            work();
        return event->type() != refusedEvent && QObject::event(event);
    }

public Q_SLOTS:
    void work()
    {
        ++calls;
        raise(m_thrown);
    }

public:
    int calls = 0;

private:
    Thrown m_thrown;
};

/// Collects the log messages while it lives; none of them reaches the test's own log.
class LoggedLines
{
public:
    LoggedLines()
    {
        lines.clear();
        m_previous =
            qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
                lines << (type == QtWarningMsg ? "warning: "_L1 : "other: "_L1) + text;
            });
    }
    ~LoggedLines() { qInstallMessageHandler(m_previous); }
    Q_DISABLE_COPY_MOVE(LoggedLines)

    static inline QStringList lines;

private:
    QtMessageHandler m_previous;
};

} // namespace

class tst_SafeApp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void logsAnExceptionOnceAndGoesOn_data();
    void logsAnExceptionOnceAndGoesOn();
    void notifyAnswersFalseForAnException_data();
    void notifyAnswersFalseForAnException();
    void notifyPassesOnWhatTheReceiverAnswers();
    void logsEveryExceptionOfMany();
};

namespace {

void addExceptions()
{
    QTest::addColumn<Thrown>("thrown");
    QTest::addColumn<QString>("warning");

    QTest::newRow("standard exception")
        << Thrown::RuntimeError
        << u"warning: Exceção capturada no event loop: Pipeline sem saídas habilitadas"_s;
    QTest::newRow("class derived from std::exception")
        << Thrown::OwnStandardException << u"warning: Exceção capturada no event loop: saída inválida"_s;
    QTest::newRow("text that looks like a format")
        << Thrown::Percent << u"warning: Exceção capturada no event loop: 100%s %d"_s;
    QTest::newRow("standard exception without a text")
        << Thrown::EmptyText << u"warning: Exceção capturada no event loop: "_s;
    QTest::newRow("number") << Thrown::Number << u"warning: Exceção desconhecida capturada no event loop"_s;
    QTest::newRow("text") << Thrown::Text << u"warning: Exceção desconhecida capturada no event loop"_s;
    QTest::newRow("object of another class")
        << Thrown::QtText << u"warning: Exceção desconhecida capturada no event loop"_s;
}

} // namespace

void tst_SafeApp::logsAnExceptionOnceAndGoesOn_data()
{
    QTest::addColumn<Road>("road");
    QTest::addColumn<Thrown>("thrown");
    QTest::addColumn<QString>("warning");

    const struct
    {
        const char *name;
        Road road;
    } roads[] = {
        {"timer", Road::Timer}, {"queued call", Road::QueuedCall}, {"posted event", Road::PostedEvent}};
    for (const auto &[name, road] : roads) {
        QTest::addRow("standard exception from a %s", name)
            << road << Thrown::RuntimeError
            << u"warning: Exceção capturada no event loop: Pipeline sem saídas habilitadas"_s;
        QTest::addRow("any other exception from a %s", name)
            << road << Thrown::Number << u"warning: Exceção desconhecida capturada no event loop"_s;
    }
}

void tst_SafeApp::logsAnExceptionOnceAndGoesOn()
{
    QFETCH(const Road, road);
    QFETCH(const Thrown, thrown);
    QFETCH(const QString, warning);

    Receiver receiver(thrown);
    switch (road) {
    case Road::Timer:
        QTimer::singleShot(0, &receiver, &Receiver::work);
        break;
    case Road::QueuedCall:
        QMetaObject::invokeMethod(&receiver, &Receiver::work, Qt::QueuedConnection);
        break;
    case Road::PostedEvent:
        QCoreApplication::postEvent(&receiver, new QEvent(throwingEvent));
        break;
    }
    // It still runs two turns of the loop later, and exits only when asked to.
    bool wentOn = false;
    QTimer::singleShot(10, &receiver, [&] {
        wentOn = true;
        QTimer::singleShot(0, &receiver, [] { QCoreApplication::exit(7); });
    });

    const LoggedLines logged;
    const int exitCode = QCoreApplication::exec();

    QCOMPARE(logged.lines, QStringList{warning});
    QCOMPARE(receiver.calls, 1);
    QVERIFY(wentOn);
    QCOMPARE(exitCode, 7);
}

void tst_SafeApp::notifyAnswersFalseForAnException_data()
{
    addExceptions();
}

void tst_SafeApp::notifyAnswersFalseForAnException()
{
    QFETCH(const Thrown, thrown);
    QFETCH(const QString, warning);

    Receiver receiver(thrown);
    QEvent event(throwingEvent);
    const LoggedLines logged;

    const bool answer = qApp->notify(&receiver, &event);

    QCOMPARE(logged.lines, QStringList{warning});
    QCOMPARE(receiver.calls, 1);
    QCOMPARE(answer, false);
}

void tst_SafeApp::notifyPassesOnWhatTheReceiverAnswers()
{
    Receiver receiver(Thrown::Number);
    QEvent taken(QEvent::User);
    QEvent refused(refusedEvent);
    const LoggedLines logged;

    const bool answerToTaken = qApp->notify(&receiver, &taken);
    const bool answerToRefused = qApp->notify(&receiver, &refused);

    QCOMPARE(answerToTaken, true);
    QCOMPARE(answerToRefused, false);
    QCOMPARE(logged.lines, QStringList());
}

void tst_SafeApp::logsEveryExceptionOfMany()
{
    Receiver standard(Thrown::RuntimeError);
    Receiver other(Thrown::Text);
    for (int i = 0; i < 2; ++i) {
        QMetaObject::invokeMethod(&standard, &Receiver::work, Qt::QueuedConnection);
        QMetaObject::invokeMethod(&other, &Receiver::work, Qt::QueuedConnection);
    }
    QMetaObject::invokeMethod(
        qApp, [] { QCoreApplication::exit(0); }, Qt::QueuedConnection);

    const LoggedLines logged;
    QCoreApplication::exec();

    const QString known = u"warning: Exceção capturada no event loop: Pipeline sem saídas habilitadas"_s;
    const QString unknown = u"warning: Exceção desconhecida capturada no event loop"_s;
    QCOMPARE(logged.lines, QStringList({known, unknown, known, unknown}));
}

CORVANE_TEST(tst_SafeApp, corvane::SafeApp)
#include "tst_SafeApp.moc"
