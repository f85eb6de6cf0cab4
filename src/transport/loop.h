#pragma once

#include "transport/mutex.h"

#include <uv.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

/// One private libuv loop, the thread that runs it, and the only way into that thread: a task queue behind an
/// async wake-up. Always held by a std::shared_ptr; every handle of the loop keeps a share of it.
///
/// libuv is entered by one thread at a time. While the loop runs that is the loop thread; other threads post.
/// Before it runs and after it has ended it is whoever calls dispatch(), one caller after another.
class OUVLoop : public std::enable_shared_from_this<OUVLoop> {
public:
    enum RunState : std::int32_t { kNotRunning = 0, kRunning = 1, kStopping = 2 };

    /// Makes the libuv loop and its wake-up handle. The process's error mode and the C runtime's handlers,
    /// which the first libuv loop of a process changes, are put back.
    OUVLoop();
    virtual ~OUVLoop();
    OUVLoop(const OUVLoop&) = delete;
    OUVLoop& operator=(const OUVLoop&) = delete;

    /// Runs the loop on the calling thread until it is stopped. False, at once, when it is running already or was
    /// stopped: a loop runs once.
    /// `onEntered` is called on this thread when the loop has begun to accept stop() and post(), before the
    /// first event.
    bool run(const std::function<void()>& onEntered = {});

    /// Queues the shutdown of the loop: closes every handle and ends run(). Any thread. 0, or -1 (and nothing
    /// happens) when the loop is not running.
    std::int32_t stop();

    /// Queues `task` to be run on the loop thread, after everything posted before it. Any thread; never
    /// blocks. 0, or -1 when the loop is not running. A task that the shutdown overtakes is destroyed unrun.
    std::int32_t post(std::function<void()> task);

    /// Runs `call` where libuv may be entered: at once on the loop thread, or when no thread runs the loop;
    /// otherwise posted. Any thread. A loop that is stopping drops the call.
    void dispatch(std::function<void()> call);

    uv_loop_t* uvLoop() const { return loop; }

    bool onLoopThread() const;

    /// Operating-system id of the thread that runs the loop; 0 before the first run.
    std::atomic<std::uint32_t> threadId{0};
    uv_loop_t* const loop;
    uv_async_t* const asyncHandle;
    /// Guards `tasks`; held neither while a task runs nor across a libuv call.
    OMutex taskMutex;
    std::deque<std::function<void()>> tasks;
    std::atomic<std::int32_t> runState{kNotRunning};

private:
    static void onAsync(uv_async_t* async);
    static void walkCb(uv_handle_t* handle, void* self);
    bool tryPost(std::function<void()>& task);
    void shutdown();

    /// Threads between their test of runState and the end of their uv_async_send; the shutdown waits for
    /// them, because libuv allows no wake-up of a handle that is being closed.
    std::atomic<std::uint32_t> mPosting{0};
    /// Held while a call is made directly, and while the loop goes from not running to running: so that a
    /// direct call never overlaps with the loop thread. No libuv callback can run under it, since nothing
    /// runs the loop then. Recursive: what is called directly may call dispatch() again.
    std::recursive_mutex mDirectMutex;
};
