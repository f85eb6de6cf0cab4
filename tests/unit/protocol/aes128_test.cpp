#include "protocol/aes128.h"

#include "support/protocol/aes128_fixture.h"
#include "support/protocol/protection_support.h"

#include "protocol/cpu_features.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace support;

namespace {

class Aes128Test : public EachAes128 {
protected:
    Aes128State encryption(const Bytes& key, const Bytes& iv) const {
        Aes128State state;
        mCode->expandForEncryption(key.data(), state);
        std::memcpy(state.iv, iv.data(), kAesBlockSize);
        return state;
    }

    Aes128State decryption(const Bytes& key, const Bytes& iv) const {
        Aes128State state;
        mCode->expandForDecryption(key.data(), state);
        std::memcpy(state.iv, iv.data(), kAesBlockSize);
        return state;
    }

    Bytes run(Aes128State& state, const Bytes& in, bool encrypting) const {
        Bytes out(in.size());
        const auto operation = encrypting ? mCode->cbcEncrypt : mCode->cbcDecrypt;
        operation(state, in.data(), out.data(), in.size() / kAesBlockSize);
        return out;
    }

    void expectBothWays(const Bytes& key, const Bytes& iv, const Bytes& plain, const Bytes& encrypted) const {
        Aes128State forward = encryption(key, iv);
        EXPECT_EQ(run(forward, plain, true), encrypted);
        Aes128State back = decryption(key, iv);
        EXPECT_EQ(run(back, encrypted, false), plain);
    }
};

const Bytes kZeroBlock(kAesBlockSize);

TEST_P(Aes128Test, KeyExpansionGivesTheScheduleOfFips197) {
    const Bytes schedule = fromHex("2b7e151628aed2a6abf7158809cf4f3c a0fafe1788542cb123a339392a6c7605"
                                   "f2c295f27a96b9435935807a7359f67f 3d80477d4716fe3e1e237e446d7a883b"
                                   "ef44a541a8525b7fb671253bdb0bad00 d4d1c6f87c839d87caf2b8bc11f915bc"
                                   "6d88a37a110b3efddbf98641ca0093fd 4e54f70e5f5fc9f384a64fb24ea6dc4f"
                                   "ead27321b58dbad2312bf5607f8d292f ac7766f319fadc2128d12941575c006e"
                                   "d014f9a8c9ee2589e13f0cc8b6630ca6");
    const Aes128State state = encryption(Bytes(kTestKey.begin(), kTestKey.end()), kZeroBlock);
    const auto* keys = &state.roundKeys[0][0];
    EXPECT_EQ(Bytes(keys, keys + sizeof(state.roundKeys)), schedule);
}

TEST_P(Aes128Test, BlockOfFips197AppendixB) {
    expectBothWays(fromHex("2b7e151628aed2a6abf7158809cf4f3c"), kZeroBlock,
                   fromHex("3243f6a8885a308d313198a2e0370734"), fromHex("3925841d02dc09fbdc118597196a0b32"));
}

TEST_P(Aes128Test, BlockOfFips197AppendixC) {
    expectBothWays(fromHex("000102030405060708090a0b0c0d0e0f"), kZeroBlock,
                   fromHex("00112233445566778899aabbccddeeff"), fromHex("69c4e0d86a7b0430d8cdb78070b4c55a"));
}

TEST_P(Aes128Test, ChainOfSp80038a) {
    expectBothWays(fromHex("2b7e151628aed2a6abf7158809cf4f3c"), fromHex("000102030405060708090a0b0c0d0e0f"),
                   fromHex("6bc1bee22e409f96e93d7e117393172a ae2d8a571e03ac9c9eb76fac45af8e51"
                           "30c81c46a35ce411e5fbc1191a0a52ef f69f2445df4f9b17ad2b417be66c3710"),
                   fromHex("7649abac8119b246cee98e9b12e9197d 5086cb9b507219ee95db113a917678b2"
                           "73bed6b8e3c1743b7116e69e22229516 3ff1caa1681fac09120eca307586e1a7"));
}

TEST_P(Aes128Test, ChainGoesOnFromCallToCallHoweverItIsCut) {
    std::mt19937 random(1);
    const Bytes key = randomBytes(random, kAesBlockSize);
    const Bytes iv = randomBytes(random, kAesBlockSize);
    const Bytes plain = randomBytes(random, 40 * kAesBlockSize);
    Aes128State whole = encryption(key, iv);
    const Bytes encrypted = run(whole, plain, true);
    for (std::size_t first = 0; first <= 40; ++first) {
        const auto cut = static_cast<std::ptrdiff_t>(first * kAesBlockSize);
        Aes128State forward = encryption(key, iv);
        Aes128State back = decryption(key, iv);
        Bytes encryptedInTwo = run(forward, Bytes(plain.begin(), plain.begin() + cut), true);
        Bytes plainInTwo = run(back, Bytes(encrypted.begin(), encrypted.begin() + cut), false);
        for (const std::uint8_t byte : run(forward, Bytes(plain.begin() + cut, plain.end()), true)) {
            encryptedInTwo.push_back(byte);
        }
        for (const std::uint8_t byte : run(back, Bytes(encrypted.begin() + cut, encrypted.end()), false)) {
            plainInTwo.push_back(byte);
        }
        ASSERT_EQ(encryptedInTwo, encrypted) << "cut after block " << first;
        ASSERT_EQ(plainInTwo, plain) << "cut after block " << first;
        ASSERT_EQ(std::memcmp(forward.iv, whole.iv, kAesBlockSize), 0);
        ASSERT_EQ(std::memcmp(back.iv, whole.iv, kAesBlockSize), 0);
    }
}

TEST_P(Aes128Test, NoBlocksLeaveTheChainWhereItWas) {
    const Bytes iv(kNearIv.begin(), kNearIv.end());
    Aes128State state = encryption(kZeroBlock, iv);
    run(state, {}, true);
    EXPECT_EQ(std::memcmp(state.iv, iv.data(), kAesBlockSize), 0);
    run(state, {}, false);
    EXPECT_EQ(std::memcmp(state.iv, iv.data(), kAesBlockSize), 0);
}

TEST_P(Aes128Test, NothingNeedsAnAlignment) {
    std::mt19937 random(2);
    const Bytes key = randomBytes(random, kAesBlockSize);
    const Bytes plain = randomBytes(random, 9 * kAesBlockSize);
    Aes128State aligned = encryption(key, kZeroBlock);
    const Bytes encrypted = run(aligned, plain, true);
    for (std::size_t shift = 0; shift < kAesBlockSize; ++shift) {
        Bytes in(shift);
        in.insert(in.end(), plain.begin(), plain.end());
        Bytes out(in.size());
        Aes128State forward = encryption(key, kZeroBlock);
        mCode->cbcEncrypt(forward, in.data() + shift, out.data() + shift, 9);
        ASSERT_EQ(Bytes(out.begin() + static_cast<std::ptrdiff_t>(shift), out.end()), encrypted);
        Aes128State back = decryption(key, kZeroBlock);
        mCode->cbcDecrypt(back, out.data() + shift, in.data() + shift, 9);
        ASSERT_EQ(Bytes(in.begin() + static_cast<std::ptrdiff_t>(shift), in.end()), plain);
    }
}

INSTANTIATE_TEST_SUITE_P(Codes, Aes128Test, testing::Values(false, true),
                         [](const auto& code) { return code.param ? "Instructions" : "Portable"; });

TEST(Aes128ChoiceTest, TheProcessorDecidesWhichCodeRuns) {
    if (cpuFeatures().aes) {
        ASSERT_NE(aes128Instructions(), nullptr);
        EXPECT_EQ(&aes128(), aes128Instructions());
    } else {
        EXPECT_EQ(aes128Instructions(), nullptr);
        EXPECT_EQ(&aes128(), &aes128Portable());
    }
}

TEST(Aes128ChoiceTest, BothCodesAgreeOnSchedulesAndChains) {
    const Aes128Implementation* instructions = aes128Instructions();
    if (instructions == nullptr) {
        GTEST_SKIP() << "this processor has no AES instructions";
    }
    const Aes128Implementation& portable = aes128Portable();
    std::mt19937 random(3);
    for (std::size_t round = 0; round < 2000; ++round) {
        const Bytes key = randomBytes(random, kAesBlockSize);
        Aes128State left;
        Aes128State right;
        portable.expandForEncryption(key.data(), left);
        instructions->expandForEncryption(key.data(), right);
        ASSERT_EQ(std::memcmp(&left, &right, sizeof(left)), 0);
        const std::size_t blocks = round % 40;
        const Bytes plain = randomBytes(random, blocks * kAesBlockSize);
        Bytes fromLeft(plain.size());
        Bytes fromRight(plain.size());
        portable.cbcEncrypt(left, plain.data(), fromLeft.data(), blocks);
        instructions->cbcEncrypt(right, plain.data(), fromRight.data(), blocks);
        ASSERT_EQ(fromLeft, fromRight) << blocks << " blocks";
        ASSERT_EQ(std::memcmp(&left, &right, sizeof(left)), 0);

        portable.expandForDecryption(key.data(), left);
        instructions->expandForDecryption(key.data(), right);
        ASSERT_EQ(std::memcmp(&left, &right, sizeof(left)), 0);
        portable.cbcDecrypt(left, plain.data(), fromLeft.data(), blocks);
        instructions->cbcDecrypt(right, plain.data(), fromRight.data(), blocks);
        ASSERT_EQ(fromLeft, fromRight) << blocks << " blocks";
        ASSERT_EQ(std::memcmp(&left, &right, sizeof(left)), 0);
    }
}

} // namespace
