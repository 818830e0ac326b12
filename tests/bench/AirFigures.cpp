#include "tests/bench/AirFigures.h"

#include "tests/bench/TurnClock.h"

#include <QCoreApplication>
#include <QEvent>
#include <QQuickWindow>
#include <QTimer>
#include <QVariant>

namespace corvane::bench {

using namespace Qt::StringLiterals;

namespace {

constexpr int settleMs = 3000; ///< longer than any interval of a pipeline: each of its timers has fired
constexpr int periodMs = 500;  ///< from one line of an encoder to its next
constexpr int lookAgainMs = 20;
constexpr qsizetype fullLog = 59'000; ///< characters; it is cut at 60,000

} // namespace

AirFigures::AirFigures(QQuickWindow &window, QObject &engine, QObject *parent)
    : QObject(parent)
    , m_window(window)
    , m_engine(engine)
{
}

void AirFigures::start()
{
    const QString url = qEnvironmentVariable("CORVANE_MEASURE_OUTPUT");
    const int count = qEnvironmentVariableIntValue("CORVANE_MEASURE_PIPELINES");
    QStringList ids;
    for (int i = 0; i < count; ++i) {
        QString &id = ids.emplaceBack();
        QMetaObject::invokeMethod(&m_engine, "addPipeline", Q_RETURN_ARG(QString, id),
                                  Q_ARG(QString, QString()));
        QMetaObject::invokeMethod(&m_engine, "addRtmpOutput", Q_ARG(QString, id), Q_ARG(QString, url));
    }
    // Objects replaced by an edit are deleted first, so that the pipelines found are those of the registry.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    if (qEnvironmentVariableIsSet("CORVANE_MEASURE_REFRESH")) {
        const QObjectList children = m_engine.children();
        for (QObject *child : children) {
            if (child->inherits("corvane::Pipeline"))
                connect(child, SIGNAL(telemetryChanged()), &m_engine, SIGNAL(pipelinesChanged()));
        }
    }
    // Encoders in step would share the frames that show their lines, few of them more than many.
    for (int i = 0; i < count; ++i) {
        QTimer::singleShot(i * periodMs / count, this, [this, id = ids.at(i)] {
            QMetaObject::invokeMethod(&m_engine, "startPipeline", Q_ARG(QString, id));
        });
    }
    fillLog();
    awaitAir();
}

QStringList AirFigures::states() const
{
    QStringList states;
    const QVariantList rows = m_engine.property("pipelines").toList();
    for (const QVariant &row : rows)
        states << row.toMap().value(u"state"_s).toString();
    return states;
}

/// A program that has run for a while has a full log.
void AirFigures::fillLog()
{
    QObject *speaker = nullptr;
    const QObjectList children = m_engine.children();
    for (QObject *child : children) {
        if (child->inherits("corvane::Pipeline"))
            speaker = child;
    }
    while (m_engine.property("log").toString().size() < fullLog)
        QMetaObject::invokeMethod(speaker, "logLine", Q_ARG(QString, QString(110, u'.')));
}

void AirFigures::awaitAir()
{
    const QStringList all = states();
    if (all.count(u"running"_s) == all.size())
        QTimer::singleShot(settleMs, this, &AirFigures::measure);
    else
        QTimer::singleShot(lookAgainMs, this, &AirFigures::awaitAir);
}

void AirFigures::measure()
{
    connect(&m_engine, SIGNAL(logChanged()), this, SLOT(countLogChange()));
    connect(&m_engine, SIGNAL(pipelinesChanged()), this, SLOT(countListChange()));
    connect(&m_window, &QQuickWindow::frameSwapped, this, [this] { ++m_frames; });
    m_share.emplace();
    m_turns = new TurnClock(this);
    QTimer::singleShot(qEnvironmentVariableIntValue("CORVANE_MEASURE_SECONDS") * 1000, this,
                       &AirFigures::finish);
}

void AirFigures::finish()
{
    Q_EMIT taken({
        {u"cpuShare"_s, m_share->value()},
        {u"longestTurnNs"_s, double(m_turns->longestNs())},
        {u"turns"_s, m_turns->turns()},
        {u"frames"_s, m_frames},
        {u"logChanges"_s, m_logChanges},
        {u"listChanges"_s, m_listChanges},
        {u"running"_s, states().count(u"running"_s)},
    });
}

} // namespace corvane::bench
