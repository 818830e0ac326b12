#include "builder/CommandBuilder.h"

#include <algorithm>
#include <stdexcept>

namespace corvane::CommandBuilder {

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype usualLength = 64; ///< holds nearly every list, which then is allocated once

} // namespace

QStringList build(const PipelineConfig &config, bool ffmpegHasSrt)
{
    const auto isEnabled = [](const OutputConfig &output) { return output.enabled; };
    const auto firstEnabled = std::find_if(config.outputs.begin(), config.outputs.end(), isEnabled);
    if (firstEnabled == config.outputs.end())
        throw std::runtime_error("Pipeline sem saídas habilitadas");

    const bool hasAudio = config.source.danteEnabled || config.source.kind == SourceKind::TestPattern;

    // At this log level only "-stats" keeps ffmpeg printing progress lines. Stream selection is left to
    // ffmpeg: no list has "-map" or "-an", on purpose.
    QStringList args;
    args.reserve(usualLength);
    args << u"-hide_banner"_s << u"-loglevel"_s << u"warning"_s << u"-stats"_s;
    args += inputArgs(config.source);
    args += audioInputArgs(config.source);
    if (const QString filter = scaleFilter(config.source, config.scaler); !filter.isEmpty())
        args << u"-vf"_s << filter;
    args += videoEncoderArgs(config.encoder, config.source.fps);
    args += audioEncoderArgs(config.encoder, hasAudio);
    const bool isOnlyOne = std::none_of(firstEnabled + 1, config.outputs.end(), isEnabled);
    args += isOnlyOne ? singleOutputArgs(*firstEnabled, ffmpegHasSrt)
                      : teeOutputArgs(config.outputs, ffmpegHasSrt);
    return args;
}

} // namespace corvane::CommandBuilder
