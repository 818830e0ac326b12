#pragma once

#include <QList>

#include <string>

namespace corvane::bench {

/// The table that every benchmark prints: one row to a figure, tab-separated, "name measured limit ok" with
/// "FAIL" for a figure beyond its limit and "-" for one that has none. A row is printed as soon as it is
/// known.
class Figures
{
public:
    void atMost(const std::string &name, double measured, double limit, const std::string &unit);
    void atLeast(const std::string &name, double measured, double limit, const std::string &unit);

    /// A figure without a limit.
    void note(const std::string &name, double measured, const std::string &unit);

    /// For main to return: 0 if every limit was kept.
    [[nodiscard]] int exitCode() const { return m_allKept ? 0 : 1; }

private:
    void row(const std::string &name, double measured, const char *sign, double limit,
             const std::string &unit, bool kept);

    bool m_allKept = true;
};

/// NaN, which keeps no limit, for no values.
[[nodiscard]] double median(QList<double> values);

/// Runs the registered benchmark functions, each several times over; the median of its CPU time per
/// iteration, in nanoseconds, by the function's name. Prints nothing.
[[nodiscard]] double medianNanoseconds(const std::string &benchmark);

} // namespace corvane::bench
