#pragma once

/// Lets the compiler check a printf-style format and its arguments. Positions count from 1; a member function's first
/// is `this`.
#if defined(__MINGW32__) && !defined(__clang__)
// MinGW's own formatter knows the same formats on every C runtime. With plain `printf` the compiler would check against
// the oldest runtime, which has no %zu and no %lld.
#define SONVIA_PRINTF_FORMAT(formatIndex, firstArgument)                                                     \
    __attribute__((format(gnu_printf, formatIndex, firstArgument)))
#elif defined(__GNUC__)
#define SONVIA_PRINTF_FORMAT(formatIndex, firstArgument)                                                     \
    __attribute__((format(printf, formatIndex, firstArgument)))
#else
#define SONVIA_PRINTF_FORMAT(formatIndex, firstArgument)
#endif
