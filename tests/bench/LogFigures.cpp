#include "tests/bench/LogFigures.h"

#include "tests/bench/Usage.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonObject>
#include <QQuickItem>
#include <QQuickWindow>
#include <QVariant>

namespace corvane::bench {

using namespace Qt::StringLiterals;

namespace {

constexpr int samples = 300;
constexpr qsizetype full = 58'000; ///< characters; the engine cuts at 60,000
constexpr int wholeEvery = 10;     ///< lines to one replacement of the text

/// A pipeline whose lines go to the log: one that nobody has edited.
QObject *speaker(QObject &engine)
{
    QString id;
    QMetaObject::invokeMethod(&engine, "addPipeline", Q_RETURN_ARG(QString, id), Q_ARG(QString, QString()));
    const QObjectList children = engine.children();
    for (QObject *child : children) {
        if (child->inherits("corvane::Pipeline"))
            return child;
    }
    return nullptr;
}

class LogBench
{
public:
    LogBench(QQuickWindow &window, QObject &engine)
        : m_window(window)
        , m_engine(engine)
        , m_area(window.findChild<QQuickItem *>(u"logArea"_s))
        , m_pace(window.findChild<QObject *>(u"pace"_s))
        , m_speaker(speaker(engine))
    {
    }

    void say()
    {
        const QString line = u"[stats] frame=%1 fps= 30 q=28.0 size=   30850kB time=00:00:41.13 "
                             "bitrate=6012.3kbits/s drop=5 speed=   1x"_s;
        QMetaObject::invokeMethod(m_speaker, "logLine", Q_ARG(QString, line.arg(++m_lines)));
    }

    [[nodiscard]] QString log() const { return m_engine.property("log").toString(); }

    [[nodiscard]] bool isShown() const
    {
        const QString text = log();
        return m_area->property("text").toString() == text &&
               m_area->property("cursorPosition").toLongLong() == text.size();
    }

    /// After a rest a line is shown at once.
    void awaitRest() const
    {
        while (m_pace->property("running").toBool() || m_pace->property("due").toBool())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }

    void replace(const QString &text) { m_area->setProperty("text", text); }

    struct Cost
    {
        qint64 act;
        qint64 withFrame;
    };

    /// Of `act` and of the turns up to the frame that shows its effect.
    template <typename Act>
    Cost cost(const Act &act)
    {
        bool shown = false;
        const auto connection = QObject::connect(
            &m_window, &QQuickWindow::frameSwapped, &m_window, [&shown] { shown = true; },
            Qt::DirectConnection);
        const qint64 before = threadCpuNs();
        act();
        const qint64 acted = threadCpuNs();
        while (!shown)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        const qint64 after = threadCpuNs();
        QObject::disconnect(connection);
        return {acted - before, after - before};
    }

private:
    QQuickWindow &m_window;
    QObject &m_engine;
    QQuickItem *m_area;
    QObject *m_pace;
    QObject *m_speaker;
    int m_lines = 0;
};

} // namespace

QJsonObject logFigures(QQuickWindow &window, QObject &engine)
{
    LogBench bench(window, engine);
    QJsonArray line, lineFrame, whole, wholeFrame, cutFrame;
    int unequal = 0;
    while (line.size() < samples) {
        while (bench.log().size() < full)
            bench.say();
        bench.awaitRest();
        const qsizetype before = bench.log().size();
        const LogBench::Cost added = bench.cost([&] { bench.say(); });
        const QString log = bench.log();
        unequal += bench.isShown() ? 0 : 1;
        if (log.size() < before) {
            cutFrame << double(added.withFrame);
            continue;
        }
        line << double(added.act);
        lineFrame << double(added.withFrame);
        if (line.size() % wholeEvery == 0) {
            const LogBench::Cost replaced =
                bench.cost([&] { bench.replace(log + u"12:34:56 one more line\n"_s); });
            whole << double(replaced.act);
            wholeFrame << double(replaced.withFrame);
            bench.cost([&] { bench.replace(log); });
        }
    }

    QJsonArray memory;
    const int lines = qEnvironmentVariableIntValue("CORVANE_MEASURE_LINES");
    for (int number = 1; number <= lines; ++number) {
        bench.say();
        if (number % 100 == 0)
            QCoreApplication::processEvents();
        if (number % (lines / 10) == 0) {
            bench.awaitRest();
            memory << double(residentKib());
            unequal += bench.isShown() ? 0 : 1;
        }
    }
    return {{u"line"_s, line},         {u"lineFrame"_s, lineFrame},
            {u"whole"_s, whole},       {u"wholeFrame"_s, wholeFrame},
            {u"cutFrame"_s, cutFrame}, {u"memoryKib"_s, memory},
            {u"unequal"_s, unequal}};
}

} // namespace corvane::bench
