// What the second opinion lets pass, no test would notice.
#include "oracle/entries.h"

#include <gtest/gtest.h>

#include <string>

namespace oracle {
namespace {

using namespace std::string_literals;

Fault faultOf(const std::string& payload) {
    return decode(bytesOf(payload)).fault.value_or(Fault());
}

TEST(OracleEntries, EntriesOfEveryLayoutAreDecoded) {
    const Bytes payload = bytesOf("\x01"
                                  "a\x03\x09"
                                  "\x01"
                                  "b\x05\x01\x02"
                                  "\x01"
                                  "c\x0B\0\0\0\0\0\0\0\x01"
                                  "\x01"
                                  "d\x14\0\0\0\x02hi"
                                  "\x01"
                                  "e\x0E\0\x04\x01x\x03\x01"s);
    const Decoded decoded = decode(payload);
    EXPECT_FALSE(decoded.fault);
    ASSERT_EQ(decoded.entries.size(), 5U);
    EXPECT_EQ(decoded.entries[1].value, (Bytes{1, 2}));
    EXPECT_EQ(text(decoded.entries[3].value), "hi");
    EXPECT_EQ(decode(decoded.entries[4].value).entries.at(0).key, "x");
    Bytes again;
    for (const Entry& entry : decoded.entries) {
        EXPECT_EQ(entry.value, part(payload, entry.valueOffset, entry.value.size()));
        EXPECT_EQ(entry.type, payload[entry.typeOffset]);
        append(again, encode(entry));
    }
    EXPECT_EQ(again, payload);
}

TEST(OracleEntries, PayloadCutAnywhereInsideAnEntryGivesTheEntriesBeforeItAndAFault) {
    const Entry first{"a", kTypeByte, {7}};
    const Bytes start = encode(first);
    for (const std::uint8_t type : {kTypeByte, kTypeInt, std::uint8_t{8}, kTypeNested, kTypeText}) {
        const Layout layout = layoutOf(type);
        const Entry second{"key", type, Bytes(layout.lengthWidth == 0 ? layout.fixedWidth : 5U, 9)};
        const Bytes whole = join({start, encode(second)});
        EXPECT_EQ(decode(whole).entries, (std::vector<Entry>{first, second})) << +type;
        for (std::size_t size = start.size() + 1; size < whole.size(); ++size) {
            const Decoded decoded = decode(part(whole, 0, size));
            EXPECT_EQ(decoded.entries, std::vector<Entry>{first}) << +type << ", " << size;
            EXPECT_TRUE(decoded.fault && decoded.fault->offset <= size) << +type << ", " << size;
            EXPECT_EQ(decoded.end, start.size());
        }
    }
}

TEST(OracleEntries, FaultSaysWhereAndWhatIsMissing) {
    EXPECT_EQ(faultOf("\x05"
                      "ab"),
              (Fault{1, "key needs 5 bytes, 2 left"}));
    EXPECT_EQ(faultOf("\x01k"), (Fault{2, "type needs 1 bytes, 0 left"}));
    EXPECT_EQ(faultOf("\x01k\x14\0\0"s), (Fault{3, "value length needs 4 bytes, 2 left"}));
    EXPECT_EQ(faultOf("\x01k\x14\0\0\0\x09hello"s), (Fault{7, "value needs 9 bytes, 5 left"}));
    EXPECT_EQ(faultOf("\x01k\x0F"), (Fault{2, "type 15 has no value layout"}));
    EXPECT_EQ(faultOf("\x01k\xFF"), (Fault{2, "type 255 has no value layout"}));
}

TEST(OracleEntries, TypesWithoutAValueArePassedOverByTheLenientReader) {
    const Entries entries = entriesOf(bytesOf("\x01k\x0F\x01i\x06\0\0\0\x05"s));
    EXPECT_EQ(entries.size(), 1U);
    EXPECT_EQ(intOf(entries, "i"), 5);
}

TEST(OracleEntries, MaskKeepsEverythingButTexts) {
    const Bytes inner = join({encodeText("accountID", "me"), encodeInt("n", 7)});
    EXPECT_EQ(
        masked(join({encodeNested("KORUInfo", inner), encodeText("t", "abc"), encodeInt("i", 0x61616161)})),
        join({encodeNested("KORUInfo", join({encodeText("accountID", "xx"), encodeInt("n", 7)})),
              encodeText("t", "xxx"), encodeInt("i", 0x61616161)}));
    EXPECT_EQ(masked({}), Bytes());
}

TEST(OracleEntries, MaskLetsNothingThroughAfterAFault) {
    const Bytes whole = join({encodeInt("i", 5), encodeText("accountID", "secret")});
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const Bytes cut = masked(part(whole, 0, size));
        EXPECT_EQ(cut.size(), size);
        EXPECT_EQ(text(cut).find("se"), std::string::npos) << size;
    }
    EXPECT_EQ(text(masked(bytesOf("\x01k\x0Fsecret"))).find("se"), std::string::npos);
}

} // namespace
} // namespace oracle
