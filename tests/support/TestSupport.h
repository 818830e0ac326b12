#pragma once

#include "pipeline/Pipeline.h"

#include <QString>
#include <QStringList>

#include <functional>

/// Basics that tests of several folders share.
namespace corvane::test {

[[nodiscard]] QString fakeFfmpeg();     ///< path of tests/children/fake_ffmpeg
[[nodiscard]] QString fakeTransport();  ///< path of tests/children/fake_transport
[[nodiscard]] QString srtlaRelay();     ///< path of tests/children/srtla_relay
[[nodiscard]] QString corvaneProgram(); ///< path of the built program

/// Patience with a server of a test: another program may take its port between the question for one and its
/// use.
constexpr int serverStartAttempts = 5;
constexpr int serverStartTimeoutMs = 10000;

/// Percent-encodes `bytes` as an argument of a step of fake_ffmpeg.
[[nodiscard]] QString stepText(const QByteArray &bytes);

/// A default record with id "cafe0001", name "Teste" and one RTMP output whose URL is "fake:" and `steps`.
[[nodiscard]] PipelineConfig fakeConfig(const QString &steps);

/// Gives each of the pipeline's figures a value of its own: rttMs 41.5, sendRate 42.5, linkCapacity 43.5,
/// sndDrop 44, retrans 45, rcvLoss 46, fps 47.5, dropped 48, bitrateKbps 49.5, loadPercent 50.5,
/// thermalState 51. Some of them have no source yet, but readers.
void setEachFigure(Pipeline &pipeline);

/// Every signal of a Pipeline, in order: "state starting", "log …", "stats …", "circuit …", "telemetry",
/// "quality N name". Connected for the life of this object.
class Recorder : public QObject
{
    Q_OBJECT

public:
    explicit Recorder(const Pipeline &pipeline);

    [[nodiscard]] const QStringList &events() const { return m_events; }
    [[nodiscard]] QStringList logLines() const; ///< the "log " events, without that word
    [[nodiscard]] qsizetype count(const QString &event) const;
    [[nodiscard]] bool contains(const QString &event) const { return count(event) > 0; }
    [[nodiscard]] bool containsPart(const QString &part) const; ///< part of some event
    void clear() { m_events.clear(); }

Q_SIGNALS:
    void added(); ///< after each event

private:
    void add(const QString &event);

    QStringList m_events;
};

/// Runs the event loop until `condition` holds, evaluated after every event; false after `timeoutMs`.
bool waitUntil(const std::function<bool()> &condition, int timeoutMs = 60000);

/// Runs the event loop until a timer of `ms` that starts now has fired. Timers fire in the order in which
/// they are due, so a shorter one that was started before has fired by then: its lack of effect shows.
void passTimersOf(int ms);

/// The recorded events as a list that can be compared in full: figures ("stats …", "telemetry") are left out,
/// the command line of a start reads "log ffmpeg <arguments>", and a process id "<pid>".
[[nodiscard]] QStringList outline(const Recorder &recorder);

/// Process id in the last "ffmpeg rodando" line; 0 without one.
[[nodiscard]] qint64 lastPid(const Recorder &recorder);

/// State in which start() leaves a pipeline whose encoder can be launched.
[[nodiscard]] Pipeline::State launchedState();

/// Text form of a state as the recorder writes it: "stopped", "starting", "running", "failed".
[[nodiscard]] QString stateName(Pipeline::State state);

} // namespace corvane::test
