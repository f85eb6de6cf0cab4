#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <set>
#include <string>
#include <vector>

/// Keeps every repetition's figures, which Google Benchmark only summarises.
class Results final : public benchmark::ConsoleReporter {
public:
    Results() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override;

    /// A figure of a benchmark, one for each repetition. The counter "" is its time in nanoseconds, "cpu" the processor
    /// time of its thread, which other programs do not disturb. Empty when it did not run.
    std::vector<double> figures(const std::string& benchmark, const std::string& counter) const;

    /// Whether a result of the benchmark was wrong.
    bool isWrong(const std::string& benchmark) const { return mWrong.count(benchmark) != 0; }

    /// A run of ours whose result was wrong. A peer's is left out of the comparison.
    bool hasError() const;

private:
    std::map<std::string, std::map<std::string, std::vector<double>>> mFigures;
    std::set<std::string> mWrong;
};

inline constexpr double kNoBound = -1;

struct Target {
    std::string what;
    std::string ours;
    std::string peer;
    std::string counter;   ///< which figure
    double bound;          ///< of ours divided by the peer's; kNoBound: the figures are only shown
    bool atLeast;          ///< the bound is a lower one
    bool absolute = false; ///< the bound is of our figure itself
};

/// Prints what is measured against its bound; false when one is missed. Where SONVIA_BENCH_ROWS names a file, the same is
/// appended to it, one JSON object a line.
bool printTargets(const Results& results, const std::vector<Target>& targets);

/// 1 in a run that must fail (SONVIA_BENCH_PLANT is set), else 0: every check adds it to what it expects, so that a check
/// that sees nothing is seen itself.
unsigned planted();

/// Keeps single measurements of one repetition for a plot, one a line, where SONVIA_BENCH_SAMPLES names a folder.
void writeSamples(const std::string& file, const std::vector<double>& samples);

/// Runs what is registered, nine repetitions of each in turns, so that whatever else the machine does meets all of them
/// alike, then prints the targets. Returns the exit code: 1 when a bound is missed, 2 when a result was wrong.
int runInTurns(int argc, char** argv, const std::vector<Target>& targets);
