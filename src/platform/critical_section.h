#pragma once

#include <cstddef>

namespace platform {

/// A lock between the threads of this process, not to be taken twice by one thread. Meets the standard library's
/// requirements of a lock, so std::lock_guard takes it.
class CriticalSection {
public:
    CriticalSection();
    ~CriticalSection();
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void lock();
    void unlock();

private:
    /// The system's own lock lives here, so that no system header is needed to hold one.
    alignas(std::max_align_t) unsigned char mLock[48];
};

} // namespace platform
