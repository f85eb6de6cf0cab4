#include "comparison.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kTurns = 60;
constexpr double kTurnNanoseconds = 2e6;

double timeOf(const Operation& operation, long times) {
    const auto start = Clock::now();
    for (long time = 0; time < times; ++time) {
        operation();
    }
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
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
    return timeRatio ? ourNanoseconds / peerNanoseconds : peerNanoseconds / ourNanoseconds;
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
    Comparison result;
    result.what = std::move(what);
    result.peer = std::move(peer);
    result.bound = bound;
    result.target = target;
    result.ourNanoseconds = std::numeric_limits<double>::max();
    result.peerNanoseconds = std::numeric_limits<double>::max();
    const long ourTimes = timesPerTurn(ours);
    const long peerTimes = timesPerTurn(theirs);
    for (int turn = 0; turn < kTurns; ++turn) {
        result.ourNanoseconds =
            std::min(result.ourNanoseconds, timeOf(ours, ourTimes) / static_cast<double>(ourTimes));
        result.peerNanoseconds =
            std::min(result.peerNanoseconds, timeOf(theirs, peerTimes) / static_cast<double>(peerTimes));
    }
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
