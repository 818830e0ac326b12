// A plugin that a program with a window loads into itself when QT_QPA_GENERIC_PLUGINS names it: it measures
// the running program from within, writes what it found as one JSON object, and quits.
//
//   CORVANE_MEASURE_REPORT=PATH   where the object goes
//   CORVANE_MEASURE_SINCE=NS      monotonic time at which the process was started
//   CORVANE_MEASURE=start         the start: up to the first frame, to the whole window, to the rest after it
//   CORVANE_MEASURE=editor        the start, then the first pipeline that is added and selected
//   CORVANE_MEASURE=air           the start, then what AirFigures measures
//   CORVANE_MEASURE=lines         the start, then what LineFigures measures
//   CORVANE_MEASURE=log           the start, then what LogFigures measures

#include "tests/bench/AirFigures.h"
#include "tests/bench/LineFigures.h"
#include "tests/bench/LogFigures.h"
#include "tests/bench/TurnClock.h"
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
constexpr qint64 restCpuNs = 5'000'000; ///< limit for a program at rest in that time

QObject *engineOf(const QQuickWindow *window)
{
    const QQmlContext *context = qmlContext(window);
    return context ? context->engine()->rootContext()->contextProperty(u"engine"_s).value<QObject *>()
                   : nullptr;
}

QString addPipeline(QObject &engine)
{
    QString id;
    QMetaObject::invokeMethod(&engine, "addPipeline", Q_RETURN_ARG(QString, id), Q_ARG(QString, QString()));
    return id;
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
    /// Time and processor time since the start of the process.
    void takeTime(const QString &name)
    {
        const qint64 since = qEnvironmentVariable("CORVANE_MEASURE_SINCE").toLongLong();
        m_figures.insert(name + "Ns"_L1, double(monotonicNs() - since));
        // The two threads whose work follows one upon the other: this one and the one that loads documents.
        const QByteArray own =
            QFileInfo(QCoreApplication::applicationFilePath()).fileName().toLatin1().left(15);
        m_figures.insert(name + "CpuNs"_L1, double(threadsCpuNs({own, "QQmlThread"})));
    }

    void onFirstFrame()
    {
        takeTime(u"firstFrame"_s);
        m_figures.insert(u"firstFrameKib"_s, double(residentKib()));
        m_figures.insert(u"probeNs"_s, qApp->property("probeNs").toDouble());
        if (m_window->property("complete").isValid())
            m_laterFrames = connect(m_window, &QQuickWindow::frameSwapped, this, &WindowProbe::onLaterFrame,
                                    Qt::DirectConnection);
        awaitRest(&WindowProbe::onRest);
    }

    void onLaterFrame()
    {
        if (!m_window->property("complete").toBool())
            return;
        disconnect(m_laterFrames);
        takeTime(u"whole"_s);
    }

    void awaitRest(void (WindowProbe::*then)())
    {
        const qint64 before = processCpuNs();
        QTimer::singleShot(restMs, this, [this, before, then] {
            if (processCpuNs() - before > restCpuNs)
                awaitRest(then);
            else
                (this->*then)();
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
        } else if (what == "lines"_L1) {
            takeLineFigures(*m_window, [this](const QJsonObject &figures) { finish(figures); });
        } else if (what == "log"_L1) {
            finish(logFigures(*m_window, *engineOf(m_window)));
        } else if (what == "editor"_L1) {
            m_turns = new TurnClock(this);
            m_window->setProperty("selectedId", addPipeline(*engineOf(m_window)));
            awaitRest(&WindowProbe::onEditor);
        } else {
            finish({});
        }
    }

    void onEditor()
    {
        finish({{u"editorTurnNs"_s, double(m_turns->longestNs())}, {u"editorKib"_s, double(residentKib())}});
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
    QMetaObject::Connection m_laterFrames;
    TurnClock *m_turns = nullptr;
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
