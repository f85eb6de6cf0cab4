#pragma once

#include <memory>

namespace platform {

/// A thread. Unlike std::thread it reports when the system has ended the thread, as Windows does to all but one when a
/// process exits: a caller that asks first never waits for a thread that is gone.
class Thread {
public:
    Thread();
    /// The thread must have been joined, or never started.
    ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Runs `entry(argument)` on a new thread; false when the system cannot create one.
    bool start(void (*entry)(void*), void* argument);

    /// Whether the thread has ended, by itself or by the system; true when it was never started. Blocks: never.
    bool hasEnded() const;

    /// Waits without limit for the thread to end. Not on the thread itself and not under the loader lock.
    void join();

private:
    struct System;
    std::unique_ptr<System> mSystem;
};

} // namespace platform
