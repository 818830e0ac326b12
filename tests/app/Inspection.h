#pragma once

#include "tests/support/ProgramSandbox.h"

#include <QProcessEnvironment>
#include <QString>

namespace corvane::test {

/// Place of the report of tests/app/ProgramInspector.cpp.
[[nodiscard]] inline QString inspectionReport(const ProgramSandbox &sandbox)
{
    return sandbox.path(QStringLiteral("report.json"));
}

/// File that gets a byte after each turn of the heartbeat's timer, with the word "beats".
[[nodiscard]] inline QString inspectedBeats(const ProgramSandbox &sandbox)
{
    return inspectionReport(sandbox) + QStringLiteral(".beats");
}

/// Has the plugin that inspects the program look at it, and do what `then` says.
inline void inspectProgram(ProgramSandbox &sandbox, const QString &then)
{
    QProcessEnvironment &environment = sandbox.environment();
    environment.insert(QStringLiteral("QT_PLUGIN_PATH"), QStringLiteral(CORVANE_TEST_PLUGINS));
    environment.insert(QStringLiteral("QT_QPA_GENERIC_PLUGINS"), QStringLiteral("corvane_inspector"));
    environment.insert(QStringLiteral("CORVANE_INSPECT_REPORT"), inspectionReport(sandbox));
    environment.insert(QStringLiteral("CORVANE_INSPECT_THEN"), then);
}

} // namespace corvane::test
