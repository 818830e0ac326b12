#include "ndi/FrameSource.h"

#include <utility>

namespace corvane {

namespace {

FrameSourceFactory &currentFactory()
{
    static FrameSourceFactory factory;
    return factory;
}

} // namespace

void setFrameSourceFactory(FrameSourceFactory factory)
{
    currentFactory() = std::move(factory);
}

std::unique_ptr<FrameSource> makeFrameSource(const QString &sourceName)
{
    const FrameSourceFactory &factory = currentFactory();
    return factory ? factory(sourceName) : nullptr;
}

} // namespace corvane
