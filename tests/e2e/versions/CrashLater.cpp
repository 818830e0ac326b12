// A version that comes up and dies a few heartbeats later, each time.

#include <QCoreApplication>
#include <QTimer>

#include <chrono>
#include <cstdlib>

namespace {

void crashLater()
{
    constexpr std::chrono::seconds afterSomeBeats(9);
    QTimer::singleShot(afterSomeBeats, qApp, [] { std::abort(); });
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(crashLater)
