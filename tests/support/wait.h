// Waiting for something that will happen. A timeout decides nothing but how long a broken test takes to fail, and a
// wait that ran into it says what it waited for and what was there instead.
#pragma once

#include <chrono>
#include <concepts>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace support {

inline constexpr std::chrono::seconds kTimeout{20};
/// The same for what takes milliseconds.
inline constexpr unsigned kTimeoutMs = 20'000;
/// For the start and the end of processes, which take seconds each under Wine on a machine that builds meanwhile.
inline constexpr std::chrono::seconds kProcessTimeout{60};

/// "`what` after 20 s", as a failure.
inline testing::AssertionResult timedOut(const std::string& what, std::chrono::milliseconds timeout) {
    return testing::AssertionFailure()
           << what << " after " << static_cast<double>(timeout.count()) / 1000 << " s";
}

/// "1102 of 1201 packets after 20 s", as a failure.
inline testing::AssertionResult tooFew(std::size_t found, std::size_t wanted, const std::string& what,
                                       std::chrono::milliseconds timeout) {
    return timedOut(std::to_string(found) + " of " + std::to_string(wanted) + " " + what, timeout);
}

/// Looks every few milliseconds, on the calling thread; false when the time was up.
template <typename Condition>
bool poll(Condition condition, std::chrono::milliseconds timeout) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

/// Waits until `condition` holds. `what` is the sentence that was wanted: "the service runs".
template <typename Condition>
testing::AssertionResult eventually(const std::string& what, Condition condition,
                                    std::chrono::milliseconds timeout = kTimeout) {
    return poll(condition, timeout) ? testing::AssertionSuccess() : timedOut("not yet: " + what, timeout);
}

/// Waits until `count` gives `wanted` or more; `what` names the things counted: "packets".
template <std::invocable Count>
testing::AssertionResult reaches(std::size_t wanted, const std::string& what, Count count,
                                 std::chrono::milliseconds timeout = kTimeout) {
    std::size_t found = 0;
    const auto enough = [&] {
        found = static_cast<std::size_t>(count());
        return found >= wanted;
    };
    return poll(enough, timeout) ? testing::AssertionSuccess() : tooFew(found, wanted, what, timeout);
}

/// State that one thread changes and another one waits for.
class Monitor {
public:
    /// Changes the state and wakes who waits for it.
    template <typename Change>
    void change(Change change) {
        {
            const std::lock_guard guard(mMutex);
            change();
        }
        mChanged.notify_all();
    }

    template <typename Read>
    auto read(Read read) const {
        const std::lock_guard guard(mMutex);
        return read();
    }

    /// As the functions above; `condition` and `count` read the state.
    template <typename Condition>
    testing::AssertionResult eventually(const std::string& what, Condition condition) const {
        std::unique_lock lock(mMutex);
        return mChanged.wait_for(lock, kTimeout, condition) ? testing::AssertionSuccess()
                                                            : timedOut("not yet: " + what, kTimeout);
    }

    template <typename Count>
    testing::AssertionResult reaches(std::size_t wanted, const std::string& what, Count count,
                                     std::chrono::milliseconds timeout = kTimeout) const {
        std::unique_lock lock(mMutex);
        return mChanged.wait_for(lock, timeout, [&] { return count() >= wanted; })
                   ? testing::AssertionSuccess()
                   : tooFew(count(), wanted, what, timeout);
    }

private:
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
};

} // namespace support
