#include "protocol/cpu_features.h"

#include <gtest/gtest.h>

// The compiler's runtime asks the processor on its own.
#if defined(__GNUC__)

TEST(CpuFeaturesTest, AreThoseThatTheCompilersRuntimeFinds) {
    __builtin_cpu_init();
    EXPECT_EQ(cpuFeatures().aes, __builtin_cpu_supports("aes") != 0);
    EXPECT_EQ(cpuFeatures().carrylessMultiply, __builtin_cpu_supports("pclmul") != 0);
    EXPECT_EQ(cpuFeatures().ssse3, __builtin_cpu_supports("ssse3") != 0);
}

#endif

TEST(CpuFeaturesTest, AreAskedForOnce) {
    EXPECT_EQ(&cpuFeatures(), &cpuFeatures());
}
