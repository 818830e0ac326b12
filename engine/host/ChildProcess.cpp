#include "engine/host/ChildProcess.h"

namespace corvane {

ChildProcess::~ChildProcess()
{
    if (state() == NotRunning)
        return;
    kill();
    waitForFinished();
}

} // namespace corvane
