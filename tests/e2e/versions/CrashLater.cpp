// A version that comes up and dies after its second heartbeat, each time.

#include <QCoreApplication>
#include <QTimer>

#include <chrono>
#include <cstdlib>

namespace {

void crashLater()
{
    constexpr std::chrono::milliseconds afterTwoBeats(5500);
    QTimer::singleShot(afterTwoBeats, qApp, [] { std::abort(); });
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(crashLater)
