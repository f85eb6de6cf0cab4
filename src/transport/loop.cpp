#include "transport/loop.h"

#include "platform/host_settings.h"
#include "platform/thread_id.h"
#include "transport/handle.h"
#include "transport/loop_log.h"

#include <cstdlib>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

namespace {

// These two lines are recognised by their numbers in the field; they do not follow the source.
constexpr int kConstructorLine = 20;
constexpr int kDestructorLine = 39;

template <typename T>
T* allocateZeroed() {
    void* memory = std::calloc(1, sizeof(T));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return static_cast<T*>(memory);
}

// Made once, whichever threads ask, together with everything that libuv sets up once for a process: two hosts'
// loops may come and go at the same time, and uv_default_loop has no lock of its own. The guard is inside as
// well: a loop made beside the first one would remember the settings that libuv has just changed as the host's.
uv_loop_t* defaultLoop() {
    static uv_loop_t* const kLoop = [] {
        const platform::HostSettingsGuard hostSettings;
        return uv_default_loop();
    }();
    return kLoop;
}

/// One more for as long as it lives, also when an exception ends that.
class CountedScope {
public:
    explicit CountedScope(std::atomic<std::uint32_t>& count) : mCount(count) { mCount.fetch_add(1); }

    ~CountedScope() { mCount.fetch_sub(1); }

    CountedScope(const CountedScope&) = delete;
    CountedScope& operator=(const CountedScope&) = delete;

private:
    std::atomic<std::uint32_t>& mCount;
};

} // namespace

OUVLoop::OUVLoop() : loop(allocateZeroed<uv_loop_t>()), asyncHandle(allocateZeroed<uv_async_t>()) {
    logLoopLine(kLogDebug, kLogTagDefault, "[%s:%d]OUVLoop", "OUVLoop::OUVLoop", kConstructorLine);
    defaultLoop();
    uv_loop_init(loop);
    asyncHandle->data = this;
    uv_async_init(loop, asyncHandle, onAsync);
}

OUVLoop::~OUVLoop() {
    logLoopLine(kLogDebug, kLogTagDefault, "[%s:%d]~OUVLoop", "OUVLoop::~OUVLoop", kDestructorLine);
    // A loop that was never stopped still has its wake-up handle. libuv keeps a list of its loops, so that
    // handle is closed first: uv_loop_close would refuse, and the list would point at freed memory.
    if (uv_is_closing(reinterpret_cast<uv_handle_t*>(asyncHandle)) == 0) {
        uv_close(reinterpret_cast<uv_handle_t*>(asyncHandle), nullptr);
        uv_run(loop, UV_RUN_NOWAIT);
    }
    uv_loop_close(loop);
    if (loop != defaultLoop()) {
        std::free(loop);
    }
    std::free(asyncHandle);
}

bool OUVLoop::onLoopThread() const {
    return runState.load() != kNotRunning && threadId.load() == platform::currentThreadId();
}

bool OUVLoop::run(const std::function<void()>& onEntered) {
    {
        const std::lock_guard direct(mDirectMutex);
        // A loop that was stopped has no wake-up any more: it would accept a stop that never comes through.
        if (runState.load() != kNotRunning ||
            uv_is_closing(reinterpret_cast<uv_handle_t*>(asyncHandle)) != 0) {
            return false;
        }
        threadId = platform::currentThreadId();
        runState.exchange(kRunning);
    }
    if (onEntered) {
        onEntered();
    }
    uv_run(loop, UV_RUN_DEFAULT);
    runState.exchange(kNotRunning);
    return true;
}

std::int32_t OUVLoop::stop() {
    return post([self = shared_from_this()] { self->shutdown(); });
}

std::int32_t OUVLoop::post(std::function<void()> task) {
    return tryPost(task) ? 0 : -1;
}

void OUVLoop::dispatch(std::function<void()> call) {
    if (onLoopThread()) {
        // A handle that a callback opened behind the shutdown's walk would be closed by nobody.
        if (runState.load() == kRunning) {
            call();
        }
        return;
    }
    if (tryPost(call)) {
        return;
    }
    {
        const std::lock_guard direct(mDirectMutex);
        if (runState.load() == kNotRunning) {
            call();
            return;
        }
    }
    tryPost(call); // the loop has begun to run meanwhile; or it is stopping, and the call is dropped
}

// Moves `task` into the queue, or leaves it to the caller when the loop does not run.
bool OUVLoop::tryPost(std::function<void()>& task) {
    const CountedScope posting(mPosting);
    if (runState.load() != kRunning) {
        return false;
    }
    {
        const std::lock_guard guard(taskMutex);
        tasks.push_back(std::move(task));
    }
    uv_async_send(asyncHandle);
    return true;
}

void OUVLoop::onAsync(uv_async_t* async) {
    auto* self = static_cast<OUVLoop*>(async->data);
    std::deque<std::function<void()>> batch;
    {
        const std::lock_guard guard(self->taskMutex);
        batch.swap(self->tasks);
    }
    while (!batch.empty()) {
        try {
            batch.front()();
        } catch (const std::bad_alloc&) {
            // What the task was to do is lost; libuv, which called this, must not be thrown through.
            logLoopLine(kLogError, kLogTagDefault, "[%s:%d]out of memory", "OUVLoop::onAsync", __LINE__);
        }
        batch.pop_front();
    }
}

void OUVLoop::walkCb(uv_handle_t* handle, void* self) {
    if (handle == reinterpret_cast<uv_handle_t*>(static_cast<OUVLoop*>(self)->asyncHandle)) {
        return;
    }
    auto* owner = static_cast<OBaseHandle*>(handle->data);
    if (owner == nullptr) {
        return;
    }
    // Cleared first, so that a handle closed by the shutdown never reports "closed" upward.
    owner->clearCallbacks();
    // A handle that is closing already is left to libuv: closing it again would free memory that libuv still
    // holds.
    if (uv_is_closing(handle) == 0) {
        owner->close();
    }
}

void OUVLoop::shutdown() {
    if (runState.load() != kRunning) {
        return; // a second stop was queued before the first one ran
    }
    uv_walk(loop, walkCb, this);
    // Refuse new posts and let those under way finish before the handle that they wake is closed.
    runState.exchange(kStopping);
    while (mPosting.load() != 0) {
        std::this_thread::yield();
    }
    uv_close(reinterpret_cast<uv_handle_t*>(asyncHandle), nullptr);
    std::deque<std::function<void()>> discarded;
    {
        const std::lock_guard guard(taskMutex);
        discarded.swap(tasks);
    }
}
