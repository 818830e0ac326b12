#include "builder/CommandBuilder.h"

namespace corvane::CommandBuilder {

using namespace Qt::StringLiterals;

QString scaleFilter(const SourceConfig & /*source*/, const ScalerConfig &scaler)
{
    if (scaler.width == 0 && scaler.height == 0)
        return {};

    // -2: keep the aspect ratio, on an even number of pixels.
    const int width = scaler.width == 0 ? -2 : scaler.width;
    const int height = scaler.height == 0 ? -2 : scaler.height;
    switch (scaler.kind) {
    case ScalerKind::Lanczos:
    case ScalerKind::LanczosAlt:
        return u"scale=%1:%2:flags=lanczos"_s.arg(width).arg(height);
    case ScalerKind::Cuda:
        return u"scale_cuda=%1:%2"_s.arg(width).arg(height);
    case ScalerKind::Placebo:
        return u"libplacebo=w=%1:h=%2:upscaler=ewa_lanczos"_s.arg(width).arg(height);
    default:
        return {};
    }
}

} // namespace corvane::CommandBuilder
