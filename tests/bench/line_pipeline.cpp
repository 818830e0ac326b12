// One transmission of the program without its window, for ./dev bench air: `line_pipeline FFMPEG SOURCE
// URL...` puts a source on air ("test" for the test pattern, or an SRT URL), prints the log lines with the
// milliseconds since the start before them, and stops when its standard input ends.

#include "pipeline/Pipeline.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSocketNotifier>

#include <unistd.h>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace corvane;

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 4) {
        std::fputs("line_pipeline FFMPEG SOURCE URL...\n", stderr);
        return 2;
    }
    PipelineConfig config;
    config.source.width = 640;
    config.source.height = 360;
    config.encoder.bitrate = 2500;
    if (arguments.at(2) != "test"_L1) {
        config.source.kind = SourceKind::Srt;
        config.source.uri = arguments.at(2);
    }
    for (const QString &url : arguments.sliced(3)) {
        OutputConfig destination;
        destination.kind = url.startsWith("srt:"_L1) ? OutputKind::Srt : OutputKind::Rtmp;
        destination.url = url;
        config.outputs << destination;
    }

    Pipeline pipeline(config, arguments.at(1), true);
    QElapsedTimer clock;
    clock.start();
    QObject::connect(&pipeline, &Pipeline::logLine, &pipeline, [&](const QString &line) {
        std::printf("%lld %s\n", static_cast<long long>(clock.elapsed()), qUtf8Printable(line));
        std::fflush(stdout);
    });
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &pipeline, [&] {
        pipeline.stop();
        QCoreApplication::quit();
    });
    pipeline.start();
    return QCoreApplication::exec();
}
