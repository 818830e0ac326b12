// One transmission of the program without its window, for ./dev bench air: `line_pipeline FFMPEG URL` puts a
// test pattern on air, prints the log lines with the milliseconds since the start before them, and stops when
// its standard input ends.

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
    if (arguments.size() != 3) {
        std::fputs("line_pipeline FFMPEG URL\n", stderr);
        return 2;
    }
    PipelineConfig config;
    config.source.width = 640;
    config.source.height = 360;
    config.encoder.bitrate = 2500;
    OutputConfig destination;
    destination.kind = arguments.at(2).startsWith("srt:"_L1) ? OutputKind::Srt : OutputKind::Rtmp;
    destination.url = arguments.at(2);
    config.outputs = {destination};

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
