#include "tests/bench/LineFigures.h"

#include "tests/bench/Usage.h"

#include <QQmlComponent>
#include <QQmlContext>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTimer>

#include <memory>

namespace corvane::bench {

using namespace Qt::StringLiterals;

void takeLineFigures(QQuickWindow &window, const std::function<void(const QJsonObject &)> &then)
{
    QQmlComponent component(qmlEngine(&window), QUrl(u"qrc:/qt/qml/EmptyWindow/empty_window/Lines.qml"_s));
    auto *lines = qobject_cast<QQuickItem *>(component.createWithInitialProperties(
        {{u"count"_s, qEnvironmentVariableIntValue("CORVANE_MEASURE_PIPELINES")}}));
    if (!lines)
        qFatal("%s", qPrintable(component.errorString()));
    lines->setParent(&window);
    lines->setParentItem(window.contentItem());

    // The first frames, which make the texts, are left out.
    QTimer::singleShot(1000, &window, [&window, then] {
        const auto frames = std::make_shared<int>(0);
        QObject::connect(&window, &QQuickWindow::frameSwapped, &window, [frames] { ++*frames; });
        QTimer::singleShot(qEnvironmentVariableIntValue("CORVANE_MEASURE_SECONDS") * 1000, &window,
                           [frames, then, share = CoreShare()] {
                               then({{u"cpuShare"_s, share.value()}, {u"frames"_s, *frames}});
                           });
    });
}

} // namespace corvane::bench
