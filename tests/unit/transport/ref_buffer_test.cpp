#include "transport/ref_buffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <memory>

namespace {

constexpr std::uint64_t kMoreThanThereIs = std::numeric_limits<std::uint64_t>::max() / 4;

TEST(RefBuffer, HasExactlyTheBytesAskedFor) {
    const auto block = std::make_shared<ORefBuffer>(1000);
    ASSERT_NE(block->data, nullptr);
    EXPECT_EQ(block->capacity, 1000U);
    std::memset(block->data, 0x5A, 1000);
}

TEST(RefBuffer, FailedAllocationLeavesCapacityZero) {
    const auto block = std::make_shared<ORefBuffer>(kMoreThanThereIs);
    EXPECT_EQ(block->data, nullptr);
    EXPECT_EQ(block->capacity, 0U);
}

TEST(RefBuffer, BlockOfNoBytesIsAllowed) {
    EXPECT_EQ(std::make_shared<ORefBuffer>(0)->capacity, 0U);
}

} // namespace
