#pragma once

#include "transport/loop.h"

#include <uv.h>

#include <memory>

/// Ties one libuv handle to its owning object and to the loop that runs it, and knows from which thread and
/// how the handle is closed and freed. The libuv handle's `data` field points back at the owner; null there
/// means that the owner is gone.
class OBaseHandle {
public:
    OBaseHandle() = default;

    explicit OBaseHandle(std::shared_ptr<OUVLoop> owner) : mLoop(std::move(owner)) {}

    virtual ~OBaseHandle() = default;
    OBaseHandle(const OBaseHandle&) = delete;
    OBaseHandle& operator=(const OBaseHandle&) = delete;

    /// The libuv handle; null when there is none.
    virtual uv_handle_t* handle() = 0;
    /// Frees the memory of the libuv handle and forgets it.
    virtual void releaseHandle() = 0;
    /// Closes the libuv handle; on a handle that is closing already, frees its memory at once. Loop thread,
    /// or any thread while the loop does not run.
    virtual void close();

    /// The libuv close has completed. Loop thread.
    virtual void onClosed() {} // GCOVR_EXCL_LINE every handle of the library replaces it

    virtual void clearCallbacks() {} // GCOVR_EXCL_LINE every handle of the library replaces it

protected:
    /// What every concrete destructor does first: on the running loop's own thread, and on any thread before the loop has
    /// run, the handle is detached and closed through libuv (one that is closing is left to it); anywhere else its memory is freed as it stands, since
    /// libuv may not be entered there.
    void releaseOnDestruction();
    /// Leaves the libuv handle to libuv, which closes it and frees its memory without telling anyone; the
    /// caller forgets it. Where close() may be called; not without a handle.
    void abandonHandle();

    std::shared_ptr<OUVLoop> mLoop;

private:
    static void closeCb(uv_handle_t* closed);
};
