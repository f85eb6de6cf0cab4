// What is left of a key in the memory that a context was in.

#include "support/protocol/protection_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <new>

using namespace support;

namespace {

using RoundKey = AesBlock;

/// Every round key of both directions, the key itself among them.
std::vector<RoundKey> everyRoundKey() {
    Aes128State encryption;
    Aes128State decryption;
    aes128().expandForEncryption(kTestKey.data(), encryption);
    aes128().expandForDecryption(kTestKey.data(), decryption);
    std::vector<RoundKey> keys;
    for (const Aes128State* state : {&encryption, &decryption}) {
        for (const auto& roundKey : state->roundKeys) {
            RoundKey& key = keys.emplace_back();
            std::copy(std::begin(roundKey), std::end(roundKey), key.begin());
        }
    }
    return keys;
}

std::size_t keysIn(const Bytes& memory, const std::vector<RoundKey>& keys) {
    return static_cast<std::size_t>(std::count_if(keys.begin(), keys.end(), [&memory](const RoundKey& key) {
        return std::search(memory.begin(), memory.end(), key.begin(), key.end()) != memory.end();
    }));
}

bool holds(const Bytes& memory, const AesBlock& block) {
    return std::search(memory.begin(), memory.end(), block.begin(), block.end()) != memory.end();
}

} // namespace

TEST(KeyLife, AContextThatHasGoneLeavesNoRoundKeyAndNoChainInItsMemory) {
    alignas(SafetyDataDeal) std::uint8_t memory[sizeof(SafetyDataDeal)] = {};
    auto* context = new (memory) SafetyDataDeal(kTestKey, kNearIv, kFarIv);
    const Bytes alive(std::begin(memory), std::end(memory));
    context->~SafetyDataDeal();
    // Read one by one through a volatile pointer: nobody may assume what is there now.
    const volatile std::uint8_t* place = memory;
    Bytes gone;
    for (std::size_t at = 0; at < sizeof memory; ++at) {
        const std::uint8_t byte = place[at];
        gone.push_back(byte);
    }
    const std::vector<RoundKey> keys = everyRoundKey();
    EXPECT_EQ(keysIn(alive, keys), keys.size()); // the search finds what is there
    EXPECT_TRUE(holds(alive, kNearIv));
    EXPECT_TRUE(holds(alive, kFarIv));
    EXPECT_EQ(keysIn(gone, keys), 0U);
    EXPECT_FALSE(holds(gone, kNearIv));
    EXPECT_FALSE(holds(gone, kFarIv));
}
