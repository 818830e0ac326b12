#include "tools/guardian/RotatingLog.h"

#include "tools/guardian/PrintableText.h"

#include <QByteArray>
#include <QDateTime>
#include <QFile>

#include <utility>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

RotatingLog::RotatingLog(QString path, qint64 largest, int kept)
    : m_path(std::move(path))
    , m_largest(largest)
    , m_kept(kept)
{
}

void RotatingLog::append(const QDateTime &now, const QString &text)
{
    const QByteArray bytes = (now.toString(Qt::ISODate) + u' ' + printable(text)).toUtf8() + '\n';

    QFile file(m_path);
    if (file.size() > 0 && file.size() + bytes.size() > m_largest)
        rotate();
    if (file.open(QIODevice::WriteOnly | QIODevice::Append))
        file.write(bytes);
}

void RotatingLog::rotate() const
{
    const auto numbered = [this](int number) {
        return number > 0 ? u"%1.%2"_s.arg(m_path).arg(number) : m_path;
    };
    QFile::remove(numbered(m_kept));
    for (int number = m_kept; number > 0; --number)
        QFile::rename(numbered(number - 1), numbered(number));
}

} // namespace corvane::guardian
