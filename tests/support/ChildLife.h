#pragma once

class QProcess;

namespace corvane::test {

/// To be called before `child` is started: where the platform can, the child ends with the test that started
/// it, however that test ends.
void endWithParent(QProcess &child);

} // namespace corvane::test
