#include "results.h"

#include <algorithm>
#include <cstdio>

namespace {

/// Newer versions of Google Benchmark tell failed runs from left-out ones.
template <typename Run>
bool failed(const Run& run) {
    if constexpr (requires { run.error_occurred; }) {
        return run.error_occurred;
    } else {
        return run.skipped != decltype(run.skipped){};
    }
}

} // namespace

void Results::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        // A peer that loses lines is left out of the comparison; only ours must not.
        mHasError = mHasError || (failed(run) && run.run_name.function_name.ends_with("ours"));
        if (run.run_type != Run::RT_Iteration || failed(run)) {
            continue;
        }
        auto& figures = mFigures[run.run_name.function_name];
        figures[""].push_back(run.GetAdjustedRealTime());
        for (const auto& [name, counter] : run.counters) {
            figures[name].push_back(counter.value);
        }
    }
    ConsoleReporter::ReportRuns(runs);
}

double Results::median(const std::string& benchmark, const std::string& counter) const {
    const auto figures = mFigures.find(benchmark);
    if (figures == mFigures.end() || figures->second.count(counter) == 0) {
        return 0;
    }
    std::vector<double> values = figures->second.at(counter);
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
}

bool printTargets(const Results& results, const std::vector<Target>& targets) {
    std::printf("\n%-44s %-26s %12s %12s %7s  %-9s\n", "figure", "compared with", "ours", "theirs", "ratio",
                "bound");
    bool allMet = true;
    for (const Target& target : targets) {
        const double ours = results.median(target.ours, target.counter);
        const double theirs = target.absolute ? 1 : results.median(target.peer, target.counter);
        if (ours == 0 || theirs == 0) {
            continue; // left out by a filter
        }
        const double ratio = ours / theirs;
        const bool met = target.atLeast ? ratio >= target.bound : ratio <= target.bound;
        allMet = allMet && met;
        std::printf("%-44s %-26s %12.4g %12.4g %7.2f  %s %-6.2f %s\n", target.what.c_str(),
                    target.peer.c_str(), ours, theirs, ratio, target.atLeast ? ">=" : "<=", target.bound,
                    met ? "pass" : "FAIL");
    }
    return allMet;
}
