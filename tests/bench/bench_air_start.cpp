// The call of an encoder through the companion, against the direct call: wall time from the start of the
// process to its end.

#include "tests/bench/Figures.h"
#include "tests/support/TestSupport.h"

#include <QElapsedTimer>
#include <QFile>
#include <QList>
#include <QTemporaryDir>

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

constexpr int calls = 201;

/// Milliseconds of one run of `program`; negative if it failed.
double run(const QByteArray &program)
{
    QByteArray name = program;
    QByteArray tee = "-f";
    QByteArray muxer = "tee";
    QByteArray slaves = "[f=flv:fifo_options=queue_size=120\\:drop_pkts_on_overflow=1]fake:exit=0";
    char *arguments[] = {name.data(), tee.data(), muxer.data(), slaves.data(), nullptr};

    QElapsedTimer timer;
    timer.start();
    pid_t pid = 0;
    int status = 0;
    if (posix_spawn(&pid, program.constData(), nullptr, nullptr, arguments, environ) != 0 ||
        waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return -1;
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

} // namespace

int main()
{
    const QTemporaryDir folder;
    const QByteArray encoder = QFile::encodeName(folder.filePath(u"ffmpeg"_s));
    if (!QFile::copy(fakeFfmpeg(), QFile::decodeName(encoder))) {
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
    figures.note("companion: direct call, median", median(direct), "ms");
    figures.atMost("companion: longer than the direct call, median", median(through) - median(direct), 5,
                   "ms");
    return figures.exitCode();
}
