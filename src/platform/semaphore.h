#pragma once

#include <memory>

namespace platform {

/// A counting semaphore between the threads of this process.
class Semaphore {
public:
    /// When the system cannot create the semaphore, `post` and `wait` return false at once.
    Semaphore(int initialCount, int maximumCount);
    ~Semaphore();
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    /// Adds one; false when the count is at its maximum. Thread: any. Blocks: never.
    bool post();

    /// Takes one; false when none came within that time, which has no limit with kNoTimeout. Thread: any.
    bool wait(unsigned milliseconds);

private:
    struct System;
    std::unique_ptr<System> mSystem;
};

} // namespace platform
