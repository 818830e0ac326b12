// A version that shows its window and dies before its first heartbeat.

#include <QCoreApplication>
#include <QTimer>

#include <cstdlib>

namespace {

void crashSoon()
{
    QTimer::singleShot(0, qApp, [] { std::abort(); });
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(crashSoon)
