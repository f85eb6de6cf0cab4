#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

/// Keeps every repetition's figures beside what Google Benchmark prints, and compares their medians at the end.
class Results final : public benchmark::ConsoleReporter {
public:
    Results() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override;

    /// The median of a benchmark's counter; the counter "" is its time in nanoseconds. 0 when it did not run.
    double median(const std::string& benchmark, const std::string& counter) const;

    /// A run of ours whose result was wrong.
    bool hasError() const { return mHasError; }

private:
    std::map<std::string, std::map<std::string, std::vector<double>>> mFigures;
    bool mHasError = false;
};

struct Target {
    std::string what;
    std::string ours;
    std::string peer;
    std::string counter;   ///< which figure
    double bound;          ///< of ours divided by the peer's
    bool atLeast;          ///< the bound is a lower one
    bool absolute = false; ///< the bound is of our figure itself
};

/// Prints what is measured against its bound; false when one is missed.
bool printTargets(const Results& results, const std::vector<Target>& targets);
