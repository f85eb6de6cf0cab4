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

/// One private libuv loop, the thread that runs it, and the two ways in from other threads: tasks, which only the loop
/// thread runs, and calls, which are made by whichever thread may enter libuv first (LoopEntry). Always held by a
/// std::shared_ptr; every handle of the loop keeps a share of it.
class OUVLoop : public std::enable_shared_from_this<OUVLoop> {
public:
    enum RunState : std::int32_t { kNotRunning = 0, kRunning = 1, kStopping = 2 };

    /// Makes the libuv loop and its wake-up handle. The process's error mode and the C runtime's handlers,
    /// which the first libuv loop of a process changes, are put back. Throws std::bad_alloc or std::system_error when the
    /// system refuses one of them.
    OUVLoop();
    virtual ~OUVLoop();
    OUVLoop(const OUVLoop&) = delete;
    OUVLoop& operator=(const OUVLoop&) = delete;

    /// Runs the loop on the calling thread until it is stopped. False, at once, when it is running already or was
    /// stopped: a loop runs once.
    /// `onEntered` is called on this thread when the loop has begun to accept stop() and post(), before the
    /// first event.
    bool run(const std::function<void()>& onEntered = {});

    /// Queues the shutdown of the loop: closes every handle and ends run(). Any thread; needs no memory. 0, or -1 (and
    /// nothing happens) when the loop is not running.
    std::int32_t stop();

    /// Queues `task` to be run on the loop thread, after everything posted before it. Any thread; never
    /// blocks. 0, or -1 when the loop is not running. A task that the shutdown overtakes is destroyed unrun.
    std::int32_t post(std::function<void()> task);

    /// Makes `call` inside libuv: at once when the calling thread is inside, otherwise after every call queued before it.
    /// It has been made on return, or will be: see LoopEntry::finish. Any thread. False, and `call` is not made, when the
    /// loop is stopping. Throws std::bad_alloc when memory runs out, in `call` too.
    bool dispatch(std::function<void()> call);

    /// dispatch() in two steps, for callers whose own lock decides the order: only the first one belongs under a lock.
    LoopEntry::CallPtr queue(std::function<void()> call, std::size_t most = LoopEntry::kUnlimited) {
        return mEntry.queue(std::move(call), most);
    }

    void finish(const LoopEntry::CallPtr& call);

    /// Runs code of the host's: on the loop thread libuv is free for other threads meanwhile. `code` must not throw.
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

    /// Waits until the shutdown has begun, for at most `limit`; whether it has.
    bool waitForStop(std::chrono::milliseconds limit);

    /// Makes `cancel`, on the calling thread and without entering libuv, while a thread is inside libuv and the shutdown
    /// has not begun; the handles of the loop stay open for that time.
    void interrupt(const std::function<void()>& cancel);

    /// A loop that has been stopped accepts no handle any more: nothing would ever close it.
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

    /// Threads between their test of runState and the end of their uv_async_send; the shutdown waits for
    /// them, because libuv allows no wake-up of a handle that is being closed.
    std::atomic<std::uint32_t> mPosting{0};
    OMutex mInterruptMutex; ///< held while the shutdown begins, and across `cancel`
    std::atomic<bool> mHasBegun{false};
    std::atomic<bool> mStopped{false};
    /// The shutdown, until it is queued: a loop must end also when memory has run out.
    std::list<std::function<void()>> mShutdownTask;
    LoopEntry mEntry;
};
