#pragma once

#include <QString>
#include <QtGlobal>

class QDateTime;

namespace corvane::guardian {

/// A log file that doesn't grow for ever: past its size it becomes "<path>.1", that one "<path>.2", and so on
/// up to the number kept. A line that can't be written is lost without a word.
class RotatingLog
{
public:
    explicit RotatingLog(QString path, qint64 largest = 1 << 20, int kept = 3);

    /// One line with the time before it; of `text` what printable() leaves.
    void append(const QDateTime &now, const QString &text);

    [[nodiscard]] QString path() const { return m_path; }

private:
    void rotate() const;

    QString m_path;
    qint64 m_largest;
    int m_kept;
};

} // namespace corvane::guardian
