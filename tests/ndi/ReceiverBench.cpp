#include "tests/ndi/ReceiverBench.h"

#include "ndi/FramePipe.h"

#include <QUuid>

namespace corvane::test {

ReceiverLog::ReceiverLog(const NdiReceiver &receiver)
{
    connect(&receiver, &NdiReceiver::logLine, this, [this](const QString &line) { m_lines << line; });
}

QString freshPipePath()
{
    return framePipePath(QUuid::createUuid().toString(QUuid::WithoutBraces));
}

} // namespace corvane::test
