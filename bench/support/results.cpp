#include "results.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

namespace {

/// Newer versions of Google Benchmark distinguish failed runs from skipped ones.
template <typename Run>
bool failed(const Run& run) {
    if constexpr (requires { run.error_occurred; }) {
        return run.error_occurred;
    } else {
        return run.skipped != decltype(run.skipped){};
    }
}

double medianOf(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// One target measured: medians of all repetitions, and the ratio of each.
struct Row {
    const Target& target;
    bool isWrong = false;
    double ours = 0;
    double theirs = 1;
    std::vector<double> ratios;

    double ratio() const { return ours / theirs; }

    bool meets(double ratio) const {
        return target.bound == kNoBound || (target.atLeast ? ratio >= target.bound : ratio <= target.bound);
    }

    std::size_t roundsMet() const {
        return static_cast<std::size_t>(
            std::count_if(ratios.begin(), ratios.end(), [this](double ratio) { return meets(ratio); }));
    }

    const char* verdict() const {
        return isWrong ? "WRONG" : !meets(ratio()) ? "FAIL" : target.bound == kNoBound ? "-" : "pass";
    }
};

/// None when a filter has left it out.
std::optional<Row> measured(const Results& results, const Target& target) {
    Row row{target, false, 0, 1, {}};
    row.isWrong = results.isWrong(target.ours) || (!target.absolute && results.isWrong(target.peer));
    const std::vector<double> ours = results.figures(target.ours, target.counter);
    const std::vector<double> theirs =
        target.absolute ? std::vector<double>(ours.size(), 1) : results.figures(target.peer, target.counter);
    if (ours.empty() || theirs.empty()) {
        return row.isWrong ? std::optional(row) : std::nullopt;
    }
    row.ours = medianOf(ours);
    row.theirs = medianOf(theirs);
    for (std::size_t round = 0; round < std::min(ours.size(), theirs.size()); ++round) {
        row.ratios.push_back(ours[round] / theirs[round]);
    }
    return row;
}

void print(const Row& row) {
    const Target& target = row.target;
    std::printf("%-44s %-26s %12.4g %12.4g %9.4g", target.what.c_str(), target.peer.c_str(), row.ours,
                row.theirs, row.ratio());
    if (target.bound == kNoBound) {
        std::printf("  %-9s", "");
    } else {
        std::printf("  %s %-6.4g", target.atLeast ? ">=" : "<=", target.bound);
    }
    std::printf(" %s\n", row.verdict());
}

void append(const Row& row, const char* file) {
    const Target& target = row.target;
    std::ofstream out(file, std::ios::app);
    out << R"({"what":")" << target.what << R"(","ours":")" << target.ours << R"(","peer":")" << target.peer
        << R"(","figure":")" << target.counter << R"(","our_median":)" << row.ours << R"(,"peer_median":)"
        << row.theirs << R"(,"ratio":)" << row.ratio() << R"(,"absolute":)" << target.absolute
        << R"(,"at_least":)" << target.atLeast << R"(,"bound":)" << target.bound << R"(,"rounds_met":)"
        << row.roundsMet() << R"(,"rounds":[)";
    const char* separator = "";
    for (const double ratio : row.ratios) {
        out << separator << ratio;
        separator = ",";
    }
    out << R"(],"verdict":")" << row.verdict() << "\"}\n";
}

} // namespace

void Results::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        const std::string& name = run.run_name.function_name;
        if (failed(run)) {
            mWrong.insert(name);
            continue;
        }
        if (run.run_type != Run::RT_Iteration) {
            continue;
        }
        auto& figures = mFigures[name];
        figures[""].push_back(run.GetAdjustedRealTime());
        figures["cpu"].push_back(run.GetAdjustedCPUTime());
        for (const auto& [counter, value] : run.counters) {
            figures[counter].push_back(value.value);
        }
    }
    ConsoleReporter::ReportRuns(runs);
}

std::vector<double> Results::figures(const std::string& benchmark, const std::string& counter) const {
    const auto found = mFigures.find(benchmark);
    if (found == mFigures.end() || found->second.count(counter) == 0) {
        return {};
    }
    return found->second.at(counter);
}

bool Results::hasError() const {
    return std::any_of(mWrong.begin(), mWrong.end(),
                       [](const std::string& name) { return name.ends_with("ours"); });
}

bool printTargets(const Results& results, const std::vector<Target>& targets) {
    std::printf("\n%-44s %-26s %12s %12s %9s  %-9s\n", "figure", "compared with", "ours", "theirs", "ratio",
                "bound");
    const char* const rows = std::getenv("SONVIA_BENCH_ROWS");
    bool allMet = true;
    for (const Target& target : targets) {
        if (const auto row = measured(results, target); row.has_value()) {
            print(*row);
            allMet = allMet && row->meets(row->ratio());
            if (rows != nullptr) {
                append(*row, rows);
            }
        }
    }
    return allMet;
}

unsigned planted() {
    return std::getenv("SONVIA_BENCH_PLANT") != nullptr ? 1 : 0;
}

void writeSamples(const std::string& file, const std::vector<double>& samples) {
    const char* const folder = std::getenv("SONVIA_BENCH_SAMPLES");
    if (folder == nullptr) {
        return;
    }
    std::ofstream out(std::filesystem::path(folder) / (file + ".txt"), std::ios::app);
    for (const double sample : samples) {
        out << sample << '\n';
    }
}

int runInTurns(int argc, char** argv, const std::vector<Target>& targets) {
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    static char repetitions[] = "--benchmark_repetitions=9";
    std::vector<char*> arguments = {argv[0], interleave, repetitions};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    Results results;
    benchmark::RunSpecifiedBenchmarks(&results);
    const bool met = printTargets(results, targets);
    return results.hasError() ? 2 : met ? 0 : 1;
}
