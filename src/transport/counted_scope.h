#pragma once

#include <atomic>
#include <cstdint>

/// One more for as long as it lives, also when an exception ends that.
class CountedScope {
public:
    explicit CountedScope(std::atomic<std::uint32_t>& count) : mCount(count) { mCount.fetch_add(1); }

    ~CountedScope() { mCount.fetch_sub(1); }

    CountedScope(const CountedScope&) = delete;
    CountedScope& operator=(const CountedScope&) = delete;

private:
    std::atomic<std::uint32_t>& mCount;
};
