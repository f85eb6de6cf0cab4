#pragma once

#include "transport/loop.h"

#include <uv.h>

#include <memory>

/// Ties one libuv handle to its owning object and to the loop that runs it, and closes and frees the handle as the calling
/// thread allows. The libuv handle's `data` field points to the owner; it is null once the owner is gone.
class OBaseHandle {
public:
    OBaseHandle() = default;

    explicit OBaseHandle(std::shared_ptr<OUVLoop> owner) : mLoop(std::move(owner)) {}

    virtual ~OBaseHandle() = default;
    OBaseHandle(const OBaseHandle&) = delete;
    OBaseHandle& operator=(const OBaseHandle&) = delete;

    /// The libuv handle; null when there is none.
    virtual uv_handle_t* handle() = 0;
    /// Frees the memory of the libuv handle and clears the pointer to it.
    virtual void releaseHandle() = 0;
    /// Closes the libuv handle; on a handle that is closing already, frees its memory at once. Loop thread,
    /// or any thread while the loop does not run.
    virtual void close();

    /// The libuv close has completed. Loop thread.
    virtual void onClosed() {} // GCOVR_EXCL_LINE every handle of the library replaces it

    virtual void clearCallbacks() {} // GCOVR_EXCL_LINE every handle of the library replaces it

protected:
    /// Every concrete destructor calls this first. On the thread of the running loop, and on any thread before the loop has
    /// run, it detaches the handle and closes it through libuv, unless it is closing already. Elsewhere libuv may not be
    /// entered: it only frees the memory.
    void releaseOnDestruction();
    /// Detaches the libuv handle: libuv closes it and frees its memory without a callback. The caller drops its pointer.
    /// There must be a handle. Thread: as for close().
    void abandonHandle();

    std::shared_ptr<OUVLoop> mLoop;

private:
    static void closeCb(uv_handle_t* closed);
};
