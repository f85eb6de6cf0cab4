#pragma once

#include "transport/mutex.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>

/// Who may enter libuv: one thread at a time. The loop thread is inside while it runs the loop, but for the time in
/// which it runs code of the host's; whoever else wants something of libuv queues a call. Calls are made in the order
/// in which they were queued, by the loop thread or by a waiting caller that finds nobody inside.
///
/// So a caller never waits for code of the host's, which may itself be waiting for that caller.
class LoopEntry {
public:
    /// One queued call.
    struct Call {
        std::function<void()> run;
        bool done = false;
        bool outOfMemory = false;
        bool isWaitedFor = true;
    };

    using CallPtr = std::shared_ptr<Call>;

    /// `wakeLoop` wakes the loop thread, which then calls runQueued(). Called on any thread, with no lock held.
    explicit LoopEntry(std::function<void()> wakeLoop);

    LoopEntry(const LoopEntry&) = delete;
    LoopEntry& operator=(const LoopEntry&) = delete;

    /// Waits until nobody is inside and goes in, before any caller that waits too: threads that send without pause would
    /// keep events from the host. The loop thread, when it is not inside already.
    void enter();
    void leave();

    /// Whether the calling thread is inside.
    bool isInside() const;

    static constexpr std::size_t kUnlimited = static_cast<std::size_t>(-1);

    /// Queues a call; null when calls are refused, or `most` are waiting. Throws std::bad_alloc, and then nothing is queued.
    CallPtr queue(std::function<void()> call, std::size_t most = kUnlimited);

    /// Returns when the call has been made: by this thread, if nobody else is inside, or else by the thread that is. After
    /// 50 ms it returns all the same, and the call is made as soon as somebody can. Throws std::bad_alloc when the call
    /// did; nobody is waiting any more, it is logged.
    void finish(const CallPtr& call);

    /// Makes every queued call. The thread that is inside.
    void runQueued();

    /// Whether calls are refused from now on; those already queued stay.
    void setRefusing(bool refusing);

    /// Whether any thread is inside.
    bool isOccupied() const { return mInside.load() != 0; }

    /// Waits until `condition` holds; wakeWaiters() makes waiters check it again.
    void waitUntil(const std::function<bool()>& condition);
    /// As waitUntil(), for at most `limit`; whether it holds.
    bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit);
    void wakeWaiters();

private:
    /// Makes queued calls up to `last`, or all for null.
    void runQueuedUpTo(const Call* last);
    CallPtr takeNext();
    bool tryEnter();

    std::function<void()> mWakeLoop;
    OMutex mMutex; ///< guards all below; not held while a call is made
    OCondition mChanged;
    std::atomic<std::uint32_t> mInside{0};  ///< id of the thread inside; 0: nobody. Changed without the lock
    std::atomic<std::uint32_t> mWaiters{0}; ///< threads that wait to go in, or for their call
    std::list<CallPtr> mCalls;
    bool mRefusing = false;
    bool mLoopWaits = false; ///< the loop thread is the next to go in
};
