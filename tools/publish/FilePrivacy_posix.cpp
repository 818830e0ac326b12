#include "tools/publish/FilePrivacy.h"

#include <QFile>

namespace corvane {

bool isOpenToOthers(const QFile &file)
{
    constexpr auto others = QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther;
    return (file.permissions() & others) != QFile::Permissions();
}

} // namespace corvane
