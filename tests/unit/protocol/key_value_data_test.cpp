// Received payloads indexed and read.

#include "oracle/entries.h"
#include "protocol/key_value.h"
#include "support/log_capture.h"
#include "support/protocol/protocol_support.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

using namespace support;
using oracle::Bytes;
using oracle::encodeInt;
using oracle::encodeText;
using Data = CtrlProtocol::KeyValueData;

namespace {

struct Value {
    bool ok = true;
    std::int64_t number = -1;
    std::string text;

    friend bool operator==(const Value&, const Value&) = default;
};

std::ostream& operator<<(std::ostream& out, const Value& value) {
    return out << (value.ok ? "ok " : "failed ") << value.number << " '" << value.text << "'";
}

Value intOf(const Data& data, const std::string& key) {
    Value value;
    value.number = data.getInt(key, value.ok);
    return value;
}

Value byteOf(const Data& data, const std::string& key) {
    Value value;
    value.number = data.getByte(key, value.ok);
    return value;
}

Value textOf(const Data& data, const std::string& key) {
    Value value;
    value.text = data.getString(key, value.ok);
    return value;
}

Value bytesValueOf(const Data& data, const std::string& key) {
    Value value;
    value.text = oracle::text(bytesOf(data.getBytes(key, value.ok)));
    return value;
}

const Value kNoNumber = {false, 0, ""};
const Value kNoText = {false, -1, ""};

void expectNothingAt(const Data& data, const std::string& key) {
    EXPECT_EQ(intOf(data, key), kNoNumber);
    EXPECT_EQ(byteOf(data, key), kNoNumber);
    EXPECT_EQ(textOf(data, key), kNoText);
    EXPECT_EQ(bytesValueOf(data, key), kNoText);
}

} // namespace

TEST(KeyValueData, AnEmptyPayloadHasNoKeysAndEveryGetterFails) {
    const Data data{OBufList()};
    EXPECT_TRUE(data.entries().empty());
    expectNothingAt(data, "player-state");
    expectNothingAt(data, "");
}

TEST(KeyValueData, EachGetterReadsItsType) {
    const Data data(chainOf(oracle::join({encodeInt("int", -2), encodeText("text", "Handset A"),
                                          oracle::encodeRaw("byte", oracle::kTypeByte, {200})})));
    EXPECT_EQ(intOf(data, "int"), (Value{true, -2, ""}));
    EXPECT_EQ(textOf(data, "text"), (Value{true, -1, "Handset A"}));
    EXPECT_EQ(bytesValueOf(data, "text"), (Value{true, -1, "Handset A"}));
    EXPECT_EQ(byteOf(data, "byte"), (Value{true, 200, ""}));
}

TEST(KeyValueData, GetIntIsSigned) {
    const Data data(chainOf(
        oracle::join({encodeInt("low", INT32_MIN), encodeInt("high", INT32_MAX), encodeInt("one", -1)})));
    EXPECT_EQ(intOf(data, "low").number, INT32_MIN);
    EXPECT_EQ(intOf(data, "high").number, INT32_MAX);
    EXPECT_EQ(intOf(data, "one").number, -1);
}

TEST(KeyValueData, OfTwoEntriesWithOneKeyTheLaterWins) {
    const Data data(chainOf(oracle::join({encodeInt("k", 1), encodeInt("other", 5), encodeInt("k", 2)})));
    EXPECT_EQ(intOf(data, "k"), (Value{true, 2, ""}));
    EXPECT_EQ(data.entries().size(), 2U);
}

TEST(KeyValueData, ALaterEntryOfAnotherTypeHidesTheEarlierOne) {
    const Data data(chainOf(oracle::join({encodeInt("k", 1), encodeText("k", "x")})));
    EXPECT_EQ(intOf(data, "k"), kNoNumber);
    EXPECT_EQ(textOf(data, "k"), (Value{true, -1, "x"}));
}

TEST(KeyValueData, ALaterEntryOfAnUnknownTypeHidesNothing) {
    const Data data(chainOf(oracle::join({encodeInt("k", 1), oracle::encodeRaw("k", 99, {})})));
    EXPECT_EQ(intOf(data, "k"), (Value{true, 1, ""}));
}

TEST(KeyValueData, GettersRefuseEveryTypeButTheirOwn) {
    for (int type = 0; type < 256; ++type) {
        const auto code = static_cast<std::uint8_t>(type);
        const oracle::Layout layout = oracle::layoutOf(code);
        const std::size_t size = layout.lengthWidth != 0 ? 3 : layout.fixedWidth;
        const Data data(chainOf(oracle::encode({"k", code, Bytes(size, 'v')})));
        EXPECT_EQ(byteOf(data, "k").ok, type == 3) << type;
        EXPECT_EQ(intOf(data, "k").ok, type == 6) << type;
        EXPECT_EQ(textOf(data, "k").ok, type == 20) << type;
        EXPECT_EQ(bytesValueOf(data, "k").ok, type == 20) << type;
    }
}

TEST(KeyValueData, AWrongTypeGivesZeroOrEmpty) {
    const Data data(chainOf(oracle::join({encodeInt("int", 7), encodeText("text", "7777")})));
    EXPECT_EQ(textOf(data, "int"), kNoText);
    EXPECT_EQ(bytesValueOf(data, "int"), kNoText);
    EXPECT_EQ(byteOf(data, "int"), kNoNumber);
    EXPECT_EQ(intOf(data, "text"), kNoNumber);
}

TEST(KeyValueData, TextOfLengthZeroIsFoundAndEmpty) {
    const Data data(chainOf(encodeText("phone-name", "")));
    EXPECT_EQ(textOf(data, "phone-name"), (Value{true, -1, ""}));
    EXPECT_EQ(bytesValueOf(data, "phone-name"), (Value{true, -1, ""}));
}

TEST(KeyValueData, EveryKnownTypeIsIndexedAtItsTypeByteAndSkippedByItsLayout) {
    for (int type = 0; type < 256; ++type) {
        const auto code = static_cast<std::uint8_t>(type);
        const oracle::Layout layout = oracle::layoutOf(code);
        const std::size_t size = layout.lengthWidth != 0 ? 5 : layout.fixedWidth;
        const bool known = size != 0;
        const Data data(chainOf(oracle::join(
            {encodeInt("a", 1), oracle::encode({"key", code, Bytes(size, 0xEE)}), encodeInt("z", 26)})));
        std::map<std::string, std::uint32_t> expected = {{"a", 2}};
        std::uint32_t next = 7 + 5; // behind the first entry, and the key and type of the second
        if (known) {
            expected["key"] = 7 + 4;
            next += static_cast<std::uint32_t>(layout.lengthWidth + size);
        }
        expected["z"] = next + 2;
        EXPECT_EQ(data.entries(), expected) << type;
        EXPECT_EQ(intOf(data, "z"), (Value{true, 26, ""})) << type;
    }
}

TEST(KeyValueData, TheByteAfterTypeFifteenIsTheNextKeysLength) {
    // If the value bytes of type 15 were skipped, "b" would be lost.
    const Data data(chainOf(Bytes{1, 'a', 15, 1, 'b', 6, 0, 0, 0, 9}));
    EXPECT_EQ(data.entries(), (std::map<std::string, std::uint32_t>{{"b", 5}}));
    EXPECT_EQ(intOf(data, "b"), (Value{true, 9, ""}));
}

TEST(KeyValueData, PrefixedValuesOfLengthZeroSkipNothing) {
    for (const std::uint8_t type : Bytes{12, 13, 14, 20, 21, 22}) {
        const Data data(chainOf(oracle::join({oracle::encode({"k", type, {}}), encodeInt("z", 1)})));
        EXPECT_EQ(data.entries().size(), 2U) << +type;
        EXPECT_EQ(intOf(data, "z"), (Value{true, 1, ""})) << +type;
    }
}

TEST(KeyValueData, LengthThatRunsPastThePayloadIsNotIndexedAndEndsIt) {
    for (const std::uint8_t type : Bytes{12, 13, 14, 20, 21, 22}) {
        const unsigned width = oracle::layoutOf(type).lengthWidth;
        const Bytes cut =
            oracle::encodeRaw("k", type, oracle::join({oracle::bigEndian(6, width), {1, 2, 3, 4, 5}}));
        const Data data(chainOf(oracle::join({encodeInt("a", 1), cut})));
        EXPECT_EQ(data.entries().size(), 1U) << +type;
        expectNothingAt(data, "k");
    }
}

TEST(KeyValueData, TheGreatestLengthsAreSurvived) {
    for (const std::uint8_t type : Bytes{14, 20}) {
        const unsigned width = oracle::layoutOf(type).lengthWidth;
        const Data data(
            chainOf(oracle::encodeRaw("k", type, oracle::join({oracle::bigEndian(~0ULL, width), {1}}))));
        EXPECT_TRUE(data.entries().empty());
        expectNothingAt(data, "k");
    }
}

TEST(KeyValueData, ATruncatedLaterEntryLeavesTheEarlierOneInForce) {
    const Bytes cut = oracle::encodeRaw("k", oracle::kTypeInt, {0, 0, 0});
    const Data data(chainOf(oracle::join({encodeInt("k", 1), cut})));
    EXPECT_EQ(intOf(data, "k"), (Value{true, 1, ""}));
}

TEST(KeyValueData, EveryTruncationOfAValidPayloadHoldsExactlyTheWholeEntries) {
    const std::vector<Bytes> entries = {encodeInt("player-state", 2),
                                        encodeText("phone-name", "Handset A"),
                                        oracle::encodeRaw("byte", oracle::kTypeByte, {5}),
                                        oracle::encodeRaw("none", 99, {}),
                                        oracle::encode({"KORUInfo", oracle::kTypeNested, encodeInt("n", 1)}),
                                        oracle::encodeRaw("wide", 8, Bytes(8, 1))};
    Bytes payload;
    std::vector<std::pair<std::size_t, std::string>> ends; // where each known entry ends, and its key
    for (const Bytes& next : entries) {
        payload = oracle::join({payload, next});
        const std::string key = oracle::text(Bytes(next.begin() + 1, next.begin() + 1 + next[0]));
        if (key != "none") {
            ends.emplace_back(payload.size(), key);
        }
    }
    for (std::size_t size = 0; size <= payload.size(); ++size) {
        const Data data(chainOf(Bytes(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(size))));
        for (const auto& [end, key] : ends) {
            EXPECT_EQ(data.entries().count(key) != 0, end <= size) << key << " in " << size;
        }
        EXPECT_EQ(intOf(data, "player-state").ok, ends[0].first <= size) << size;
        EXPECT_EQ(textOf(data, "phone-name").ok, ends[1].first <= size) << size;
        EXPECT_EQ(byteOf(data, "byte").ok, ends[2].first <= size) << size;
    }
}

TEST(KeyValueData, KeysAreOrderedByteByByte) {
    const Data data(chainOf(oracle::join({encodeInt("b", 1), encodeInt("\xC3\xA4", 1), encodeInt("a", 1),
                                          encodeInt("B", 1), encodeInt("ab", 1), encodeInt("", 1)})));
    std::vector<std::string> keys;
    for (const auto& [key, offset] : data.entries()) {
        keys.push_back(key);
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"", "B", "a", "ab", "b", "\xC3\xA4"}));
}

TEST(KeyValueData, KeysMayHoldAnyBytes) {
    const std::string key("a\0\xFF", 3);
    const Data data(chainOf(encodeInt(key, 3)));
    EXPECT_EQ(intOf(data, key), (Value{true, 3, ""}));
    expectNothingAt(data, "a");
}

TEST(KeyValueData, EverySplitOfAPayloadIntoPiecesReadsTheSame) {
    const Bytes payload = oracle::join({encodeInt("int", 0x01020304), encodeText("text", "Handset A"),
                                        oracle::encodeRaw("byte", oracle::kTypeByte, {7})});
    const Data whole(chainOf(payload));
    for (std::size_t size = 1; size <= payload.size(); ++size) {
        const Data data(chainOfPieces(payload, size));
        EXPECT_EQ(data.entries(), whole.entries()) << size;
        EXPECT_EQ(intOf(data, "int"), (Value{true, 0x01020304, ""})) << size;
        EXPECT_EQ(textOf(data, "text"), (Value{true, -1, "Handset A"})) << size;
        EXPECT_EQ(byteOf(data, "byte"), (Value{true, 7, ""})) << size;
    }
}

TEST(KeyValueData, ThePayloadIsSharedAndNotCopied) {
    const OBufList payload = chainOf(encodeText("k", "value"));
    const Data data{OBufList(payload)};
    bool ok = false;
    const OBufList value = data.getBytes("k", ok);
    ASSERT_TRUE(ok);
    EXPECT_EQ(value.front().data(), payload.front().data() + 7);
}

TEST(KeyValueData, AViewIsTheTextWhereItLies) {
    const OBufList payload = chainOf(oracle::join({encodeText("k", "value"), encodeInt("n", 1)}));
    const Data data{OBufList(payload)};
    bool ok = false;
    const std::string_view text = data.getView("k", ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(text, "value");
    EXPECT_EQ(static_cast<const void*>(text.data()), payload.front().data() + 7);
    EXPECT_EQ(data.getView("n", ok), "");
    EXPECT_FALSE(ok);
}

TEST(KeyValueData, AViewIsWholeWhereverThePayloadIsSplit) {
    const Bytes payload = encodeText("key", "value");
    for (std::size_t size = 1; size <= payload.size(); ++size) {
        const Data data(chainOfPieces(payload, size));
        bool ok = false;
        EXPECT_EQ(data.getView("key", ok), "value") << size;
        EXPECT_TRUE(ok);
    }
}

TEST(KeyValueData, ValuesGivenOutOutliveTheIndex) {
    OBufList value;
    bool ok = false;
    {
        const Data data(chainOf(encodeText("k", "value")));
        value = data.getBytes("k", ok);
    }
    EXPECT_EQ(oracle::text(bytesOf(value)), "value");
}

TEST(KeyValueData, NestedBuffersAreIndexedAsOneEntry) {
    const Data data(chainOf(oracle::encode({"KORUInfo", oracle::kTypeNested, encodeInt("inner", 1)})));
    EXPECT_EQ(data.entries().size(), 1U);
    EXPECT_EQ(data.entries().count("KORUInfo"), 1U);
    expectNothingAt(data, "KORUInfo");
    expectNothingAt(data, "inner");
}

TEST(KeyValueData, AKeyOf256BytesIsNotReadBackAndHarmsNobody) {
    OBufList chain;
    CtrlProtocol::KeyValueBuf().addInt("first", 1).addInt(std::string(256, 'k'), 2).finish(chain);
    const Data data(chain);
    EXPECT_EQ(intOf(data, "first"), (Value{true, 1, ""}));
    expectNothingAt(data, std::string(256, 'k'));
}

TEST(KeyValueData, PayloadsThatAreNoneAreReadInSilence) {
    const Bytes valid = oracle::join({encodeInt("number", 7), encodeText("text", "abc")});
    LogCapture log;
    for (std::size_t size = 0; size <= valid.size(); ++size) {
        Bytes cut(valid.begin(), valid.begin() + static_cast<std::ptrdiff_t>(size));
        for (const std::uint8_t last : Bytes{0, 6, 20, 99, 255}) {
            cut.push_back(last); // unknown types, and lengths past the end
            const Data data(chainOf(cut));
            intOf(data, "number");
            intOf(data, "text");
            textOf(data, "text");
            textOf(data, "number");
            byteOf(data, "missing");
        }
    }
    EXPECT_TRUE(log.lines().empty());
}
