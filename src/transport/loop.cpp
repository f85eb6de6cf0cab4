#include "transport/loop.h"

#include "platform/thread_id.h"
#include "transport/counted_scope.h"
#include "transport/handle_shutdown.h"
#include "transport/loop_log.h"
#include "transport/uv_loop.h"

#include <mutex>
#include <new>
#include <thread>
#include <utility>

namespace {

// Kept for compatibility: fixed line numbers, so that one search finds these lines in the logs of all builds.
constexpr int kConstructorLine = 20;
constexpr int kDestructorLine = 39;

} // namespace

OUVLoop::OUVLoop() : mShutdownTask(1, [this] { shutdown(); }), mEntry([this] { wakeUp(); }) {
    logLoopLine(kLogDebug, kLogTagDefault, "[%s:%d]OUVLoop", "OUVLoop::OUVLoop", kConstructorLine);
    const transport::UvLoop made = transport::makeUvLoop(onAsync, this);
    loop = made.loop;
    asyncHandle = made.async;
}

OUVLoop::~OUVLoop() {
    logLoopLine(kLogDebug, kLogTagDefault, "[%s:%d]~OUVLoop", "OUVLoop::~OUVLoop", kDestructorLine);
    const transport::UvLoop made = {loop, asyncHandle};
    if (!mStopped.load()) {
        transport::closeUnrun(made);
    }
    transport::destroyUvLoop(made);
}

bool OUVLoop::onLoopThread() const {
    return runState.load() != kNotRunning && threadId.load() == platform::currentThreadId();
}

bool OUVLoop::run(const std::function<void()>& onEntered) {
    if (runState.load() != kNotRunning) { // perhaps on this very thread, which is inside already
        return false;
    }
    mEntry.enter();
    // A stopped loop has no wake-up handle any more: it would accept a stop and never end.
    if (runState.load() != kNotRunning || mStopped.load()) {
        mEntry.leave();
        return false;
    }
    threadId = platform::currentThreadId();
    runState.exchange(kRunning);
    mEntry.runQueued(); // calls queued before this found no loop to wake
    if (onEntered) {
        onEntered();
    }
    mHasBegun = true;
    mEntry.wakeWaiters();
    uv_run(loop, UV_RUN_DEFAULT);
    runState.exchange(kNotRunning);
    mEntry.setRefusing(false);
    mEntry.leave();
    return true;
}

std::int32_t OUVLoop::stop() {
    // After an earlier stop the list is empty: the loop thread is only woken once more.
    return postNode(mShutdownTask) ? 0 : -1;
}

std::int32_t OUVLoop::post(std::function<void()> task) {
    std::list<std::function<void()>> one;
    one.push_back(std::move(task));
    return postNode(one) ? 0 : -1;
}

bool OUVLoop::dispatch(std::function<void()> call) {
    if (mEntry.isInside()) {
        // A handle that a callback opens after the shutdown walk would leak.
        if (runState.load() == kStopping) {
            return false;
        }
        call();
        return true;
    }
    const LoopEntry::CallPtr queued = mEntry.queue(std::move(call));
    if (queued == nullptr) {
        return false;
    }
    mEntry.finish(queued);
    return true;
}

void OUVLoop::finish(const LoopEntry::CallPtr& call) {
    if (call != nullptr) {
        mEntry.finish(call);
    }
}

void OUVLoop::waitForRun() {
    mEntry.waitUntil([this] { return mHasBegun.load(); });
}

bool OUVLoop::waitForStop(std::chrono::milliseconds limit) {
    return mEntry.waitFor([this] { return mStopped.load(); }, limit);
}

void OUVLoop::interrupt(const std::function<void()>& cancel) {
    const std::lock_guard guard(mInterruptMutex);
    if (!mStopped.load() && mEntry.isOccupied()) {
        cancel();
    }
}

bool OUVLoop::postNode(std::list<std::function<void()>>& one) {
    const CountedScope posting(mPosting);
    if (runState.load() != kRunning) {
        return false;
    }
    {
        const std::lock_guard guard(taskMutex);
        tasks.splice(tasks.end(), one);
    }
    uv_async_send(asyncHandle);
    return true;
}

void OUVLoop::wakeUp() {
    const CountedScope posting(mPosting);
    if (runState.load() == kRunning) {
        uv_async_send(asyncHandle);
    }
}

void OUVLoop::onAsync(uv_async_t* async) {
    auto* self = static_cast<OUVLoop*>(async->data);
    self->mEntry.runQueued();
    std::list<std::function<void()>> batch;
    {
        const std::lock_guard guard(self->taskMutex);
        batch.swap(self->tasks);
    }
    while (!batch.empty()) {
        try {
            batch.front()();
        } catch (const std::bad_alloc&) {
            // Must not throw: called from libuv. The task is lost.
            logLoopLine(kLogError, kLogTagDefault, "[%s:%d]out of memory", "OUVLoop::onAsync", __LINE__);
        }
        batch.pop_front();
    }
}

void OUVLoop::walkCb(uv_handle_t* handle, void* self) {
    if (handle != reinterpret_cast<uv_handle_t*>(static_cast<OUVLoop*>(self)->asyncHandle)) {
        transport::closeForShutdown(handle);
    }
}

void OUVLoop::shutdown() {
    if (runState.load() != kRunning) {
        return; // a second stop was queued before the first one ran
    }
    // Accepts nothing from here on, and makes the accepted calls while the handles are still open.
    {
        const std::lock_guard guard(mInterruptMutex);
        mStopped = true;
    }
    runState.exchange(kStopping);
    mEntry.setRefusing(true);
    mEntry.wakeWaiters();
    mEntry.runQueued();
    uv_walk(loop, walkCb, this);
    // Wake-ups under way must finish before their handle is closed.
    while (mPosting.load() != 0) {
        std::this_thread::yield();
    }
    uv_close(reinterpret_cast<uv_handle_t*>(asyncHandle), nullptr);
    std::list<std::function<void()>> discarded;
    {
        const std::lock_guard guard(taskMutex);
        discarded.swap(tasks);
    }
}
