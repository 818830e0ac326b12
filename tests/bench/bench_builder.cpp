// The argument list of a default pipeline with one RTMP output, against the same list written down as
// literals.

#include "builder/CommandBuilder.h"
#include "tests/bench/Figures.h"

#include <benchmark/benchmark.h>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

PipelineConfig defaultPipeline()
{
    PipelineConfig config;
    OutputConfig output;
    output.url = u"rtmp://live.example/app/key"_s;
    config.outputs = {output};
    return config;
}

/// The list as a builder without decisions and without numbers to format would write it down.
QStringList appendedLiterals()
{
    QStringList args;
    args << u"-hide_banner"_s << u"-loglevel"_s << u"warning"_s << u"-stats"_s;
    args << u"-re"_s << u"-f"_s << u"lavfi"_s << u"-i"_s << u"testsrc=size=1920x1080:rate=30"_s;
    args << u"-f"_s << u"lavfi"_s << u"-i"_s << u"anullsrc=channel_layout=stereo:sample_rate=48000"_s;
    args << u"-c:v"_s << u"libx264"_s << u"-b:v"_s << u"6000k"_s << u"-maxrate"_s << u"6000k"_s;
    args << u"-bufsize"_s << u"12000k"_s << u"-g"_s << u"60"_s << u"-pix_fmt"_s << u"yuv420p"_s;
    args << u"-bf"_s << u"0"_s << u"-preset"_s << u"veryfast"_s << u"-tune"_s << u"zerolatency"_s;
    args << u"-minrate"_s << u"6000k"_s << u"-c:a"_s << u"aac"_s << u"-b:a"_s << u"160k"_s << u"-ar"_s
         << u"48000"_s;
    args << u"-f"_s << u"flv"_s << u"rtmp://live.example/app/key"_s;
    return args;
}

/// The same in one block: forty-two words copied, without a decision or an allocation but that of the list
/// itself.
QStringList literalBlock()
{
    return {
        u"-hide_banner"_s,
        u"-loglevel"_s,
        u"warning"_s,
        u"-stats"_s,
        u"-re"_s,
        u"-f"_s,
        u"lavfi"_s,
        u"-i"_s,
        u"testsrc=size=1920x1080:rate=30"_s,
        u"-f"_s,
        u"lavfi"_s,
        u"-i"_s,
        u"anullsrc=channel_layout=stereo:sample_rate=48000"_s,
        u"-c:v"_s,
        u"libx264"_s,
        u"-b:v"_s,
        u"6000k"_s,
        u"-maxrate"_s,
        u"6000k"_s,
        u"-bufsize"_s,
        u"12000k"_s,
        u"-g"_s,
        u"60"_s,
        u"-pix_fmt"_s,
        u"yuv420p"_s,
        u"-bf"_s,
        u"0"_s,
        u"-preset"_s,
        u"veryfast"_s,
        u"-tune"_s,
        u"zerolatency"_s,
        u"-minrate"_s,
        u"6000k"_s,
        u"-c:a"_s,
        u"aac"_s,
        u"-b:a"_s,
        u"160k"_s,
        u"-ar"_s,
        u"48000"_s,
        u"-f"_s,
        u"flv"_s,
        u"rtmp://live.example/app/key"_s,
    };
}

void fromAppendedLiterals(benchmark::State &state)
{
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(appendedLiterals());
}

void fromLiteralBlock(benchmark::State &state)
{
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(literalBlock());
}

void fromRecord(benchmark::State &state)
{
    const PipelineConfig config = defaultPipeline();
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(CommandBuilder::build(config, false));
}

BENCHMARK(fromAppendedLiterals)->Repetitions(9);
BENCHMARK(fromLiteralBlock)->Repetitions(9);
BENCHMARK(fromRecord)->Repetitions(9);

} // namespace

int main()
{
    const QStringList built = CommandBuilder::build(defaultPipeline(), false);
    if (built.size() != 42 || built != appendedLiterals() || built != literalBlock()) {
        std::fprintf(stderr, "the lists differ: %s\n", qPrintable(built.join(u' ')));
        return 2;
    }
    const double appended = bench::medianNanoseconds("fromAppendedLiterals");
    const double block = bench::medianNanoseconds("fromLiteralBlock");
    const double record = bench::medianNanoseconds("fromRecord");

    bench::Figures figures;
    figures.atMost("builder: list from the record over the same appended from literals", record / appended,
                   2.0, "x");
    // No limit: five of the words are formatted numbers, and these alone take longer than two such blocks.
    figures.note("builder: list from the record over one block of literals", record / block, "x");
    figures.note("builder: list from the record", record, "ns");
    return figures.exitCode();
}
