#include "transport/handle.h"

#include "platform/thread_id.h"
#include "transport/handle_shutdown.h"

#include <cstdlib>

void OBaseHandle::close() {
    uv_handle_t* own = handle();
    if (own == nullptr) {
        return;
    }
    if (uv_is_closing(own) == 0) {
        uv_close(own, closeCb);
        return;
    }
    releaseHandle();
}

void OBaseHandle::closeCb(uv_handle_t* closed) {
    if (closed == nullptr) {
        return; // GCOVR_EXCL_LINE libuv never closes a null handle
    }
    auto* owner = static_cast<OBaseHandle*>(closed->data);
    if (owner == nullptr) {
        std::free(closed);
        return;
    }
    owner->releaseHandle();
    owner->onClosed();
}

void OBaseHandle::releaseOnDestruction() {
    const bool onLoopThread = mLoop != nullptr && mLoop->runState.load() == OUVLoop::kRunning &&
                              mLoop->threadId.load() == platform::currentThreadId();
    // libuv keeps a list of a loop's handles: a handle freed before the loop ran would be used when the loop ends.
    const bool loopNeverRan = mLoop != nullptr && mLoop->threadId.load() == 0;
    // The shutdown has closed it, and libuv has not finished.
    const bool closing =
        mLoop != nullptr && mLoop->onLoopThread() && handle() != nullptr && uv_is_closing(handle()) != 0;
    if (!onLoopThread && !loopNeverRan && !closing) {
        releaseHandle();
    } else if (handle() != nullptr) {
        abandonHandle();
    }
}

void OBaseHandle::abandonHandle() {
    uv_handle_t* own = handle();
    own->data = nullptr;
    // A closing handle is libuv's: close() would free its memory too early.
    if (uv_is_closing(own) == 0) {
        close();
    }
}

void transport::closeForShutdown(uv_handle_t* handle) {
    auto* owner = static_cast<OBaseHandle*>(handle->data);
    if (owner == nullptr) {
        return;
    }
    // Cleared first, so that a handle closed by the shutdown never reports "closed" upward.
    owner->clearCallbacks();
    if (uv_is_closing(handle) == 0) {
        owner->close();
    }
}
