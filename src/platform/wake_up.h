#pragma once

#include <memory>

namespace platform {

/// Wakes one sleeping thread. Within one process only, and so without the kernel while nobody sleeps: a caller that
/// wakes the log's writer pays for it.
class WakeUp {
public:
    WakeUp();
    ~WakeUp();
    WakeUp(const WakeUp&) = delete;
    WakeUp& operator=(const WakeUp&) = delete;

    /// Ends the present sleep, or the next one at once. Thread: any. Blocks: never.
    void signal();

    /// Sleeps until it is signalled, and takes the signal; false when none came within that time.
    bool wait(unsigned milliseconds);

private:
    struct System;
    std::unique_ptr<System> mSystem;
};

} // namespace platform
