#pragma once

#include "engine/model/PipelineConfig.h"
#include "pipeline/TransportChild.h"

#include <QObject>

namespace corvane {

/// Bridge for an ffmpeg that doesn't speak SRT: one srt-live-transmit from a local UDP port to the SRT
/// destination.
///
/// A wrapper of one TransportChild: nothing is restarted, and the child's end is a line in the log and
/// nothing more. One object serves one run.
class SrtTransmit : public QObject
{
    Q_OBJECT

public:
    explicit SrtTransmit(OutputConfig output, QObject *parent = nullptr);

    void start(); ///< from "udp://:" and the output's local port to targetUrl()
    void stop();  ///< as TransportChild::stop()

    /// The output's SRT URL, as a caller unless the URL names a mode.
    [[nodiscard]] QString targetUrl() const;

Q_SIGNALS:
    void logLine(QString line);

private:
    OutputConfig m_output;
    TransportChild m_child;
};

} // namespace corvane
