#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTcpSocket>
#include <QTimer>

namespace corvane::test {

/// Request of a scraper.
inline constexpr auto scrapeRequest = "GET /metrics HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: */*\r\n\r\n";

/// A client of a local port. It keeps every byte that it gets.
class Client : public QTcpSocket
{
    Q_OBJECT

public:
    /// Connected when the constructor returns, if the port takes connections at all.
    explicit Client(quint16 port);

    [[nodiscard]] const QByteArray &received() const { return m_received; }

    /// Runs the event loop until the other side has closed; false if it doesn't.
    [[nodiscard]] bool waitForEnd(int timeoutMs = 20000);

private:
    QByteArray m_received;
};

/// Sends `request` to a local port and returns everything received until the other side closes; empty if it
/// doesn't.
[[nodiscard]] QByteArray ask(quint16 port, const QByteArray &request = scrapeRequest);

/// Body of a response, behind the blank line.
[[nodiscard]] QByteArray bodyOf(const QByteArray &response);

/// Longest time that the event loop of this thread kept its timers waiting.
class LoopWatch : public QObject
{
    Q_OBJECT

public:
    LoopWatch();

    [[nodiscard]] qint64 longestTurnMs() const;

private:
    QTimer m_timer;
    QElapsedTimer m_sinceTurn;
    qint64 m_longestMs = 0;
};

/// Output of a program up to its exit.
struct ToolRun
{
    QByteArray output; ///< of both streams
    int exitCode = -1; ///< -1: it didn't start, or didn't exit
};

/// Runs a program to its exit while the event loop goes on.
[[nodiscard]] ToolRun runTool(const QString &program, const QStringList &arguments,
                              const QByteArray &input = {});

/// Lines that open every scrape.
[[nodiscard]] QString metricsHeader();

} // namespace corvane::test
