#include "builder/CommandBuilder.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace corvane::CommandBuilder {

using namespace Qt::StringLiterals;

QStringList build(const PipelineConfig &config, bool ffmpegHasSrt)
{
    QList<OutputConfig> enabledOutputs;
    std::copy_if(config.outputs.begin(), config.outputs.end(), std::back_inserter(enabledOutputs),
                 [](const OutputConfig &output) { return output.enabled; });
    if (enabledOutputs.isEmpty())
        throw std::runtime_error("Pipeline sem saídas habilitadas");

    const bool hasAudio = config.source.danteEnabled || config.source.kind == SourceKind::TestPattern;

    // "-stats" keeps the progress lines coming at this log level. Stream selection is left to ffmpeg: there
    // is no "-map" and no "-an" in any list.
    QStringList args{u"-hide_banner"_s, u"-loglevel"_s, u"warning"_s, u"-stats"_s};
    args += inputArgs(config.source);
    args += audioInputArgs(config.source);
    if (const QString filter = scaleFilter(config.source, config.scaler); !filter.isEmpty())
        args << u"-vf"_s << filter;
    args += videoEncoderArgs(config.encoder, config.source.fps);
    args += audioEncoderArgs(config.encoder, hasAudio);
    args += enabledOutputs.size() == 1 ? singleOutputArgs(enabledOutputs.first(), ffmpegHasSrt)
                                       : teeOutputArgs(enabledOutputs, ffmpegHasSrt);
    return args;
}

} // namespace corvane::CommandBuilder
