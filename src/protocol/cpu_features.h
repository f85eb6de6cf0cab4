#pragma once

/// Lets one function use instructions that the rest of the file may not: the processor is asked before it is
/// called. Visual C++ needs no permission. A lambda inside such a function does not inherit it.
#if defined(_MSC_VER) && !defined(__clang__)
#define SONVIA_TARGET(instructions)
#else
#define SONVIA_TARGET(instructions) __attribute__((target(instructions)))
#endif

struct CpuFeatures {
    bool ssse3 = false;
    bool carrylessMultiply = false;
    bool aes = false;
};

/// What the processor offers; it is asked at the first call. Any thread; never blocks on anything but that
/// first call.
const CpuFeatures& cpuFeatures();
