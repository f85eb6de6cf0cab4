#pragma once

#include "transport/loop_entry.h"
#include "transport/mutex.h"

#include <uv.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <utility>

/// A private libuv loop and two ways into it from other threads: tasks, which only the loop thread runs, and calls, which
/// the first thread that may enter libuv makes (LoopEntry). Always held by a std::shared_ptr, which every handle of the
/// loop shares.
class OUVLoop : public std::enable_shared_from_this<OUVLoop> {
public:
    enum RunState : std::int32_t { kNotRunning = 0, kRunning = 1, kStopping = 2 };

    /// Creates the libuv loop and its wake-up handle (transport::makeUvLoop). Throws std::bad_alloc or std::system_error.
    OUVLoop();
    virtual ~OUVLoop();
    OUVLoop(const OUVLoop&) = delete;
    OUVLoop& operator=(const OUVLoop&) = delete;

    /// Runs the loop on the calling thread until it is stopped. False at once when it is already running or was stopped: a
    /// loop runs once.
    /// `onEntered` is called on this thread once the loop accepts stop() and post(), before the first event.
    bool run(const std::function<void()>& onEntered = {});

    /// Queues the shutdown of the loop, which closes every handle and ends run(). Any thread; allocates nothing. Returns 0,
    /// or -1 when the loop is not running; nothing happens then.
    std::int32_t stop();

    /// Queues `task` for the loop thread, after everything posted before it. Any thread; never blocks. Returns 0, or -1 when
    /// the loop is not running. A task that is still queued at the shutdown is destroyed without being run.
    std::int32_t post(std::function<void()> task);

    /// Makes `call` inside libuv: at once when the calling thread is inside, otherwise after every call queued before it.
    /// On return it has been made, or will be: see LoopEntry::finish. Any thread. False, without making `call`, when the
    /// loop is stopping. Throws std::bad_alloc, as `call` may.
    bool dispatch(std::function<void()> call);

    /// dispatch() in two steps, for callers whose own lock decides the order: only queue() may be called under a lock.
    LoopEntry::CallPtr queue(std::function<void()> call, std::size_t most = LoopEntry::kUnlimited) {
        return mEntry.queue(std::move(call), most);
    }

    void finish(const LoopEntry::CallPtr& call);

    /// Runs the host's code. On the loop thread, other threads may enter libuv meanwhile. `code` must not throw.
    template <typename Code>
    void runOutside(Code code) {
        const bool wasInside = mEntry.isInside();
        if (wasInside) {
            mEntry.leave();
        }
        code();
        if (wasInside) {
            mEntry.enter();
        }
    }

    /// Waits until a thread has begun to run the loop and its `onEntered` has returned.
    void waitForRun();

    /// Waits until the shutdown has begun, for at most `limit`. Returns whether it has.
    bool waitForStop(std::chrono::milliseconds limit);

    /// Calls `cancel` on the calling thread, outside libuv, if a thread is inside libuv and the shutdown has not begun. The
    /// loop's handles stay open during the call.
    void interrupt(const std::function<void()>& cancel);

    /// Whether the shutdown has begun. A stopped loop accepts no new handle: nothing would close it.
    bool hasBeenStopped() const { return mStopped.load(); }

    uv_loop_t* uvLoop() const { return loop; }

    bool onLoopThread() const;

    /// Operating-system id of the thread that runs the loop; 0 before the first run.
    std::atomic<std::uint32_t> threadId{0};
    uv_loop_t* loop = nullptr;
    uv_async_t* asyncHandle = nullptr;
    /// Guards `tasks`; held neither while a task runs nor across a libuv call.
    OMutex taskMutex;
    std::list<std::function<void()>> tasks;
    std::atomic<std::int32_t> runState{kNotRunning};

private:
    static void onAsync(uv_async_t* async);
    static void walkCb(uv_handle_t* handle, void* self);
    /// Queues the one task of `one` and wakes the loop thread; false when the loop is not running.
    bool postNode(std::list<std::function<void()>>& one);
    void wakeUp();
    void shutdown();

    /// Threads between their test of runState and the end of their uv_async_send. The shutdown waits for them: libuv does
    /// not allow a wake-up through a closing handle.
    std::atomic<std::uint32_t> mPosting{0};
    OMutex mInterruptMutex; ///< held while the shutdown begins, and across `cancel`
    std::atomic<bool> mHasBegun{false};
    std::atomic<bool> mStopped{false};
    /// Holds the shutdown task until it is queued: stopping must not allocate.
    std::list<std::function<void()>> mShutdownTask;
    LoopEntry mEntry;
};
