#include "app/CrashGuard.h"
#include "app/GarbageCollection.h"
#include "app/SafeApp.h"
#include "app/ScanOptions.h"
#include "app/SessionEnd.h"
#include "app/Version.h"
#include "engine/Engine.h"
#include "engine/host/Capabilities.h"
#include "engine/host/Clock.h"
#include "update/RuntimeFiles.h"
#include "update/UpdateChecker.h"

#include <QFile>
#include <QFontMetricsF>
#include <QIcon>
#include <QImage>
#include <QPixmap>
#include <QQmlApplicationEngine>
#include <QQmlComponent>
#include <QQmlContext>
#include <QResource>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <cstdio>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto firstUpdateCheck = 5000ms;
constexpr auto updateCheckInterval = 6h;

/// Milliseconds since the epoch, replaced in place; a beat that can't be written is skipped.
void writeHeartbeat(const QString &path)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(QByteArray::number(corvane::nowMs()));
}

/// An empty file: the mark of an orderly exit.
void leaveCleanExitMark(const QString &path)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.close();
}

/// What the window's bar and the task list show. The pictures are bare pixels: with an encoded one Qt loads
/// the libraries of all formats to ask them whether it is theirs, a hundredth of the window's memory.
QIcon windowIcon()
{
    QIcon icon;
    for (const int side : {16, 32, 48, 64}) {
        const QByteArray pixels = QResource(u":/icon/corvane-%1.rgba"_s.arg(side)).uncompressedData();
        if (pixels.size() != qsizetype(side) * side * 4)
            continue;
        const QImage picture(reinterpret_cast<const uchar *>(pixels.constData()), side, side,
                             QImage::Format_RGBA8888);
        icon.addPixmap(QPixmap::fromImage(picture));
    }
    return icon;
}

/// Loads fonts, libraries and types that the interface needs into the process. What it finds here the first
/// frame doesn't wait for.
void prepareInterface()
{
    (void)QFontMetricsF(QGuiApplication::font()).height(); // reads the list of the machine's fonts

    QQmlEngine scratch;
    QQmlComponent types(&scratch);
    types.setData("import QtQuick.Controls.Material; import QtQuick.Layouts; ApplicationWindow { }",
                  QUrl(u"qrc:/prepared"_s));
}

void loadInterface(QQmlApplicationEngine &qmlEngine)
{
    // No file selectors: no document has variants for a platform or language, and the search for them takes a
    // tenth of the start.
    const QList<QQmlAbstractUrlInterceptor *> selectors = qmlEngine.urlInterceptors();
    for (QQmlAbstractUrlInterceptor *selector : selectors)
        qmlEngine.removeUrlInterceptor(selector);
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    qmlEngine.loadFromModule("Corvane", "Main");
#else
    qmlEngine.load(QUrl(u"qrc:/qt/qml/Corvane/app/qml/Main.qml"_s));
#endif
}

} // namespace

int main(int argc, char *argv[])
{
    if (const auto report = corvane::scanReport(argc, argv)) {
        std::fwrite(report->constData(), 1, static_cast<std::size_t>(report->size()), stdout);
        return 0;
    }

    corvane::disableIncrementalCollection();
    corvane::SafeApp app(argc, argv);
    corvane::setApplicationIdentity();
    QCoreApplication::setApplicationVersion(QString::fromLatin1(corvane::version()));
    QGuiApplication::setWindowIcon(windowIcon());

    const QString runtimeDir = corvane::runtimeDirectory();
    corvane::CrashGuard::install(corvane::crashDirectory(runtimeDir));
    if (corvane::CrashGuard::previousRunAbnormal()) {
        qWarning("Execução anterior terminou de forma anormal (crash/kill). Logs em %s/crashes",
                 runtimeDir.toLocal8Bit().constData());
    }

    const QString heartbeatPath = corvane::heartbeatPath(runtimeDir);
    QTimer heartbeatTimer(&app); // as its child it can be found from within, by tests
    heartbeatTimer.setObjectName("heartbeatTimer"_L1);
    QObject::connect(&heartbeatTimer, &QTimer::timeout, &app,
                     [&heartbeatPath] { writeHeartbeat(heartbeatPath); });
    heartbeatTimer.start(corvane::heartbeatInterval);

    if (corvane::lockProcessMemory())
        qInfo("memória travada (mlockall)");

    corvane::Engine engine(nullptr, prepareInterface); // while ffmpeg is asked, which takes as long
    corvane::objectToSessionEnd(engine);

    const QString updateFeed = corvane::updateFeed();
    corvane::UpdateChecker updater(QCoreApplication::applicationVersion(), updateFeed, runtimeDir);
    updater.isStreamActive = [&engine] { return engine.anyPipelineTransmitting(); };
    QObject::connect(&updater, &corvane::UpdateChecker::readyToApply, &updater,
                     [&updater] { updater.applyIfSafe(); });
    QTimer updateTimer(&app);
    updateTimer.setObjectName("updateTimer"_L1);
    QObject::connect(&updateTimer, &QTimer::timeout, &updater, &corvane::UpdateChecker::checkNow);
    updateTimer.start(updateCheckInterval);
    QTimer firstUpdateTimer(&app);
    firstUpdateTimer.setObjectName("firstUpdateTimer"_L1);
    firstUpdateTimer.setSingleShot(true);
    QObject::connect(&firstUpdateTimer, &QTimer::timeout, &updater, &corvane::UpdateChecker::checkNow);
    firstUpdateTimer.start(firstUpdateCheck);

    QQmlApplicationEngine qmlEngine;
    qmlEngine.rootContext()->setContextProperty(u"engine"_s, &engine);
    qmlEngine.rootContext()->setContextProperty(u"updater"_s, &updater);
    loadInterface(qmlEngine);
    if (qmlEngine.rootObjects().isEmpty())
        return -1;

    const int exitCode = QGuiApplication::exec();
    corvane::CrashGuard::markCleanExit();
    leaveCleanExitMark(corvane::cleanExitPath(runtimeDir));
    return exitCode;
}
