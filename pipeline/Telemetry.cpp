#include "pipeline/Telemetry.h"

#include <QRegularExpression>

namespace corvane {

using namespace Qt::StringLiterals;

QStringList standardErrorLines(const QByteArray &chunk)
{
    return QString::fromUtf8(chunk).split(u'\n', Qt::SkipEmptyParts);
}

bool isProgressLine(const QString &line)
{
    return line.contains("frame="_L1) || line.contains("bitrate="_L1);
}

void Telemetry::readProgress(const QString &line)
{
    static const QRegularExpression fpsPattern(uR"(fps=\s*([0-9.]+))"_s);
    static const QRegularExpression bitratePattern(uR"(bitrate=\s*([0-9.]+)kbits/s)"_s);
    static const QRegularExpression dropPattern(uR"(drop=\s*(\d+))"_s);

    if (const auto match = fpsPattern.match(line); match.hasMatch()) {
        fps = match.capturedView(1).toDouble();
        valid = true;
    }
    if (const auto match = bitratePattern.match(line); match.hasMatch()) {
        bitrateKbps = match.capturedView(1).toDouble();
        valid = true;
    }
    if (const auto match = dropPattern.match(line); match.hasMatch()) {
        dropped = match.capturedView(1).toInt();
        valid = true;
    }
}

std::optional<qint64> hangDuration(qint64 lastProgressMs, qint64 now, qint64 hangTimeoutMs)
{
    const qint64 elapsed = now - lastProgressMs;
    return elapsed > hangTimeoutMs ? std::optional(elapsed) : std::nullopt;
}

} // namespace corvane
