#pragma once

#include <cstddef>

#include "support/sanitizers.h"

#if defined(SONVIA_ADDRESS_SANITIZER) || defined(SONVIA_THREAD_SANITIZER)
// Declared here: not every installation of the sanitizers brings their headers.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace support {

/// Bytes that the program holds on its heap, where a sanitizer's runtime reports them; 0 elsewhere.
inline std::size_t heapInUse() {
#if defined(SONVIA_ADDRESS_SANITIZER) || defined(SONVIA_THREAD_SANITIZER)
    return __sanitizer_get_current_allocated_bytes();
#else
    return 0;
#endif
}

} // namespace support
