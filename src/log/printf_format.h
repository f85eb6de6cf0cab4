#pragma once

/// Lets the compiler check a printf-style format and its arguments. Positions count from 1; `this` is the first of a
/// member function.
#if defined(__MINGW32__) && !defined(__clang__)
// mingw's own formatter knows the same formats on every C runtime; plain `printf` would be checked against the oldest
// runtime's list, which has no %zu and no %lld.
#define SONVIA_PRINTF_FORMAT(formatIndex, firstArgument)                                                     \
    __attribute__((format(gnu_printf, formatIndex, firstArgument)))
#elif defined(__GNUC__)
#define SONVIA_PRINTF_FORMAT(formatIndex, firstArgument)                                                     \
    __attribute__((format(printf, formatIndex, firstArgument)))
#else
#define SONVIA_PRINTF_FORMAT(formatIndex, firstArgument)
#endif
