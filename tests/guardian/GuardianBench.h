#pragma once

#include "tests/guardian/GuardedFolder.h"
#include "tools/guardian/Guardian.h"
#include "tools/guardian/UpdateRecord.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

namespace corvane::test {

/// A guardian at work in a GuardedFolder, its feed a text.
class GuardianBench : public QObject, public GuardedFolder
{
    Q_OBJECT

public:
    GuardianBench();

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

    QByteArray manifest; ///< what the feed answers…
    QString feedError;   ///< …or why it doesn't

private:
    std::unique_ptr<guardian::Guardian> m_guardian;
    QStringList m_lines;
    int m_exitCode = -1;
};

} // namespace corvane::test
