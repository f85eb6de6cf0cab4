#include "transport/loop_entry.h"

#include "platform/thread_id.h"
#include "transport/counted_scope.h"
#include "transport/loop_log.h"

#include <chrono>
#include <exception>
#include <mutex>
#include <new>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

/// Limits how long unrelated work of the loop can delay a host's call.
constexpr std::chrono::milliseconds kMaxWait{50};

} // namespace

LoopEntry::LoopEntry(std::function<void()> wakeLoop) : mWakeLoop(std::move(wakeLoop)) {}

bool LoopEntry::tryEnter() {
    std::uint32_t nobody = 0;
    return mInside.compare_exchange_strong(nobody, platform::currentThreadId());
}

// Each event leaves and enters again, hardly ever with anyone waiting: neither takes the lock then.
void LoopEntry::enter() {
    if (tryEnter()) {
        return;
    }
    const std::lock_guard guard(mMutex);
    const CountedScope waiting(mWaiters);
    mLoopWaits = true;
    while (!tryEnter()) {
        mChanged.wait(mMutex);
    }
    mLoopWaits = false;
}

// A waiter counts itself before it tries for the last time, so one of the two sees the other.
void LoopEntry::leave() {
    mInside = 0;
    if (mWaiters.load() != 0) {
        const std::lock_guard guard(mMutex);
        mChanged.notifyAll();
    }
}

bool LoopEntry::isInside() const {
    return mInside.load() == platform::currentThreadId();
}

LoopEntry::CallPtr LoopEntry::queue(std::function<void()> call, std::size_t most) {
    std::list<CallPtr> one(1, std::make_shared<Call>());
    CallPtr queued = one.front();
    queued->run = std::move(call);
    const std::lock_guard guard(mMutex);
    if (mRefusing || mCalls.size() >= most) {
        return nullptr;
    }
    mCalls.splice(mCalls.end(), one);
    return queued;
}

void LoopEntry::finish(const CallPtr& call) {
    if (isInside()) {
        runQueuedUpTo(call.get());
    } else {
        const auto giveUp = Clock::now() + kMaxWait;
        bool woken = false;
        std::unique_lock lock(mMutex);
        const CountedScope waiting(mWaiters);
        while (!call->done) {
            if (!mLoopWaits && tryEnter()) {
                lock.unlock();
                runQueuedUpTo(call.get());
                leave();
                lock.lock();
            } else if (!woken) {
                woken = true;
                lock.unlock();
                mWakeLoop();
                lock.lock();
            } else if (const auto left = giveUp - Clock::now(); left > Clock::duration::zero()) {
                mChanged.waitFor(mMutex, left);
            } else {
                call->isWaitedFor = false;
                return;
            }
        }
    }
    if (call->outOfMemory) {
        throw std::bad_alloc();
    }
}

void LoopEntry::runQueued() {
    runQueuedUpTo(nullptr);
}

void LoopEntry::runQueuedUpTo(const Call* last) {
    while (const CallPtr call = takeNext()) {
        bool outOfMemory = false;
        try {
            call->run();
        } catch (const std::exception&) { // std::bad_alloc: calls throw nothing else
            outOfMemory = true;
        }
        call->run = nullptr; // what it holds goes before its caller goes on
        bool isWaitedFor = true;
        {
            const std::lock_guard guard(mMutex);
            call->done = true;
            call->outOfMemory = outOfMemory;
            isWaitedFor = call->isWaitedFor;
            mChanged.notifyAll();
        }
        if (outOfMemory && !isWaitedFor) {
            logLoopLine(kLogError, kLogTagDefault, "[%s:%d]out of memory", "LoopEntry::runQueued", __LINE__);
        }
        if (call.get() == last) {
            return;
        }
    }
}

LoopEntry::CallPtr LoopEntry::takeNext() {
    const std::lock_guard guard(mMutex);
    if (mCalls.empty()) {
        return nullptr;
    }
    CallPtr next = std::move(mCalls.front());
    mCalls.pop_front();
    return next;
}

void LoopEntry::setRefusing(bool refusing) {
    const std::lock_guard guard(mMutex);
    mRefusing = refusing;
}

void LoopEntry::waitUntil(const std::function<bool()>& condition) {
    const std::lock_guard guard(mMutex);
    while (!condition()) {
        mChanged.wait(mMutex);
    }
}

bool LoopEntry::waitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    const auto giveUp = Clock::now() + limit;
    const std::lock_guard guard(mMutex);
    for (auto left = giveUp - Clock::now(); !condition() && left > Clock::duration::zero();
         left = giveUp - Clock::now()) {
        mChanged.waitFor(mMutex, left);
    }
    return condition();
}

void LoopEntry::wakeWaiters() {
    const std::lock_guard guard(mMutex);
    mChanged.notifyAll();
}
