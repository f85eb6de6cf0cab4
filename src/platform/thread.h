#pragma once

#include <memory>

namespace platform {

/// One thread of the system. Unlike the standard library's it can tell that the system has ended the thread, as it
/// does to all but one when a process exits: who asks first never waits for a thread that cannot answer.
class Thread {
public:
    Thread();
    /// The thread must have been joined, or never started.
    ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Runs `entry(argument)` on a new thread; false when the system gives none.
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
