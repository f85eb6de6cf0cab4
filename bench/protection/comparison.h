#pragma once

#include <functional>
#include <string>
#include <vector>

/// One line of the result: our time for an operation, the peer's, and the bound on their relation.
struct Comparison {
    enum class Bound {
        /// The peer's time divided by ours must be at least the target.
        SpeedAtLeast,
        /// Our time divided by the peer's must be at most the target.
        TimeAtMost,
        /// No bound; the peer is an alternative, and the ratio is that of `SpeedAtLeast`.
        None,
        /// No bound; the peer is a floor, and the ratio is that of `TimeAtMost`.
        Floor
    };

    std::string what;
    std::string peer;
    /// Median times of a call.
    double ourNanoseconds = 0;
    double peerNanoseconds = 0;
    /// Median, over the turns, of the peer's time divided by ours.
    double speedRatio = 0;
    Bound bound = Bound::None;
    double target = 0;

    double ratio() const;
    bool met() const;
};

using Operation = std::function<void()>;

/// Runs the two operations in turns, so that whatever else the machine does disturbs both, and keeps the best
/// time of each.
Comparison compare(std::string what, std::string peer, const Operation& ours, const Operation& theirs,
                   Comparison::Bound bound, double target);

/// Returns whether every bound was met.
bool print(const std::string& title, const std::vector<Comparison>& comparisons);
