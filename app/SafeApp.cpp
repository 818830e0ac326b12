#include "app/SafeApp.h"

#include <exception>

namespace corvane {

bool SafeApp::notify(QObject *receiver, QEvent *event)
{
    try {
        return QGuiApplication::notify(receiver, event);
    } catch (const std::exception &error) {
        qWarning("Exceção capturada no event loop: %s", error.what());
    } catch (...) {
        qWarning("Exceção desconhecida capturada no event loop");
    }
    return false;
}

} // namespace corvane
