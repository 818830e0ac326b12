#include "app/SessionEnd.h"

#include "engine/Engine.h"

#include <QGuiApplication>
#include <QSessionManager>

namespace corvane {

void objectToSessionEnd(const Engine &engine)
{
    // Direct: the system reads the answer when the signal has been emitted.
    QObject::connect(
        qGuiApp, &QGuiApplication::commitDataRequest, &engine,
        [&engine](QSessionManager &session) {
            if (engine.anyPipelineTransmitting())
                session.cancel();
        },
        Qt::DirectConnection);
}

} // namespace corvane
