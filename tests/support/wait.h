// Waiting for something that will happen, with a guard against waiting for ever. The guard is generous and
// decides nothing but how long a broken test takes to fail.
#pragma once

#include <chrono>
#include <thread>

namespace support {

inline constexpr std::chrono::seconds kGuard{120};

template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds guard = kGuard) {
    const auto end = std::chrono::steady_clock::now() + guard;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

} // namespace support
