#include "protocol/cpu_features.h"

#if defined(_MSC_VER) && !defined(__clang__)
#include <intrin.h>
#else
#include <cpuid.h>
#endif

namespace {

constexpr unsigned kLeafOfFeatures = 1;
constexpr unsigned kCarrylessMultiplyBit = 1U << 1;
constexpr unsigned kSsse3Bit = 1U << 9;
constexpr unsigned kAesBit = 1U << 25;

unsigned featureBits() {
#if defined(_MSC_VER) && !defined(__clang__)
    int registers[4] = {};
    __cpuid(registers, static_cast<int>(kLeafOfFeatures));
    return static_cast<unsigned>(registers[2]);
#else
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    return __get_cpuid(kLeafOfFeatures, &eax, &ebx, &ecx, &edx) != 0 ? ecx : 0;
#endif
}

CpuFeatures askProcessor() {
    const unsigned bits = featureBits();
    CpuFeatures features;
    features.ssse3 = (bits & kSsse3Bit) != 0;
    features.carrylessMultiply = (bits & kCarrylessMultiplyBit) != 0;
    features.aes = (bits & kAesBit) != 0;
    return features;
}

} // namespace

const CpuFeatures& cpuFeatures() {
    static const CpuFeatures kFeatures = askProcessor();
    return kFeatures;
}
