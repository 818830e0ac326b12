#include "tests/ndi/ReceiverBench.h"

#include <QFile>

#include <sys/stat.h>

namespace corvane::test {

using namespace Qt::StringLiterals;

bool pipeExists(const QString &path)
{
    struct stat found
    {
    };
    return stat(QFile::encodeName(path).constData(), &found) == 0 && S_ISFIFO(found.st_mode);
}

QString alreadyServedError()
{
    return u"16"_s; // EBUSY
}

QString waitEndedError()
{
    return u"125"_s; // ECANCELED
}

} // namespace corvane::test
