#include "support/log_capture.h"
#include "support/protocol/protection_support.h"

#include "protocol/integrity_value.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>

using namespace support;

namespace {

using Lines = std::vector<std::string>;

const std::string kFailed = "E Sonvia_Default: [SafetyDataDeal::decryptData:line]failed";

Bytes join(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// A context that only receives: what it does to its own messages does not matter.
std::shared_ptr<SafetyDataDeal> receiver() {
    return farContext({});
}

/// Expects `message` to be refused with the lines `before` and the closing one.
void expectRefused(const Bytes& message, Lines before = {}) {
    LogCapture log;
    const Outcome taken = decrypt(*receiver(), message);
    before.push_back(kFailed);
    EXPECT_EQ(log.texts(), before);
    EXPECT_FALSE(taken.ok);
    EXPECT_FALSE(taken.hasBuffer);
}

void expectTaken(const Bytes& message, const Bytes& payload) {
    LogCapture log;
    const Outcome taken = decrypt(*receiver(), message);
    EXPECT_EQ(log.texts(), Lines{});
    EXPECT_TRUE(taken.ok);
    EXPECT_EQ(taken.data, payload);
}

TEST(DecryptDataTest, EmptyPayloadWithAllFlagsOffGivesANullBuffer) {
    const Outcome taken = decrypt(*receiver(), fromHex("00 02 01 00"));
    EXPECT_TRUE(taken.ok);
    EXPECT_FALSE(taken.hasBuffer);
}

TEST(DecryptDataTest, MessageWithoutFlagBytesIsReturnedUnchanged) {
    expectTaken(fromHex("00 01 00 616263"), textBytes("abc"));
}

TEST(DecryptDataTest, MessageWithoutFlagBytesAndDataGivesANullBuffer) {
    const Outcome taken = decrypt(*receiver(), fromHex("00 01 00"));
    EXPECT_TRUE(taken.ok);
    EXPECT_FALSE(taken.hasBuffer);
}

TEST(DecryptDataTest, EncryptedMessageWithoutDataGivesANullBuffer) {
    const Outcome taken = decrypt(*receiver(), fromHex("00 02 01 80"));
    EXPECT_TRUE(taken.ok);
    EXPECT_FALSE(taken.hasBuffer);
}

TEST(DecryptDataTest, MessageOfNothingButPaddingGivesABufferOfNoBytes) {
    const Outcome taken = decrypt(*receiver(), join(fromHex("00 03 01 40 10"), Bytes(16)));
    EXPECT_TRUE(taken.ok);
    EXPECT_TRUE(taken.hasBuffer);
    EXPECT_TRUE(taken.data.empty());
}

TEST(DecryptDataTest, LongerHeaderIsAcceptedAndItsUnknownBytesIgnored) {
    expectTaken(fromHex("00 05 01 00 DEAD05 6162"), textBytes("ab"));
    expectTaken(join(join(fromHex("0102 01 00"), Bytes(0x100, 0xEE)), textBytes("ab")), textBytes("ab"));
}

TEST(DecryptDataTest, OnlyTheFirstFlagByteHasAMeaning) {
    expectTaken(fromHex("00 04 03 00FFFF 6162"), textBytes("ab"));
    expectTaken(fromHex("00 05 03 40FFFF 01 6100"), textBytes("a"));
}

TEST(DecryptDataTest, LowFlagBitsAreIgnored) {
    expectTaken(fromHex("00 02 01 1F 6162"), textBytes("ab"));
}

TEST(DecryptDataTest, PadCountMayBeAnythingUpToTheData) {
    expectTaken(fromHex("00 03 01 40 00 6162"), textBytes("ab"));
    expectTaken(fromHex("00 03 01 40 01 6162"), textBytes("a"));
    expectTaken(join(fromHex("00 03 01 40 14"), Bytes(21, 0x61)), textBytes("a"));
}

TEST(DecryptDataTest, PadCountLargerThanTheDataIsRefused) {
    expectRefused(fromHex("00 03 01 40 03 6162"));
    expectRefused(fromHex("00 03 01 40 01"));
    expectRefused(join(fromHex("00 03 01 C0 11"), Bytes(16)));
}

TEST(DecryptDataTest, HeaderLongerThanTheMessageIsRefused) {
    expectRefused(fromHex("00 03 01 00"));
    expectRefused(fromHex("01 02 01 00 61"));
    expectRefused(fromHex("FF FF 01 00 61"));
}

TEST(DecryptDataTest, HeaderTooShortForItsFlagsIsRefused) {
    expectRefused(fromHex("00 00 00"));
    expectRefused(fromHex("00 01 01 00 61"));
    expectRefused(fromHex("00 02 02 00 00 61"));
    expectRefused(join(fromHex("00 02 FF"), Bytes(300)));
}

TEST(DecryptDataTest, PadCountBeyondTheHeaderIsRefused) {
    expectRefused(fromHex("00 02 01 40 00 00"));
}

TEST(DecryptDataTest, IntegrityValueBeyondTheHeaderIsRefused) {
    expectRefused(fromHex("00 05 01 20 FFFFFFFF"));
    expectRefused(fromHex("00 06 01 60 00 FFFFFFFF"));
    expectRefused(fromHex("00 02 01 20 FFFFFFFF"));
}

TEST(DecryptDataTest, IntegrityValueIsCheckedOverTheDataOnly) {
    expectTaken(join(fromHex("00 06 01 20 E7E67603"), textBytes("123456789")), textBytes("123456789"));
    expectTaken(join(fromHex("00 08 01 20 E7E67603 BEEF"), textBytes("123456789")), textBytes("123456789"));
    expectTaken(fromHex("00 06 01 20 FFFFFFFF"), {});
}

TEST(DecryptDataTest, EveryFlippedDataBitFailsTheIntegrityCheck) {
    const Bytes message = encrypt(*nearContext({true, true, true}), textBytes("some payload")).data;
    for (std::size_t bit = 9 * 8; bit < 8 * message.size(); ++bit) {
        Bytes flipped = message;
        flipped[bit / 8] = static_cast<std::uint8_t>(flipped[bit / 8] ^ 1U << bit % 8);
        char text[200];
        const std::uint32_t stored = static_cast<std::uint32_t>(message[5]) << 24 |
                                     static_cast<std::uint32_t>(message[6]) << 16 |
                                     static_cast<std::uint32_t>(message[7]) << 8 | message[8];
        std::snprintf(
            text, sizeof(text),
            "E Sonvia_Default: [SafetyDataDeal::decryptData:line]mIntegrityType:0X1 integrityVal:0X%X, "
            "0X%X safetyIntegrityData failed",
            stored, integrityValue(flipped.data() + 9, flipped.size() - 9));
        expectRefused(flipped, {text});
    }
}

TEST(DecryptDataTest, TheReceiversIntegrityTypeDecides) {
    const Bytes message = join(fromHex("00 06 01 20 E7E67603"), textBytes("123456789"));
    const auto context = receiver();
    context->mIntegrityType = 0xAB;
    LogCapture log;
    EXPECT_FALSE(decrypt(*context, message).ok);
    EXPECT_EQ(log.texts(), (Lines{"E Sonvia_Default: [SafetyDataDeal::decryptData:line]mIntegrityType:0XAB "
                                  "integrityVal:0XE7E67603, 0XFFFFFFFF safetyIntegrityData failed",
                                  kFailed}));
    EXPECT_TRUE(decrypt(*context, fromHex("00 06 01 20 FFFFFFFF 6162")).ok);
}

TEST(DecryptDataTest, EncryptedDataThatIsNotWholeBlocksIsRefused) {
    for (std::size_t size = 1; size < 50; ++size) {
        if (size % 16 != 0) {
            expectRefused(join(fromHex("00 02 01 80"), Bytes(size)));
        }
    }
}

TEST(DecryptDataTest, MessageOfFewerThanThreeBytesFailsWithTheArgumentLine) {
    for (std::size_t size = 0; size < 3; ++size) {
        const Bytes message(3);
        LogCapture log;
        std::uint8_t* buffer = nullptr;
        std::size_t outSize = 5;
        EXPECT_FALSE(receiver()->decryptData(message.data(), size, &buffer, &outSize));
        EXPECT_EQ(outSize, 0U);
        const Lines lines = log.texts();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0], "E Sonvia_Default: [SafetyDataDeal::decryptData:line]pInData:" +
                                shownAddress(message.data()) + " inSize:" + std::to_string(size) +
                                " ppOutData:" + shownAddress(&buffer) +
                                " pOutSize:" + shownAddress(&outSize) + " is error");
    }
}

TEST(DecryptDataTest, MissingArgumentsFailAndTheOutputsAreCleared) {
    const Bytes message = fromHex("00 02 01 00 61");
    const auto context = receiver();
    LogCapture log;
    std::uint8_t rubbish = 0;
    std::uint8_t* buffer = &rubbish;
    std::size_t size = 5;
    EXPECT_FALSE(context->decryptData(nullptr, 5, &buffer, &size));
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(size, 0U);
    buffer = &rubbish;
    size = 5;
    EXPECT_FALSE(context->decryptData(message.data(), message.size(), nullptr, &size));
    EXPECT_EQ(size, 0U);
    EXPECT_FALSE(context->decryptData(message.data(), message.size(), &buffer, nullptr));
    EXPECT_EQ(buffer, nullptr);
    const Lines lines = log.texts();
    ASSERT_EQ(lines.size(), 3U);
    const auto line = [](const std::string& in, const std::string& out, const std::string& outSize) {
        return "E Sonvia_Default: [SafetyDataDeal::decryptData:line]pInData:" + in +
               " inSize:5 ppOutData:" + out + " pOutSize:" + outSize + " is error";
    };
    EXPECT_EQ(lines[0], line("0x0", shownAddress(&buffer), shownAddress(&size)));
    EXPECT_EQ(lines[1], line(shownAddress(message.data()), "0x0", shownAddress(&size)));
    EXPECT_EQ(lines[2], line(shownAddress(message.data()), shownAddress(&buffer), "0x0"));
}

TEST(DecryptDataTest, MemoryThatRanOutIsLoggedAndFails) {
    const Bytes message = fromHex("00 01 00 61");
    constexpr std::size_t kTooMuch = std::numeric_limits<std::size_t>::max() / 4;
    LogCapture log;
    std::uint8_t* buffer = nullptr;
    std::size_t size = 5;
    EXPECT_FALSE(receiver()->decryptData(message.data(), kTooMuch, &buffer, &size));
    EXPECT_EQ(size, 0U);
    const auto dataSize = static_cast<int>(static_cast<unsigned>(kTooMuch - 3));
    EXPECT_EQ(log.texts(), (Lines{"E Sonvia_Default: [SafetyDataDeal::decryptData:line]calloc size:" +
                                      std::to_string(dataSize) + " failed",
                                  kFailed}));
}

TEST(DecryptDataTest, EveryTruncationOfAMessageIsSurvived) {
    for (const ProtectionFlags flags : everyFlagCombination()) {
        const Bytes message = encrypt(*nearContext(flags), Bytes(40, 0x61)).data;
        for (std::size_t size = 0; size < message.size(); ++size) {
            LogCapture log;
            // A block of its own, so that the sanitizer sees a read past the cut.
            const Bytes cut(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(size));
            const Outcome taken = decrypt(*receiver(), cut);
            ASSERT_TRUE(!flags.integrity || !taken.ok) << size << " of " << message.size();
        }
    }
}

TEST(DecryptDataTest, MessagesDecryptOnlyInTheOrderInWhichTheyWereEncrypted) {
    const auto sender = nearContext({true, true, true});
    const Bytes first = encrypt(*sender, textBytes("the first message")).data;
    const Bytes second = encrypt(*sender, textBytes("the second message")).data;
    const auto inOrder = receiver();
    EXPECT_EQ(decrypt(*inOrder, first).data, textBytes("the first message"));
    EXPECT_EQ(decrypt(*inOrder, second).data, textBytes("the second message"));
    const auto swapped = receiver();
    EXPECT_NE(decrypt(*swapped, second).data, textBytes("the second message"));
    EXPECT_NE(decrypt(*swapped, first).data, textBytes("the first message"));
}

TEST(DecryptDataTest, ReplayedMessageDecryptsWronglyInItsFirstBlockOnly) {
    const Bytes payload = textBytes("0123456789abcdef and the rest of the message");
    const Bytes message = encrypt(*nearContext({true, true, true}), payload).data;
    const auto context = receiver();
    EXPECT_EQ(decrypt(*context, message).data, payload);
    const Bytes again = decrypt(*context, message).data;
    ASSERT_EQ(again.size(), payload.size());
    EXPECT_NE(Bytes(again.begin(), again.begin() + 16), Bytes(payload.begin(), payload.begin() + 16));
    EXPECT_EQ(Bytes(again.begin() + 16, again.end()), Bytes(payload.begin() + 16, payload.end()));
}

TEST(DecryptDataTest, ReplayOfTheLastMessageCostsTheNextOneNothingAndAnyOtherReplayItsFirstBlock) {
    const Bytes payload = textBytes("0123456789abcdef and the rest of the message");
    for (const bool last : {true, false}) {
        const auto sender = nearContext({true, true, true});
        const auto context = receiver();
        const Bytes first = encrypt(*sender, payload).data;
        const Bytes second = encrypt(*sender, payload).data;
        decrypt(*context, first);
        decrypt(*context, second);
        EXPECT_TRUE(decrypt(*context, last ? second : first).ok);
        const Bytes next = decrypt(*context, encrypt(*sender, payload).data).data;
        ASSERT_EQ(next.size(), payload.size());
        EXPECT_EQ(Bytes(next.begin(), next.begin() + 16) == Bytes(payload.begin(), payload.begin() + 16),
                  last);
        EXPECT_EQ(Bytes(next.begin() + 16, next.end()), Bytes(payload.begin() + 16, payload.end()));
        EXPECT_EQ(decrypt(*context, encrypt(*sender, payload).data).data, payload);
    }
}

TEST(DecryptDataTest, RefusedMessagesLeaveTheChainWhereItWas) {
    const auto sender = nearContext({true, true, true});
    const auto context = receiver();
    const Bytes message = encrypt(*sender, textBytes("payload")).data;
    Bytes flipped = message;
    flipped.back() = static_cast<std::uint8_t>(flipped.back() ^ 1U);
    LogCapture log;
    EXPECT_FALSE(decrypt(*context, flipped).ok);
    EXPECT_FALSE(decrypt(*context, join(fromHex("00 02 01 80"), Bytes(17))).ok);
    EXPECT_FALSE(decrypt(*context, join(fromHex("00 03 01 C0 11"), Bytes(16))).ok);
    EXPECT_FALSE(decrypt(*context, fromHex("00 09 01 80")).ok);
    EXPECT_EQ(decrypt(*context, message).data, textBytes("payload"));
}

TEST(DecryptDataTest, MessageAfterARefusedOneDecryptsWronglyInItsFirstBlock) {
    const Bytes payload = textBytes("0123456789abcdef and the rest");
    const auto sender = nearContext({true, true, true});
    const auto context = receiver();
    Bytes lost = encrypt(*sender, payload).data;
    lost.back() = static_cast<std::uint8_t>(lost.back() ^ 1U);
    LogCapture log;
    EXPECT_FALSE(decrypt(*context, lost).ok);
    const Bytes next = decrypt(*context, encrypt(*sender, payload).data).data;
    ASSERT_EQ(next.size(), payload.size());
    EXPECT_NE(Bytes(next.begin(), next.begin() + 16), Bytes(payload.begin(), payload.begin() + 16));
    EXPECT_EQ(Bytes(next.begin() + 16, next.end()), Bytes(payload.begin() + 16, payload.end()));
    EXPECT_EQ(decrypt(*context, encrypt(*sender, payload).data).data, payload);
}

TEST(DecryptDataTest, ReceivingDoesNotMoveTheSendersChain) {
    const auto talking = nearContext({true, true, true});
    const auto silent = nearContext({true, true, true});
    const Bytes received = encrypt(*farContext({true, true, true}), textBytes("hello")).data;
    EXPECT_EQ(decrypt(*talking, received).data, textBytes("hello"));
    EXPECT_EQ(encrypt(*talking, textBytes("answer")).data, encrypt(*silent, textBytes("answer")).data);
}

} // namespace
