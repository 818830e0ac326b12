#pragma once

#include "engine/model/PipelineConfig.h"
#include "pipeline/TransportChild.h"

#include <QObject>

namespace corvane {

/// Launcher of a bonded output: one srtla_send, which takes SRT on the bond port and spreads it over the
/// machine's links to the receiver.
///
/// A wrapper of one TransportChild, like SrtTransmit. The pipeline keeps it over automatic restarts, through
/// which a stopped launcher stays stopped.
class SrtlaLauncher : public QObject
{
    Q_OBJECT

public:
    explicit SrtlaLauncher(OutputConfig output, QObject *parent = nullptr);

    void start(); ///< with the bond port, the receiver's host and its port
    void stop();  ///< as TransportChild::stop()

Q_SIGNALS:
    void logLine(QString line);

private:
    OutputConfig m_output;
    TransportChild m_child;
};

} // namespace corvane
