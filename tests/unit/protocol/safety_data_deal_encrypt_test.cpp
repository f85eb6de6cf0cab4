#include "support/log_capture.h"
#include "support/protocol/protection_support.h"

#include "protocol/integrity_value.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

using namespace support;

namespace {

using Lines = std::vector<std::string>;

constexpr std::size_t kAllFlagsHeader = 9;

Bytes from(const Bytes& bytes, std::size_t position) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(position), bytes.end());
}

Bytes upTo(const Bytes& bytes, std::size_t position) {
    return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(position));
}

/// The data that a context with the near encryption chain makes of whole blocks as its first message.
Bytes encryptedFirst(const Bytes& blocks) {
    Aes128State state;
    aes128Portable().expandForEncryption(kTestKey.data(), state);
    std::memcpy(state.iv, kNearIv.data(), kAesBlockSize);
    Bytes out(blocks.size());
    aes128Portable().cbcEncrypt(state, blocks.data(), out.data(), blocks.size() / kAesBlockSize);
    return out;
}

TEST(EncryptDataTest, EmptyPayloadWithAllFlagsOffIsFourBytes) {
    EXPECT_EQ(encrypt(*nearContext({}), {}).data, fromHex("00 02 01 00"));
}

TEST(EncryptDataTest, PlainPayloadFollowsTheFourByteHeader) {
    EXPECT_EQ(encrypt(*nearContext({}), textBytes("abc")).data, fromHex("00 02 01 00 61 62 63"));
}

TEST(EncryptDataTest, SixteenBytesGainSixteenZeroPadBytes) {
    const Bytes payload = textBytes("0123456789abcdef");
    Bytes expected = fromHex("00 03 01 40 10");
    expected.insert(expected.end(), payload.begin(), payload.end());
    expected.resize(expected.size() + 16);
    EXPECT_EQ(encrypt(*nearContext({false, true, false}), payload).data, expected);
}

TEST(EncryptDataTest, EmptyPayloadGainsSixteenZeroPadBytes) {
    Bytes expected = fromHex("00 03 01 40 10");
    expected.resize(expected.size() + 16);
    EXPECT_EQ(encrypt(*nearContext({false, true, false}), {}).data, expected);
}

TEST(EncryptDataTest, PadCountFillsTheLastBlock) {
    for (std::size_t size = 0; size < 50; ++size) {
        const Outcome sent = encrypt(*nearContext({false, true, false}), Bytes(size, 0xAA));
        ASSERT_EQ(sent.data[4], 16 - size % 16);
        ASSERT_EQ(sent.data.size(), 5 + size + (16 - size % 16));
        const Bytes pad = from(sent.data, 5 + size);
        ASSERT_TRUE(std::all_of(pad.begin(), pad.end(), [](std::uint8_t byte) { return byte == 0; }));
    }
}

TEST(EncryptDataTest, WithoutPaddingThePadCountIsAbsent) {
    const Outcome sent = encrypt(*nearContext({false, false, true}), textBytes("123456789"));
    EXPECT_EQ(upTo(sent.data, 8), fromHex("00 06 01 20 E7E67603"));
    EXPECT_EQ(from(sent.data, 8), textBytes("123456789"));
}

TEST(EncryptDataTest, IntegrityValueCoversThePadBytes) {
    const Outcome sent = encrypt(*nearContext({false, true, true}), textBytes("abc"));
    ASSERT_EQ(sent.data.size(), kAllFlagsHeader + 16);
    EXPECT_EQ(upTo(sent.data, 5), fromHex("00 07 01 60 0D"));
    const std::uint32_t value = integrityValue(sent.data.data() + kAllFlagsHeader, 16);
    EXPECT_EQ(sent.data[5], value >> 24);
    EXPECT_EQ(sent.data[6], value >> 16 & 0xFFU);
    EXPECT_EQ(sent.data[7], value >> 8 & 0xFFU);
    EXPECT_EQ(sent.data[8], value & 0xFFU);
}

TEST(EncryptDataTest, IntegrityValueIsTakenAfterEncryption) {
    const Bytes padded = fromHex("61626300 00000000 00000000 00000000");
    const Outcome sent = encrypt(*nearContext({true, true, true}), textBytes("abc"));
    const Bytes data = encryptedFirst(padded);
    EXPECT_EQ(upTo(sent.data, 5), fromHex("00 07 01 E0 0D"));
    EXPECT_EQ(from(sent.data, kAllFlagsHeader), data);
    const std::uint32_t value = integrityValue(data.data(), data.size());
    EXPECT_EQ(sent.data[5], value >> 24);
    EXPECT_EQ(sent.data[8], value & 0xFFU);
}

TEST(EncryptDataTest, OtherIntegrityTypesStoreAllOnes) {
    const auto context = nearContext({false, false, true});
    for (const std::uint32_t type : {0U, 2U, 0xFFFFFFFFU}) {
        context->mIntegrityType = type;
        EXPECT_EQ(encrypt(*context, textBytes("a")).data, fromHex("00 06 01 20 FFFFFFFF 61"));
    }
}

TEST(EncryptDataTest, IntegrityOfEmptyDataIsAllOnesAndLogged) {
    LogCapture log;
    const Outcome sent = encrypt(*nearContext({false, false, true}), {});
    EXPECT_EQ(log.texts(),
              Lines{"E Sonvia_Default: [SafetyDataDeal::encryptData:line]outSize:8 headerSize:8"});
    EXPECT_EQ(sent.data, fromHex("00 06 01 20 FFFFFFFF"));
}

TEST(EncryptDataTest, EncryptionWithoutPaddingKeepsWholeBlocksAsTheyAre) {
    const Bytes payload = textBytes("0123456789abcdef");
    Bytes expected = fromHex("00 02 01 80");
    for (const std::uint8_t byte : encryptedFirst(payload)) {
        expected.push_back(byte);
    }
    EXPECT_EQ(encrypt(*nearContext({true, false, false}), payload).data, expected);
}

TEST(EncryptDataTest, EncryptionOfAnEmptyPayloadWithoutPaddingIsAHeaderOnly) {
    EXPECT_EQ(encrypt(*nearContext({true, false, false}), {}).data, fromHex("00 02 01 80"));
}

TEST(EncryptDataTest, EncryptionWithoutPaddingPadsABrokenBlockAndSaysSo) {
    for (std::size_t size = 1; size < 100; ++size) {
        if (size % 16 == 0) {
            continue;
        }
        const Outcome sent = encrypt(*nearContext({true, false, false}), Bytes(size, 0x61));
        ASSERT_TRUE(sent.ok);
        Bytes padded(size, 0x61);
        padded.resize((size / 16 + 1) * 16);
        ASSERT_EQ(upTo(sent.data, 4), fromHex("00 03 01 C0"));
        ASSERT_EQ(sent.data[4], padded.size() - size);
        ASSERT_EQ(from(sent.data, 5), encryptedFirst(padded));
    }
}

TEST(EncryptDataTest, FlagsStayAsTheProgramSetThem) {
    const auto context = nearContext({true, false, true});
    encrypt(*context, textBytes("abc"));
    EXPECT_TRUE(context->mEncryptOn);
    EXPECT_FALSE(context->mBlockPad);
    EXPECT_TRUE(context->mIntegrityOn);
    EXPECT_EQ(context->mIntegrityType, 1U);
}

TEST(EncryptDataTest, NullInputWithASizeFailsAndIsLogged) {
    const auto context = nearContext({true, true, true});
    LogCapture log;
    std::uint8_t rubbish = 0;
    std::uint8_t* buffer = &rubbish;
    std::size_t size = 5;
    EXPECT_FALSE(context->encryptData(nullptr, 12, &buffer, &size));
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(size, 0U);
    const Lines lines = log.texts();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0],
              "E Sonvia_Default: [SafetyDataDeal::encryptData:line]pInData:0x0 inSize:12 ppOutData:" +
                  shownAddress(&buffer) + " pOutSize:" + shownAddress(&size) + " is error");
}

TEST(EncryptDataTest, MissingOutputsFailAndTheOtherOneIsCleared) {
    const auto context = nearContext({});
    LogCapture log;
    std::uint8_t rubbish = 0;
    std::uint8_t* buffer = &rubbish;
    std::size_t size = 5;
    const char* const text = "abc";
    EXPECT_FALSE(context->encryptData(text, 3, nullptr, &size));
    EXPECT_EQ(size, 0U);
    EXPECT_FALSE(context->encryptData(text, 3, &buffer, nullptr));
    EXPECT_EQ(buffer, nullptr);
    const Lines lines = log.texts();
    ASSERT_EQ(lines.size(), 2U);
    const std::string start =
        "E Sonvia_Default: [SafetyDataDeal::encryptData:line]pInData:" + shownAddress(text) + " inSize:3 ";
    EXPECT_EQ(lines[0], start + "ppOutData:0x0 pOutSize:" + shownAddress(&size) + " is error");
    EXPECT_EQ(lines[1], start + "ppOutData:" + shownAddress(&buffer) + " pOutSize:0x0 is error");
}

TEST(EncryptDataTest, NullInputWithoutASizeIsAnEmptyPayload) {
    const auto context = nearContext({});
    std::uint8_t* buffer = nullptr;
    std::size_t size = 0;
    ASSERT_TRUE(context->encryptData(nullptr, 0, &buffer, &size));
    EXPECT_EQ(Bytes(buffer, buffer + size), fromHex("00 02 01 00"));
    std::free(buffer);
}

TEST(EncryptDataTest, MemoryThatRanOutIsLoggedAndFails) {
    const auto context = nearContext({true, true, true});
    constexpr std::size_t kTooMuch = std::numeric_limits<std::size_t>::max() / 4 - 15;
    LogCapture log;
    std::uint8_t* buffer = nullptr;
    std::size_t size = 5;
    EXPECT_FALSE(context->encryptData("abc", kTooMuch, &buffer, &size));
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(size, 0U);
    const auto total = static_cast<int>(static_cast<unsigned>(kTooMuch + kAllFlagsHeader + 16));
    EXPECT_EQ(log.texts(), Lines{"E Sonvia_Default: [SafetyDataDeal::encryptData:line]malloc size:" +
                                 std::to_string(total) + " failed"});
}

TEST(EncryptDataTest, SizeThatLeavesNoRoomForTheHeaderFailsLikeMissingMemory) {
    for (const ProtectionFlags flags : everyFlagCombination()) {
        const auto context = nearContext(flags);
        LogCapture log;
        std::uint8_t* buffer = nullptr;
        std::size_t size = 5;
        EXPECT_FALSE(context->encryptData("abc", std::numeric_limits<std::size_t>::max(), &buffer, &size));
        EXPECT_EQ(buffer, nullptr);
        EXPECT_EQ(log.texts().size(), 1U);
    }
}

TEST(EncryptDataTest, FailedCallsLeaveTheChainWhereItWas) {
    const auto context = nearContext({true, true, false});
    LogCapture log;
    std::uint8_t* buffer = nullptr;
    std::size_t size = 0;
    EXPECT_FALSE(context->encryptData(nullptr, 16, &buffer, &size));
    EXPECT_FALSE(context->encryptData("abc", 3, nullptr, nullptr));
    EXPECT_FALSE(context->encryptData("abc", std::numeric_limits<std::size_t>::max() / 4, &buffer, &size));
    Bytes padded = textBytes("abc");
    padded.resize(16);
    EXPECT_EQ(from(encrypt(*context, textBytes("abc")).data, 5), encryptedFirst(padded));
}

TEST(EncryptDataTest, EqualPayloadsOfOneChainDiffer) {
    const auto context = nearContext({true, true, false});
    EXPECT_NE(encrypt(*context, textBytes("abc")).data, encrypt(*context, textBytes("abc")).data);
}

} // namespace
