#include "support/counted_malloc.h"
#include "support/log_capture.h"
#include "support/protocol/protection_support.h"
#include "support/transport/kept_stream.h"

#include "protocol/ctrl_protocol.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

using namespace support;

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
            log.texts();
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
    EXPECT_EQ(log.texts(),
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
    EXPECT_EQ(log.texts(), (Lines{"E Sonvia_Default: [SafetyDataDeal::decryptData:line]calloc size:16 failed",
                                  "E Sonvia_Default: [SafetyDataDeal::decryptData:line]failed"}));
    EXPECT_EQ(decrypt(*receiver, message).data, textBytes("abc"));
}

const Bytes kPlainPacket = fromHex("24 0022 0005 00000003 616263");
const std::string kHeaderLine = "E Sonvia_Default: [CtrlProtocol::sendCommand:line]malloc size:9 failed";
const std::string kJoinLine = "E Sonvia_Default: [CtrlProtocol::sendCommand:line]malloc size:3 failed";
const std::string kProtectLine = "E Sonvia_Default: [SafetyDataDeal::encryptData:line]malloc size:25 failed";

/// A stream that allocates nothing for a small packet and counts the pieces of the last one.
class RoomyStream : public KeptStream {
public:
    RoomyStream() { bytes.reserve(1000); }

    bool write(const OBufList& list) override {
        pieces = list.size();
        lastPiece = list.back().data();
        return KeptStream::write(list);
    }

    std::size_t pieces = 0;
    const std::uint8_t* lastPiece = nullptr;
};

/// What became of "abc", sent while one allocation failed, and of "next", sent without failures.
struct Sending {
    int requests = 0;
    bool outOfObjects = false; ///< the allocation of an object failed, which the caller gets as an exception
    Lines lines;
    Bytes bytes; ///< of "abc"
    std::size_t pieces = 0;
    bool endsInTheCallersPiece = false;
    std::vector<Bytes> received;
};

constexpr ProtectionFlags kAll = {true, true, true};

std::vector<Bytes> receive(const Bytes& stream, bool isProtected) {
    std::vector<Bytes> payloads;
    CtrlProtocol receiver;
    receiver.setSafetyDataDeal(isProtected ? farContext(kAll) : nullptr);
    receiver.setHandler([&](const CtrlPacketHeader* /*header*/, const std::uint8_t* payload,
                            std::uint32_t length) { payloads.emplace_back(payload, payload + length); });
    LogCapture log; // a protected receiver drops a plain packet with a line
    receiver.DepackPacket({OBufView::make(stream.data(), stream.size())});
    return payloads;
}

Sending sendWithout(int failing, bool isProtected) {
    Sending sending;
    RoomyStream stream;
    CtrlProtocol protocol;
    protocol.setStream(&stream);
    protocol.setSafetyDataDeal(isProtected ? nearContext(kAll) : nullptr);
    OBufList payload{OBufView::make("ab", 2), OBufView::make("c", 1)};
    const std::uint8_t* last = payload.back().data();
    LogCapture log;
    CountedMalloc counted(failing);
    try {
        protocol.sendCommand(34, 5, std::move(payload));
    } catch (const std::bad_alloc&) {
        sending.outOfObjects = true;
    }
    sending.requests = counted.stop();
    sending.lines = log.texts();
    sending.bytes = stream.bytes;
    sending.pieces = stream.pieces;
    sending.endsInTheCallersPiece = stream.lastPiece == last;
    protocol.sendCommand(34, 6, {OBufView::make("next", 4)});
    sending.received = receive(stream.bytes, isProtected);
    return sending;
}

/// One sending for each request that can be refused, and a last one that gets them all.
std::vector<Sending> everySending(bool isProtected) {
    std::vector<Sending> all;
    for (int failing = 1; all.empty() || all.back().requests >= failing - 1; ++failing) {
        all.push_back(sendWithout(failing, isProtected));
    }
    return all;
}

/// The sending that wrote this line and no other one.
Sending sendingThatLogs(const std::string& line, bool isProtected) {
    for (const Sending& sending : everySending(isProtected)) {
        if (sending.lines == Lines{line}) {
            return sending;
        }
    }
    ADD_FAILURE() << "no sending logs " << line;
    return {};
}

TEST(AllocationTest, PayloadThatCannotBeJoinedIsSentPlainInThePiecesThatItCameIn) {
    const Sending sending = sendingThatLogs(kJoinLine, true);
    EXPECT_EQ(sending.bytes, kPlainPacket);
    EXPECT_EQ(sending.pieces, 3U);
    EXPECT_TRUE(sending.endsInTheCallersPiece);
}

TEST(AllocationTest, PayloadThatCannotBeProtectedIsSentPlain) {
    EXPECT_EQ(sendingThatLogs(kProtectLine, true).bytes, kPlainPacket);
}

TEST(AllocationTest, CommandWhoseHeaderCannotBeAllocatedIsNotSentAndLogged) {
    for (const bool isProtected : {false, true}) {
        EXPECT_EQ(sendingThatLogs(kHeaderLine, isProtected).bytes, Bytes()) << isProtected;
    }
}

TEST(AllocationTest, WhicheverRequestIsRefusedACommandIsSentWholeOrNotAtAllAndTheNextOneIsUnderstood) {
    for (const bool isProtected : {false, true}) {
        const std::vector<Sending> all = everySending(isProtected);
        const Bytes whole = all.back().bytes;
        for (std::size_t index = 0; index < all.size(); ++index) {
            SCOPED_TRACE((isProtected ? "protected, request " : "plain, request ") +
                         std::to_string(index + 1));
            const Sending& sending = all[index];
            EXPECT_TRUE(!sending.outOfObjects || sending.bytes.empty());
            EXPECT_TRUE(sending.bytes.empty() || sending.bytes == kPlainPacket || sending.bytes == whole);
            std::vector<Bytes> expected = {textBytes("next")};
            if (sending.bytes == whole) {
                expected.insert(expected.begin(), textBytes("abc"));
            } else {
                EXPECT_TRUE(sending.outOfObjects || sending.lines.size() == 1);
            }
            EXPECT_EQ(sending.received, expected);
        }
        EXPECT_GE(all.size(), isProtected ? 6U : 3U);
    }
}

} // namespace
