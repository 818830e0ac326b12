#include "tools/guardian/Installation.h"

#include "tools/guardian/FileNames.h"
#include "tools/guardian/OwnFolder.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

/// Canonical as far as it exists; the rest as it stands.
QString resolved(const QString &path)
{
    QString clean = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    for (QString existing = clean;; existing = QFileInfo(existing).path()) {
        const QString canonical = QFileInfo(existing).canonicalFilePath();
        if (!canonical.isEmpty())
            return QDir::cleanPath(canonical + u'/' + clean.sliced(existing.size()));
        if (existing == QFileInfo(existing).path())
            return clean;
    }
}

} // namespace

QString guardianFolder(const QString &runtimeDirectory)
{
    return runtimeDirectory + "/guardian"_L1;
}

bool isWithin(const QString &path, const QString &folder)
{
    const QString inner = resolved(path) + u'/';
    QString outer = resolved(folder);
    if (!outer.endsWith(u'/'))
        outer += u'/';
    return inner.startsWith(outer, fileNameCase());
}

QString placeProblem(const Installation &installation, const QString &guardianDirectory,
                     const QString &runtimeDirectory)
{
    if (QDir(installation.directory).isRoot())
        return u"the root of a file system can't be replaced by an update"_s;
    if (isWithin(guardianDirectory, installation.directory))
        return u"the guardian lies in the installation that it would replace, %1: it belongs beside it"_s.arg(
            installation.directory);
    if (isWithin(runtimeDirectory, installation.directory))
        return u"the runtime directory %1 lies in the installation, which an update replaces"_s.arg(
            runtimeDirectory);
    // The program would be started as the guardian's user, with that one's rights and settings.
    if (belongsToAnother(runtimeDirectory))
        return u"the runtime directory %1 belongs to another user: the guardian starts CORVANE as its own user, so the one who runs CORVANE has to run it"_s
            .arg(runtimeDirectory);
    return {};
}

} // namespace corvane::guardian
