#include "tools/guardian/FileNames.h"

using namespace Qt::StringLiterals;

namespace corvane::guardian {

QString programFileName()
{
    return u"corvane"_s;
}

Qt::CaseSensitivity fileNameCase()
{
    return Qt::CaseSensitive;
}

} // namespace corvane::guardian
