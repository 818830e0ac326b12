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

ReceiverStand::ReceiverStand(const NdiFrameInfo &info, qsizetype readSize)
    : feed(info)
    , reader(readSize)
{
    ready = receiver.probe(3000).valid && receiver.createPipe(path);
}

} // namespace corvane::test
