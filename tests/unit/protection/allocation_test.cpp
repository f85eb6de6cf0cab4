#include "support/kept_stream.h"
#include "unit/protection/counted_malloc.h"
#include "unit/protection/protection_support.h"

#include "protocol/ctrl_protocol.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using Lines = std::vector<std::string>;

/// Sizes around blocks, strides and pages.
constexpr std::size_t kSizes[] = {0, 1, 15, 16, 17, 64, 100, 4096, 70000};

struct Buffer {
    ~Buffer() { std::free(bytes); }

    Bytes copy() const { return Bytes(bytes, bytes + size); }

    std::uint8_t* bytes = nullptr;
    std::size_t size = 0;
};

TEST(AllocationTest, EveryCallAllocatesItsResultAndNothingElse) {
    for (const ProtectionFlags flags : everyFlagCombination()) {
        const auto sender = nearContext(flags);
        const auto receiver = farContext(flags);
        for (const std::size_t size : kSizes) {
            const Bytes payload(size, 0x61);
            LogCapture log;
            Buffer message;
            Buffer plain;
            CountedMalloc encryption;
            ASSERT_TRUE(sender->encryptData(payload.data(), payload.size(), &message.bytes, &message.size));
            const int forTheMessage = encryption.stop();
            CountedMalloc decryption;
            ASSERT_TRUE(receiver->decryptData(message.bytes, message.size, &plain.bytes, &plain.size));
            const int forThePayload = decryption.stop();
            log.lines();
            // An empty payload with nothing but an integrity value writes a line, which has its own needs.
            if (size != 0 || !flags.integrity) {
                ASSERT_EQ(forTheMessage, 1) << size;
            }
            ASSERT_EQ(forThePayload, plain.bytes != nullptr ? 1 : 0) << size;
            ASSERT_EQ(plain.copy(), payload);
        }
    }
}

TEST(AllocationTest, RefusedMessagesAllocateNothing) {
    const auto receiver = farContext({});
    const Bytes broken = fromHex("00 09 01 80");
    Buffer plain;
    LogCapture log;
    // The lines about it are written before logging is set up, by the C library alone.
    EXPECT_FALSE(receiver->decryptData(broken.data(), broken.size(), &plain.bytes, &plain.size));
    CountedMalloc counted;
    EXPECT_FALSE(receiver->decryptData(broken.data(), broken.size(), &plain.bytes, &plain.size));
    EXPECT_EQ(counted.stop(), 0);
}

TEST(AllocationTest, MemoryMissingForAMessageLeavesTheEncryptionChain) {
    const auto sender = nearContext({true, true, true});
    const auto twin = nearContext({true, true, true});
    const Bytes payload = textBytes("abc");
    LogCapture log;
    Buffer message;
    CountedMalloc counted(1);
    const bool ok = sender->encryptData(payload.data(), payload.size(), &message.bytes, &message.size);
    counted.stop();
    EXPECT_FALSE(ok);
    EXPECT_EQ(message.bytes, nullptr);
    EXPECT_EQ(message.size, 0U);
    EXPECT_EQ(log.lines(),
              Lines{"E Sonvia_Default: [SafetyDataDeal::encryptData:line]malloc size:25 failed"});
    EXPECT_EQ(encrypt(*sender, payload).data, encrypt(*twin, payload).data);
}

TEST(AllocationTest, MemoryMissingForAPayloadLeavesTheDecryptionChain) {
    const auto receiver = farContext({});
    const Bytes message = encrypt(*nearContext({true, true, true}), textBytes("abc")).data;
    LogCapture log;
    Buffer plain;
    CountedMalloc counted(1);
    const bool ok = receiver->decryptData(message.data(), message.size(), &plain.bytes, &plain.size);
    counted.stop();
    EXPECT_FALSE(ok);
    EXPECT_EQ(plain.bytes, nullptr);
    EXPECT_EQ(log.lines(), (Lines{"E Sonvia_Default: [SafetyDataDeal::decryptData:line]calloc size:16 failed",
                                  "E Sonvia_Default: [SafetyDataDeal::decryptData:line]failed"}));
    EXPECT_EQ(decrypt(*receiver, message).data, textBytes("abc"));
}

const Bytes kPlainPacket = fromHex("24 0022 0005 00000003 616263");

/// Sends "abc" while request number `failing` of the call gets no memory.
Bytes sendWithout(int failing, LogCapture& log, Lines& lines) {
    support::KeptStream stream;
    CtrlProtocol protocol;
    protocol.setStream(&stream);
    protocol.setSafetyDataDeal(nearContext({true, true, true}));
    OBufList payload{OBufView::make("abc", 3)};
    CountedMalloc counted(failing);
    protocol.sendCommand(34, 5, std::move(payload));
    counted.stop();
    lines = log.lines();
    return stream.bytes;
}

TEST(AllocationTest, PayloadThatCannotBeJoinedIsSentPlain) {
    LogCapture log;
    Lines lines;
    EXPECT_EQ(sendWithout(1, log, lines), kPlainPacket);
    EXPECT_EQ(lines, Lines{"E Sonvia_Default: [CtrlProtocol::sendCommand:line]malloc size:3 failed"});
}

TEST(AllocationTest, PayloadThatCannotBeProtectedIsSentPlain) {
    LogCapture log;
    Lines lines;
    EXPECT_EQ(sendWithout(2, log, lines), kPlainPacket);
    EXPECT_EQ(lines, Lines{"E Sonvia_Default: [SafetyDataDeal::encryptData:line]malloc size:25 failed"});
}

} // namespace
