// The walk over a payload, which the index and the session's dispatch use.

#include "oracle/entries.h"
#include "protocol/entry_walk.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

using oracle::Bytes;
using protocol::EntryView;

namespace {

std::vector<EntryView> entriesOf(const Bytes& payload) {
    std::vector<EntryView> entries;
    protocol::walkEntries(
        payload.data(), payload.size(), [&entries](const EntryView& entry) { entries.push_back(entry); },
        [] { return true; });
    return entries;
}

} // namespace

TEST(EntryWalk, VisitsEveryEntryWithItsKeyAndThePlaceOfItsType) {
    const Bytes payload =
        oracle::join({oracle::encodeInt("a", 1), oracle::encodeText("bc", "x"), oracle::encodeInt("a", 2)});
    const std::vector<EntryView> entries = entriesOf(payload);
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0].key(), "a");
    EXPECT_EQ(entries[1].key(), "bc");
    EXPECT_EQ(entries[2].key(), "a");
    EXPECT_EQ(entries[0].typeAt(), payload.data() + 2);
    EXPECT_EQ(entries[1].typeAt(), payload.data() + 7 + 3);
}

TEST(EntryWalk, AnEntryGivesItsValueToTheGetterOfItsTypeOnly) {
    const Bytes payload =
        oracle::join({oracle::encodeInt("number", -2), oracle::encodeText("text", "Handset A"),
                      oracle::encodeRaw("byte", oracle::kTypeByte, {200})});
    const std::vector<EntryView> entries = entriesOf(payload);
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0].getInt(), -2);
    EXPECT_EQ(entries[1].getText(), "Handset A");
    EXPECT_EQ(entries[2].getByte(), 200);
    for (std::size_t index = 0; index < entries.size(); ++index) {
        EXPECT_EQ(entries[index].getInt().has_value(), index == 0);
        EXPECT_EQ(entries[index].getText().has_value(), index == 1);
        EXPECT_EQ(entries[index].getByte().has_value(), index == 2);
    }
}

TEST(EntryWalk, GivesUpWithinAFewThousandEntries) {
    Bytes payload;
    for (int entry = 0; entry < 20000; ++entry) {
        payload.insert(payload.end(), {0, 0, 0}); // no key, a value of one byte
    }
    int asked = 0;
    std::size_t visited = 0;
    protocol::walkEntries(
        payload.data(), payload.size(), [&visited](const EntryView&) { ++visited; },
        [&asked] { return ++asked < 2; });
    EXPECT_EQ(asked, 2);
    EXPECT_LT(visited, 10000U);
}

TEST(EntryWalk, EntryThatThePayloadTruncatesIsNotVisited) {
    for (const Bytes& whole : {oracle::encodeText("k", "text"), oracle::encodeInt("k", 1),
                               oracle::encode({"k", oracle::kTypeNested, Bytes(300, 1)})}) {
        for (std::size_t size = 0; size < whole.size(); ++size) {
            // In memory of exactly that size, so that a sanitizer sees a read past it.
            const Bytes truncated(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_TRUE(entriesOf(truncated).empty()) << size;
        }
        EXPECT_EQ(entriesOf(whole).size(), 1U);
    }
}
