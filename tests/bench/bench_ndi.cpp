// The frame pump at work: how late its frames start, what it costs beside a bare loop that writes the same
// bytes to the same kind of pipe, and what it leaves in memory.

#include "ndi/FramePipe.h"
#include "ndi/FrameSource.h"
#include "ndi/NdiReceiver.h"
#include "ndi/ThreadPriority.h"
#include "tests/bench/Figures.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <future>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace corvane;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int pipeCapacity = 0x400000;

double seconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double processCpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double threadCpuSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// Largest resident memory of this process so far, in KiB.
double peakResidentKib()
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = status.readAll();
    const qsizetype at = text.indexOf("VmHWM:");
    return at < 0 ? 0 : text.sliced(at + 6, text.indexOf(" kB", at) - at - 6).trimmed().toDouble();
}

/// Result of reading a run of frames.
struct Reading
{
    std::vector<Clock::time_point> starts; ///< of each frame, as its first bytes arrived
    double cpuSeconds = 0;                 ///< of the reader itself
};

/// Reads `frames` frames and throws them away; calls `onFrame` with the number of each that begins.
Reading discard(const QString &path, qint64 frameSize, qint64 frames,
                const std::function<void(qint64)> &onFrame = {})
{
    Reading reading;
    reading.starts.reserve(static_cast<size_t>(frames));
    const double cpuBefore = threadCpuSeconds();
    const int pipe = open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    std::vector<char> buffer(1 << 20);
    for (qint64 total = 0; total < frames * frameSize;) {
        const ssize_t size = read(pipe, buffer.data(), buffer.size());
        if (size <= 0)
            break;
        const auto begun = static_cast<qint64>(reading.starts.size());
        total += size;
        if (total > begun * frameSize && begun < frames) {
            reading.starts.push_back(Clock::now());
            if (onFrame)
                onFrame(begun);
        }
    }
    close(pipe);
    reading.cpuSeconds = threadCpuSeconds() - cpuBefore;
    return reading;
}

/// Cost of writing a run of frames.
struct Cost
{
    std::vector<double> latenessMs; ///< of each frame but the first, against a period after the one before
    double cpuMsPerFrame = 0;       ///< without the reader's

    void take(const Reading &reading, double cpuSeconds, double intervalMs)
    {
        for (size_t i = 1; i < reading.starts.size(); ++i) {
            const std::chrono::duration<double, std::milli> apart = reading.starts[i] - reading.starts[i - 1];
            latenessMs.push_back(apart.count() - intervalMs);
        }
        cpuMsPerFrame = 1000 * (cpuSeconds - reading.cpuSeconds) / static_cast<double>(reading.starts.size());
    }

    [[nodiscard]] double latenessAt(double share) const
    {
        std::vector<double> sorted = latenessMs;
        std::sort(sorted.begin(), sorted.end());
        return sorted.at(static_cast<size_t>(share * static_cast<double>(sorted.size() - 1)));
    }
};

double middle(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

/// A source whose frames are ready: the measurement is of the pump alone.
class ReadySource : public FrameSource
{
public:
    ReadySource(const NdiFrameInfo &info, bool showsFrames)
        : m_info(info)
    {
        const qsizetype size = qsizetype(2) * info.width * info.height;
        if (showsFrames)
            m_frames = {QByteArray(size, 'a'), QByteArray(size, 'b')};
    }

    NdiFrameInfo probe(int /*timeoutMs*/) override { return m_info; }

    void capture(const std::atomic<bool> &running, const Deliver &deliver) override
    {
        for (qsizetype next = 0; running; ++next) {
            if (!m_frames.isEmpty())
                deliver(m_frames.at(next % 2));
            std::this_thread::sleep_for(33ms);
        }
    }

private:
    NdiFrameInfo m_info;
    QList<QByteArray> m_frames;
};

NdiFrameInfo format(int width, int height, int rate)
{
    NdiFrameInfo info;
    info.width = width;
    info.height = height;
    info.frameRateN = rate;
    info.valid = true;
    return info;
}

/// Runs the pump until its reader has seen `frames` frames.
void runPump(Cost &cost, const NdiFrameInfo &info, int intervalMs, qint64 frames, bool showsFrames,
             const std::function<void(qint64)> &onFrame = {})
{
    const QTemporaryDir dir;
    const QString path = dir.filePath(u"pump"_s);
    setFrameSourceFactory([&](const QString &) { return std::make_unique<ReadySource>(info, showsFrames); });
    NdiReceiver receiver(u"fonte"_s);
    if (!receiver.probe(0).valid || !receiver.createPipe(path))
        qFatal("no pipe");
    const double cpuBefore = processCpuSeconds();
    auto reading = std::async(std::launch::async, [&] {
        return discard(path, qint64(2) * info.width * info.height, frames, onFrame);
    });
    receiver.start(path);
    const Reading read = reading.get();
    receiver.stop();
    cost.take(read, processCpuSeconds() - cpuBefore, intervalMs);
}

/// The same bytes from one buffer.
void runBareLoop(Cost &cost, const NdiFrameInfo &info, int intervalMs, qint64 frames)
{
    const QTemporaryDir dir;
    const QString path = dir.filePath(u"bare"_s);
    if (mkfifo(QFile::encodeName(path).constData(), 0600) != 0)
        qFatal("no pipe");
    const QByteArray frame(qsizetype(2) * info.width * info.height, 'a');
    const double cpuBefore = processCpuSeconds();
    auto reading = std::async(std::launch::async, [&] { return discard(path, frame.size(), frames); });
    auto writing = std::async(std::launch::async, [&] {
        makeThreadTimeCritical(); // like the pump: priorities decide the cost of a page
        const int pipe = open(QFile::encodeName(path).constData(), O_WRONLY | O_CLOEXEC);
        fcntl(pipe, F_SETPIPE_SZ, pipeCapacity);
        auto next = Clock::now();
        for (qint64 i = 0; i < frames; ++i) {
            const char *at = frame.constData();
            while (at != frame.constEnd()) {
                const ssize_t size = write(pipe, at, static_cast<size_t>(frame.constEnd() - at));
                if (size <= 0)
                    qFatal("the reader has gone");
                at += size;
            }
            next += std::chrono::milliseconds(intervalMs);
            std::this_thread::sleep_until(next);
        }
        close(pipe);
    });
    writing.get();
    const Reading read = reading.get();
    cost.take(read, processCpuSeconds() - cpuBefore, intervalMs);
}

/// Growth of the process over 10,000 frames as fast as the pipe takes them, the first thousand aside.
double growthKib(bool showsFrames)
{
    double before = 0;
    double after = 0;
    Cost cost;
    runPump(cost, format(1920, 1080, 1000), 1, 10'001, showsFrames, [&](qint64 frame) {
        if (frame == 1000)
            before = peakResidentKib();
        if (frame == 10'000)
            after = peakResidentKib();
    });
    return before > 0 ? after - before : pipeCapacity;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    bench::Figures figures;

    // By turns, and the median of them: other load on the machine falls on both.
    const NdiFrameInfo hd = format(1920, 1080, 30);
    Cost pump;
    std::vector<double> costs;
    std::vector<double> ratios;
    for (int turn = 0; turn < 5; ++turn) {
        Cost turnOfPump;
        Cost turnOfBareLoop;
        runPump(turnOfPump, hd, 33, 100, true);
        runBareLoop(turnOfBareLoop, hd, 33, 100);
        pump.latenessMs.insert(pump.latenessMs.end(), turnOfPump.latenessMs.begin(),
                               turnOfPump.latenessMs.end());
        costs.push_back(turnOfPump.cpuMsPerFrame);
        ratios.push_back(turnOfPump.cpuMsPerFrame / turnOfBareLoop.cpuMsPerFrame);
    }
    figures.atMost("ndi: 1080p30, lateness of a frame's start, 99th percentile", pump.latenessAt(0.99), 2,
                   "ms");
    figures.note("ndi: 1080p30, the worst of them", pump.latenessAt(1), "ms");
    figures.atMost("ndi: 1080p30, CPU of the pump over that of a bare loop", middle(ratios), 1.3, "x");
    figures.note("ndi: 1080p30, CPU of the pump for a frame", middle(costs), "ms");
    Cost slate;
    runPump(slate, hd, 33, 100, false);
    figures.note("ndi: 1080p30, CPU of the pump for a slate", slate.cpuMsPerFrame, "ms");

    const NdiFrameInfo uhd = format(3840, 2160, 60);
    Cost pumpUhd;
    Cost bareUhd;
    runPump(pumpUhd, uhd, 16, 200, true);
    runBareLoop(bareUhd, uhd, 16, 200);
    figures.note("ndi: 2160p60, lateness of a frame's start, 99th percentile", pumpUhd.latenessAt(0.99),
                 "ms");
    figures.note("ndi: 2160p60, CPU of the pump over that of a bare loop",
                 pumpUhd.cpuMsPerFrame / bareUhd.cpuMsPerFrame, "x");
    figures.note("ndi: 2160p60, CPU of the pump for a frame", pumpUhd.cpuMsPerFrame, "ms");

    // Limit that keeping sixty bytes of each frame would break.
    constexpr double allowedKib = 512;
    figures.atMost("ndi: memory growth over 10,000 frames", growthKib(true), allowedKib, "KiB");
    figures.atMost("ndi: memory growth over 10,000 slates", growthKib(false), allowedKib, "KiB");
    setFrameSourceFactory({});
    return figures.exitCode();
}
