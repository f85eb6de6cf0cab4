#pragma once

#if defined(_MSC_VER)
#include <intrin.h>
#endif

namespace platform {

/// Tells the processor that the caller waits for another one: some ten nanoseconds, without giving up the processor.
inline void spinPause() {
#if defined(_MSC_VER)
    _mm_pause();
#elif defined(__x86_64__)
    __builtin_ia32_pause();
#endif
}

/// Fetches the memory around `address` from another processor that has used it, to be read soon. Only a hint: any
/// address is allowed.
inline void fetchToRead(const void* address) {
#if defined(_MSC_VER)
    _mm_prefetch(static_cast<const char*>(address), _MM_HINT_T0);
#else
    __builtin_prefetch(address, 0);
#endif
}

/// The same, to be written soon: the other processor gives it up at once.
inline void fetchToWrite(const void* address) {
#if defined(_MSC_VER)
    _m_prefetchw(address);
#elif defined(__x86_64__)
    // The compiler's own prefetch does not take the memory away from the other processor unless it is told that every
    // target has this instruction; where it is missing it does nothing.
    asm volatile("prefetchw %0" : : "m"(*static_cast<const char*>(address)));
#endif
}

} // namespace platform
