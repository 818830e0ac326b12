#pragma once

#include "pipeline/Pipeline.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QStringList>

namespace corvane::test {

/// A plain SRT output to 127.0.0.1:9000.
[[nodiscard]] OutputConfig srtOutput(int localPort);

/// A bonded output to 127.0.0.1:5000.
[[nodiscard]] OutputConfig bondedOutput(int localPort, int localPort2);

/// These outputs, and behind them the RTMP output that gives fake_ffmpeg its steps.
[[nodiscard]] PipelineConfig transportConfig(const QList<OutputConfig> &outputs, const QString &ffmpegSteps);

/// Both transport tools as fake_transport, and the fate of their processes. While the object lives, children
/// whose arguments name no steps take those given here, and then write down their ids.
class TransportTools
{
public:
    explicit TransportTools(const QString &steps = {});
    ~TransportTools();

    [[nodiscard]] QStringList started() const; ///< names of the tools, one for each process so far
    [[nodiscard]] QList<qint64> pids() const;  ///< in the order of their starts
    [[nodiscard]] qint64 pidOf(const QString &tool) const; ///< of the one that started first
    [[nodiscard]] QStringList deaths() const; ///< "name first-argument time" in the order of their ends

    /// Step by which fake_ffmpeg appends its exit to the same file.
    [[nodiscard]] QString deathStep() const;

    [[nodiscard]] QString filePath(const QString &name) const { return m_path.filePath(name); }

private:
    ToolPath m_path;
};

/// Runs the event loop until `processes` transport tools have started so far and the encoder has printed a
/// progress line; false after waitUntil()'s time.
[[nodiscard]] bool awaitOnAir(const Recorder &recorder, const TransportTools &tools, qsizetype processes);

/// The log lines of a start that name a transport command: those of transport tools, with their prefixes.
[[nodiscard]] QStringList transportCommands(const Recorder &recorder);

/// Log lines of the transports of srtOutput(8900), and of a bonded output with the bridge port 8910.
[[nodiscard]] QString plainSrtLine();
[[nodiscard]] QString launcherLine();
[[nodiscard]] QString bondedBridgeLine();

} // namespace corvane::test
