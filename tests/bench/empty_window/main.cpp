// Empty window in the Material style: the least that such a window costs, against which the start of the
// program is measured.

#include "engine/host/EnvironmentProbe.h"
#include "tests/bench/Usage.h"

#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QUrl>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    const QGuiApplication app(argc, argv);

    // The program probes at this point of its start. The time is taken here, so that both can leave it out.
    const qint64 before = corvane::bench::monotonicNs();
    (void)corvane::EnvironmentProbe::run();
    qApp->setProperty("probeNs", corvane::bench::monotonicNs() - before);

    QQmlApplicationEngine qmlEngine;
    qmlEngine.load(QUrl(u"qrc:/qt/qml/EmptyWindow/empty_window/Main.qml"_s));
    return qmlEngine.rootObjects().isEmpty() ? -1 : QGuiApplication::exec();
}
