// One scrape of many pipelines on the loopback interface: how long it takes, and what it costs beside the
// exporter that watches most machines.

#include "engine/MetricsText.h"
#include "metrics/MetricsServer.h"
#include "tests/bench/Figures.h"
#include "tests/support/ChildLife.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

constexpr int pipelineCount = 100;
constexpr int scrapes = 2000;

/// One scrape, blocking; empty if it fails. For a thread other than the server's.
QByteArray scrape(quint16 port)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
    if (!socket.waitForConnected(5000))
        return {};
    socket.write("GET /metrics HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
    QByteArray response;
    while (socket.waitForReadyRead(5000))
        response += socket.readAll();
    return response + socket.readAll();
}

qsizetype seriesIn(const QByteArray &response)
{
    const QByteArrayList lines = response.sliced(response.indexOf("\r\n\r\n") + 4).split('\n');
    return std::count_if(lines.begin(), lines.end(),
                         [](const QByteArray &line) { return line.contains(' ') && !line.startsWith('#'); });
}

/// Runs `work` in a thread of its own while the event loop of this one serves.
void aside(const std::function<void()> &work)
{
    const std::unique_ptr<QThread> thread(QThread::create(work));
    thread->start();
    waitUntil([&] { return thread->isFinished(); }, 300'000);
    thread->wait();
}

/// CPU time of this thread so far, in microseconds.
double threadCpu()
{
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return 1e6 * static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

/// The same of another process.
double processCpu(qint64 pid)
{
    QFile file(u"/proc/%1/stat"_s.arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArrayList fields = file.readAll().split(' '); // no blank in the name of those asked for
    return 1e6 * static_cast<double>(fields.value(13).toLongLong() + fields.value(14).toLongLong()) /
           static_cast<double>(sysconf(_SC_CLK_TCK));
}

/// Scrapes per second and their number, as wrk counts them over three seconds from one client.
struct Load
{
    double perSecond = 0;
    double count = 0;
};

Load load(const QString &wrk, quint16 port)
{
    QProcess process;
    endWithParent(process);
    process.start(wrk, {u"-t1"_s, u"-c1"_s, u"-d3s"_s, u"http://127.0.0.1:%1/metrics"_s.arg(port)});
    waitUntil([&] { return process.state() == QProcess::NotRunning; });
    const QString said = QString::fromUtf8(process.readAll());
    static const QRegularExpression rate(uR"(Requests/sec:\s*([0-9.]+))"_s);
    static const QRegularExpression count(uR"((\d+) requests in)"_s);
    return {rate.match(said).captured(1).toDouble(), count.match(said).captured(1).toDouble()};
}

void report(bench::Figures &figures, const std::string &who, const Load &done, double cpuMicroseconds,
            qsizetype series)
{
    if (done.count < 1 || series < 1)
        return;
    const double perScrape = cpuMicroseconds / done.count;
    figures.note("scrape: " + who + ", series in a scrape", static_cast<double>(series), "");
    figures.note("scrape: " + who + ", scrapes per second", done.perSecond, "/s");
    figures.note("scrape: " + who + ", CPU per scrape", perScrape, "us");
    figures.note("scrape: " + who + ", CPU per series", perScrape * 1000 / static_cast<double>(series), "ns");
}

void compareWithNodeExporter(bench::Figures &figures, const QString &wrk)
{
    const QString program = machineTool(u"prometheus-node-exporter"_s);
    if (program.isEmpty()) {
        std::fprintf(stderr, "prometheus-node-exporter isn't installed\n");
        return;
    }
    quint16 port = 0;
    {
        QTcpServer probe;
        if (probe.listen(QHostAddress::LocalHost, 0))
            port = probe.serverPort();
    }
    QProcess exporter;
    endWithParent(exporter);
    exporter.start(program, {u"--web.listen-address=127.0.0.1:%1"_s.arg(port)});
    QByteArray response;
    waitUntil([&] {
        exporter.readAllStandardError();
        response = scrape(port);
        return !response.isEmpty() || exporter.state() == QProcess::NotRunning;
    });
    if (!response.isEmpty()) {
        const double before = processCpu(exporter.processId());
        const Load done = load(wrk, port);
        report(figures, "node exporter", done, processCpu(exporter.processId()) - before, seriesIn(response));
    }
    exporter.kill();
    exporter.waitForFinished();
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    std::vector<std::unique_ptr<Pipeline>> owned;
    QList<Pipeline *> pipelines;
    for (int i = 0; i < pipelineCount; ++i) {
        PipelineConfig config = fakeConfig(u""_s);
        config.id = QString::number(0xcafe0000U + static_cast<unsigned>(i), 16);
        owned.push_back(std::make_unique<Pipeline>(config, fakeFfmpeg(), false));
        pipelines << owned.back().get();
    }
    MetricsServer server;
    if (!server.start([&] { return metricsText(pipelines); }, 0))
        return 2;

    std::vector<double> milliseconds;
    QByteArray response;
    aside([&] {
        using Clock = std::chrono::steady_clock;
        for (int i = 0; i < scrapes; ++i) {
            const auto before = Clock::now();
            response = scrape(server.port());
            milliseconds.push_back(std::chrono::duration<double, std::milli>(Clock::now() - before).count());
            if (response.isEmpty())
                break;
        }
    });
    if (seriesIn(response) != qsizetype(pipelineCount) * 9) {
        std::fprintf(stderr, "a scrape holds %d series\n", static_cast<int>(seriesIn(response)));
        return 2;
    }
    std::sort(milliseconds.begin(), milliseconds.end());

    bench::Figures figures;
    figures.atMost("scrape: 100 pipelines on loopback, median", milliseconds.at(milliseconds.size() / 2), 1,
                   "ms");

    const QString wrk = machineTool(u"wrk"_s);
    if (wrk.isEmpty()) {
        std::fprintf(stderr, "wrk isn't installed: no figures under load\n");
        return figures.exitCode();
    }
    const double before = threadCpu();
    const Load done = load(wrk, server.port());
    report(figures, "100 pipelines", done, threadCpu() - before, seriesIn(response));
    compareWithNodeExporter(figures, wrk);
    return figures.exitCode();
}
