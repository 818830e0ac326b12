#pragma once

#include <QProcess>

namespace corvane {

/// QProcess whose destructor ends a child that is still running without Qt's warning "Destroyed while process
/// … is still running".
///
/// Like QProcess's own it kills the child and blocks until that has ended, for up to 30 s, and finished() is
/// emitted within. That makes deleteLater() right behind a kill() safe and silent.
class ChildProcess : public QProcess
{
    Q_OBJECT

public:
    using QProcess::QProcess;
    ~ChildProcess() override;
};

} // namespace corvane
