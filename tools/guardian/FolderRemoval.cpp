#include "tools/guardian/FolderRemoval.h"

#include "tools/guardian/DirectoryMoves.h"

#include <QDir>
#include <QFileInfo>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

constexpr auto prefix = "gone-"_L1;

} // namespace

bool isTaken(const QString &path)
{
    const QFileInfo at(path);
    return at.isSymLink() || at.exists();
}

QString removeFolder(const QString &path, const QString &aside)
{
    if (!isTaken(path))
        return {};
    const QString gone = aside + u'/' + prefix + QUuid::createUuid().toString(QUuid::WithoutBraces);
    if (const QString error = moveFolder(path, gone); !error.isEmpty())
        return u"%1 can't be moved aside: %2"_s.arg(path, error);
    return removeTree(gone);
}

void removeLeftovers(const QString &aside)
{
    const QStringList left = QDir(aside).entryList(
        {QString(prefix) + u'*'}, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &name : left)
        (void)removeTree(aside + u'/' + name);
}

} // namespace corvane::guardian
