// A handle object over a libuv timer: registered with a loop like any handle, and never doing anything by itself.
#pragma once

#include "transport/handle.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace support {

/// What a FakeHandle was asked to do, in order. Outlives it.
struct FakeHandleRecord {
    std::vector<std::string> steps;

    int count(const std::string& step) const {
        int found = 0;
        for (const std::string& each : steps) {
            found += each == step ? 1 : 0;
        }
        return found;
    }
};

class FakeHandle : public OBaseHandle {
public:
    /// Without a timer handle() is null. The timer must lie in memory of malloc if libuv is to free it.
    FakeHandle(std::shared_ptr<OUVLoop> loop, uv_timer_t* timer, FakeHandleRecord& record)
        : OBaseHandle(std::move(loop)), mTimer(timer), mRecord(record) {
        if (mTimer != nullptr) {
            mTimer->data = static_cast<OBaseHandle*>(this);
        }
    }

    ~FakeHandle() override { releaseOnDestruction(); }

    uv_handle_t* handle() override { return reinterpret_cast<uv_handle_t*>(mTimer); }

    /// Only recorded: the test owns the timer, and a handle that libuv still knows stays whole.
    void releaseHandle() override { mRecord.steps.emplace_back("release"); }

    void onClosed() override {
        mRecord.steps.emplace_back("closed");
        if (whenClosed) {
            whenClosed();
        }
    }

    void clearCallbacks() override { mRecord.steps.emplace_back("clear"); }

    void close() override {
        mRecord.steps.emplace_back("close");
        OBaseHandle::close();
    }

    std::function<void()> whenClosed;

private:
    uv_timer_t* mTimer;
    FakeHandleRecord& mRecord;
};

/// A timer in memory of malloc, registered with the loop and not started.
inline uv_timer_t* newTimer(const OUVLoop& loop) {
    auto* timer = static_cast<uv_timer_t*>(std::calloc(1, sizeof(uv_timer_t)));
    uv_timer_init(loop.uvLoop(), timer);
    return timer;
}

inline uv_handle_t* asHandle(uv_timer_t* timer) {
    return reinterpret_cast<uv_handle_t*>(timer);
}

/// Takes a timer that nobody closed from a loop that nobody runs, and frees it.
inline void discardTimer(const OUVLoop& loop, uv_timer_t* timer) {
    if (uv_is_closing(asHandle(timer)) == 0) {
        uv_close(asHandle(timer), nullptr);
        uv_run(loop.uvLoop(), UV_RUN_NOWAIT);
    }
    std::free(timer);
}

} // namespace support
