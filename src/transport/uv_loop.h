#pragma once

#include <uv.h>

namespace transport {

/// libuv's loop and the handle that wakes it; both allocated with `malloc`.
struct UvLoop {
    uv_loop_t* loop = nullptr;
    uv_async_t* async = nullptr;
};

/// Creates a loop and its wake-up handle, whose `data` is `owner`. Restores the process's error mode and the C runtime's
/// handlers, which the first libuv loop of a process changes.
///
/// Thread: any. Throws std::bad_alloc or std::system_error when the system refuses one of them.
UvLoop makeUvLoop(uv_async_cb onAsync, void* owner);

/// Closes the wake-up handle of a loop that was never stopped, and waits for a pipe that was destroyed before any thread
/// ran the loop. libuv keeps a list of its loops, and each loop one of its handles: uv_loop_close would refuse, and the
/// lists would point at freed memory.
void closeUnrun(const UvLoop& made);

/// Frees both. The loop has ended, or closeUnrun() was called.
void destroyUvLoop(const UvLoop& made);

} // namespace transport
