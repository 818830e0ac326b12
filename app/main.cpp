#include "app/CrashGuard.h"
#include "app/GarbageCollection.h"
#include "app/SafeApp.h"
#include "app/ScanOptions.h"
#include "app/Version.h"
#include "engine/Engine.h"
#include "engine/host/Capabilities.h"
#include "update/UpdateChecker.h"

#include <QDateTime>
#include <QFile>
#include <QIcon>
#include <QPixmap>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QStandardPaths>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <cstdio>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto heartbeatInterval = 2000ms;
constexpr auto firstUpdateCheck = 5000ms;
constexpr auto updateCheckInterval = 6h;

/// The one place for files that the program shares with its supervisor.
QString runtimeDirectory()
{
    const QString given = qEnvironmentVariable("CORVANE_RUNTIME_DIR");
    return given.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + "/runtime"_L1
                           : given;
}

/// Milliseconds since the epoch, replaced in place; a beat that can't be written is skipped.
void writeHeartbeat(const QString &path)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(QByteArray::number(QDateTime::currentMSecsSinceEpoch()));
}

/// An empty file: the mark of an orderly exit.
void leaveCleanExitMark(const QString &path)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.close();
}

/// What the window's bar and the task list show.
QIcon windowIcon()
{
    QIcon icon;
    for (const int size : {16, 32, 48, 64}) {
        // With the format said, no library for another one is loaded.
        icon.addPixmap(QPixmap(u":/icon/corvane-%1.png"_s.arg(size), "PNG"));
    }
    return icon;
}

void loadInterface(QQmlApplicationEngine &qmlEngine)
{
    // No document has variants for a platform or a language; the search for them costs a tenth of the start.
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
    QCoreApplication::setApplicationName(u"CORVANE"_s);
    QCoreApplication::setOrganizationName(u"halvorndev"_s);
    QCoreApplication::setOrganizationDomain(QStringLiteral(CORVANE_ORGANIZATION_DOMAIN));
    QCoreApplication::setApplicationVersion(QString::fromLatin1(corvane::version()));
    QGuiApplication::setWindowIcon(windowIcon());

    const QString runtimeDir = runtimeDirectory();
    corvane::CrashGuard::install(runtimeDir + "/crashes"_L1);
    if (corvane::CrashGuard::previousRunAbnormal()) {
        qWarning("Execução anterior terminou de forma anormal (crash/kill). Logs em %s/crashes",
                 runtimeDir.toLocal8Bit().constData());
    }

    const QString heartbeatPath = runtimeDir + "/.heartbeat"_L1;
    QTimer heartbeatTimer;
    QObject::connect(&heartbeatTimer, &QTimer::timeout, &app,
                     [&heartbeatPath] { writeHeartbeat(heartbeatPath); });
    heartbeatTimer.start(heartbeatInterval);

    if (corvane::lockProcessMemory())
        qInfo("memória travada (mlockall)");

    corvane::Engine engine;

    const QString updateFeed =
        qEnvironmentVariable("CORVANE_UPDATE_FEED", QStringLiteral(CORVANE_UPDATE_FEED_URL));
    corvane::UpdateChecker updater(QCoreApplication::applicationVersion(), updateFeed, runtimeDir);
    updater.isStreamActive = [&engine] { return engine.anyPipelineTransmitting(); };
    QObject::connect(&updater, &corvane::UpdateChecker::readyToApply, &updater,
                     [&updater] { updater.applyIfSafe(); });
    QTimer updateTimer;
    QObject::connect(&updateTimer, &QTimer::timeout, &updater, &corvane::UpdateChecker::checkNow);
    updateTimer.start(updateCheckInterval);
    QTimer::singleShot(firstUpdateCheck, &updater, &corvane::UpdateChecker::checkNow);

    QQmlApplicationEngine qmlEngine;
    qmlEngine.rootContext()->setContextProperty(u"engine"_s, &engine);
    qmlEngine.rootContext()->setContextProperty(u"updater"_s, &updater);
    loadInterface(qmlEngine);
    if (qmlEngine.rootObjects().isEmpty())
        return -1;

    const int exitCode = QGuiApplication::exec();
    corvane::CrashGuard::markCleanExit();
    leaveCleanExitMark(runtimeDir + "/.cleanexit"_L1);
    return exitCode;
}
