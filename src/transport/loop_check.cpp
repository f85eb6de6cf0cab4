#include "transport/loop_check.h"

#include "transport/loop_log.h"

#include <cstdlib>
#include <new>
#include <utility>

OLoopCheck::OLoopCheck(std::shared_ptr<OUVLoop> loop, std::function<void()> onTurn)
    : OBaseHandle(std::move(loop)), mCheck(nullptr, std::free), mOnTurn(std::move(onTurn)) {}

OLoopCheck::~OLoopCheck() {
    releaseOnDestruction();
    static_cast<void>(mCheck.release()); // libuv's alone now: its close frees the memory
}

uv_handle_t* OLoopCheck::handle() {
    return reinterpret_cast<uv_handle_t*>(mCheck.get());
}

void OLoopCheck::releaseHandle() {
    mCheck.reset();
}

bool OLoopCheck::init() {
    if (mCheck != nullptr || mLoop == nullptr) {
        return mCheck != nullptr;
    }
    mCheck.reset(static_cast<uv_check_t*>(std::calloc(1, sizeof(uv_check_t))));
    if (mCheck == nullptr) {
        return false;
    }
    uv_check_init(mLoop->uvLoop(), mCheck.get());
    mCheck->data = static_cast<OBaseHandle*>(this);
    return true;
}

void OLoopCheck::start() {
    uv_check_start(mCheck.get(), checkCb);
}

void OLoopCheck::stop() {
    uv_check_stop(mCheck.get());
}

void OLoopCheck::checkCb(uv_check_t* check) {
    auto* owner = static_cast<OLoopCheck*>(static_cast<OBaseHandle*>(check->data));
    if (owner == nullptr) {
        return;
    }
    const std::function<void()> onTurn = owner->mOnTurn; // a copy: the call may destroy the owner
    try {
        onTurn();
    } catch (const std::bad_alloc&) {
        // Must not throw: called from libuv.
        logLoopLine(kLogError, kLogTagDefault, "[%s:%d]out of memory", "OLoopCheck::checkCb", __LINE__);
    }
}
