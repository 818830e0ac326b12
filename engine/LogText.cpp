#include "engine/LogText.h"

#include <QTime>

namespace corvane {

using namespace Qt::StringLiterals;

constexpr qsizetype longestLog = 60000;
constexpr qsizetype keptLog = 40000;

void appendLogLine(QString &log, const QString &line, const QTime &now)
{
    log += now.toString(u"HH:mm:ss "_s) + line + u'\n';
    if (log.size() > longestLog)
        log = log.last(keptLog);
}

} // namespace corvane
