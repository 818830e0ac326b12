// The call of an encoder through the companion, against the direct call: wall time from the start of the
// process to its end.

#include "tests/bench/Figures.h"

#include <QByteArrayList>
#include <QElapsedTimer>
#include <QFile>
#include <QList>
#include <QTemporaryDir>

#include <spawn.h>
#include <sys/wait.h>

#include <cstdio>
#include <vector>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

constexpr int calls = 201;

/// Milliseconds of one run of `program` with the list of a transmission; negative if it failed.
double run(const QByteArray &program)
{
    QByteArrayList list{program, "-hide_banner", "-loglevel", "warning", "-stats",
                        "-re",   "-f",           "lavfi",     "-i",      "testsrc",
                        "-c:v",  "libx264",      "-f",        "flv",     "rtmp://127.0.0.1:1/live/key"};
    std::vector<char *> arguments;
    for (QByteArray &argument : list)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);

    QElapsedTimer timer;
    timer.start();
    pid_t pid = 0;
    int status = 0;
    if (posix_spawn(&pid, program.constData(), nullptr, nullptr, arguments.data(), environ) != 0 ||
        waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return -1;
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

} // namespace

int main()
{
    const QTemporaryDir folder;
    const QByteArray encoder = QFile::encodeName(folder.filePath(u"ffmpeg"_s));
    // An encoder that leaves at once: what is left is the way to it and back.
    if (!QFile::copy(u"/bin/true"_s, QFile::decodeName(encoder))) {
        std::fprintf(stderr, "the encoder can't be put on the path\n");
        return 2;
    }
    qputenv("PATH", QFile::encodeName(folder.path()));

    QList<double> direct;
    QList<double> through;
    for (int i = 0; i < calls; ++i) { // by turns, so that both have the same neighbours
        direct << run(encoder);
        through << run(CORVANE_AIR);
    }
    if (direct.contains(-1) || through.contains(-1)) {
        std::fprintf(stderr, "a call failed\n");
        return 2;
    }

    bench::Figures figures;
    figures.note("companion: direct call, median", bench::median(direct), "ms");
    figures.atMost("companion: longer than the direct call, median",
                   bench::median(through) - bench::median(direct), 10, "ms");
    return figures.exitCode();
}
