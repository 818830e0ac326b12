// Many machines that write to one central Prometheus with the shipped configuration and rules: its memory,
// its processor time and the delay from a sample to the answer of a query, and how each grows with their
// number. The machines are connections that write what an agent would; the delay is that of one real agent
// beside them.

#include "metrics/MetricsServer.h"
#include "tests/bench/Figures.h"
#include "tests/bench/RemoteWrite.h"
#include "tests/support/ChildLife.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>
#include <QUrlQuery>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

constexpr int fewMachines = 100;
constexpr int manyMachines = 300;
constexpr int pipelinesPerMachine = 10;
constexpr qint64 intervalMs = 5000; // of the shipped configuration
constexpr int historyScrapes = 120; // ten minutes
constexpr int measuredMs = 40'000;
constexpr int pollMs = 50;
const auto monitoring = QStringLiteral(CORVANE_SOURCE_DIR "/packaging/monitoring/");

const QByteArrayList seriesOfAPipeline = {
    "corvane_pipeline_up",     "corvane_fps",
    "corvane_bitrate_kbps",    "corvane_dropped_frames",
    "corvane_srt_rtt_ms",      "corvane_srt_pkt_snd_drop",
    "corvane_srt_pkt_retrans", "corvane_degradation_level",
    "corvane_thermal_state",
};

/// What there is to know of one run.
struct Run
{
    double memoryMib = 0;
    double cpuPercent = 0; ///< of one core
    double delayMs = 0;    ///< median
    double slowMs = 0;     ///< 95 % are faster
    double series = 0;
};

bool writeFile(const QString &path, const QByteArray &text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
}

/// A shipped configuration with one text replaced; empty if that isn't in it.
QByteArray shipped(const QString &name, const QList<QPair<QByteArray, QByteArray>> &replaced = {})
{
    QFile file(monitoring + name);
    QByteArray text = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    for (const auto &[from, to] : replaced) {
        if (!text.contains(from))
            return {};
        text.replace(from, to);
    }
    return text;
}

/// A Prometheus in a folder of its own, on a port of the system's choice.
class Prometheus
{
public:
    ~Prometheus()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    [[nodiscard]] QString path(const QString &name) const { return m_dir.filePath(name); }

    /// True as soon as it listens. The configuration is in the file "prometheus.yml" of its folder.
    bool start(const QStringList &arguments, const QString &machine = {})
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"CORVANE_MACHINE"_s, machine);
        m_process.setProcessEnvironment(environment);
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        endWithParent(m_process);
        m_process.start(machineTool(u"prometheus"_s),
                        QStringList{u"--config.file="_s + path(u"prometheus.yml"_s),
                                    u"--web.listen-address=127.0.0.1:0"_s} +
                            arguments);
        static const QRegularExpression listening(uR"(msg="Listening on" address=127\.0\.0\.1:(\d+))"_s);
        QString log;
        waitUntil([&] {
            log += QString::fromUtf8(m_process.readAll());
            m_port = listening.match(log).captured(1).toUShort();
            return m_port != 0 || m_process.state() == QProcess::NotRunning;
        });
        if (m_port == 0)
            std::fprintf(stderr, "%s\n", qPrintable(log));
        // A pipe that nobody empties would hold it up.
        QObject::connect(&m_process, &QProcess::readyRead, &m_process, [this] { m_process.readAll(); });
        return m_port != 0;
    }

    [[nodiscard]] quint16 port() const { return m_port; }

    /// Result of a query; empty if there is none.
    double value(const QString &query)
    {
        QUrl url(u"http://127.0.0.1:%1/api/v1/query"_s.arg(m_port));
        QUrlQuery arguments;
        arguments.addQueryItem(u"query"_s, QString::fromLatin1(QUrl::toPercentEncoding(query)));
        url.setQuery(arguments);
        const std::unique_ptr<QNetworkReply> reply(m_network.get(QNetworkRequest(url)));
        waitUntil([&] { return reply->isFinished(); });
        const QJsonArray found =
            QJsonDocument::fromJson(reply->readAll()).object()["data"_L1].toObject()["result"_L1].toArray();
        return found.size() == 1 ? found.at(0)["value"_L1].toArray().at(1).toString().toDouble() : 0;
    }

    /// CPU time so far, in milliseconds.
    [[nodiscard]] double cpuMs() const
    {
        QFile file(u"/proc/%1/stat"_s.arg(m_process.processId()));
        const QByteArrayList fields =
            file.open(QIODevice::ReadOnly) ? file.readAll().split(' ') : QByteArrayList();
        return 1000.0 * static_cast<double>(fields.value(13).toLongLong() + fields.value(14).toLongLong()) /
               static_cast<double>(sysconf(_SC_CLK_TCK));
    }

    /// Resident memory, in MiB.
    [[nodiscard]] double memoryMib() const
    {
        QFile file(u"/proc/%1/statm"_s.arg(m_process.processId()));
        const QByteArrayList pages =
            file.open(QIODevice::ReadOnly) ? file.readAll().split(' ') : QByteArrayList();
        return static_cast<double>(pages.value(1).toLongLong() * sysconf(_SC_PAGESIZE)) / (1024 * 1024);
    }

private:
    QTemporaryDir m_dir;
    QNetworkAccessManager m_network;
    quint16 m_port = 0;
    QProcess m_process;
};

/// What the agent of one machine would send.
class Machine
{
public:
    Machine(int number, quint16 port)
        : m_number(number)
        , m_writer(port)
    {
        const QByteArray machine = "machine" + QByteArray::number(number);
        const auto add = [&](const QByteArray &name, const QByteArray &pipeline) {
            TimeSeries one;
            one.labels = {
                {"__name__", name}, {"instance", "127.0.0.1:9105"}, {"job", "corvane"}, {"machine", machine}};
            if (!pipeline.isEmpty())
                one.labels.append({"pipeline", pipeline});
            m_series += one;
        };
        add("up", {});
        for (int pipeline = 0; pipeline < pipelinesPerMachine; ++pipeline)
            for (const QByteArray &name : seriesOfAPipeline)
                add(name, QByteArray::number(0xcafe0000U + unsigned(pipeline), 16));
    }

    /// Sends the samples of `count` scrapes, the last of them at `lastMs`.
    void send(qint64 lastMs, int count)
    {
        for (TimeSeries &one : m_series) {
            one.samples.clear();
            for (int scrape = count - 1; scrape >= 0; --scrape)
                one.samples += Sample{lastMs - scrape * intervalMs, next(one.labels.constFirst().second)};
        }
        m_writer.post(bench::writeRequest(m_series));
    }

    [[nodiscard]] const bench::RemoteWriter &writer() const { return m_writer; }

private:
    using TimeSeries = bench::TimeSeries;
    using Sample = bench::Sample;

    /// The bit rate wanders, the others stand: a healthy stream.
    double next(const QByteArray &name)
    {
        if (name == "up" || name == "corvane_pipeline_up")
            return 1;
        if (name == "corvane_fps")
            return 30;
        if (name == "corvane_bitrate_kbps") {
            m_step = (m_step * 7 + m_number) % 101;
            return 6000 + m_step / 10.0;
        }
        return 0;
    }

    int m_number;
    int m_step = 1;
    QList<TimeSeries> m_series;
    bench::RemoteWriter m_writer;
};

using Machines = std::vector<std::unique_ptr<Machine>>;

bool allAnswered(const Machines &machines)
{
    return waitUntil(
        [&] {
            return std::all_of(machines.begin(), machines.end(), [](const auto &machine) {
                return machine->writer().waiting() == 0 || !machine->writer().failure().isEmpty();
            });
        },
        300'000);
}

QByteArray failureOf(const Machines &machines)
{
    for (const auto &machine : machines)
        if (!machine->writer().failure().isEmpty())
            return machine->writer().failure();
    return {};
}

/// The agent whose sample carries the time at which it was taken. Its interval isn't one of the second after
/// which a batch is sent, so that a scrape falls into every part of that second.
class Probe
{
public:
    bool start(quint16 centralPort)
    {
        const auto now = [] {
            return u"corvane_fps{pipeline=\"probe\"} %1\n"_s.arg(QDateTime::currentMSecsSinceEpoch());
        };
        if (!m_endpoint.start(now, 0))
            return false;
        const QByteArray configuration = shipped(
            u"corvane-agent.yml"_s, {{"127.0.0.1:9105", "127.0.0.1:" + QByteArray::number(m_endpoint.port())},
                                     {"central.example:9090", "127.0.0.1:" + QByteArray::number(centralPort)},
                                     {"scrape_interval: 5s", "scrape_interval: 1370ms"}});
        return writeFile(m_agent.path(u"prometheus.yml"_s), configuration) &&
               m_agent.start({u"--enable-feature=agent,expand-external-labels"_s,
                              u"--storage.agent.path="_s + m_agent.path(u"data"_s)},
                             u"probe"_s);
    }

private:
    MetricsServer m_endpoint{nullptr};
    Prometheus m_agent;
};

/// Sends for the measured time, each machine in its turn, and polls for the probe's sample.
void goOn(Machines &machines, Prometheus &central, std::vector<double> &delays)
{
    QElapsedTimer clock;
    clock.start();
    qint64 sent = 0; // turns of single machines so far
    const auto count = qint64(machines.size());
    QTimer turns;
    QObject::connect(&turns, &QTimer::timeout, &turns, [&] {
        for (const qint64 due = clock.elapsed() * count / intervalMs; sent < due; ++sent)
            machines[size_t(sent % count)]->send(QDateTime::currentMSecsSinceEpoch(), 1);
    });
    turns.start(10);
    double last = 0;
    while (clock.elapsed() < measuredMs) {
        const double taken = central.value(u"corvane_fps{machine=\"probe\"}"_s);
        if (taken > last) {
            if (last > 0) // the first one may be old
                delays.push_back(static_cast<double>(QDateTime::currentMSecsSinceEpoch()) - taken);
            last = taken;
        }
        passTimersOf(pollMs);
    }
}

/// False if anything went wrong; the reason is on standard error.
bool measure(int count, Run &run)
{
    Prometheus central;
    bool ready = writeFile(central.path(u"prometheus.yml"_s), shipped(u"corvane-central.yml"_s));
    for (const QString &rules : {u"corvane-alerts.yml"_s, u"corvane-fleet-alerts.yml"_s})
        ready = ready && QFile::copy(monitoring + rules, central.path(rules));
    if (!ready || !central.start({u"--web.enable-remote-write-receiver"_s,
                                  u"--storage.tsdb.path="_s + central.path(u"data"_s)}))
        return false;
    waitUntil([&] { return central.value(u"vector(1)"_s) > 0; });

    Machines machines;
    for (int number = 0; number < count; ++number)
        machines.push_back(std::make_unique<Machine>(number, central.port()));
    // A few at once: it is the hours on end that are to be measured, not a flood.
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    for (const auto &machine : machines) {
        machine->send(now - intervalMs, historyScrapes);
        waitUntil([&] { return machine->writer().waiting() == 0 || !machine->writer().failure().isEmpty(); });
    }
    Probe probe;
    if (!probe.start(central.port()) || !failureOf(machines).isEmpty()) {
        std::fprintf(stderr, "%s\n", failureOf(machines).constData());
        return false;
    }
    waitUntil([&] { return central.value(u"corvane_fps{machine=\"probe\"}"_s) > 0; });

    std::vector<double> delays;
    const double before = central.cpuMs();
    goOn(machines, central, delays);
    run.cpuPercent = 100 * (central.cpuMs() - before) / measuredMs;
    run.memoryMib = central.memoryMib();
    if (!allAnswered(machines) || !failureOf(machines).isEmpty() || delays.size() < 10) {
        std::fprintf(stderr, "%d samples of the probe; %s\n", static_cast<int>(delays.size()),
                     failureOf(machines).constData());
        return false;
    }
    std::sort(delays.begin(), delays.end());
    run.delayMs = delays.at(delays.size() / 2);
    run.slowMs = delays.at(delays.size() * 95 / 100);
    // What has come in within the last two scrapes.
    run.series = central.value(u"count(last_over_time({job=\"corvane\", machine!=\"probe\"}[12s]))"_s);
    const double wanted = count * (pipelinesPerMachine * double(seriesOfAPipeline.size()) + 1);
    if (run.series != wanted) {
        std::fprintf(stderr, "%.0f series arrived of %.0f\n", run.series, wanted);
        return false;
    }
    return true;
}

void report(bench::Figures &figures, int machines, const Run &run)
{
    const std::string who = "fleet: " + std::to_string(machines) + " machines, ";
    figures.note(who + "series", run.series, "");
    figures.note(who + "memory of the central Prometheus", run.memoryMib, "MiB");
    figures.note(who + "processor time of it", run.cpuPercent, "% of a core");
    figures.note(who + "from sample to query, median", run.delayMs, "ms");
    figures.note(who + "from sample to query, 95 %", run.slowMs, "ms");
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    if (machineTool(u"prometheus"_s).isEmpty()) {
        std::fprintf(stderr, "prometheus isn't installed\n");
        return 2;
    }
    Run few;
    Run many;
    if (!measure(fewMachines, few) || !measure(manyMachines, many))
        return 2;

    bench::Figures figures;
    report(figures, fewMachines, few);
    report(figures, manyMachines, many);
    // Three times the machines: nothing may grow faster than their number. The collector of garbage lets
    // memory and processor time vary by a tenth. The delay doesn't grow with it at rest, but other work on
    // the machine may come between the two runs.
    figures.atMost("fleet: memory, 300 to 100 machines", many.memoryMib / few.memoryMib, 3.3, "x");
    figures.atMost("fleet: processor time, 300 to 100 machines", many.cpuPercent / few.cpuPercent, 3.3, "x");
    figures.atMost("fleet: delay, 300 to 100 machines", many.delayMs / few.delayMs, 3, "x");
    return figures.exitCode();
}
