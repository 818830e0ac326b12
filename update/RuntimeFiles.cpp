#include "update/RuntimeFiles.h"

#include <QCoreApplication>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace corvane {

void setApplicationIdentity()
{
    QCoreApplication::setApplicationName(applicationName);
    QCoreApplication::setOrganizationName(organizationName);
    QCoreApplication::setOrganizationDomain(QStringLiteral(CORVANE_ORGANIZATION_DOMAIN));
}

QString runtimeDirectory()
{
    const QString given = qEnvironmentVariable("CORVANE_RUNTIME_DIR");
    return given.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + "/runtime"_L1
                           : given;
}

QString updateFeed()
{
    return qEnvironmentVariable("CORVANE_UPDATE_FEED", QStringLiteral(CORVANE_UPDATE_FEED_URL));
}

QString heartbeatPath(const QString &runtimeDir)
{
    return runtimeDir + "/.heartbeat"_L1;
}

QString cleanExitPath(const QString &runtimeDir)
{
    return runtimeDir + "/.cleanexit"_L1;
}

QString crashDirectory(const QString &runtimeDir)
{
    return runtimeDir + "/crashes"_L1;
}

QString sentinelPath(const QString &crashDir)
{
    return crashDir + "/.running"_L1;
}

} // namespace corvane
