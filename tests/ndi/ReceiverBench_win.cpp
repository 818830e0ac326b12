#include "tests/ndi/ReceiverBench.h"

#include <windows.h>

namespace corvane::test {

using namespace Qt::StringLiterals;

bool pipeExists(const QString &path)
{
    return WaitNamedPipeW(qUtf16Printable(path), 1) || GetLastError() != ERROR_FILE_NOT_FOUND;
}

QString alreadyServedError()
{
    return u"231"_s; // ERROR_PIPE_BUSY
}

QString waitEndedError()
{
    return u"995"_s; // ERROR_OPERATION_ABORTED
}

} // namespace corvane::test
