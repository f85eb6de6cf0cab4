#include "support/effort.h"
#include "support/log_capture.h"
#include "support/protocol/protection_support.h"

#include <gtest/gtest.h>

using namespace support;

namespace {

/// Small payloads often, all remainders of the block size, now and then a large one.
Bytes randomPayload(std::mt19937& random) {
    const std::size_t limit = random() % 50 == 0 ? 70000 : 100;
    return randomBytes(random, random() % limit);
}

TEST(ProtectionPropertyTest, EveryPayloadComesBackThroughAChainOfChangingFlags) {
    constexpr int kMessages = 1000;
    const int chains = rounds(9, 300);
    for (int seed = 11; seed < 11 + chains; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(static_cast<unsigned>(seed));
        const auto sender = nearContext({});
        const auto receiver = farContext({});
        const auto flags = everyFlagCombination();
        LogCapture log;
        for (int message = 0; message < kMessages; ++message) {
            const ProtectionFlags now = flags[random() % flags.size()];
            sender->mEncryptOn = now.encrypt;
            sender->mBlockPad = now.pad;
            sender->mIntegrityOn = now.integrity;
            const Bytes payload = randomPayload(random);
            const Outcome sent = encrypt(*sender, payload);
            ASSERT_TRUE(sent.ok);
            const Outcome taken = decrypt(*receiver, sent.data);
            ASSERT_TRUE(taken.ok) << "message " << message;
            ASSERT_EQ(taken.data, payload) << "message " << message;
        }
    }
    tried("payloads through chains of changing flags", 1LL * chains * kMessages, "payloads");
}

TEST(ProtectionPropertyTest, BothDirectionsOfAConnectionAreChainsOfTheirOwn) {
    std::mt19937 random(14);
    const int messages = rounds(2000, 100000);
    const auto left = nearContext({true, true, true});
    const auto right = farContext({true, true, true});
    for (int message = 0; message < messages; ++message) {
        const bool toTheRight = random() % 3 != 0;
        SafetyDataDeal& sender = toTheRight ? *left : *right;
        SafetyDataDeal& receiver = toTheRight ? *right : *left;
        const Bytes payload = randomPayload(random);
        ASSERT_EQ(decrypt(receiver, encrypt(sender, payload).data).data, payload) << message;
    }
    tried("payloads through both directions of a connection", messages, "payloads");
}

TEST(ProtectionPropertyTest, RandomMessagesAreTakenWithinTheirSizeOrRefused) {
    std::mt19937 random(15);
    const int messages = rounds(20000, 2000000);
    const auto receiver = farContext({});
    LogCapture log;
    for (int message = 0; message < messages; ++message) {
        Bytes bytes = randomBytes(random, 3 + random() % 60);
        bytes[0] = random() % 20 == 0 ? bytes[0] : 0;
        bytes[1] = static_cast<std::uint8_t>(random() % 12);
        bytes[2] = static_cast<std::uint8_t>(random() % 3);
        const Outcome taken = decrypt(*receiver, bytes);
        ASSERT_TRUE(taken.ok || !taken.hasBuffer);
        ASSERT_LE(taken.data.size(), bytes.size() - 3);
    }
    tried("random protected messages", messages, "messages");
}

} // namespace
