// Payloads as they are built.

#include "oracle/entries.h"
#include "protocol/key_value.h"
#include "support/protocol/protocol_support.h"

#include <gtest/gtest.h>

#include <string>

using namespace support;
using oracle::Bytes;
using Builder = CtrlProtocol::KeyValueBuf;

namespace {

OBufList chainFrom(const Builder& builder) {
    OBufList chain;
    builder.finish(chain);
    return chain;
}

Bytes bytesFrom(const Builder& builder) {
    return bytesOf(chainFrom(builder));
}

std::uint64_t capacityOf(const Builder& builder) {
    const OBufList chain = chainFrom(builder);
    return chain.empty() ? 0 : chain.front().buffer->capacity;
}

/// A text entry of exactly `size` bytes in all.
void addEntryOfSize(Builder& builder, std::size_t size) {
    builder.addString("", std::string(size - 6, 'x'));
}

} // namespace

TEST(KeyValueBuf, AddIntWritesKeyTypeSixAndFourBytesMostSignificantFirst) {
    Builder builder;
    builder.addInt("accountID", 0x01020304);
    EXPECT_EQ(bytesFrom(builder), (Bytes{9, 'a', 'c', 'c', 'o', 'u', 'n', 't', 'I', 'D', 6, 1, 2, 3, 4}));
}

TEST(KeyValueBuf, AddIntWritesAllThirtyTwoBits) {
    Builder builder;
    builder.addInt("a", 0xFFFFFFFF).addInt("b", 0x80000000).addInt("c", 0);
    EXPECT_EQ(bytesFrom(builder),
              (Bytes{1, 'a', 6, 255, 255, 255, 255, 1, 'b', 6, 128, 0, 0, 0, 1, 'c', 6, 0, 0, 0, 0}));
}

TEST(KeyValueBuf, AddStringWritesFourLengthBytesAndNoTerminator) {
    Builder builder;
    builder.addString("sn", "A1");
    EXPECT_EQ(bytesFrom(builder), (Bytes{2, 's', 'n', 20, 0, 0, 0, 2, 'A', '1'}));
}

TEST(KeyValueBuf, AddStringKeepsNulBytesInside) {
    Builder builder;
    builder.addString("k", std::string("a\0b", 3));
    EXPECT_EQ(bytesFrom(builder), (Bytes{1, 'k', 20, 0, 0, 0, 3, 'a', 0, 'b'}));
}

TEST(KeyValueBuf, EmptyStringWritesALengthOfZero) {
    Builder builder;
    builder.addString("k", "");
    EXPECT_EQ(bytesFrom(builder), (Bytes{1, 'k', 20, 0, 0, 0, 0}));
}

TEST(KeyValueBuf, AddStringOfMoreThan65535BytesUsesTheUpperLengthBytes) {
    Builder builder;
    builder.addString("k", std::string(70000, 'v'));
    const Bytes bytes = bytesFrom(builder);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 7), (Bytes{1, 'k', 20, 0, 1, 0x11, 0x70}));
    EXPECT_EQ(bytes.size(), 7U + 70000U);
}

TEST(KeyValueBuf, AddKeyValueBufWritesTypeFourteenTwoLengthBytesAndACopy) {
    Builder inner;
    inner.addInt("n", 7);
    Builder outer;
    outer.addKeyValueBuf("KORUInfo", inner);
    inner.addInt("later", 1);
    EXPECT_EQ(bytesFrom(outer),
              (Bytes{8, 'K', 'O', 'R', 'U', 'I', 'n', 'f', 'o', 14, 0, 7, 1, 'n', 6, 0, 0, 0, 7}));
}

TEST(KeyValueBuf, AddKeyValueBufOfAnEmptyBufferWritesALengthOfZero) {
    Builder outer;
    outer.addKeyValueBuf("k", Builder());
    EXPECT_EQ(bytesFrom(outer), (Bytes{1, 'k', 14, 0, 0}));
}

TEST(KeyValueBuf, LengthOfANestedBufferIsTruncatedToSixteenBits) {
    Builder inner;
    addEntryOfSize(inner, 0x10003);
    Builder outer;
    outer.addKeyValueBuf("k", inner);
    const Bytes bytes = bytesFrom(outer);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 5), (Bytes{1, 'k', 14, 0, 3}));
    EXPECT_EQ(bytes.size(), 5U + 0x10003U);
}

TEST(KeyValueBuf, KeyOf255BytesIsWrittenWhole) {
    Builder builder;
    builder.addInt(std::string(255, 'k'), 1);
    const Bytes bytes = bytesFrom(builder);
    EXPECT_EQ(bytes[0], 255);
    EXPECT_EQ(bytes.size(), 1U + 255 + 1 + 4);
}

TEST(KeyValueBuf, KeyOf256BytesIsWrittenWithALengthByteOfZero) {
    Builder builder;
    builder.addInt(std::string(256, 'k'), 1);
    const Bytes bytes = bytesFrom(builder);
    EXPECT_EQ(bytes[0], 0);
    EXPECT_EQ(bytes.size(), 1U + 256 + 1 + 4);
    EXPECT_EQ(oracle::text(Bytes(bytes.begin() + 1, bytes.begin() + 257)), std::string(256, 'k'));
}

TEST(KeyValueBuf, EmptyKeyIsWritten) {
    Builder builder;
    builder.addInt("", 1);
    EXPECT_EQ(bytesFrom(builder), (Bytes{0, 6, 0, 0, 0, 1}));
}

TEST(KeyValueBuf, CallsChainOnOneBuffer) {
    Builder builder;
    Builder& afterInt = builder.addInt("a", 1);
    Builder& afterString = afterInt.addString("b", "2");
    Builder& afterNested = afterString.addKeyValueBuf("c", Builder());
    EXPECT_EQ(&afterInt, &builder);
    EXPECT_EQ(&afterString, &builder);
    EXPECT_EQ(&afterNested, &builder);
    const Bytes expected = oracle::join({oracle::encodeInt("a", 1), oracle::encodeText("b", "2"),
                                         oracle::encode({"c", oracle::kTypeNested, {}})});
    EXPECT_EQ(bytesFrom(builder), expected);
}

TEST(KeyValueBuf, AnEmptyBufferFinishesAsAnEmptyChain) {
    OBufList chain = chainOf({1, 2, 3});
    Builder().finish(chain);
    EXPECT_EQ(totalLength(chain), 0U);
}

TEST(KeyValueBuf, FinishSharesTheStorage) {
    Builder builder;
    builder.addInt("a", 1);
    OBufList one;
    OBufList two;
    builder.finish(one);
    builder.finish(two);
    ASSERT_EQ(one.size(), 1U);
    EXPECT_EQ(one.front().data(), two.front().data());
}

TEST(KeyValueBuf, FinishedBytesOutliveTheBuilder) {
    OBufList chain;
    Builder().addInt("a", 1).finish(chain);
    EXPECT_EQ(bytesOf(chain), oracle::encodeInt("a", 1));
}

TEST(KeyValueBuf, ANewBufferReserves255Bytes) {
    Builder builder;
    addEntryOfSize(builder, 255);
    EXPECT_EQ(capacityOf(builder), 255U);
}

TEST(KeyValueBuf, AByteThatDoesNotFitGrowsToTwiceThePositionPlusTwo) {
    Builder builder;
    addEntryOfSize(builder, 255);
    builder.addString("", ""); // its first write is the one byte of the key's length
    EXPECT_EQ(capacityOf(builder), 255U * 2 + 2);
}

TEST(KeyValueBuf, TwoBytesThatDoNotFitGrowToTwiceThePositionPlusFour) {
    Builder builder;
    addEntryOfSize(builder, 252);
    builder.addKeyValueBuf("", Builder()); // the length bytes start at 254
    EXPECT_EQ(capacityOf(builder), 254U * 2 + 4);
}

TEST(KeyValueBuf, FourBytesThatDoNotFitGrowToTwiceThePositionPlusEight) {
    Builder builder;
    addEntryOfSize(builder, 250);
    builder.addInt("", 1); // the value starts at 252
    EXPECT_EQ(capacityOf(builder), 252U * 2 + 8);
}

TEST(KeyValueBuf, TextThatDoesNotFitGrowsToTwiceTheBytesNeeded) {
    Builder builder;
    addEntryOfSize(builder, 256);
    EXPECT_EQ(capacityOf(builder), 256U * 2);
}

TEST(KeyValueBuf, GrowingKeepsWhatWasWritten) {
    Builder builder;
    Bytes expected;
    for (int index = 0; index < 500; ++index) {
        const std::string key = "key" + std::to_string(index);
        builder.addInt(key, static_cast<std::uint32_t>(index));
        expected = oracle::join({expected, oracle::encodeInt(key, index)});
    }
    EXPECT_EQ(bytesFrom(builder), expected);
}

TEST(KeyValueBuf, AddNestedWritesWhatAddKeyValueBufWrites) {
    for (std::size_t size :
         {std::size_t{0}, std::size_t{1}, std::size_t{200}, std::size_t{300}, std::size_t{70000}}) {
        const std::string text(size, 'x');
        Builder inner;
        inner.addInt("n", 7).addString("text", text);
        Builder copied;
        copied.addInt("first", 1).addKeyValueBuf("KORUInfo", inner).addInt("last", 2);
        Builder inPlace;
        inPlace.addInt("first", 1)
            .addNested("KORUInfo", [&text](Builder& info) { info.addInt("n", 7).addString("text", text); })
            .addInt("last", 2);
        EXPECT_TRUE(bytesFrom(inPlace) == bytesFrom(copied)) << size;
    }
}

TEST(KeyValueBuf, EntriesAreTheSameWhetherTheyFitOrGrowTheStorage) {
    for (std::size_t filled = 230; filled < 270; ++filled) {
        Builder builder;
        addEntryOfSize(builder, filled);
        builder.addInt("number", 0x01020304).addString("text", "value").addKeyValueBuf("nested", Builder());
        const Bytes expected = oracle::join(
            {oracle::encodeText("", std::string(filled - 6, 'x')), oracle::encodeInt("number", 0x01020304),
             oracle::encodeText("text", "value"), oracle::encode({"nested", oracle::kTypeNested, {}})});
        EXPECT_EQ(bytesFrom(builder), expected) << filled;
    }
}
