#pragma once

#include "transport/handle.h"

#include <uv.h>

#include <functional>
#include <memory>

/// Calls an operation in each iteration of the loop, after its events. May be destroyed where its pipe may be.
class OLoopCheck : public OBaseHandle {
public:
    /// `onTurn` is called on the loop thread. It may throw std::bad_alloc, which is logged.
    OLoopCheck(std::shared_ptr<OUVLoop> loop, std::function<void()> onTurn);
    ~OLoopCheck() override;

    uv_handle_t* handle() override;
    void releaseHandle() override;

    /// Creates the libuv handle, once. False after an allocation failure or without a loop. Where libuv may be entered.
    bool init();
    /// After init(). Loop thread.
    void start();
    void stop();

private:
    static void checkCb(uv_check_t* check);

    std::unique_ptr<uv_check_t, void (*)(void*)> mCheck;
    std::function<void()> mOnTurn;
};
