#include "comparison.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <utility>

namespace {

constexpr std::size_t kTurns = 201;
using Turns = std::array<double, kTurns>;
constexpr double kTurnNanoseconds = 1e6;

/// Time that this thread had a processor: other programs on the machine do not count.
double processorNanoseconds() {
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

double timeOf(const Operation& operation, long times) {
    const double start = processorNanoseconds();
    for (long time = 0; time < times; ++time) {
        operation();
    }
    return processorNanoseconds() - start;
}

/// How often the operation fits into one turn.
long timesPerTurn(const Operation& operation) {
    for (long times = 1;; times *= 2) {
        const double taken = timeOf(operation, times);
        if (taken > kTurnNanoseconds / 4) {
            return std::max(1L, static_cast<long>(static_cast<double>(times) * kTurnNanoseconds / taken));
        }
    }
}

bool hasTarget(const Comparison& comparison) {
    return comparison.bound == Comparison::Bound::SpeedAtLeast ||
           comparison.bound == Comparison::Bound::TimeAtMost;
}

double median(Turns turns) {
    std::nth_element(turns.begin(), turns.begin() + kTurns / 2, turns.end());
    return turns[kTurns / 2];
}

const char* verdict(const Comparison& comparison) {
    if (!hasTarget(comparison)) {
        return "";
    }
    return comparison.met() ? "pass" : "FAIL";
}

std::string targetText(const Comparison& comparison) {
    if (!hasTarget(comparison)) {
        return "-";
    }
    char text[32];
    std::snprintf(text, sizeof(text), "%s %.2f",
                  comparison.bound == Comparison::Bound::TimeAtMost ? "<=" : ">=", comparison.target);
    return text;
}

} // namespace

double Comparison::ratio() const {
    const bool timeRatio = bound == Bound::TimeAtMost || bound == Bound::Floor;
    return timeRatio ? 1 / speedRatio : speedRatio;
}

bool Comparison::met() const {
    switch (bound) {
    case Bound::SpeedAtLeast:
        return ratio() >= target;
    case Bound::TimeAtMost:
        return ratio() <= target;
    case Bound::None:
    case Bound::Floor:
        break;
    }
    return true;
}

Comparison compare(std::string what, std::string peer, const Operation& ours, const Operation& theirs,
                   Comparison::Bound bound, double target) {
    const long ourTimes = timesPerTurn(ours);
    const long peerTimes = timesPerTurn(theirs);
    Turns ourTurns = {};
    Turns peerTurns = {};
    Turns ratios = {};
    for (std::size_t turn = 0; turn < kTurns; ++turn) {
        ourTurns[turn] = timeOf(ours, ourTimes) / static_cast<double>(ourTimes);
        peerTurns[turn] = timeOf(theirs, peerTimes) / static_cast<double>(peerTimes);
        ratios[turn] = peerTurns[turn] / ourTurns[turn];
    }
    Comparison result;
    result.what = std::move(what);
    result.peer = std::move(peer);
    result.ourNanoseconds = median(ourTurns);
    result.peerNanoseconds = median(peerTurns);
    result.speedRatio = median(ratios);
    result.bound = bound;
    result.target = target;
    return result;
}

bool print(const std::string& title, const std::vector<Comparison>& comparisons) {
    std::printf("\n%s\n%-44s %-30s %12s %12s %7s  %-8s\n", title.c_str(), "operation", "peer", "ours ns",
                "peer ns", "ratio", "target");
    bool allMet = true;
    for (const Comparison& comparison : comparisons) {
        std::printf("%-44s %-30s %12.1f %12.1f %7.2f  %-8s %s\n", comparison.what.c_str(),
                    comparison.peer.c_str(), comparison.ourNanoseconds, comparison.peerNanoseconds,
                    comparison.ratio(), targetText(comparison).c_str(), verdict(comparison));
        allMet = allMet && comparison.met();
    }
    std::fflush(stdout);
    return allMet;
}
