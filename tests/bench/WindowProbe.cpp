// A plugin that a program with a window loads into itself when QT_QPA_GENERIC_PLUGINS names it: it measures
// the running program from within, writes what it found as one JSON object, and quits.
//
//   CORVANE_MEASURE_REPORT=PATH   where the object goes
//   CORVANE_MEASURE_SINCE=NS      monotonic time at which the process was started
//   CORVANE_MEASURE=start         the start: up to the first frame, and to the rest that follows it
//   CORVANE_MEASURE=air           the start, then what AirFigures measures
//   CORVANE_MEASURE=log           the start, then what LogFigures measures

#include "tests/bench/AirFigures.h"
#include "tests/bench/LogFigures.h"
#include "tests/bench/Usage.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QGenericPlugin>
#include <QJsonDocument>
#include <QJsonObject>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QSaveFile>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace corvane::bench;

namespace {

constexpr int restMs = 500;
constexpr qint64 restCpuNs = 5'000'000; ///< what a program at rest may use in that time

QObject *engineOf(const QQuickWindow *window)
{
    const QQmlContext *context = qmlContext(window);
    return context ? context->engine()->rootContext()->contextProperty(u"engine"_s).value<QObject *>()
                   : nullptr;
}

} // namespace

/// Waits for the first window of Qt Quick and then takes the figures that are asked for.
class WindowProbe : public QObject
{
    Q_OBJECT

public:
    explicit WindowProbe(QObject *parent)
        : QObject(parent)
    {
        qApp->installEventFilter(this);
    }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *window = qobject_cast<QQuickWindow *>(watched);
        if (window && event->type() == QEvent::Expose) {
            qApp->removeEventFilter(this);
            m_window = window;
            connect(window, &QQuickWindow::frameSwapped, this, &WindowProbe::onFirstFrame,
                    Qt::ConnectionType(Qt::DirectConnection | Qt::SingleShotConnection));
        }
        return false;
    }

private:
    void onFirstFrame()
    {
        const qint64 since = qEnvironmentVariable("CORVANE_MEASURE_SINCE").toLongLong();
        m_figures.insert(u"firstFrameNs"_s, double(monotonicNs() - since));
        // The two threads whose work follows one upon the other: this one and the one that loads documents.
        const QByteArray own =
            QFileInfo(QCoreApplication::applicationFilePath()).fileName().toLatin1().left(15);
        m_figures.insert(u"firstFrameCpuNs"_s, double(threadsCpuNs({own, "QQmlThread"})));
        m_figures.insert(u"firstFrameKib"_s, double(residentKib()));
        m_figures.insert(u"probeNs"_s, qApp->property("probeNs").toDouble());
        awaitRest();
    }

    void awaitRest()
    {
        const qint64 before = processCpuNs();
        QTimer::singleShot(restMs, this, [this, before] {
            if (processCpuNs() - before > restCpuNs)
                awaitRest();
            else
                onRest();
        });
    }

    void onRest()
    {
        m_figures.insert(u"restKib"_s, double(residentKib()));
        const QString what = qEnvironmentVariable("CORVANE_MEASURE");
        if (what == "air"_L1) {
            auto *air = new AirFigures(*m_window, *engineOf(m_window), this);
            connect(air, &AirFigures::taken, this, &WindowProbe::finish);
            air->start();
        } else if (what == "log"_L1) {
            finish(logFigures(*m_window, *engineOf(m_window)));
        } else {
            finish({});
        }
    }

    void finish(const QJsonObject &more)
    {
        for (auto figure = more.begin(); figure != more.end(); ++figure)
            m_figures.insert(figure.key(), figure.value());
        QSaveFile report(qEnvironmentVariable("CORVANE_MEASURE_REPORT"));
        if (report.open(QIODevice::WriteOnly)) {
            report.write(QJsonDocument(m_figures).toJson());
            report.commit();
        }
        QCoreApplication::quit();
    }

    QJsonObject m_figures;
    QQuickWindow *m_window = nullptr;
};

class WindowProbePlugin : public QGenericPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "WindowProbe.json")

public:
    QObject *create(const QString & /*name*/, const QString & /*spec*/) override
    {
        return new WindowProbe(this);
    }
};

#include "WindowProbe.moc"
