#pragma once

#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace corvane {

/// One transport tool as a child process: what the wrappers of srt-live-transmit and srtla_send share.
///
/// It has no state machine, restarts nothing and parses nothing. Whatever becomes of the child is a line of
/// text and nothing more. One run: a child that died by itself stays, and a second start() does nothing until
/// stop(). stop() and the destructor block for up to 2 s. Thread of the event loop.
class TransportChild : public QObject
{
    Q_OBJECT

public:
    /// What one tool says and is called.
    struct Words
    {
        QString tool;    ///< name for the tool search, and first word of the line that a start leaves
        QString missing; ///< said when the tool isn't found
        QString died;    ///< said after a bad exit; "%1" is the exit code, "%2" (if there) "crash" or "erro"
    };

    /// Looks for the tool at once. One that turns up later is found by its name on PATH alone.
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
    QProcess *m_process = nullptr;
};

} // namespace corvane
