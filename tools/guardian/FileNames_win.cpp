#include "tools/guardian/FileNames.h"

using namespace Qt::StringLiterals;

namespace corvane::guardian {

QString programFileName()
{
    return u"corvane.exe"_s;
}

Qt::CaseSensitivity fileNameCase()
{
    return Qt::CaseInsensitive;
}

} // namespace corvane::guardian
