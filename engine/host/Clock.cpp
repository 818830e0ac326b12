#include "engine/host/Clock.h"

#include <QDateTime>

namespace corvane {

qint64 nowMs()
{
    return QDateTime::currentMSecsSinceEpoch();
}

} // namespace corvane
