#pragma once

#include "engine/Engine.h"
#include "tests/support/ToolPath.h"

#include <QTemporaryDir>

#include <memory>

namespace corvane::test {

/// Way in which the ffmpeg of a test sends SRT.
enum class SrtPath {
    Bridge, ///< it lists no protocol "srt", so srt-live-transmit does
    Direct, ///< by itself
};

/// Lines by which a real ffmpeg reports its failure. From version 7 on, the code distinguishes the errors.
[[nodiscard]] QStringList encoderFailures(const QStringList &logLines);

/// One pipeline of an Engine with the machine's real tools: a small test pattern, outputs as a test adds
/// them. srtla_send is tests/children/srtla_relay.
class OnAir
{
public:
    explicit OnAir(SrtPath path);
    ~OnAir();

    [[nodiscard]] static bool toolsInstalled(); ///< without them a test can only skip

    Engine &engine() { return *m_engine; }
    [[nodiscard]] QString id() const { return m_id; }
    [[nodiscard]] QString state() const; ///< as the view shows it

    [[nodiscard]] QStringList logLines() const; ///< without time stamps
    [[nodiscard]] bool hasLine(const QString &line) const;
    [[nodiscard]] QStringList linesWith(const QString &part) const;

    /// A further pipeline of the same kind, and its id. It lives as long as this object.
    [[nodiscard]] QString addStream();

    void start() { m_engine->startPipeline(m_id); }
    void stop() { m_engine->stopPipeline(m_id); }

    /// Runs the event loop until the log shows the encoder `seconds` further on than now; false if it doesn't
    /// get there.
    bool transmitFor(double seconds);

    /// Process of the child whose command holds `part`; 0 if there is none.
    [[nodiscard]] static qint64 childWith(const QString &part);

    /// PATH of the test.
    ToolPath &tools() { return m_tools; }

private:
    QString newPipeline();
    [[nodiscard]] double encodedSeconds() const;

    ToolPath m_tools;
    std::unique_ptr<Engine> m_engine;
    QString m_id;
    QStringList m_further; ///< ids of the streams that were added
};

} // namespace corvane::test
