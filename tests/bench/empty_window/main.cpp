// The least that a window in the Material style costs: what the start of the program is measured against.

#include "engine/host/EnvironmentProbe.h"
#include "tests/bench/Usage.h"

#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QUrl>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    const QGuiApplication app(argc, argv);

    // The program probes at this point of its start. Here the time is taken, so that it can be left out of
    // both.
    const qint64 before = corvane::bench::monotonicNs();
    (void)corvane::EnvironmentProbe::run();
    qApp->setProperty("probeNs", corvane::bench::monotonicNs() - before);

    QQmlApplicationEngine qmlEngine;
    qmlEngine.load(QUrl(u"qrc:/qt/qml/EmptyWindow/empty_window/Main.qml"_s));
    return qmlEngine.rootObjects().isEmpty() ? -1 : QGuiApplication::exec();
}
