#include "tests/support/ChildLife.h"

#include <QProcess>

#include <csignal>
#include <sys/prctl.h>

namespace corvane::test {

void endWithParent(QProcess &child)
{
    child.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
}

} // namespace corvane::test
