#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPair>
#include <QTcpSocket>

namespace corvane::bench {

/// One value of a series and its time, in milliseconds since the epoch.
struct Sample
{
    qint64 timeMs = 0;
    double value = 0;
};

/// A series with the samples that are to be sent. The labels are sorted by name, "__name__" among them.
struct TimeSeries
{
    QList<QPair<QByteArray, QByteArray>> labels;
    QList<Sample> samples;
};

/// The body of a request of Prometheus' remote write protocol, version 0.1.0
/// (https://prometheus.io/docs/specs/prw/remote_write_spec/): a WriteRequest of Protocol Buffers in Snappy's
/// block format (https://github.com/google/snappy/blob/main/format_description.txt), here of literals alone:
/// nothing is made smaller.
[[nodiscard]] QByteArray writeRequest(const QList<TimeSeries> &series);

/// A connection to 127.0.0.1 that posts such bodies, as the agent of one machine does: one after the other,
/// and it stays open. The thread's event loop has to run.
class RemoteWriter : public QObject
{
    Q_OBJECT

public:
    explicit RemoteWriter(quint16 port);

    /// Queues a body.
    void post(const QByteArray &body);

    /// Number of bodies that haven't been answered yet.
    [[nodiscard]] qsizetype waiting() const { return m_bodies.size(); }

    /// The first answer that isn't a success, or why there is none; empty if all went well.
    [[nodiscard]] const QByteArray &failure() const { return m_failure; }

private:
    void send();
    void read();

    QTcpSocket m_socket;
    QList<QByteArray> m_bodies; ///< the first one is under way
    QByteArray m_answer;
    QByteArray m_failure;
};

} // namespace corvane::bench
