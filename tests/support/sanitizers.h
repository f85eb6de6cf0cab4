#pragma once

/// Which sanitizer this is compiled with, by any compiler: SONVIA_ADDRESS_SANITIZER, SONVIA_THREAD_SANITIZER.
#if defined(__has_feature) // clang's; GCC 12 defines macros
#if __has_feature(address_sanitizer)
#define SONVIA_ADDRESS_SANITIZER
#elif __has_feature(thread_sanitizer)
#define SONVIA_THREAD_SANITIZER
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define SONVIA_ADDRESS_SANITIZER
#elif defined(__SANITIZE_THREAD__)
#define SONVIA_THREAD_SANITIZER
#endif
