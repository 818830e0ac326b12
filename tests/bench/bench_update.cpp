// Cost of an update to the program that fetches it: the hash of a large package beside sha256sum, the memory
// of a staging, the time of a check. The server is this program once more, in a process of its own.

#include "tests/bench/Figures.h"
#include "tests/support/ChildLife.h"
#include "tests/support/HttpServer.h"
#include "tests/support/TestSupport.h"
#include "update/Sha256.h"
#include "update/UpdateChecker.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QFile>
#include <QNetworkReply>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

constexpr qsizetype megabyte = 1'000'000;
constexpr qsizetype packageSize = 200 * megabyte;
constexpr int hashRuns = 9;
constexpr int checks = 51;

/// Bytes that no compression or cache can shorten.
QByteArray package()
{
    QByteArray made(packageSize, Qt::Uninitialized);
    std::uint32_t state = 1;
    for (char &byte : made) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24U);
    }
    return made;
}

/// Serves until it is killed. Prints two feeds, one line each: with nothing to do, with the package.
int serve()
{
    HttpServer server(HttpServer::Identity::Trusted);
    HttpAnswer answer;
    answer.body = R"({"version":"0.1.0"})";
    server.put(u"/nothing.json"_s, answer);
    answer.body = package();
    server.put(u"/package.zip"_s, answer);
    const QByteArray digest = QCryptographicHash::hash(answer.body, QCryptographicHash::Sha256);
    answer.body =
        u"{\"version\":\"0.2.0\",\"platforms\":{\"windows-x64\":{\"url\":\"%1\",\"sha256\":\"%2\"}}}"_s
            .arg(server.url(u"/package.zip"_s), QString::fromLatin1(digest.toHex()))
            .toUtf8();
    server.put(u"/latest.json"_s, answer);
    std::printf("%s\n%s\n", qPrintable(server.url(u"/nothing.json"_s)),
                qPrintable(server.url(u"/latest.json"_s)));
    std::fflush(stdout);
    return QCoreApplication::exec();
}

/// The number that /proc/self/status gives for `name`, in megabytes.
double memory(const QByteArray &name)
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(name + ':'))
            return line.simplified().split(' ').value(1).toDouble() * 1024 / megabyte;
    }
    return 0;
}

double milliseconds(const QElapsedTimer &timer)
{
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

/// Both by turns, the best of each: other load on the machine only ever slows one down.
bool hashing(bench::Figures &figures, const QTemporaryDir &folder)
{
    const QString path = folder.filePath(u"package"_s);
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite) || file.write(package()) != packageSize || !file.flush())
        return false;
    double ours = 1e9;
    double theirs = 1e9;
    for (int i = 0; i < hashRuns; ++i) {
        QElapsedTimer timer;
        timer.start();
        QFile opened(path);
        if (!opened.open(QIODevice::ReadOnly))
            return false;
        const auto digest = sha256Of(opened);
        ours = std::min(ours, milliseconds(timer));

        timer.start();
        QProcess tool;
        tool.start(u"sha256sum"_s, {path});
        tool.waitForFinished();
        theirs = std::min(theirs, milliseconds(timer));
        if (!digest || !tool.readAll().startsWith(digest->toHex()))
            return false;
    }
    figures.note("update: hash of 200 MB", ours, "ms");
    figures.note("update: sha256sum of 200 MB", theirs, "ms");
    figures.atLeast("update: speed of the hash, sha256sum being 1", theirs / ours, 0.5, "");
    return true;
}

bool settle(const UpdateChecker &updater)
{
    return waitUntil([&] { return updater.findChildren<QNetworkReply *>().isEmpty(); }, 60000);
}

bool checking(bench::Figures &figures, const QString &feed, const QTemporaryDir &folder)
{
    QList<double> times;
    for (int i = 0; i < checks; ++i) {
        UpdateChecker updater(u"0.1.0"_s, feed, folder.filePath(u"runtime"_s));
        double took = -1;
        QElapsedTimer timer;
        QObject::connect(&updater, &UpdateChecker::upToDate, [&] { took = milliseconds(timer); });
        timer.start();
        updater.checkNow();
        if (!settle(updater) || took < 0) {
            std::fprintf(stderr, "%s\n", qPrintable(updater.status()));
            return false;
        }
        times << took;
    }
    figures.atMost("update: first check of a process, call to answer", times.takeFirst(), 20, "ms");
    figures.atMost("update: check, call to answer, median", bench::median(times), 20, "ms");
    return true;
}

bool staging(bench::Figures &figures, const QString &feed, const QTemporaryDir &folder)
{
    UpdateChecker updater(u"0.1.0"_s, feed, folder.filePath(u"runtime"_s));
    bool staged = false;
    QObject::connect(&updater, &UpdateChecker::readyToApply, [&] { staged = true; });
    QFile reset(u"/proc/self/clear_refs"_s); // the peak from here on
    if (!reset.open(QIODevice::WriteOnly) || reset.write("5") != 1 || !reset.flush())
        return false;
    const double before = memory("VmRSS");
    QElapsedTimer timer;
    timer.start();
    updater.checkNow();
    if (!settle(updater) || !staged) {
        std::fprintf(stderr, "%s\n", qPrintable(updater.status()));
        return false;
    }
    figures.note("update: check to staged package of 200 MB", milliseconds(timer), "ms");
    figures.atMost("update: peak memory of staging 200 MB", memory("VmHWM") - before, 200 + 64, "MB");
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    if (const QString problem = tlsProblem(); !problem.isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(problem));
        return 2;
    }
    if (argc > 1)
        return serve();

    trustTestAuthority();
    const QTemporaryDir folder;
    bench::Figures figures;
    QProcess server;
    endWithParent(server);
    server.start(QCoreApplication::applicationFilePath(), {u"serve"_s});
    if (!waitUntil([&] { return server.bytesAvailable() > 0 && server.peek(4096).count('\n') == 2; })) {
        std::fprintf(stderr, "no server\n");
        return 2;
    }
    const QString nothing = QString::fromUtf8(server.readLine().trimmed());
    const QString latest = QString::fromUtf8(server.readLine().trimmed());
    // Memory comes first: it would be hidden in the memory that the others leave to the allocator.
    const bool measured =
        staging(figures, latest, folder) && checking(figures, nothing, folder) && hashing(figures, folder);
    server.kill();
    server.waitForFinished();
    if (!measured) {
        std::fprintf(stderr, "a run failed\n");
        return 2;
    }
    return figures.exitCode();
}
