#include "tests/bench/Figures.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <limits>

namespace corvane::bench {

namespace {

/// Keeps the medians and prints nothing.
class Medians : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context & /*context*/) override { return true; }

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
                cpuNanoseconds = run.GetAdjustedCPUTime();
        }
    }

    double cpuNanoseconds = std::numeric_limits<double>::quiet_NaN(); // keeps no limit
};

} // namespace

void Figures::atMost(const std::string &name, double measured, double limit, const std::string &unit)
{
    row(name, measured, "<=", limit, unit, measured <= limit);
}

void Figures::atLeast(const std::string &name, double measured, double limit, const std::string &unit)
{
    row(name, measured, ">=", limit, unit, measured >= limit);
}

void Figures::note(const std::string &name, double measured, const std::string &unit)
{
    std::printf("%s\t%.4g %s\t-\t-\n", name.c_str(), measured, unit.c_str());
    std::fflush(stdout);
}

void Figures::row(const std::string &name, double measured, const char *sign, double limit,
                  const std::string &unit, bool kept)
{
    m_allKept = m_allKept && kept;
    std::printf("%s\t%.*g %s\t%s %.10g %s\t%s\n", name.c_str(), measured < 1e4 ? 4 : 10, measured,
                unit.c_str(), sign, limit, unit.c_str(), kept ? "ok" : "FAIL");
    std::fflush(stdout);
}

double median(QList<double> values)
{
    if (values.isEmpty())
        return std::numeric_limits<double>::quiet_NaN();
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

double medianNanoseconds(const std::string &benchmark)
{
    Medians medians;
    benchmark::RunSpecifiedBenchmarks(&medians, '^' + benchmark + '/');
    return medians.cpuNanoseconds;
}

} // namespace corvane::bench
