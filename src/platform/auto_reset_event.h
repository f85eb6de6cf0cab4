#pragma once

#include <memory>

namespace platform {

/// Wakes one sleeping thread of this process. Enters the kernel only when that thread sleeps, because callers of the
/// log pay for it.
class AutoResetEvent {
public:
    virtual ~AutoResetEvent() = default;

    /// Ends the present sleep, or the next one at once. Thread: any. Blocks: never.
    virtual void signal() = 0;

    /// Sleeps until it is signalled, and takes the signal. Thread: one at a time. Blocks: up to `milliseconds`, or with
    /// kNoTimeout until it is signalled. Returns: false when no signal came within that time.
    virtual bool wait(unsigned milliseconds) = 0;
};

/// The system's. Throws bad_alloc.
std::unique_ptr<AutoResetEvent> makeAutoResetEvent();

} // namespace platform
