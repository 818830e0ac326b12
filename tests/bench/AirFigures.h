#pragma once

#include "tests/bench/Usage.h"

#include <QJsonObject>
#include <QObject>
#include <QStringList>

#include <optional>

class QQuickWindow;

namespace corvane::bench {

class TurnClock;

/// Puts pipelines on air through the engine's operations and measures what they cost this process: share of
/// one core, longest turn of the event loop (processor time of its thread), frames. The environment gives
///
///   CORVANE_MEASURE_PIPELINES=N   their number
///   CORVANE_MEASURE_OUTPUT=URL    the output of each
///   CORVANE_MEASURE_SECONDS=N     duration
///   CORVANE_MEASURE_REFRESH=1     figures reach the list too, as those of unedited pipelines do
class AirFigures : public QObject
{
    Q_OBJECT

public:
    AirFigures(QQuickWindow &window, QObject &engine, QObject *parent);

    void start();

Q_SIGNALS:
    void taken(const QJsonObject &figures);

private Q_SLOTS:
    void countLogChange() { ++m_logChanges; }
    void countListChange() { ++m_listChanges; }

private:
    void fillLog();
    void awaitAir();
    void measure();
    void finish();
    [[nodiscard]] QStringList states() const;

    QQuickWindow &m_window;
    QObject &m_engine;
    TurnClock *m_turns = nullptr;
    std::optional<CoreShare> m_share;
    int m_frames = 0;
    int m_logChanges = 0;
    int m_listChanges = 0;
};

} // namespace corvane::bench
