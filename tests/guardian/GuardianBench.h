#pragma once

#include "tests/guardian/GuardedFolder.h"
#include "tools/guardian/Supervisor.h"
#include "tools/guardian/UpdateRecord.h"

#include <QByteArray>
#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <memory>

namespace corvane::test {

/// A guardian at work in a GuardedFolder, its feed a text.
class GuardianBench : public QObject, public GuardedFolder
{
    Q_OBJECT

public:
    GuardianBench();

    /// Patience with a version that shows no sign of life, for tests in which it runs out: a multiple of what
    /// a program takes to start here, so that what it does at its start comes before that.
    [[nodiscard]] static std::chrono::milliseconds shortPatience();

    /// Begins, or begins anew: a guardian that was at work is gone.
    void guard(const guardian::GuardianSettings &settings);

    /// Stages a package whose program does what `behaviour` says, offers it in the feed and makes the
    /// request.
    void stageAndRequest(const QByteArray &version, const QByteArray &behaviour);

    [[nodiscard]] QStringList lines() const { return m_lines; } ///< of the log, since guard()
    [[nodiscard]] bool waitForLine(const QString &part) const;
    [[nodiscard]] bool waitForBeats() const; ///< of the first run
    [[nodiscard]] bool waitForStarts(qsizetype count) const;
    [[nodiscard]] bool waitForFinish() const;
    [[nodiscard]] int exitCode() const { return m_exitCode; } ///< -1 before the guardian has finished

    [[nodiscard]] guardian::UpdateRecord record() const;
    [[nodiscard]] QByteArray installed() const { return versionIn(installation().directory); }

    /// A run of the installed program that somebody else has started, with the marks in `runtimeDirectory`.
    /// It ends with the bench at the latest. Returns when its start has been written down.
    void startBySomebody(const QString &runtimeDirectory);
    /// The same, and returns as soon as the process is there.
    void launchBySomebody(const QString &runtimeDirectory);
    [[nodiscard]] bool somebodysRunLives() const;
    /// Has the run by somebody end in order.
    void endSomebodysRun();

    QByteArray manifest;    ///< what the feed answers…
    QString feedError;      ///< …or why it doesn't
    bool feedWaits = false; ///< it doesn't answer before answerFeed()
    [[nodiscard]] bool isFeedAsked() const { return m_answer != nullptr; }
    void answerFeed();
    int feedQuestions = 0; ///< so far

    std::function<void(const QString &line)> onLine; ///< sees each line of the log

private:
    QProcess m_somebody;
    QString m_somebodysDirectory;
    guardian::ManifestAnswer m_answer; ///< that waits
    std::unique_ptr<guardian::Supervisor> m_guardian;
    QStringList m_lines;
    int m_exitCode = -1;
};

/// A test class of which every function has a bench of its own. The log of one that fails is shown.
class GuardianBenchTest : public QObject
{
    Q_OBJECT

protected:
    std::unique_ptr<GuardianBench> m_bench;

private Q_SLOTS:
    void init();
    void cleanup();
};

} // namespace corvane::test
