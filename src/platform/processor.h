#pragma once

#if defined(_MSC_VER)
#include <intrin.h>
#endif

namespace platform {

/// Tells the processor that the caller spins: takes some ten nanoseconds, and does not yield.
inline void spinPause() {
#if defined(_MSC_VER)
    _mm_pause();
#elif defined(__x86_64__)
    __builtin_ia32_pause();
#endif
}

/// Prefetches the cache line at `address` for a read; another processor may have used it last. Only a hint: any address
/// is allowed.
inline void prefetchForRead(const void* address) {
#if defined(_MSC_VER)
    _mm_prefetch(static_cast<const char*>(address), _MM_HINT_T0);
#else
    __builtin_prefetch(address, 0);
#endif
}

/// Prefetches it for a write: the other processor gives it up at once.
inline void prefetchForWrite(const void* address) {
#if defined(_MSC_VER)
    _m_prefetchw(address);
#elif defined(__x86_64__)
    // The compiler's own prefetch asks for a shared line unless every target is known to have this instruction; where
    // it is missing it does nothing.
    asm volatile("prefetchw %0" : : "m"(*static_cast<const char*>(address)));
#endif
}

} // namespace platform
