#include "unit/protection/protection_support.h"

#include <gtest/gtest.h>

namespace {

/// Small payloads often, all remainders of the block size, now and then a large one.
Bytes randomPayload(std::mt19937& random) {
    const std::size_t limit = random() % 50 == 0 ? 70000 : 100;
    return randomBytes(random, random() % limit);
}

TEST(ProtectionPropertyTest, EveryPayloadComesBackThroughAChainOfChangingFlags) {
    for (const std::uint32_t seed : {11U, 12U, 13U}) {
        std::mt19937 random(seed);
        const auto sender = nearContext({});
        const auto receiver = farContext({});
        const auto flags = everyFlagCombination();
        LogCapture log;
        for (int message = 0; message < 3000; ++message) {
            const ProtectionFlags now = flags[random() % flags.size()];
            sender->mEncryptOn = now.encrypt;
            sender->mBlockPad = now.pad;
            sender->mIntegrityOn = now.integrity;
            const Bytes payload = randomPayload(random);
            const Outcome sent = encrypt(*sender, payload);
            ASSERT_TRUE(sent.ok);
            const Outcome taken = decrypt(*receiver, sent.data);
            ASSERT_TRUE(taken.ok) << "seed " << seed << " message " << message;
            ASSERT_EQ(taken.data, payload) << "seed " << seed << " message " << message;
        }
    }
}

TEST(ProtectionPropertyTest, BothDirectionsOfAConnectionAreChainsOfTheirOwn) {
    std::mt19937 random(14);
    const auto left = nearContext({true, true, true});
    const auto right = farContext({true, true, true});
    for (int message = 0; message < 2000; ++message) {
        const bool toTheRight = random() % 3 != 0;
        SafetyDataDeal& sender = toTheRight ? *left : *right;
        SafetyDataDeal& receiver = toTheRight ? *right : *left;
        const Bytes payload = randomPayload(random);
        ASSERT_EQ(decrypt(receiver, encrypt(sender, payload).data).data, payload) << message;
    }
}

TEST(ProtectionPropertyTest, RandomMessagesAreTakenWithinTheirSizeOrRefused) {
    std::mt19937 random(15);
    const auto receiver = farContext({});
    LogCapture log;
    for (int message = 0; message < 20000; ++message) {
        Bytes bytes = randomBytes(random, 3 + random() % 60);
        bytes[0] = random() % 20 == 0 ? bytes[0] : 0;
        bytes[1] = static_cast<std::uint8_t>(random() % 12);
        bytes[2] = static_cast<std::uint8_t>(random() % 3);
        const Outcome taken = decrypt(*receiver, bytes);
        ASSERT_TRUE(taken.ok || !taken.hasBuffer);
        ASSERT_LE(taken.data.size(), bytes.size() - 3);
    }
}

} // namespace
