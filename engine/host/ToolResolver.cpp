#include "engine/host/ToolResolver.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStandardPaths>

namespace corvane {

using namespace Qt::StringLiterals;

QStringList toolCandidates(const QString &appDir, const QString &name)
{
    return {
        appDir + "/"_L1 + name,
        appDir + "/../Resources/bin/"_L1 + name,
        appDir + "/../Frameworks/"_L1 + name,
        "/opt/homebrew/bin/"_L1 + name,
        "/usr/local/bin/"_L1 + name,
        "/opt/homebrew/opt/srt/bin/"_L1 + name,
    };
}

QString resolveTool(const QString &name)
{
    const QStringList candidates = toolCandidates(QCoreApplication::applicationDirPath(), name);
    for (const QString &candidate : candidates) {
        if (QFileInfo::exists(candidate))
            return candidate;
    }
    return QStandardPaths::findExecutable(name);
}

} // namespace corvane
