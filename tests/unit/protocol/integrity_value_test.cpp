#include "protocol/integrity_value.h"

#include "support/protocol/protection_support.h"

#include "protocol/cpu_features.h"

#include <gtest/gtest.h>

using namespace support;

namespace {

std::uint32_t reverseBytes(std::uint32_t value) {
    return value << 24 | (value & 0xFF00U) << 8 | (value >> 8 & 0xFF00U) | value >> 24;
}

/// CRC-32/MPEG-2 bit by bit, most significant bit first.
std::uint32_t crc32Mpeg2(const Bytes& data) {
    std::uint32_t remainder = 0xFFFFFFFFU;
    for (const std::uint8_t byte : data) {
        remainder ^= static_cast<std::uint32_t>(byte) << 24;
        for (int bit = 0; bit < 8; ++bit) {
            remainder = (remainder & 0x80000000U) != 0 ? remainder << 1 ^ 0x04C11DB7U : remainder << 1;
        }
    }
    return remainder;
}

/// The plain table: one look-up a byte.
std::uint32_t byPlainTable(const std::uint8_t* data, std::size_t size) {
    static const std::vector<std::uint32_t> table = [] {
        std::vector<std::uint32_t> made;
        for (std::uint32_t index = 0; index < 256; ++index) {
            std::uint32_t remainder = index << 24;
            for (int bit = 0; bit < 8; ++bit) {
                remainder = (remainder & 0x80000000U) != 0 ? remainder << 1 ^ 0x04C11DB7U : remainder << 1;
            }
            made.push_back(reverseBytes(remainder));
        }
        return made;
    }();
    std::uint32_t value = 0xFFFFFFFFU;
    for (std::size_t index = 0; index < size; ++index) {
        value = table[(value ^ data[index]) & 0xFFU] ^ value >> 8;
    }
    return value;
}

/// Every test runs on each code that this processor has.
class IntegrityValueTest : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        if (GetParam()) {
            mCode = integrityValueFolded();
            if (mCode == nullptr) {
                GTEST_SKIP() << "this processor has no carry-less multiplication";
            }
        }
    }

    IntegrityCode mCode = integrityValueSliced;
};

TEST_P(IntegrityValueTest, NineDigitsGiveTheCheckValue) {
    const Bytes digits = textBytes("123456789");
    EXPECT_EQ(mCode(digits.data(), digits.size()), 0xE7E67603U);
}

TEST_P(IntegrityValueTest, EmptyDataGivesTheStartValue) {
    EXPECT_EQ(mCode(nullptr, 0), 0xFFFFFFFFU);
}

TEST_P(IntegrityValueTest, EqualsThePlainTableOnEveryLengthUpTo4096) {
    std::mt19937 random(4);
    const Bytes data = randomBytes(random, 4096);
    for (std::size_t size = 0; size <= data.size(); ++size) {
        ASSERT_EQ(mCode(data.data(), size), byPlainTable(data.data(), size)) << size << " bytes";
    }
}

TEST_P(IntegrityValueTest, EqualsThePlainTableAtEveryAlignment) {
    std::mt19937 random(5);
    const Bytes data = randomBytes(random, 400);
    for (std::size_t from = 0; from < 64; ++from) {
        const std::size_t size = data.size() - 64;
        ASSERT_EQ(mCode(data.data() + from, size), byPlainTable(data.data() + from, size));
    }
}

TEST_P(IntegrityValueTest, EveryBitOfTheDataCounts) {
    Bytes data(200, 0);
    const std::uint32_t before = mCode(data.data(), data.size());
    for (std::size_t bit = 0; bit < 8 * data.size(); ++bit) {
        const auto mask = static_cast<std::uint8_t>(1U << bit % 8);
        data[bit / 8] = mask;
        ASSERT_NE(mCode(data.data(), data.size()), before) << "bit " << bit;
        data[bit / 8] = 0;
    }
}

INSTANTIATE_TEST_SUITE_P(Codes, IntegrityValueTest, testing::Values(false, true),
                         [](const auto& code) { return code.param ? "Folded" : "Sliced"; });

TEST(IntegrityValueChoiceTest, ThePlainTableIsTheByteReversedCrc32Mpeg2) {
    std::mt19937 random(6);
    for (std::size_t size = 0; size < 300; ++size) {
        const Bytes data = randomBytes(random, size);
        ASSERT_EQ(byPlainTable(data.data(), data.size()), reverseBytes(crc32Mpeg2(data)));
        ASSERT_EQ(integrityValue(data.data(), data.size()), reverseBytes(crc32Mpeg2(data)));
    }
}

TEST(IntegrityValueChoiceTest, TheProcessorDecidesWhetherFoldingIsOffered) {
    EXPECT_EQ(integrityValueFolded() != nullptr, cpuFeatures().carrylessMultiply && cpuFeatures().ssse3);
}

} // namespace
