#include "builder/CommandBuilder.h"

#include <QStringBuilder>

namespace corvane::CommandBuilder {

using namespace Qt::StringLiterals;

QStringList audioEncoderArgs(const EncoderConfig &encoder, bool hasAudio)
{
    if (!hasAudio)
        return {};
    // "copy" keeps "-b:a" and "-ar" on purpose: no codec is treated apart.
    return {u"-c:a"_s, encoder.audioCodec, u"-b:a"_s, QString::number(encoder.audioBitrate) % u'k',
            u"-ar"_s,  u"48000"_s};
}

} // namespace corvane::CommandBuilder
