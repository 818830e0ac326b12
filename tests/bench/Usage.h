#pragma once

#include <QByteArrayList>
#include <QDir>
#include <QFile>
#include <QtGlobal>

#include <ctime>
#include <sys/resource.h>
#include <unistd.h>

/// Resources that this process has used so far. POSIX with /proc.
namespace corvane::bench {

[[nodiscard]] inline qint64 nanoseconds(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return qint64(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

/// Monotonic time, the same in every process of the machine.
[[nodiscard]] inline qint64 monotonicNs()
{
    return nanoseconds(CLOCK_MONOTONIC);
}

/// Processor time of the calling thread.
[[nodiscard]] inline qint64 threadCpuNs()
{
    return nanoseconds(CLOCK_THREAD_CPUTIME_ID);
}

/// Processor time of all threads, user and system, children left out.
[[nodiscard]] inline qint64 processCpuNs()
{
    return nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
}

/// Share of one core that this process has used since the object was made.
class CoreShare
{
public:
    [[nodiscard]] double value() const
    {
        return double(processCpuNs() - m_cpuBefore) / double(monotonicNs() - m_before);
    }

private:
    qint64 m_cpuBefore = processCpuNs();
    qint64 m_before = monotonicNs();
};

/// Processor time of the threads of these names, as far as they still run.
[[nodiscard]] inline qint64 threadsCpuNs(const QByteArrayList &names)
{
    qint64 sum = 0;
    const QStringList threads =
        QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &thread : threads) {
        QFile name(QStringLiteral("/proc/self/task/%1/comm").arg(thread));
        QFile schedule(QStringLiteral("/proc/self/task/%1/schedstat").arg(thread));
        if (name.open(QIODevice::ReadOnly) && names.contains(name.readAll().trimmed()) &&
            schedule.open(QIODevice::ReadOnly))
            sum += schedule.readAll().split(' ').value(0).toLongLong();
    }
    return sum;
}

[[nodiscard]] inline qint64 residentKib()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    const QByteArrayList pages =
        statm.open(QIODevice::ReadOnly) ? statm.readAll().split(' ') : QByteArrayList();
    return pages.value(1).toLongLong() * sysconf(_SC_PAGESIZE) / 1024;
}

} // namespace corvane::bench
