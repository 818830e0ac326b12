#pragma once

#include <QGuiApplication>

namespace corvane {

/// The application object. No exception ends the process through the event loop: one that leaves an event
/// handler is logged as a warning, and the loop goes on.
class SafeApp : public QGuiApplication
{
    Q_OBJECT

public:
    using QGuiApplication::QGuiApplication;

    bool notify(QObject *receiver, QEvent *event) override;
};

} // namespace corvane
