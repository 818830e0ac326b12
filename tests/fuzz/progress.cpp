#include "pipeline/Telemetry.h"

#include "tests/fuzz/Fuzz.h"

#include <cmath>

using namespace corvane;

// An encoder's standard error, in chunks as a pipe happens to deliver it: each byte 0 ends one.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Telemetry figures;
    const QList<QByteArray> chunks = fuzz::bytes(data, size).split('\0');
    for (const QByteArray &chunk : chunks) {
        const QStringList lines = standardErrorLines(chunk);
        for (const QString &line : lines) {
            fuzz::expect(!line.isEmpty() && !line.contains(u'\n'), "each is one line");
            if (isProgressLine(line))
                figures.readProgress(line);
        }
    }
    fuzz::expect(figures.fps >= 0 && figures.bitrateKbps >= 0 && figures.dropped >= 0,
                 "no figure is below zero");
    fuzz::expect(!std::isnan(figures.fps) && !std::isnan(figures.bitrateKbps), "each figure is a number");
    return 0;
}
