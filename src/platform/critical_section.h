#pragma once

#include <cstddef>

namespace platform {

/// A lock between the threads of this process; a thread must not take it twice. Works with std::lock_guard.
class CriticalSection {
public:
    CriticalSection();
    ~CriticalSection();
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void lock();
    void unlock();

private:
    /// Holds the system's lock, so that this header needs no system header.
    alignas(std::max_align_t) unsigned char mLock[48];
};

} // namespace platform
