#pragma once

#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace corvane {

/// One transport tool as a child process, shared by the wrappers of srt-live-transmit and srtla_send.
///
/// It has no state machine, restarts nothing and parses nothing: the child's output and its end are lines of
/// text. One run: after a child has died by itself, start() does nothing until stop(). stop() and the
/// destructor block for up to 2 s. Thread of the event loop.
class TransportChild : public QObject
{
    Q_OBJECT

public:
    /// Name and log lines of one tool.
    struct Words
    {
        QString tool;    ///< name for the tool search, and first word of a start's line
        QString missing; ///< line for a tool that isn't found
        QString died;    ///< line for a bad exit; "%1" is the exit code, "%2" (if there) "crash" or "erro"
    };

    /// Searches the tool once. One that is installed later is started by its name, from PATH alone.
    TransportChild(Words words, QObject *parent);
    ~TransportChild() override;

    /// Runs the tool with `arguments`. Does nothing while there is a child, living or dead.
    void start(const QStringList &arguments);

    /// Asks the child to terminate, waits for up to 2000 ms, then kills it. Safe to repeat.
    void stop();

Q_SIGNALS:
    void logLine(QString line);

private:
    [[nodiscard]] bool available() const;
    void passOn(const QByteArray &output);
    void onFinished(int exitCode, QProcess::ExitStatus exitStatus);

    Words m_words;
    QString m_program;
    QProcess *m_process = nullptr; ///< null before start() and from the beginning of stop() on
};

} // namespace corvane
