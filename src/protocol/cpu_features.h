#pragma once

/// Lets one function use instructions that the rest of the file must not: its callers check the CPU first. Visual C++ needs
/// no permission. A lambda inside such a function does not inherit it.
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

/// The instruction sets of this CPU, detected on first use. Any thread; blocks only during the detection.
const CpuFeatures& cpuFeatures();
