#include "engine/host/ShutdownBlock.h"

#include "engine/host/Inhibitor_linux.h"

#include <QCoreApplication>
#include <QPointer>

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

QPointer<Inhibitor> shutdown; ///< lives with the application object

} // namespace

void blockShutdown()
{
    // A request of its own: where the user may not put off a shutdown, the keep-awake request still holds.
    if (!shutdown)
        shutdown = loginInhibitor(u"shutdown"_s, u"Transmissão no ar"_s, QCoreApplication::instance());
    shutdown->hold();
}

void allowShutdown()
{
    if (shutdown)
        shutdown->release();
}

} // namespace corvane
