#include "engine/host/KeepAwake.h"

#include "engine/host/Inhibitor_linux.h"

#include <QCoreApplication>
#include <QPointer>

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

// They live with the application object.
QPointer<Inhibitor> systemAwake;
QPointer<Inhibitor> displayAwake;

} // namespace

void preventSleep()
{
    const QString why = u"Transmissão ao vivo em andamento"_s;
    if (!systemAwake)
        systemAwake = loginInhibitor(u"idle:sleep"_s, why, QCoreApplication::instance());
    if (!displayAwake)
        displayAwake = screenInhibitor(why, QCoreApplication::instance());
    systemAwake->hold();
    displayAwake->hold();
}

void allowSleep()
{
    if (systemAwake)
        systemAwake->release();
    if (displayAwake)
        displayAwake->release();
}

} // namespace corvane
