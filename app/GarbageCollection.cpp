#include "app/GarbageCollection.h"

#include <QByteArray>

namespace corvane {

void disableIncrementalCollection()
{
    constexpr auto limit = "QV4_GC_TIMELIMIT";
    if (!qEnvironmentVariableIsSet(limit))
        qputenv(limit, "0");
}

} // namespace corvane
