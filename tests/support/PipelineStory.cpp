#include "tests/support/PipelineStory.h"

namespace corvane::test {

using namespace Qt::StringLiterals;

QStringList launched()
{
    return {u"state starting"_s, u"log ffmpeg <arguments>"_s, u"state running"_s,
            u"log ffmpeg rodando (pid <pid>)"_s};
}

QString relaunchLine()
{
    return u"log aplicando novo bitrate (degradação) — restart imediato"_s;
}

bool hasProgress(const Recorder &recorder)
{
    return recorder.containsPart(u"stats frame="_s);
}

bool awaitProgress(const Recorder &recorder)
{
    return waitUntil([&] { return hasProgress(recorder); });
}

} // namespace corvane::test
